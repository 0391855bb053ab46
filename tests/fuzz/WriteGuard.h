// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>

namespace Tessel::Fuzz {

/// While a guard exists, the program aborts when it creates, opens for writing, renames to or links
/// a path that is not below the folder, or that leaves it by "..". It replaces the C library's
/// functions, so it sees the paths that the kernel would get.
class WriteGuard {
public:
    /// @param folder absolute. When this guard ends, the earlier guard's folder applies again.
    explicit WriteGuard(const QByteArray& folder);
    ~WriteGuard();
    Q_DISABLE_COPY_MOVE(WriteGuard)

private:
    QByteArray m_before;
};

} // namespace Tessel::Fuzz
