// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/VaultTableWidget.h"

#include "core/VaultPath.h"
#include "ui/DisplayFormats.h"
#include "ui/LongText.h"
#include "ui/ReadableColours.h"
#include "ui/WindowText.h"

#include <QHeaderView>
#include <QHelpEvent>
#include <QMouseEvent>
#include <QSignalBlocker>
#include <QStyle>
#include <QToolTip>

#include <algorithm>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

/// Of a row's items: the vault path of what the row shows.
constexpr int VaultPathRole = Qt::UserRole;
/// Of a row's items: its VaultTableItemKind.
constexpr int KindRole = Qt::UserRole + 1;

QTableWidgetItem* addItem(QTableWidget* table, int position, int column, const QString& text) {
    auto* item = new QTableWidgetItem(text);
    table->setItem(position, column, item);
    return item;
}

/// The three columns that describe a file or folder.
void fillDetails(QTableWidget* table, int position, const VaultRow& row) {
    const bool isFile = row.kind == VaultTableItemKind::File;
    QTableWidgetItem* size = addItem(table, position, VaultColumn::Size,
                                     isFile ? formatFileSize(row.sizeBytes) : QString());
    QTableWidgetItem* type = addItem(table, position, VaultColumn::Type, row.type);
    QTableWidgetItem* modified =
        addItem(table, position, VaultColumn::Modified, formatFileDate(row.modifiedUtc));
    type->setTextAlignment(Qt::AlignCenter);
    modified->setTextAlignment(Qt::AlignCenter);
    if (!isFile) {
        return;
    }
    size->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
    for (QTableWidgetItem* item : {size, type, modified}) {
        item->setData(VaultPathRole, row.path);
    }
}

} // namespace

VaultTableWidget::VaultTableWidget() : QTableWidget(0, VaultColumn::Count) {
    setObjectName(u"vaultTable"_s);
    setAccessibleName(WindowText::tr("Arquivos protegidos"));
    setMinimumHeight(220);
    setContextMenuPolicy(Qt::CustomContextMenu);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setFocusPolicy(Qt::NoFocus);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setAlternatingRowColors(true);
    setShowGrid(false);
    setIconSize({18, 18});
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setStyleSheet(u"QTableWidget::item { border-bottom: 1px solid #d8d8d8; }"
                  "QTableWidget::item:focus { outline: none; }"
                  "QTableWidget::item:selected { background-color: palette(highlight); color: "
                  "palette(highlighted-text); }"_s);
    keepReadable(this);
    setUpHeader();
    setDragEnabled(true);
    // The table marks folders itself, not the gaps between rows.
    setDropIndicatorShown(false);
    setAcceptDrops(true);
    viewport()->setAcceptDrops(true);

    constexpr int TypingPauseMs = 1000;
    m_typingPause.setSingleShot(true);
    m_typingPause.setInterval(TypingPauseMs);
    connect(&m_typingPause, &QTimer::timeout, this, &VaultTableWidget::forgetLetters);
    connect(horizontalHeader(), &QHeaderView::sectionClicked, this,
            [this](int section) { setOrder(orderAfterClick(m_order, section)); });
    connect(this, &QTableWidget::itemDoubleClicked, this, &VaultTableWidget::rowActivated);
    connect(this, &QTableWidget::itemSelectionChanged, this, &VaultTableWidget::followHighlight);
    connect(this, &QWidget::customContextMenuRequested, this, &VaultTableWidget::requestMenuAt);
}

void VaultTableWidget::setUpHeader() {
    setHorizontalHeaderLabels({QString(), WindowText::tr("Nome do arquivo"),
                               WindowText::tr("Tamanho"), WindowText::tr("Tipo"),
                               WindowText::tr("Modificado em")});
    // To a screen reader the column of the icons has a name too.
    horizontalHeaderItem(VaultColumn::Icon)
        ->setData(Qt::AccessibleTextRole, WindowText::tr("Ícone"));
    verticalHeader()->hide();

    QHeaderView* header = horizontalHeader();
    header->setStretchLastSection(false);
    header->setSectionsClickable(true);
    // A selected row would make every heading bold.
    header->setHighlightSections(false);
    header->setSortIndicatorShown(true);
    header->setSortIndicator(m_order.column, m_order.order);

    constexpr struct {
        int column;
        int width;
    } FixedColumns[] = {{VaultColumn::Icon, 28},
                        {VaultColumn::Size, 110},
                        {VaultColumn::Type, 70},
                        {VaultColumn::Modified, 140}};
    for (const auto& fixed : FixedColumns) {
        header->setSectionResizeMode(fixed.column, QHeaderView::Fixed);
        header->resizeSection(fixed.column, fixed.width);
    }
    header->setSectionResizeMode(VaultColumn::Name, QHeaderView::Stretch);
}

