# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""run_tool.py [--silent] TOOL [ARGUMENT...] passes when the tool ends with 0 and writes nothing to
standard error; with --silent nothing to standard output either, for tools that only warn there.
What it wrote is shown when it fails."""

import subprocess
import sys

from toolbox import conclude, need


def faults(command, silent):
    run = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE, text=True, errors="replace", check=False)
    if run.returncode != 0 or run.stderr or (silent and run.stdout):
        yield run.stdout + run.stderr
        yield f"{command[0]} ended with {run.returncode}"


def main(arguments):
    silent = arguments[0] == "--silent"
    command = arguments[1:] if silent else arguments
    need(command[0])
    conclude(faults(command, silent))


if __name__ == "__main__":
    main(sys.argv[1:])
