// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/FolderAccess.h"

#include <QByteArray>
#include <QHash>
#include <QtGlobal>

#include <optional>

namespace Tessel::Core {

/// A file beside the workspace of a run, ".UUID.lock", which the run keeps locked for as long as it
/// lives, with a line for each copy that it makes. From it a later run knows whether this one is
/// over, and which copies are as they were made.
class WorkspaceNote {
public:
    /// A copy as it was when it was made or taken back. Without a value it was being written: no
    /// other program had been given it.
    struct CopyState {
        qint64 modifiedNs = 0;
        qint64 size = 0;

        [[nodiscard]] static CopyState of(const struct stat& status);
        [[nodiscard]] bool operator==(const CopyState& other) const = default;
    };
    struct Contents {
        /// By path below the workspace, as the local disk has it.
        QHash<QByteArray, std::optional<CopyState>> copies;
        /// Whether the user has been told of the copies that stay.
        bool told = false;
    };

    /// The note of the workspace called @p workspace.
    [[nodiscard]] static QByteArray nameFor(const QByteArray& workspace);
    /// The workspace of a note called @p name; empty when no note has such a name.
    [[nodiscard]] static QByteArray workspaceOf(const QByteArray& name);

    /// A note that nobody keeps.
    WorkspaceNote() = default;
    /// Creates the note in the folder that holds the workspaces, and locks it. Where the file
    /// system knows no locks there is none: a later run could not tell that this one lives.
    /// @return whether the run may go on.
    [[nodiscard]] bool create(int parent, const QByteArray& workspace);
    /// Opens and locks the note of a run that is over. @return false for one that lives, for one of
    /// this process, for one of another account, and for what is no note.
    [[nodiscard]] bool takeOver(int parent, const QByteArray& workspace);

    /// The copy has been emptied and is about to be filled.
    void addUnfinished(const QByteArray& path);
    /// The copy is complete, or the vault holds what is in it. Without this line a copy that was
    /// called unfinished would pass for it. @return false when it could not be written.
    [[nodiscard]] bool addCopy(const QByteArray& path, const struct stat& status);
    void addTold();
    /// What the note says. Nothing when it is larger than any note of ours.
    [[nodiscard]] Contents read() const;
    /// Removes the file and gives up the lock.
    void remove();

private:
    /// Opens the note, locked by nobody else; false also when it has been removed meanwhile.
    [[nodiscard]] bool open(int parent, const QByteArray& workspace, int flags, int lockFlags);
    /// Adds nothing, and succeeds, where no note is kept and when it has grown too large: what is
    /// not noted stays, which loses nothing.
    [[nodiscard]] bool add(const QByteArray& line);

    Descriptor m_parent;
    Descriptor m_file;
    QByteArray m_workspace;
};

} // namespace Tessel::Core
