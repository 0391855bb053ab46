// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/VaultRows.h"

#include "core/SecureFileIndex.h"
#include "core/VaultPath.h"
#include "ui/DisplayFormats.h"
#include "ui/WindowText.h"

#include <algorithm>
#include <iterator>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

using Core::parentVaultPath;
using Core::sameVaultPath;
using Core::SecureFileIndex;
using Core::vaultBaseName;

namespace {

constexpr VaultOrder OrderSteps[] = {
    {VaultColumn::Name, Qt::AscendingOrder},     {VaultColumn::Name, Qt::DescendingOrder},
    {VaultColumn::Size, Qt::AscendingOrder},     {VaultColumn::Size, Qt::DescendingOrder},
    {VaultColumn::Type, Qt::AscendingOrder},     {VaultColumn::Type, Qt::DescendingOrder},
    {VaultColumn::Modified, Qt::AscendingOrder}, {VaultColumn::Modified, Qt::DescendingOrder},
};

QString folderTypeLabel() {
    return WindowText::tr("Pasta");
}

/// Negative, zero or positive, as @p a comes before, with or after @p b.
template <typename Value>
int compareValues(const Value& a, const Value& b) {
    if (a < b) {
        return -1;
    }
    return b < a ? 1 : 0;
}

/// By the column alone; rows of folders are equal in size and type.
int compareColumn(const VaultRow& a, const VaultRow& b, int column) {
    switch (column) {
    case VaultColumn::Size:
        return compareValues(a.sizeBytes, b.sizeBytes);
    case VaultColumn::Type:
        return a.type.compare(b.type, Qt::CaseInsensitive);
    case VaultColumn::Modified:
        return compareValues(a.modifiedUtc, b.modifiedUtc);
    default:
        return 0;
    }
}

int compareRows(const VaultRow& a, const VaultRow& b, int column) {
    const int result = compareColumn(a, b, column);
    return result != 0 ? result : a.name.compare(b.name, Qt::CaseInsensitive);
}

QList<VaultRow> directoryRows(const SecureFileIndex& index, const QString& directory) {
    QList<VaultRow> rows;
    const QList<Core::VaultDirectoryEntry> entries = index.directories();
    for (const Core::VaultDirectoryEntry& entry : entries) {
        if (sameVaultPath(parentVaultPath(entry.path), directory)) {
            rows.append({VaultTableItemKind::Directory, entry.path, vaultBaseName(entry.path),
                         folderTypeLabel(), 0, entry.modifiedUtc});
        }
    }
    return rows;
}

QList<VaultRow> fileRows(const SecureFileIndex& index, const QString& directory) {
    QList<VaultRow> rows;
    const QList<Core::VaultFileEntry> entries = index.entries();
    for (const Core::VaultFileEntry& entry : entries) {
        if (sameVaultPath(parentVaultPath(entry.vaultPath), directory)) {
            rows.append({VaultTableItemKind::File, entry.vaultPath, vaultBaseName(entry.vaultPath),
                         fileTypeLabel(entry.vaultPath), entry.sizeBytes, entry.lastModifiedUtc});
        }
    }
    return rows;
}

VaultRow parentRow(const QString& directory) {
    return {VaultTableItemKind::ParentDirectory,
            parentVaultPath(directory),
            u".."_s,
            folderTypeLabel(),
            0,
            QDateTime()};
}

} // namespace

void sortVaultRows(QList<VaultRow>* rows, VaultOrder order) {
    std::stable_sort(rows->begin(), rows->end(), [order](const VaultRow& a, const VaultRow& b) {
        const int result = compareRows(a, b, order.column);
        return order.order == Qt::AscendingOrder ? result < 0 : result > 0;
    });
}

QList<VaultRow> vaultRows(const SecureFileIndex& index, const QString& directory,
                          VaultOrder order) {
    QList<VaultRow> rows;
    if (!directory.isEmpty()) {
        rows.append(parentRow(directory));
    }
    QList<VaultRow> directories = directoryRows(index, directory);
    sortVaultRows(&directories, order);
    rows.append(directories);
    QList<VaultRow> files = fileRows(index, directory);
    sortVaultRows(&files, order);
    rows.append(files);
    return rows;
}

VaultOrder orderAfterClick(VaultOrder now, int column) {
    if (column == VaultColumn::Icon) {
        return now;
    }
    const bool turnsOver = column == now.column && now.order == Qt::AscendingOrder;
    return {column, turnsOver ? Qt::DescendingOrder : Qt::AscendingOrder};
}

VaultOrder orderAfterStep(VaultOrder now, int step) {
    const auto* const found = std::find(std::begin(OrderSteps), std::end(OrderSteps), now);
    const auto next = found - std::begin(OrderSteps) + step;
    return next >= 0 && next < std::ssize(OrderSteps) ? OrderSteps[next] : now;
}

} // namespace Tessel::UI
