// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/ProcessPrivacy.h"

#include <csignal>

#include <sys/prctl.h>

namespace Tessel::UI {

void makeProcessPrivate() {
    // Not a core limit, which a started program could not raise again: a process that may not be
    // dumped leaves no core whatever the limit.
    static_cast<void>(::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0));
    // Not ignored, which started programs would inherit; a handler ends with this program.
    static_cast<void>(std::signal(SIGXFSZ, [](int /*signal*/) {}));
}

} // namespace Tessel::UI
