# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""What the tests of this folder share."""

import contextlib
import io
import os
import sys
import unittest
from pathlib import Path
from unittest import mock

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "support"))

import tessel_format as fmt
import tessel_reader
from vault_tool import VaultTool, fast_folder


class InteropCase(unittest.TestCase):
    def setUp(self):
        folder = fast_folder("tessel-interop-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.container = self.path("tessel.tvlt")

    def derive_cheaply(self):
        """For this test, the engine and this process use Argon2id with its smallest parameters."""
        for patch in (mock.patch.dict(os.environ, TESSEL_CHEAP_DERIVATION="1"),
                      mock.patch.multiple(fmt, ARGON2_PASSES=1, ARGON2_MEMORY_BYTES=8192)):
            patch.start()
            self.addCleanup(patch.stop)

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, contents):
        with open(self.path(name), "wb") as file:
            file.write(contents)
        return self.path(name)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def engine(self, *commands, under=()):
        """Runs operations of the engine in a session of their own; one with "!" before its name must
        fail. What each of them reports, by its name."""
        answers = {}
        with VaultTool(under) as tool:
            for name, *arguments in commands:
                answers[name] = tool.ask(name.lstrip("!"), *arguments)
                self.assertEqual(answers[name]["result"], not name.startswith("!"),
                                 (name, *arguments))
        return answers

    def reader(self, password, *arguments):
        """Runs the reader's command; what it prints."""
        line = io.TextIOWrapper(io.BytesIO(password.encode() + b"\n"))
        with mock.patch.object(sys, "argv", ["", "--password-file", "-", *arguments]), \
                mock.patch.object(sys, "stdin", line), \
                contextlib.redirect_stdout(io.StringIO()) as printed:
            tessel_reader.main()
        return printed.getvalue()
