// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QtGlobal>

#include <csignal>
#include <functional>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Tessel::Tests {

/// A child process that runs a function and then waits to be killed, without a chance to clean up.
/// Qt's event loop does not run in it.
class KilledRun {
public:
    /// Returns when @p action has returned in the child process.
    explicit KilledRun(const std::function<bool()>& action) {
        int ends[2] = {-1, -1};
        if (::pipe(ends) != 0) {
            return;
        }
        m_child = ::fork();
        if (m_child == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            const char done = action() ? 1 : 0;
            static_cast<void>(!::write(ends[1], &done, 1));
            while (true) {
                ::pause();
            }
        }
        char done = 0;
        m_ready = m_child > 0 && ::read(ends[0], &done, 1) == 1 && done == 1;
        ::close(ends[0]);
        ::close(ends[1]);
    }
    ~KilledRun() { kill(); }
    Q_DISABLE_COPY_MOVE(KilledRun)

    /// Whether @p action succeeded.
    [[nodiscard]] bool isReady() const { return m_ready; }
    /// Kills the child process and waits until it has ended.
    void kill() {
        if (m_child > 0) {
            ::kill(m_child, SIGKILL);
            ::waitpid(m_child, nullptr, 0);
            m_child = -1;
        }
    }

private:
    pid_t m_child = -1;
    bool m_ready = false;
};

} // namespace Tessel::Tests
