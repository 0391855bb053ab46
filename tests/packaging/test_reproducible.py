# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""test_reproducible.py FOLDER FOLDER compares the two packages byte by byte, and says which of
their members differ."""

import subprocess
import sys
from pathlib import Path

from toolbox import conclude, need, package_in


def listing(package):
    """Every member of the package with its mode, size and date."""
    run = subprocess.run(["dpkg-deb", "--contents", package], capture_output=True, text=True,
                         check=True)
    return run.stdout.splitlines()


def contents(package, folder):
    """Every file of the package and of its control archive, with its bytes."""
    subprocess.run(["dpkg-deb", "--raw-extract", package, folder], check=True)
    return {str(path.relative_to(folder)): path.read_bytes()
            for path in sorted(folder.rglob("*")) if path.is_file()}


def faults(one, other):
    if one.read_bytes() == other.read_bytes():
        return
    yield f"{one} and {other} are not the same"
    for line in sorted(set(listing(one)) ^ set(listing(other))):
        yield f"only in one of them: {line}"
    contents_of_one = contents(one, one.parent / "contents")
    contents_of_other = contents(other, other.parent / "contents")
    for name in sorted(contents_of_one.keys() | contents_of_other.keys()):
        if contents_of_one.get(name) != contents_of_other.get(name):
            yield f"not the same in both: {name}"


if __name__ == "__main__":
    need("dpkg-deb")
    conclude(faults(*(package_in(Path(folder)) for folder in sys.argv[1:3])))
