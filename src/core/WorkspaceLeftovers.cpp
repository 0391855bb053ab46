// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/WorkspaceLeftovers.h"

#include "core/RunsFolder.h"

#include <QFile>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace Tessel::Core {

namespace {

// Whether the vault has the contents of this file: it is a copy and has not changed.
bool isStored(const WorkspaceNote::Contents& noted, const QByteArray& path,
              const struct stat& status) {
    const auto copy = noted.copies.constFind(path);
    return copy != noted.copies.constEnd() &&
           (!*copy || **copy == WorkspaceNote::CopyState::of(status));
}

// Links and pipes hold no data.
bool keeps(const WorkspaceNote::Contents& noted, const QByteArray& path,
           const struct stat& status) {
    return S_ISREG(status.st_mode) && !isStored(noted, path, status);
}

bool isGone(int parent, const QByteArray& workspace) {
    struct stat status = {};
    return !statusAt(parent, workspace, &status) && errno == ENOENT;
}

} // namespace

void WorkspaceLeftovers::clear() {
    m_untold.clear();
    const QString path = runsFolderPath();
    const Descriptor parent = openRunsFolder(path);
    const std::optional<QByteArrayList> names = namesIn(parent.get());
    for (const QByteArray& name : names.value_or(QByteArrayList())) {
        const QByteArray workspace = WorkspaceNote::workspaceOf(name);
        if (!workspace.isEmpty()) {
            clearRun(parent.get(), path, workspace);
        }
    }
}

void WorkspaceLeftovers::clearRun(int parent, const QString& runsFolder,
                                  const QByteArray& workspace) {
    WorkspaceNote note;
    if (!note.takeOver(parent, workspace)) {
        return;
    }
    const WorkspaceNote::Contents noted = note.read();
    const Descriptor folder = openOwnFolder(parent, workspace);
    const bool emptied =
        folder.isOpen() &&
        emptyFolder(folder.get(), [&noted](const QByteArray& file, const struct stat& status) {
            return keeps(noted, file, status);
        });
    if (emptied) {
        static_cast<void>(::unlinkat(parent, workspace.constData(), AT_REMOVEDIR));
    }
    if (isGone(parent, workspace)) {
        note.remove();
    } else if (folder.isOpen() && !noted.told) {
        m_untold.push_back({runsFolder + u'/' + QString::fromLatin1(workspace), std::move(note)});
    }
}

QStringList WorkspaceLeftovers::untoldFolders() const {
    QStringList folders;
    for (const Leftover& leftover : m_untold) {
        folders.append(leftover.folder);
    }
    return folders;
}

void WorkspaceLeftovers::markTold() {
    for (Leftover& leftover : m_untold) {
        leftover.note.addTold();
    }
    m_untold.clear();
}

} // namespace Tessel::Core
