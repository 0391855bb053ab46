// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>

namespace Tessel::Fuzz {

/// While one exists, the program ends when it creates, opens for writing, renames to or
/// links a path that is not beneath the folder, or leaves it by "..". It stands in for the C
/// library's functions, so a path counts as the kernel would be given it.
class WriteGuard {
public:
    /// @param folder absolute; an earlier guard's folder comes back at the end of this one.
    explicit WriteGuard(const QByteArray& folder);
    ~WriteGuard();
    Q_DISABLE_COPY_MOVE(WriteGuard)

private:
    QByteArray m_before;
};

} // namespace Tessel::Fuzz
