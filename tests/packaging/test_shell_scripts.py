# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Has shellcheck read every script of the repository, with what it sources."""

import os
import re
import subprocess
import sys

from toolbox import TOP, conclude, need, source_files

SHELL = re.compile(rb"#!.*\b(ba|da)?sh\b")


def is_shell_script(path):
    if path.suffix == ".sh":  # for others to source
        return True
    with path.open("rb") as file:
        return SHELL.match(file.readline(200)) is not None


def main():
    need("shellcheck")
    scripts = [str(path.relative_to(TOP)) for path in source_files() if is_shell_script(path)]
    if "scripts/test" not in scripts:
        conclude(["scripts/test was not found: no script would be"])
    os.chdir(TOP)
    sys.exit(subprocess.run(["shellcheck", "--external-sources", *scripts],
                            check=False).returncode)


if __name__ == "__main__":
    main()
