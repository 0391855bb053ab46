// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QtGlobal>

#include <functional>
#include <optional>
#include <utility>

#include <sys/stat.h>

/// Folders reached by descriptor instead of by path. Another account may exchange what a path in a
/// shared folder leads to; it cannot exchange what is open. No function here follows a link, and
/// programs that are started inherit no descriptor.
namespace Tessel::Core {

/// Closes its descriptor.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    ~Descriptor();
    Q_DISABLE_COPY(Descriptor)

    [[nodiscard]] bool isOpen() const { return m_descriptor >= 0; }
    /// -1 when closed.
    [[nodiscard]] int get() const { return m_descriptor; }
    /// Leaves the closing to the caller.
    [[nodiscard]] int release() { return std::exchange(m_descriptor, -1); }

private:
    int m_descriptor = -1;
};

/// Whether the file belongs to the account that runs this process.
[[nodiscard]] bool isOurs(const struct stat& status);
/// False when the descriptor is not open.
[[nodiscard]] bool statusOf(int descriptor, struct stat* status);
/// The status of @p name in the folder, not of what a link leads to. False when there is none.
[[nodiscard]] bool statusAt(int folder, const QByteArray& name, struct stat* status);
/// Whether @p name in the folder is what the descriptor has open.
[[nodiscard]] bool isAt(int folder, const QByteArray& name, int descriptor);

/// A folder of any account; closed when @p name is something else.
[[nodiscard]] Descriptor openFolder(int parent, const QByteArray& name);
/// A folder of this account; closed when @p name is anything else.
[[nodiscard]] Descriptor openOwnFolder(int parent, const QByteArray& name);
/// The same; created for this account alone if there is nothing of this name.
[[nodiscard]] Descriptor makeOwnFolder(int parent, const QByteArray& name);

/// Names of all entries but "." and ".."; nothing when the folder cannot be read.
[[nodiscard]] std::optional<QByteArrayList> namesIn(int folder);

/// Asked about each entry that is not a folder: its path below the folder to be emptied.
using KeepsEntry = std::function<bool(const QByteArray& path, const struct stat& status)>;
/// Removes everything in the folder except the entries to keep and the folders that hold them. It
/// goes on after an entry that cannot be removed. Folders of another file system are not entered.
/// @return whether the folder is empty.
[[nodiscard]] bool emptyFolder(int folder, const KeepsEntry& keeps = {});

} // namespace Tessel::Core
