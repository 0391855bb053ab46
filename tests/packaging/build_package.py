# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""build_package.py here|elsewhere FOLDER makes the Debian package from a copy of the sources in
FOLDER, as scripts/package does it for a person. Both ways must give the same bytes: everything of
the second that ought not to matter is different."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

from toolbox import TOP, conclude, need

# Nothing of the tests is needed to make the package.
INGREDIENTS = ("CMakeLists.txt", "CMakePresets.json", "cmake", "packaging", "resources", "scripts",
               "src")
YEAR = 365 * 24 * 3600
EPOCH = "1795262400"


def copy_sources(folder):
    for name in INGREDIENTS:
        source = TOP / name
        if source.is_dir():
            shutil.copytree(source, folder / name)
        else:
            folder.mkdir(parents=True, exist_ok=True)
            shutil.copy2(source, folder / name)


def age(folder, seconds):
    for path in folder.rglob("*"):
        modified = path.stat().st_mtime - seconds
        os.utime(path, (modified, modified))


def surroundings(way, folder):
    """The environment of scripts/package."""
    own = {"TESSEL_SKIP_PACKAGES": "1", "SOURCE_DATE_EPOCH": EPOCH,
           "CMAKE_BUILD_PARALLEL_LEVEL": "1"}
    if way == "elsewhere":
        # ccache gives the compiler shorter paths than it gets without, and what it remembers may
        # come from anywhere. Without it every path that enters the package shows.
        own |= {"CCACHE_DISABLE": "1", "TZ": "Asia/Tokyo", "LC_ALL": "C", "HOME": str(folder),
                "USER": "ana", "LOGNAME": "ana"}
    return os.environ | own


def main(way, folder):
    need("cmake", "ninja", "dpkg-shlibdeps", "file")
    shutil.rmtree(folder, ignore_errors=True)
    sources = folder / "tessel" if way == "here" else folder / "another folder" / "of sources"
    copy_sources(sources)
    if way == "elsewhere":
        age(sources, YEAR)
        os.umask(0o077)
    run = subprocess.run(["scripts/package"], cwd=sources, env=surroundings(way, folder),
                         stdin=subprocess.DEVNULL, check=False)
    packages = list(sources.glob("build/package/*.deb"))
    if run.returncode != 0 or len(packages) != 1:
        conclude([f"scripts/package ended with {run.returncode} and made {packages}"])
    packages[0].rename(folder / packages[0].name)


if __name__ == "__main__":
    main(sys.argv[1], Path(sys.argv[2]))
