// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/ProcessPrivacy.h"

#include <csignal>

#include <sys/prctl.h>

namespace Tessel::UI {

void makeProcessPrivate() {
    // Rather than a core size limit, which started programs would inherit.
    static_cast<void>(::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0));
    // An empty handler rather than SIG_IGN, which started programs would inherit.
    static_cast<void>(std::signal(SIGXFSZ, [](int /*signal*/) {}));
}

} // namespace Tessel::UI
