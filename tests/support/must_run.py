# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""What a test does that this machine cannot run; MustRun.h is the same rule for C++."""

import os
import sys

SKIPPED = 77
FAILED = 1


def refused(reason):
    """Says why nothing can be tested here and gives the program's exit status: skipped, or failed
    where continuous integration (the environment variable CI) has every test run."""
    must_run = bool(os.environ.get("CI"))
    print(f"{'FAIL' if must_run else 'SKIP'}: {reason}", file=sys.stderr, flush=True)
    return FAILED if must_run else SKIPPED
