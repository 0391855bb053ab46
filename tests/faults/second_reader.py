# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Reads a container without the engine: what a fault leaves must not be readable to the engine
alone, nor look different to somebody who has only docs/container-format.md."""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "interop"))

import tessel_format as fmt


def contents(path, passwords):
    """What vault_checker says of the container, with the first password that fits; empty when none
    does. Nothing is written to it."""
    for number, password in enumerate(passwords):
        try:
            container = fmt.Container(path, password.encode())
        except (fmt.FormatError, OSError):
            continue
        return {"files": {entry.path: _digest(container, entry) for entry in container.files},
                "folders": [folder.path for folder in container.folders], "password": number}
    return {}


def _digest(container, entry):
    """Of the bytes that come out; None when not all come out, or other ones."""
    try:
        digest, size = container.digest_and_size(entry)
    except fmt.FormatError:
        return None
    return digest.hex() if digest == entry.sha256 and size == entry.size else None
