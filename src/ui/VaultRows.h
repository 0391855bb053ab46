// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "ui/VaultColumns.h"
#include "ui/VaultIcons.h"

#include <QDateTime>
#include <QList>
#include <QString>

namespace Tessel::Core {
class SecureFileIndex;
}

namespace Tessel::UI {

// The rows of the vault table as values: which there are and in which order, without a widget.

/// One row, with what it is sorted by. Names and types are computed once, not in each comparison.
struct VaultRow {
    VaultTableItemKind kind = VaultTableItemKind::File;
    /// Vault path of the item; for the ".." row, of the folder that it leads to.
    QString path;
    QString name;
    QString type;
    /// Of files only.
    qint64 sizeBytes = 0;
    /// Invalid for the ".." row.
    QDateTime modifiedUtc;
};

struct VaultOrder {
    int column = VaultColumn::Name;
    Qt::SortOrder order = Qt::AscendingOrder;

    friend bool operator==(const VaultOrder&, const VaultOrder&) = default;
};

/// The rows of one folder, empty for the root: ".." except in the root, then the sub-folders, then
/// the files. Letter case does not matter for which folder an item is in.
[[nodiscard]] QList<VaultRow> vaultRows(const Core::SecureFileIndex& index,
                                        const QString& directory, VaultOrder order);

/// Sorts rows of one kind. Rows that compare equal keep their order, ascending and descending.
void sortVaultRows(QList<VaultRow>* rows, VaultOrder order);

/// The order after a click on a column's header: the icons' column changes nothing, another column
/// is sorted upwards, the same one is turned over.
[[nodiscard]] VaultOrder orderAfterClick(VaultOrder now, int column);

/// The next order for the keyboard: every column upwards, then downwards, from the names to the
/// dates. @p step is 1, or -1 for the way back. The ends keep their order.
[[nodiscard]] VaultOrder orderAfterStep(VaultOrder now, int step);

} // namespace Tessel::UI
