// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/FolderAccess.h"

#include "core/SameFile.h"

#include <cerrno>
#include <memory>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace Tessel::Core {

namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

// A folder that an editor has made read-only is emptied too.
void makeWritable(int folder, const struct stat& status) {
    if ((status.st_mode & S_IRWXU) != S_IRWXU) {
        static_cast<void>(::fchmod(folder, (status.st_mode & ACCESSPERMS) | S_IRWXU));
    }
}

// Needs one open descriptor and no recursion, however deep the folders are.
class FolderEmptier {
public:
    explicit FolderEmptier(const KeepsEntry& keeps) : m_keeps(keeps) {}

    [[nodiscard]] bool empty(int folder) {
        m_current = openFolder(folder, ".");
        if (!enter({})) {
            return false;
        }
        while (true) {
            if (!m_levels.back().names.isEmpty()) {
                remove(m_levels.back().names.takeLast());
            } else if (m_levels.size() == 1) {
                return m_levels.back().empty;
            } else if (!leave()) {
                return false;
            }
        }
    }

private:
    struct Level {
        QByteArray name;
        struct stat self = {};
        QByteArrayList names;
        bool empty = true;
    };

    // Makes the current descriptor's folder the deepest level.
    bool enter(const QByteArray& name) {
        Level level;
        level.name = name;
        if (!statusOf(m_current.get(), &level.self)) {
            return false;
        }
        makeWritable(m_current.get(), level.self);
        const std::optional<QByteArrayList> names = namesIn(m_current.get());
        level.empty = names.has_value();
        level.names = names.value_or(QByteArrayList());
        m_levels.push_back(level);
        return true;
    }

    void remove(const QByteArray& name) {
        Level& level = m_levels.back();
        struct stat status = {};
        if (!statusAt(m_current.get(), name, &status)) {
            level.empty = level.empty && errno == ENOENT;
        } else if (!S_ISDIR(status.st_mode)) {
            level.empty = !(m_keeps && m_keeps(pathOf(name), status)) &&
                          ::unlinkat(m_current.get(), name.constData(), 0) == 0 && level.empty;
        } else if (!goDown(name)) {
            level.empty = false;
        }
    }

    bool goDown(const QByteArray& name) {
        Descriptor folder = openFolder(m_current.get(), name);
        struct stat status = {};
        if (!statusOf(folder.get(), &status) || status.st_dev != m_levels.back().self.st_dev) {
            return false;
        }
        m_current = std::move(folder);
        return enter(name);
    }

    // False when the folder is not where it was entered.
    bool leave() {
        const Level done = m_levels.back();
        m_levels.pop_back();
        Level& level = m_levels.back();
        Descriptor above = openFolder(m_current.get(), "..");
        struct stat status = {};
        if (!statusOf(above.get(), &status) || !isSameFile(status, level.self)) {
            return false;
        }
        m_current = std::move(above);
        level.empty = done.empty &&
                      ::unlinkat(m_current.get(), done.name.constData(), AT_REMOVEDIR) == 0 &&
                      level.empty;
        return true;
    }

    [[nodiscard]] QByteArray pathOf(const QByteArray& name) const {
        QByteArray path;
        for (std::size_t i = 1; i < m_levels.size(); ++i) {
            path += m_levels.at(i).name + '/';
        }
        return path + name;
    }

    const KeepsEntry& m_keeps;
    Descriptor m_current;
    std::vector<Level> m_levels;
};

} // namespace

Descriptor::~Descriptor() {
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

bool isOurs(const struct stat& status) {
    return status.st_uid == ::geteuid();
}

bool statusOf(int descriptor, struct stat* status) {
    return ::fstat(descriptor, status) == 0;
}

bool statusAt(int folder, const QByteArray& name, struct stat* status) {
    return ::fstatat(folder, name.constData(), status, AT_SYMLINK_NOFOLLOW) == 0;
}

bool isAt(int folder, const QByteArray& name, int descriptor) {
    struct stat there = {};
    struct stat open = {};
    return statusAt(folder, name, &there) && statusOf(descriptor, &open) && isSameFile(there, open);
}

Descriptor openFolder(int parent, const QByteArray& name) {
    return Descriptor(
        ::openat(parent, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

Descriptor openOwnFolder(int parent, const QByteArray& name) {
    Descriptor folder = openFolder(parent, name);
    struct stat status = {};
    return statusOf(folder.get(), &status) && isOurs(status) ? std::move(folder) : Descriptor();
}

Descriptor makeOwnFolder(int parent, const QByteArray& name) {
    if (::mkdirat(parent, name.constData(), S_IRWXU) != 0 && errno != EEXIST) {
        return {};
    }
    return openOwnFolder(parent, name);
}

std::optional<QByteArrayList> namesIn(int folder) {
    // A second descriptor: reading moves its position, and closing the stream closes it.
    const int own = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, CloseFolder> stream(own < 0 ? nullptr : ::fdopendir(own));
    if (!stream) {
        return std::nullopt;
    }
    QByteArrayList names;
    errno = 0;
    while (const dirent* entry = ::readdir(stream.get())) {
        const QByteArray name(entry->d_name);
        if (name != "." && name != "..") {
            names.append(name);
        }
    }
    return errno == 0 ? std::optional(names) : std::nullopt;
}

bool emptyFolder(int folder, const KeepsEntry& keeps) {
    return FolderEmptier(keeps).empty(folder);
}

} // namespace Tessel::Core
