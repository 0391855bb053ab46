// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/ProcessPrivacy.h"

#include <csignal>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace Tessel::UI {

void makeProcessPrivate() {
    ::umask(S_IRWXG | S_IRWXO);
    const rlimit noCore{0, 0};
    // Each is a precaution of its own; where the system refuses one, the other still stands.
    static_cast<void>(::setrlimit(RLIMIT_CORE, &noCore));
    static_cast<void>(::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0));
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
}

} // namespace Tessel::UI
