# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Has reuse check that every file names its licence. Newer versions say that the format of
.reuse/dep5 is deprecated, but the one of Debian 12 reads no other; they are told to be silent
about it."""

import subprocess

from run_tool import faults
from toolbox import conclude, need

SILENCE = "--suppress-deprecation"


def main():
    need("reuse")
    options = subprocess.run(["reuse", "--help"], capture_output=True, text=True, check=True).stdout
    silence = [SILENCE] if SILENCE in options else []
    conclude(faults(["reuse", *silence, "lint"], silent=False))


if __name__ == "__main__":
    main()
