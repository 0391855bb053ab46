# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""What the tests of this folder share."""

import json
import os
import subprocess
import sys
import tempfile
import unittest


class InteropCase(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tessel-interop-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.container = self.path("tessel.tvlt")

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, contents):
        with open(self.path(name), "wb") as file:
            file.write(contents)
        return self.path(name)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def engine(self, *commands):
        """Runs the engine; a command with "!" before its name must fail."""
        script = self.write("script.json", json.dumps(commands).encode())
        driver = os.environ["TESSEL_VAULT_DRIVER"]
        done = subprocess.run([driver, script], capture_output=True, text=True, check=False,
                              env={**os.environ, "TMPDIR": self.folder})
        self.assertEqual(done.returncode, 0, done.stderr)

    def reader(self, password, *arguments):
        """Runs the reader's command line."""
        program = os.path.join(os.path.dirname(os.path.abspath(__file__)), "tessel_reader.py")
        return subprocess.run(
            [sys.executable, "-B", program, "--password-file", "-", *arguments], check=False,
            capture_output=True, text=True, input=password + "\n")
