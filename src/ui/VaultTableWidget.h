// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "ui/TypeAhead.h"
#include "ui/VaultIcons.h"
#include "ui/VaultRows.h"

#include <QPoint>
#include <QString>
#include <QStringList>
#include <QTableWidget>
#include <QTimer>

#include <optional>

namespace Tessel::UI {

/// The table of the vault's contents: its columns and items, the order of its rows, the keys and
/// the mouse, and the files dropped on it. It knows no vault and no window: it shows the rows that
/// it is given and says by signals what the user wants.
///
/// It never has the keyboard's focus. The window passes it the keys that it does not use itself.
class VaultTableWidget : public QTableWidget {
    Q_OBJECT

public:
    VaultTableWidget();

    /// Replaces all rows; none is selected or current afterwards. What was typed is forgotten;
    /// otherwise emits nothing. Another folder is shown from its top, or with the row of the
    /// folder that was left for it in sight. In the same folder the next arrow key begins where the
    /// current row is now, or was when it is gone.
    /// @param directory vault path of the folder whose rows they are; empty for the root
    void showRows(const QString& directory, const QList<VaultRow>& rows);
    /// Lets the next arrow key begin at the row of this file or folder: down means the row itself,
    /// up the one above.
    void continueFrom(const QString& vaultPath);
    /// The order that the user has chosen and the header shows.
    [[nodiscard]] VaultOrder order() const { return m_order; }
    /// The same in words, for a screen reader.
    [[nodiscard]] QString orderText() const;

    /// Of the current row; nothing without one.
    [[nodiscard]] std::optional<VaultTableItemKind> currentKind() const;
    /// Vault path of the current row; empty without one, and for what leads to the root.
    [[nodiscard]] QString currentPath() const;
    /// Makes the file's row the current one; without such a row nothing changes.
    void selectFile(const QString& vaultPath);

    /// Does what a key without modifiers means in the table. @return whether it means anything.
    [[nodiscard]] bool handleKey(int key);
    /// Chooses the next row whose name begins with this and what was typed just before. @return
    /// whether the text can be part of a name that is being typed.
    [[nodiscard]] bool typeLetters(const QString& text);
    /// Asks for the menu beside the current row, or at the table's top without one.
    void requestMenuAtCurrentRow();

    /// Whether rows can be dragged, and files of the computer dropped on the table: not at first.
    void setDropsAllowed(bool allowed) { m_dropsAllowed = allowed; }

Q_SIGNALS:
    /// What has been typed to find a row; empty when it is forgotten.
    void lettersTyped(const QString& letters);
    /// The rows are to be shown again, in order().
    void orderChanged();
    /// The current row is to be opened.
    void rowActivated();
    /// The folder is to be left for the one above it.
    void parentRequested();
    /// @p position is in the viewport. The row there is the current one.
    void menuRequested(const QPoint& position);
    /// Absolute paths, in the order in which they were selected. They are to be copied, never
    /// taken away from where they are.
    /// @param directory vault path of the folder on whose row they were dropped, or of the one
    /// shown; empty for the root
    void pathsDropped(const QStringList& paths, const QString& directory);
    /// A file or folder was dragged from its row onto that of a folder, perhaps its own.
    /// @param directory vault path of the folder; empty for the root
    void rowDropped(VaultTableItemKind kind, const QString& path, const QString& directory);

protected:
    /// What a dragged row holds out: to other programs nothing, not even a name. Null where nothing
    /// can be dragged.
    [[nodiscard]] QMimeData* mimeData(const QList<QTableWidgetItem*>& items) const override;
    void startDrag(Qt::DropActions supportedActions) override;
    /// Takes the highlight away when the click is beside the rows.
    void mouseReleaseEvent(QMouseEvent* event) override;
    /// Shows the whole text of a cell that is too narrow for it.
    bool viewportEvent(QEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    /// Marks the folder's row under a drag.
    void paintEvent(QPaintEvent* event) override;

private:
    [[nodiscard]] static VaultTableItemKind kindOf(const QTableWidgetItem* item);
    /// The vault path of what the item's row shows.
    [[nodiscard]] static QString pathOf(const QTableWidgetItem* item);
    void setUpHeader();
    void fillRow(int position, const VaultRow& row);
    /// The row of this file or folder; nothing without one.
    [[nodiscard]] std::optional<int> rowOf(const QString& vaultPath) const;
    /// Decides where the arrow keys begin once these rows are shown.
    void keepPlace(const QString& directory, const QList<VaultRow>& rows);
    void scrollAfterLeaving(const QString& directory);
    void setOrder(VaultOrder order);
    /// Without a highlighted row, none is current.
    void followHighlight();
    void moveToRow(int row);
    /// The current row; without one, the row above the place where the keys begin.
    [[nodiscard]] int rowBeforePlace() const;
    void forgetLetters();
    [[nodiscard]] bool moveByKey(int key);
    void requestMenuAt(const QPoint& position);
    [[nodiscard]] int rowsOfAPage() const;
    [[nodiscard]] bool isCutOff(const QTableWidgetItem* item) const;
    [[nodiscard]] const QTableWidgetItem* currentNameItem() const;
    /// Answers the drag; the source is told whether it may drop here.
    [[nodiscard]] bool acceptsDrop(QDropEvent* event) const;
    [[nodiscard]] bool acceptsFiles(QDropEvent* event) const;
    [[nodiscard]] bool acceptsRow(QDropEvent* event) const;
    /// Notes whether a dragged row has been elsewhere than on itself.
    void followDraggedRow(const QDropEvent& event);
    /// The row at this place of the viewport if something can be put into it: a folder's, or the
    /// one that leads up. -1 for any other.
    [[nodiscard]] int folderRowAt(const QPoint& position) const;
    /// Vault path of the folder at this place, and of the one shown where there is none.
    [[nodiscard]] QString directoryAt(const QPoint& position) const;
    /// Where in the viewport the drag is that may be dropped there; nothing without one.
    void showDropAt(std::optional<QPoint> position);

    VaultIcons m_icons;
    VaultOrder m_order;
    /// The folder shown.
    QString m_directory;
    /// Where the arrow keys begin while no row is current.
    std::optional<int> m_place;
    TypeAhead m_typeAhead;
    QTimer m_typingPause;
    bool m_dropsAllowed = false;
    std::optional<QPoint> m_dropPosition;
    bool m_rowDraggedAway = false;
};

} // namespace Tessel::UI
