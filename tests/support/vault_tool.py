# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Runs the engine: vault_tool, from the folders that TESSEL_TEST_TOOLS lists."""

import json
import os
import shutil
import subprocess
import tempfile
from pathlib import Path


def tool(name):
    for folder in os.environ["TESSEL_TEST_TOOLS"].split(":"):
        path = Path(folder, name)
        if path.exists():
            return str(path)
    raise FileNotFoundError(name)


def fast_folder(prefix):
    """A temporary folder, in memory if possible: these tests write gigabytes."""
    place = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    return tempfile.TemporaryDirectory(prefix=prefix, dir=place)


class VaultTool:
    """One session of vault_tool, which carries out one operation after the other."""

    def __init__(self, under=()):
        """`under` is a command that runs the program, as strace does."""
        self.folder = tempfile.mkdtemp(prefix="tessel-vault-tool-")
        self.process = subprocess.Popen(
            [*under, tool("vault_tool")], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
            env={**os.environ, "TMPDIR": self.folder})

    def ask(self, *command):
        """What the operation reports; the member "result" tells whether it succeeded."""
        self.process.stdin.write(json.dumps([str(part) for part in command]) + "\n")
        self.process.stdin.flush()
        answer = json.loads(self.process.stdout.readline())
        if "error" in answer:
            raise ValueError(answer["error"])
        return answer

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.close()

    def close(self):
        self.process.communicate()
        shutil.rmtree(self.folder, ignore_errors=True)
