// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QStringList>
#include <QTableWidget>

#include <functional>

namespace Tessel::UI {

/// The table of the vault's contents. Files and folders of the computer can be dropped on it, which
/// copies them and never takes them away from where they are.
class VaultTableWidget : public QTableWidget {
    Q_OBJECT

public:
    /// @param takesDrops is asked each time something is dragged over the table.
    VaultTableWidget(int columns, std::function<bool()> takesDrops);

Q_SIGNALS:
    /// Absolute paths, in the order in which they were selected.
    void pathsDropped(const QStringList& paths);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    /// Answers the drag; the source is told whether it may drop here.
    [[nodiscard]] bool acceptsDrop(QDropEvent* event) const;

    std::function<bool()> m_takesDrops;
};

} // namespace Tessel::UI
