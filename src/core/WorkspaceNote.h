// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/FolderAccess.h"

#include <QByteArray>
#include <QHash>
#include <QtGlobal>

#include <optional>

namespace Tessel::Core {

/// A file beside the workspace of a run, ".UUID.lock", with a line for each decrypted copy. The run
/// keeps it locked. A later run sees from it whether this one is over, and which copies are
/// unchanged.
class WorkspaceNote {
public:
    /// A copy as it was when it was written or taken back. Without a value it was still being
    /// written, and no other program knew of it.
    struct CopyState {
        qint64 modifiedNs = 0;
        qint64 size = 0;

        [[nodiscard]] static CopyState of(const struct stat& status);
        [[nodiscard]] bool operator==(const CopyState& other) const = default;
    };
    struct Contents {
        /// By path below the workspace, in the encoding of file names.
        QHash<QByteArray, std::optional<CopyState>> copies;
        /// Whether the user has been told of the copies that stay.
        bool told = false;
    };

    /// The note of the workspace called @p workspace.
    [[nodiscard]] static QByteArray nameFor(const QByteArray& workspace);
    /// The workspace of a note called @p name; empty when no note has such a name.
    [[nodiscard]] static QByteArray workspaceOf(const QByteArray& name);

    /// No note.
    WorkspaceNote() = default;
    /// Creates the note in the folder that holds the workspaces, and locks it. On a file system
    /// without locks there is no note: a later run could not tell that this one is at work.
    /// @return false when the run must not go on.
    [[nodiscard]] bool create(int parent, const QByteArray& workspace);
    /// Opens and locks the note of a run that is over. @return false for a run at work, for one of
    /// this process, for one of another account, and for a file that is no note.
    [[nodiscard]] bool takeOver(int parent, const QByteArray& workspace);

    /// The copy has been emptied and is about to be filled.
    void addUnfinished(const QByteArray& path);
    /// The copy is complete, or the vault holds its contents. Without this line a copy noted as
    /// unfinished would still count as that. @return false when it could not be written.
    [[nodiscard]] bool addCopy(const QByteArray& path, const struct stat& status);
    void addTold();
    /// The note's contents; empty when it is larger than any note of ours.
    [[nodiscard]] Contents read() const;
    /// Removes the file and releases the lock.
    void remove();

private:
    /// Opens and locks the note; false also when it was removed meanwhile.
    [[nodiscard]] bool open(int parent, const QByteArray& workspace, int flags, int lockFlags);
    /// Adds nothing, and succeeds, when there is no note or it has grown too large: a copy that is
    /// not noted is never removed.
    [[nodiscard]] bool add(const QByteArray& line);

    Descriptor m_parent;
    Descriptor m_file;
    QByteArray m_workspace;
};

} // namespace Tessel::Core
