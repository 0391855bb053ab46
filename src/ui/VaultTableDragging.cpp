// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/VaultTableWidget.h"

#include <QDrag>
#include <QDragEnterEvent>
#include <QDragLeaveEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QPainter>
#include <QUrl>

#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

/// Empty also when one of the URLs is not on this computer: the rest of the selection would be
/// left behind without a word.
QStringList localPaths(const QMimeData& data) {
    QStringList paths;
    const QList<QUrl> urls = data.urls();
    for (const QUrl& url : urls) {
        if (!url.isLocalFile()) {
            return {};
        }
        paths.append(url.toLocalFile());
    }
    return paths;
}

/// A row under the pointer. What it stands for is in its members, which no other program sees.
class DraggedRow : public QMimeData {
public:
    DraggedRow(const QTableWidget* from, VaultTableItemKind draggedKind, QString draggedPath)
        : table(from), kind(draggedKind), path(std::move(draggedPath)) {
        // Without any type it would not be offered at all.
        setData(u"application/x-tessel-row"_s, {});
    }

    const QTableWidget* const table;
    const VaultTableItemKind kind;
    const QString path;
};

/// The row of @p table that is being dragged; null when it is something else.
const DraggedRow* draggedRow(const QTableWidget* table, const QDropEvent& event) {
    const auto* row = dynamic_cast<const DraggedRow*>(event.mimeData());
    return row != nullptr && row->table == table ? row : nullptr;
}

} // namespace

// --- Dragging --------------------------------------------------------------------------------

QMimeData* VaultTableWidget::mimeData(const QList<QTableWidgetItem*>& items) const {
    if (!m_dropsAllowed || items.isEmpty()) {
        return nullptr;
    }
    const QTableWidgetItem* nameItem = item(items.first()->row(), VaultColumn::Name);
    const VaultTableItemKind kind = kindOf(nameItem);
    return kind == VaultTableItemKind::ParentDirectory
               ? nullptr
               : new DraggedRow(this, kind, pathOf(nameItem));
}

void VaultTableWidget::startDrag(Qt::DropActions /*supportedActions*/) {
    QTableWidgetItem* nameItem = item(currentRow(), VaultColumn::Name);
    QMimeData* row = nameItem == nullptr ? nullptr : mimeData({nameItem});
    if (row == nullptr) {
        return;
    }
    auto* drag = new QDrag(this);
    drag->setMimeData(row);
    drag->setPixmap(item(currentRow(), VaultColumn::Icon)->icon().pixmap(iconSize()));
    // The result does not matter: whatever another program makes of the drop, rows are taken out
    // by rowDropped() alone.
    drag->exec(Qt::MoveAction);
    showDropAt({});
}

// --- Drops -----------------------------------------------------------------------------------

bool VaultTableWidget::acceptsDrop(QDropEvent* event) const {
    const bool isRow = draggedRow(this, *event) != nullptr;
    const bool accepted = m_dropsAllowed && (isRow ? acceptsRow(event) : acceptsFiles(event));
    event->setAccepted(accepted);
    return accepted;
}

bool VaultTableWidget::acceptsFiles(QDropEvent* event) const {
    if (!event->possibleActions().testFlag(Qt::CopyAction) ||
        localPaths(*event->mimeData()).isEmpty()) {
        return false;
    }
    // Always a copy, whatever the source proposes: it deletes files that it believes moved, before
    // the user has seen them in the vault.
    event->setDropAction(Qt::CopyAction);
    return true;
}

bool VaultTableWidget::acceptsRow(QDropEvent* event) const {
    event->setDropAction(Qt::MoveAction);
    // A hand that is not quite at rest while it clicks does not ask for anything to be moved.
    return m_rowDraggedAway && folderRowAt(event->position().toPoint()) >= 0;
}

void VaultTableWidget::followDraggedRow(const QDropEvent& event) {
    const DraggedRow* row = draggedRow(this, event);
    const QTableWidgetItem* under = itemAt(event.position().toPoint());
    if (row != nullptr) {
        const auto* nameItem = under == nullptr ? nullptr : item(under->row(), VaultColumn::Name);
        const bool onItself =
            nameItem != nullptr && kindOf(nameItem) == row->kind && pathOf(nameItem) == row->path;
        m_rowDraggedAway = m_rowDraggedAway || !onItself;
    }
}

int VaultTableWidget::folderRowAt(const QPoint& position) const {
    const int row = rowAt(position.y());
    const QTableWidgetItem* nameItem = item(row, VaultColumn::Name);
    return nameItem == nullptr || kindOf(nameItem) == VaultTableItemKind::File ? -1 : row;
}

void VaultTableWidget::showDropAt(std::optional<QPoint> position) {
    if (std::exchange(m_dropPosition, position) != position) {
        viewport()->update();
    }
}

QString VaultTableWidget::directoryAt(const QPoint& position) const {
    const QTableWidgetItem* folder = item(folderRowAt(position), VaultColumn::Name);
    return folder == nullptr ? m_directory : pathOf(folder);
}

void VaultTableWidget::dragEnterEvent(QDragEnterEvent* event) {
    m_rowDraggedAway = false;
    followDraggedRow(*event);
    // A row enters where it was, and may move on from there.
    if (m_dropsAllowed && draggedRow(this, *event) != nullptr) {
        event->acceptProposedAction();
    } else {
        static_cast<void>(acceptsDrop(event));
    }
}

void VaultTableWidget::dragMoveEvent(QDragMoveEvent* event) {
    // Scrolls at the edges.
    QTableWidget::dragMoveEvent(event);
    followDraggedRow(*event);
    const bool accepted = acceptsDrop(event);
    showDropAt(accepted ? std::optional(event->position().toPoint()) : std::nullopt);
}

void VaultTableWidget::dragLeaveEvent(QDragLeaveEvent* event) {
    QTableWidget::dragLeaveEvent(event);
    showDropAt({});
}

void VaultTableWidget::dropEvent(QDropEvent* event) {
    stopAutoScroll();
    showDropAt({});
    if (!acceptsDrop(event)) {
        return;
    }
    const QString directory = directoryAt(event->position().toPoint());
    if (const DraggedRow* row = draggedRow(this, *event)) {
        Q_EMIT rowDropped(row->kind, row->path, directory);
    } else {
        Q_EMIT pathsDropped(localPaths(*event->mimeData()), directory);
    }
}

void VaultTableWidget::paintEvent(QPaintEvent* event) {
    QTableWidget::paintEvent(event);
    // Asked of the place, not kept: the rows may have been scrolled beneath a resting pointer.
    const int row = m_dropPosition ? folderRowAt(*m_dropPosition) : -1;
    if (row < 0) {
        return;
    }
    constexpr int Opacity = 70;
    constexpr int FrameWidth = 2;
    const bool selected = row == currentRow();
    QPainter painter(viewport());
    const QRect place(0, rowViewportPosition(row), viewport()->width(), rowHeight(row));
    if (!selected) {
        // Thin enough for the text beneath it to be read.
        QColor veil = palette().color(QPalette::Highlight);
        veil.setAlpha(Opacity);
        painter.fillRect(place, veil);
    }
    painter.setPen(QPen(palette().color(selected ? QPalette::HighlightedText : QPalette::Highlight),
                        FrameWidth, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
    painter.drawRect(place.adjusted(1, 1, -1, -1));
}

} // namespace Tessel::UI