VaultTableItemKind VaultTableWidget::kindOf(const QTableWidgetItem* item) {
    return static_cast<VaultTableItemKind>(item->data(KindRole).toInt());
}

QString VaultTableWidget::pathOf(const QTableWidgetItem* item) {
    return item->data(VaultPathRole).toString();
}

// --- Rows ------------------------------------------------------------------------------------

void VaultTableWidget::showRows(const QString& directory, const QList<VaultRow>& rows) {
    forgetLetters();
    keepPlace(directory, rows);
    const QSignalBlocker blocker(this);
    const auto selectNothing = [this] {
        clearSelection();
        setCurrentCell(-1, -1);
    };
    setRowCount(0);
    selectNothing();
    setRowCount(static_cast<int>(rows.size()));
    {
        // The model would announce each of some ten thousand items by itself; the view has not
        // painted these rows yet and has no use for that.
        const QSignalBlocker modelBlocker(model());
        for (int position = 0; position < rows.size(); ++position) {
            fillRow(position, rows.at(position));
        }
    }
    selectNothing();
    const QString left = std::exchange(m_directory, directory);
    if (left != directory || rows.isEmpty()) {
        scrollAfterLeaving(left);
    }
}

void VaultTableWidget::keepPlace(const QString& directory, const QList<VaultRow>& rows) {
    if (directory != m_directory || rows.isEmpty()) {
        m_place.reset();
        return;
    }
    if (currentNameItem() == nullptr) {
        return;
    }
    const auto here =
        std::find_if(rows.cbegin(), rows.cend(),
                     [kind = currentKind(), path = currentPath()](const VaultRow& row) {
                         return row.kind == kind && row.path == path;
                     });
    m_place = here == rows.cend() ? currentRow() : static_cast<int>(here - rows.cbegin());
}

std::optional<int> VaultTableWidget::rowOf(const QString& vaultPath) const {
    for (int row = 0; row < rowCount(); ++row) {
        const QTableWidgetItem* nameItem = item(row, VaultColumn::Name);
        if (kindOf(nameItem) != VaultTableItemKind::ParentDirectory &&
            Core::sameVaultPath(pathOf(nameItem), vaultPath)) {
            return row;
        }
    }
    return std::nullopt;
}

void VaultTableWidget::continueFrom(const QString& vaultPath) {
    m_place = rowOf(vaultPath);
}

void VaultTableWidget::scrollAfterLeaving(const QString& directory) {
    // Rows that are not laid out yet cannot be scrolled to.
    doItemsLayout();
    scrollToTop();
    if (const std::optional<int> row = rowOf(directory)) {
        scrollToItem(item(*row, VaultColumn::Name));
    }
}

void VaultTableWidget::fillRow(int position, const VaultRow& row) {
    QTableWidgetItem* iconItem = addItem(this, position, VaultColumn::Icon, QString());
    iconItem->setIcon(m_icons.itemIcon(row.kind, row.path));
    iconItem->setData(Qt::AccessibleTextRole, row.type);
    iconItem->setTextAlignment(Qt::AlignCenter);
    QTableWidgetItem* nameItem = addItem(this, position, VaultColumn::Name, row.name);
    for (QTableWidgetItem* item : {iconItem, nameItem}) {
        item->setData(VaultPathRole, row.path);
        item->setData(KindRole, static_cast<int>(row.kind));
    }
    fillDetails(this, position, row);
}

void VaultTableWidget::setOrder(VaultOrder order) {
    const bool changes = order != m_order;
    m_order = order;
    // A click has moved the header's indicator, also one on the icons' column.
    horizontalHeader()->setSortIndicator(m_order.column, m_order.order);
    if (changes) {
        Q_EMIT orderChanged();
    }
}

QString VaultTableWidget::orderText() const {
    const QString heading = horizontalHeaderItem(m_order.column)->text();
    return m_order.order == Qt::AscendingOrder ? WindowText::tr("%1, crescente").arg(heading)
                                               : WindowText::tr("%1, decrescente").arg(heading);
}

void VaultTableWidget::mouseReleaseEvent(QMouseEvent* event) {
    QTableWidget::mouseReleaseEvent(event);
    // Qt 6.4 has done it, Qt 6.8 leaves the highlight.
    if (!indexAt(event->position().toPoint()).isValid()) {
        clearSelection();
    }
}

void VaultTableWidget::followHighlight() {
    // Taking the highlight away leaves the current row: commands would work on a row that nobody
    // sees chosen.
    if (selectedItems().isEmpty()) {
        setCurrentCell(-1, -1);
    }
}

const QTableWidgetItem* VaultTableWidget::currentNameItem() const {
    return item(currentRow(), VaultColumn::Name);
}

