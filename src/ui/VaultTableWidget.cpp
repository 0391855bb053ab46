// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/VaultTableWidget.h"

#include <QDragEnterEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QUrl>

#include <utility>

namespace Tessel::UI {

namespace {

/// Empty also when only some of what is dragged lies on this computer: the rest would be left
/// behind without a word.
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

} // namespace

VaultTableWidget::VaultTableWidget(int columns, std::function<bool()> takesDrops)
    : QTableWidget(0, columns), m_takesDrops(std::move(takesDrops)) {
    setAcceptDrops(true);
    viewport()->setAcceptDrops(true);
}

bool VaultTableWidget::acceptsDrop(QDropEvent* event) const {
    const bool copyable = event->possibleActions().testFlag(Qt::CopyAction);
    if (!copyable || localPaths(*event->mimeData()).isEmpty() || !m_takesDrops()) {
        event->ignore();
        return false;
    }
    // Whatever the source proposes: moved files would be deleted before anyone has seen them safe.
    event->setDropAction(Qt::CopyAction);
    event->accept();
    return true;
}

void VaultTableWidget::dragEnterEvent(QDragEnterEvent* event) {
    static_cast<void>(acceptsDrop(event));
}

void VaultTableWidget::dragMoveEvent(QDragMoveEvent* event) {
    static_cast<void>(acceptsDrop(event));
}

void VaultTableWidget::dropEvent(QDropEvent* event) {
    if (acceptsDrop(event)) {
        Q_EMIT pathsDropped(localPaths(*event->mimeData()));
    }
}

} // namespace Tessel::UI
