// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/WorkspaceNote.h"

#include <QByteArrayList>
#include <QSet>
#include <QString>
#include <QUuid>

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace Tessel::Core {

using namespace Qt::Literals::StringLiterals;

namespace {

const QByteArray Prefix = "."_ba;
const QByteArray Suffix = ".lock"_ba;
const QByteArray UnfinishedLine = "unfinished"_ba;
const QByteArray CopyLine = "copy"_ba;
const QByteArray ToldLine = "told"_ba;

// Enough for some twenty thousand openings. Later ones are not noted, and their copies stay.
constexpr qint64 LargestNote = qint64{4} * 1024 * 1024;
// More than a time and a size take in a line.
constexpr qint64 NumbersBytes = 64;

// Workspaces of this process. One that was not cleaned up does not count as one of an earlier run.
QSet<QByteArray>& workspacesOfThisProcess() {
    static QSet<QByteArray> names;
    return names;
}

std::optional<WorkspaceNote::CopyState> copyStateFrom(const QByteArrayList& words) {
    bool hasTime = false;
    bool hasSize = false;
    const WorkspaceNote::CopyState state{words.at(1).toLongLong(&hasTime),
                                         words.at(2).toLongLong(&hasSize)};
    return hasTime && hasSize ? std::optional(state) : std::nullopt;
}

void readLine(const QByteArray& line, WorkspaceNote::Contents* contents) {
    constexpr qsizetype MostBlanks = 3;
    if (line.count(' ') > MostBlanks) {
        return;
    }
    const QByteArrayList words = line.split(' ');
    if (words.size() == 1 && words.first() == ToldLine) {
        contents->told = true;
    } else if (words.size() == 2 && words.first() == UnfinishedLine) {
        contents->copies.insert(QByteArray::fromPercentEncoding(words.at(1)), std::nullopt);
    } else if (words.size() == 4 && words.first() == CopyLine) {
        if (const auto state = copyStateFrom(words)) {
            contents->copies.insert(QByteArray::fromPercentEncoding(words.at(3)), state);
        }
    }
}

QByteArray encoded(const QByteArray& path) {
    return path.toPercentEncoding("/");
}

} // namespace

WorkspaceNote::CopyState WorkspaceNote::CopyState::of(const struct stat& status) {
    constexpr qint64 SecondNs = 1000000000;
    return {static_cast<qint64>(status.st_mtim.tv_sec) * SecondNs + status.st_mtim.tv_nsec,
            static_cast<qint64>(status.st_size)};
}

QByteArray WorkspaceNote::nameFor(const QByteArray& workspace) {
    return Prefix + workspace + Suffix;
}

QByteArray WorkspaceNote::workspaceOf(const QByteArray& name) {
    if (!name.startsWith(Prefix) || !name.endsWith(Suffix)) {
        return {};
    }
    const QByteArray workspace = name.mid(Prefix.size()).chopped(Suffix.size());
    // Only a name that nameFor() gives.
    const QUuid uuid = QUuid::fromString(QString::fromLatin1(workspace));
    return uuid.toByteArray(QUuid::WithoutBraces) == workspace ? workspace : QByteArray();
}

bool WorkspaceNote::open(int parent, const QByteArray& workspace, int flags, int lockFlags) {
    m_file = Descriptor(::openat(parent, nameFor(workspace).constData(),
                                 O_RDWR | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | flags,
                                 S_IRUSR | S_IWUSR));
    struct stat status = {};
    const bool opened = statusOf(m_file.get(), &status) && S_ISREG(status.st_mode) &&
                        isOurs(status) && status.st_nlink == 1 &&
                        ::flock(m_file.get(), LOCK_EX | lockFlags) == 0 &&
                        isAt(parent, nameFor(workspace), m_file.get());
    m_parent = Descriptor(opened ? ::fcntl(parent, F_DUPFD_CLOEXEC, 0) : -1);
    m_workspace = workspace;
    return m_parent.isOpen();
}

bool WorkspaceNote::create(int parent, const QByteArray& workspace) {
    workspacesOfThisProcess().insert(workspace);
    // A run that looks for leftovers may remove a note between its creation and the lock.
    constexpr int Attempts = 3;
    for (int attempt = 0; attempt < Attempts; ++attempt) {
        if (open(parent, workspace, O_CREAT, 0)) {
            return true;
        }
        if (!m_file.isOpen()) {
            return false;
        }
    }
    const bool locksAreUnknown =
        ::flock(m_file.get(), LOCK_EX | LOCK_NB) != 0 && errno != EWOULDBLOCK;
    m_file = Descriptor();
    return locksAreUnknown && ::unlinkat(parent, nameFor(workspace).constData(), 0) == 0;
}

bool WorkspaceNote::takeOver(int parent, const QByteArray& workspace) {
    return !workspacesOfThisProcess().contains(workspace) && open(parent, workspace, 0, LOCK_NB);
}

void WorkspaceNote::addUnfinished(const QByteArray& path) {
    const QByteArray line = UnfinishedLine + ' ' + encoded(path);
    // Only with space for the line that follows: a complete copy must not count as unfinished.
    struct stat status = {};
    if (statusOf(m_file.get(), &status) &&
        status.st_size + 2 * line.size() + NumbersBytes < LargestNote) {
        static_cast<void>(add(line));
    }
}

bool WorkspaceNote::addCopy(const QByteArray& path, const struct stat& status) {
    const CopyState state = CopyState::of(status);
    return add(CopyLine + ' ' + QByteArray::number(state.modifiedNs) + ' ' +
               QByteArray::number(state.size) + ' ' + encoded(path));
}

void WorkspaceNote::addTold() {
    static_cast<void>(add(ToldLine));
}

bool WorkspaceNote::add(const QByteArray& line) {
    struct stat before = {};
    const QByteArray bytes = line + '\n';
    if (!statusOf(m_file.get(), &before) || before.st_size + bytes.size() > LargestNote) {
        return true;
    }
    if (::write(m_file.get(), bytes.constData(), static_cast<std::size_t>(bytes.size())) ==
        bytes.size()) {
        return true;
    }
    // An incomplete line would make the next one unreadable.
    [[maybe_unused]] const int result = ::ftruncate(m_file.get(), before.st_size);
    return false;
}

WorkspaceNote::Contents WorkspaceNote::read() const {
    Contents contents;
    struct stat status = {};
    if (!statusOf(m_file.get(), &status) || status.st_size > LargestNote) {
        return contents;
    }
    QByteArray bytes(static_cast<qsizetype>(status.st_size), Qt::Uninitialized);
    if (::pread(m_file.get(), bytes.data(), static_cast<std::size_t>(bytes.size()), 0) !=
        bytes.size()) {
        return contents;
    }
    qsizetype begin = 0;
    for (qsizetype end = bytes.indexOf('\n'); end >= 0; end = bytes.indexOf('\n', begin)) {
        readLine(bytes.mid(begin, end - begin), &contents);
        begin = end + 1;
    }
    return contents;
}

void WorkspaceNote::remove() {
    if (m_parent.isOpen() && isAt(m_parent.get(), nameFor(m_workspace), m_file.get())) {
        static_cast<void>(::unlinkat(m_parent.get(), nameFor(m_workspace).constData(), 0));
    }
    workspacesOfThisProcess().remove(m_workspace);
    m_file = Descriptor();
    m_parent = Descriptor();
}

} // namespace Tessel::Core
