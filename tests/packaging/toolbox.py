# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""What the tests of the package share: the sources, the tools of the system, and how they end."""

import os
import shutil
import sys
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TOP / "tests" / "support"))

from must_run import refused  # noqa: E402


def need(*tools):
    """Ends the test where a tool is not installed."""
    for tool in tools:
        if shutil.which(tool) is None:
            sys.exit(refused(f"{tool} is not installed here"))


def conclude(faults):
    """Ends the test: failed when there is a fault."""
    faults = list(faults)
    for fault in faults:
        print(fault)
    sys.exit(1 if faults else 0)


def source_files():
    """Every file that is neither made by a build nor the version control's own."""
    for folder, folders, files in os.walk(TOP):
        folders[:] = sorted(name for name in folders
                            if name not in (".git", ".cache", "__pycache__")
                            and not (Path(folder) == TOP and name.startswith("build")))
        for name in sorted(files):
            yield Path(folder, name)


def package_in(folder):
    """The package that build_package.py has made there. Without one, something of what making it
    needs is not installed."""
    packages = list(folder.glob("*.deb"))
    if not packages:
        sys.exit(refused(f"no package could be made in {folder}"))
    return packages[0]
