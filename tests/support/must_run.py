# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""The rule for a test that this machine cannot run; MustRun.h is the same rule for C++."""

import os
import sys

SKIPPED = 77
FAILED = 1


def refused(reason):
    """Prints why nothing can be tested here and returns the exit status: skipped, or failed where
    continuous integration (the environment variable CI) must run every test."""
    must_run = bool(os.environ.get("CI"))
    print(f"{'FAIL' if must_run else 'SKIP'}: {reason}", file=sys.stderr, flush=True)
    return FAILED if must_run else SKIPPED
