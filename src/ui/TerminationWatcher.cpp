// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/TerminationWatcher.h"

#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace Tessel::UI {

namespace {

constexpr std::array Signals{SIGTERM, SIGINT, SIGHUP};

// A signal handler may call few functions; write() to a pipe is one of them.
std::array<int, 2> wakePipe{-1, -1};

void wake(int /*signal*/) {
    const int savedError = errno;
    const char byte = 0;
    // A full pipe means that the event loop has been woken already.
    [[maybe_unused]] const ssize_t written = ::write(wakePipe[1], &byte, 1);
    errno = savedError;
}

void setHandlers(void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int signal : Signals) {
        ::sigaction(signal, &action, nullptr);
    }
}

} // namespace

TerminationWatcher::TerminationWatcher(QObject* parent) : QObject(parent) {
    if (::pipe2(wakePipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        return;
    }
    m_notifier = new QSocketNotifier(wakePipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &TerminationWatcher::drain);
    setHandlers(&wake);
}

TerminationWatcher::~TerminationWatcher() {
    if (!m_notifier) {
        return;
    }
    setHandlers(SIG_DFL);
    delete m_notifier;
    ::close(wakePipe[0]);
    ::close(wakePipe[1]);
    wakePipe = {-1, -1};
}

void TerminationWatcher::drain() {
    std::array<char, 64> bytes{};
    while (::read(wakePipe[0], bytes.data(), bytes.size()) > 0) {
    }
    Q_EMIT terminationRequested();
}

} // namespace Tessel::UI
