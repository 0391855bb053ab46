# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Everything that names the version names the one that is built."""

import re
import sys

from toolbox import TOP, conclude

# Where each file names it, newest first.
PLACES = {
    "src/ui/ProductInfo.h": r'DefaultVersion\[\] = "([^"]+)"',
    # What is not released yet comes before it.
    "CHANGELOG.md": r"^## (\d\S*)$",
    "packaging/changelog": r"^tessel \(([^)]+)\)",
    "packaging/example.tessel.Tessel.metainfo.xml": r'<release version="([^"]+)"',
    "packaging/man/tessel.1": r'^\.TH .*"Tessel ([^"]+)"',
    "packaging/man/tessel.pt_BR.1": r'^\.TH .*"Tessel ([^"]+)"',
}


def faults(version):
    for name, pattern in PLACES.items():
        match = re.search(pattern, (TOP / name).read_text(encoding="utf-8"), re.MULTILINE)
        if match is None or match[1] != version:
            yield f"{name}: names {match[1] if match else 'no version'} instead of {version}"


if __name__ == "__main__":
    conclude(faults(sys.argv[1]))
