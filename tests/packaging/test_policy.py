# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""test_policy.py FOLDER holds the package to Debian's policy: lintian finds neither an
error nor a warning in it, and nothing pedantic."""

import subprocess
import sys
from pathlib import Path

from toolbox import need, package_in

if __name__ == "__main__":
    need("lintian")
    sys.exit(subprocess.run(
        ["lintian", "--allow-root", "--pedantic", "--fail-on", "error,warning,pedantic", "--tag-display-limit", "0",
         package_in(Path(sys.argv[1]))], check=False).returncode)
