# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Reads a container without the engine: after a fault, a reader written from
docs/container-format.md must find the same contents as the engine."""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "interop"))

import tessel_format as fmt


def contents(path, passwords):
    """What vault_checker reports of the container, with the first password that opens it; empty if
    none does. Writes nothing to it."""
    for number, password in enumerate(passwords):
        try:
            container = fmt.Container(path, password.encode())
        except (fmt.FormatError, OSError):
            continue
        return {"files": {entry.path: _digest(container, entry) for entry in container.files},
                "folders": [folder.path for folder in container.folders], "password": number}
    return {}


def _digest(container, entry):
    """The digest of the file's bytes; None if they are incomplete or wrong."""
    try:
        digest, size = container.digest_and_size(entry)
    except fmt.FormatError:
        return None
    return digest.hex() if digest == entry.sha256 and size == entry.size else None
