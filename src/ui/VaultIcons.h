// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QFileIconProvider>
#include <QHash>
#include <QIcon>
#include <QString>

namespace Tessel::UI {

/// What a row of the vault table shows; the numbers are stored in the rows.
enum class VaultTableItemKind { File = 0, Directory = 1, ParentDirectory = 2 };

/// The padlock of the vault button, 48 x 48: open or closed, and pale when the button is disabled.
[[nodiscard]] QIcon padlockIcon(bool unlocked, bool enabled);

/// The icons of the vault table's first column. Asking the desktop for a file's icon is slow, so
/// each suffix is asked for once.
class VaultIcons {
public:
    /// @param path its suffix chooses a file's icon; for the other kinds it does not matter.
    [[nodiscard]] QIcon itemIcon(VaultTableItemKind kind, const QString& path);

private:
    [[nodiscard]] QIcon makeFileIcon(const QString& suffix) const;

    QFileIconProvider m_provider;
    QHash<QString, QIcon> m_fileIcons;
};

} // namespace Tessel::UI
