# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""The committed containers open with the engine and with tessel_format.py, in every version.

If a test here fails after a change of the program, users' containers no longer open.
"""

import functools
import glob
import hashlib
import json
import lzma
import os
import unittest

import make_vectors
import tessel_format as fmt
from interop_case import InteropCase


@functools.cache
def unpacked(path):
    with lzma.open(path) as file:
        return file.read()


class Vectors(InteropCase):
    def each_vector(self):
        paths = sorted(glob.glob(os.path.join(make_vectors.VECTORS, "*.json")))
        self.assertCountEqual([os.path.basename(path)[:-5] for path in paths],
                              make_vectors.MAKERS)
        for path in paths:
            name = os.path.basename(path)[:-5]
            with open(path, encoding="utf-8") as file:
                expected = json.load(file)
            self.write("tessel.tvlt", unpacked(path[:-5] + ".tvlt.xz"))
            yield name, expected

    def test_files_are_the_committed_ones(self):
        for name, expected in self.each_vector():
            with self.subTest(name):
                whole = self.read("tessel.tvlt")
                self.assertEqual(len(whole), expected["containerBytes"])
                self.assertEqual(hashlib.sha256(whole).hexdigest(), expected["containerSha256"])

    def test_generator_still_makes_them(self):
        for name, expected in self.each_vector():
            with self.subTest(name):
                make_vectors.MAKERS[name](self.path("again"))
                digest = hashlib.sha256(self.read("again")).hexdigest()
                self.assertEqual(digest, expected["containerSha256"])

    def test_reader_finds_every_intermediate_value(self):
        for name, expected in self.each_vector():
            with self.subTest(name):
                container = fmt.Container(self.container, expected["password"].encode())
                del expected["about"]
                self.assertEqual(make_vectors.describe(container), expected)
                self.assertEqual(container.check_contents(), [])
                if name == "argon2id":
                    self.assertEqual(container.check_written_form(), [])
                with self.assertRaises(fmt.FormatError):
                    fmt.Container(self.container, b"outra senha")

    def test_engine_opens_them(self):
        for name, expected in self.each_vector():
            with self.subTest(name):
                files = expected["files"]
                exports = [["export", file["vaultPath"], self.path(f"out{i}")]
                           for i, file in enumerate(files)]
                index = self.engine(["!unlock", self.container, "outra senha"],
                                    ["unlock", self.container, expected["password"]],
                                    ["index"], *exports, ["lock"])["index"]
                for i, file in enumerate(files):
                    self.assertEqual(self.read(f"out{i}").hex(), file["contentsHex"])
                self.assertEqual(index["files"], [
                    {"path": file["vaultPath"], "size": file["sizeBytes"], "id": file["id"],
                     "modified": file["lastModifiedUtc"], "sha256": file["sha256"],
                     "blocks": [[b["offset"], b["plainSize"], b["encryptedSize"], b["nonceHex"]]
                                for b in file["blocks"]]} for file in files])
                self.assertEqual(index["folders"], [
                    {"path": folder["path"], "created": folder["createdUtc"],
                     "modified": folder["modifiedUtc"]} for folder in expected["folders"]])

    def test_engine_can_change_them(self):
        new = self.write("novo", b"novo")
        for name, expected in self.each_vector():
            with self.subTest(name):
                password = expected["password"]
                self.engine(["unlock", self.container, password], ["import", new, "novo"],
                            ["delete", "dados.bin"], ["compact"], ["lock"])
                container = fmt.Container(self.container, password.encode())
                self.assertFalse(container.from_redo_record)
                self.assertEqual(container.check_contents(), [])
                self.assertCountEqual(
                    [entry.path for entry in container.files],
                    [file["vaultPath"] for file in expected["files"]
                     if file["vaultPath"] != "dados.bin"] + ["novo"])

    def test_engine_repairs_the_torn_header(self):
        for name, expected in self.each_vector():
            with self.subTest(name):
                if expected["headerFrom"] != "redo record":
                    continue
                self.engine(["unlock", self.container, expected["password"]], ["lock"])
                container = fmt.Container(self.container, expected["password"].encode())
                self.assertFalse(container.from_redo_record)
                self.assertEqual(container.check_contents(), [])
                # The key derivation of these vectors is cheap.
                self.assertEqual(container.check_written_form(), ["kdf"])
                self.assertEqual(container.index_json.decode(), expected["indexJson"])
                if name == "torn":
                    self.assertEqual(container.header_json.decode(), expected["headerJson"])
                else:
                    # Two texts under one nonce would show what they have in common.
                    self.assertNotEqual(container.crypto.payload_nonce.hex(),
                                        expected["payloadNonceHex"])
                end = max(b["offset"] + b["encryptedSize"]
                          for file in expected["files"] for b in file["blocks"])
                self.assertEqual(os.path.getsize(self.container), end)


if __name__ == "__main__":
    unittest.main()
