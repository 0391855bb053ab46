// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

class QWidget;

namespace Tessel::Core {
class SecureFileIndex;
}

namespace Tessel::UI {

// What the window asks the user for: passwords, names, a folder of the vault.

/// Asks for a password, without a parent window. @return it in UTF-8, to be wiped (Core::wipe);
/// empty when none was given.
[[nodiscard]] QByteArray requestPassword(const QString& title);

/// Asks for the password of a new vault and for its confirmation, and says what is wrong with
/// them. @return it in UTF-8, to be wiped (Core::wipe); empty when there is no valid one.
[[nodiscard]] QByteArray requestNewVaultPassword();

/// What is asked about a name, and what is said of one that is not valid.
struct NameQuestion {
    QString title;
    QString label;
    QString badName;
    /// A file's suffix is not selected, so that typing keeps it.
    bool ofFile = false;
};

/// Asks for the name of an item of the folder @p directory; @p presentName is proposed, empty for
/// a new item.
/// @return the item's path; empty when the name stays, or when it cannot be used, which the user
///         has been told
[[nodiscard]] QString askFreePath(QWidget* parent, const NameQuestion& question,
                                  const Core::SecureFileIndex& index, const QString& directory,
                                  const QString& presentName);

/// Asks for the folder that the file @p vaultPath is to be moved to: any but its own. Tells the
/// user when there is no other one.
/// @return its path, empty for the root; nothing when none was chosen
[[nodiscard]] std::optional<QString>
askMoveDestination(QWidget* parent, const Core::SecureFileIndex& index, const QString& vaultPath);

/// Whether a file or a folder of the index has this path, ignoring letter case.
[[nodiscard]] bool indexHolds(const Core::SecureFileIndex& index, const QString& vaultPath);

} // namespace Tessel::UI