std::optional<VaultTableItemKind> VaultTableWidget::currentKind() const {
    const QTableWidgetItem* item = currentNameItem();
    return item == nullptr ? std::nullopt : std::optional(kindOf(item));
}

QString VaultTableWidget::currentPath() const {
    const QTableWidgetItem* item = currentNameItem();
    return item == nullptr ? QString() : pathOf(item);
}

void VaultTableWidget::selectFile(const QString& vaultPath) {
    if (const std::optional<int> row = rowOf(vaultPath)) {
        setCurrentCell(*row, VaultColumn::Name);
    }
}

// --- Keyboard --------------------------------------------------------------------------------

bool VaultTableWidget::handleKey(int key) {
    if (key == Qt::Key_Escape && !m_typeAhead.typed().isEmpty()) {
        forgetLetters();
        return true;
    }
    const bool handled = moveByKey(key);
    if (handled) {
        forgetLetters();
    }
    return handled;
}

bool VaultTableWidget::moveByKey(int key) {
    const int last = rowCount() - 1;
    switch (key) {
    case Qt::Key_Up:
        moveToRow(currentRow() < 0 ? m_place.value_or(rowCount()) - 1 : currentRow() - 1);
        return true;
    case Qt::Key_Down:
        moveToRow(rowBeforePlace() + 1);
        return true;
    case Qt::Key_PageUp:
        moveToRow(rowBeforePlace() - rowsOfAPage());
        return true;
    case Qt::Key_PageDown:
        moveToRow(rowBeforePlace() + rowsOfAPage());
        return true;
    case Qt::Key_Home:
        moveToRow(0);
        return true;
    case Qt::Key_End:
        moveToRow(last);
        return true;
    case Qt::Key_Left:
        setOrder(orderAfterStep(m_order, -1));
        return true;
    case Qt::Key_Right:
        setOrder(orderAfterStep(m_order, 1));
        return true;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (currentNameItem() != nullptr) {
            Q_EMIT rowActivated();
        }
        return true;
    case Qt::Key_Backspace:
        Q_EMIT parentRequested();
        return true;
    default:
        return false;
    }
}

bool VaultTableWidget::typeLetters(const QString& text) {
    if (!m_typeAhead.add(text)) {
        return false;
    }
    const auto nameOf = [this](int row) {
        return item(row, VaultColumn::Name)->text();
    };
    if (const std::optional<int> row = m_typeAhead.find(rowCount(), rowBeforePlace(), nameOf)) {
        moveToRow(*row);
    }
    m_typingPause.start();
    Q_EMIT lettersTyped(m_typeAhead.typed());
    return true;
}

void VaultTableWidget::forgetLetters() {
    m_typingPause.stop();
    if (!m_typeAhead.typed().isEmpty()) {
        m_typeAhead.forget();
        Q_EMIT lettersTyped({});
    }
}

int VaultTableWidget::rowBeforePlace() const {
    return currentRow() < 0 ? m_place.value_or(0) - 1 : currentRow();
}

int VaultTableWidget::rowsOfAPage() const {
    const int rowHeight = verticalHeader()->defaultSectionSize();
    return std::max(1, viewport()->height() / rowHeight - 1);
}

void VaultTableWidget::moveToRow(int row) {
    if (rowCount() > 0) {
        // Keys that follow at once on an unlock or a folder come before the rows are laid out, and
        // the table could not scroll to one.
        doItemsLayout();
        setCurrentCell(std::clamp(row, 0, rowCount() - 1), VaultColumn::Name);
    }
}

// --- Menu ------------------------------------------------------------------------------------

void VaultTableWidget::requestMenuAt(const QPoint& position) {
    const int row = rowAt(position.y());
    if (row >= 0) {
        setCurrentCell(row, VaultColumn::Name);
    }
    Q_EMIT menuRequested(position);
}

void VaultTableWidget::requestMenuAtCurrentRow() {
    const QTableWidgetItem* item = currentNameItem();
    QPoint position;
    if (item != nullptr) {
        scrollToItem(item);
        position = visualItemRect(item).center();
    }
    Q_EMIT menuRequested(position);
}

// --- Tool tips -------------------------------------------------------------------------------

bool VaultTableWidget::isCutOff(const QTableWidgetItem* item) const {
    const int margins = 2 * (style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, this) + 1);
    return fontMetrics().horizontalAdvance(item->text()) + margins > columnWidth(item->column());
}

bool VaultTableWidget::viewportEvent(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        const auto* help = static_cast<QHelpEvent*>(event);
        const QTableWidgetItem* item = itemAt(help->pos());
        const bool cut = item != nullptr && isCutOff(item);
        QToolTip::showText(help->globalPos(), cut ? longToolTip(item->text()) : QString(),
                           viewport());
        return true;
    }
    return QTableWidget::viewportEvent(event);
}

} // namespace Tessel::UI
