// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QGuiApplication>
#include <QtGlobal>

#include <utility>

namespace Tessel::UI {

/// Shows the wait cursor over every window, from construction to destruction.
class WaitCursor {
public:
    WaitCursor() { QGuiApplication::setOverrideCursor(Qt::WaitCursor); }
    ~WaitCursor() { QGuiApplication::restoreOverrideCursor(); }
    Q_DISABLE_COPY_MOVE(WaitCursor)
};

/// Runs @p work, which may take long and shows no dialog, under the wait cursor.
/// @return what @p work returns
template <typename Work>
[[nodiscard]] auto runWaiting(Work&& work) {
    const WaitCursor cursor;
    return std::forward<Work>(work)();
}

} // namespace Tessel::UI
