# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""The engine and tessel_format.py read what the other one writes."""

import functools
import hashlib
import io
import os
import subprocess
import sys
import unittest

import tessel_format as fmt
import tessel_reader
from interop_case import InteropCase

MIB = 1024 * 1024
OLD_PASSWORD = "senha antiga çã€"
PASSWORD = "senha nova do cofre"
# A time with milliseconds that every file system can keep.
SOME_TIME_NS = 1740837909_120_000_000
SOME_TIME = "2025-03-01T14:05:09.120Z"

SIZES = {
    "vazio": 0, "um": 1, "quase": 16 * MIB - 1, "bloco": 16 * MIB, "mais um": 16 * MIB + 1,
    "três blocos": 40 * MIB + 12345,
}


@functools.cache
def contents_of(name):
    """Bytes that belong to a name, different for each."""
    return hashlib.shake_256(name.encode()).digest(SIZES.get(name, 1000))


class RealDerivation(InteropCase):
    """The other tests do not wait for Argon2id."""

    def test_reader_opens_what_the_engine_creates(self):
        self.engine(["create", self.container, OLD_PASSWORD],
                    ["password", self.container, OLD_PASSWORD, PASSWORD])
        with open(self.path("password"), "w", encoding="utf-8") as file:
            file.write(PASSWORD + "\n")
        verified = subprocess.run(
            [sys.executable, "-B", tessel_reader.__file__, "--password-file", file.name, "verify",
             "--strict", self.container], check=True, text=True, stdout=subprocess.PIPE)
        self.assertEqual(verified.stdout, "0 files and 0 folders are sound\n")


class EngineWrites(InteropCase):
    """One vault with a history; every test checks the resulting container."""

    EXPECTED = {
        "vazio": "vazio", "um": "um", "Documentos/quase": "quase", "bloco": "bloco",
        "Documentos/2025/mais um": "mais um", "Fotos/três blocos": "três blocos",
        "Documentos/Relatório anual.txt": "novo relatório",
        "ação/depois.txt": "antes", "mudou/folha.txt": "folha",
    }
    FOLDERS = ["Documentos", "Documentos/2025", "Fotos", "ação", "mudou", "Pasta vazia"]

    def setUp(self):
        super().setUp()
        self.derive_cheaply()
        self.index = self.engine(
            ["create", self.container, OLD_PASSWORD],
            ["!unlock", self.container, PASSWORD], ["unlock", self.container, OLD_PASSWORD],
            ["import", self.source("vazio"), "vazio"], ["import", self.source("um"), "um"],
            ["import", self.source("quase"), "Documentos/quase"],
            ["import", self.source("antes"), "antes.txt"],
            ["import", self.source("bloco"), "bloco"],
            ["import", self.source("mais um"), "Documentos/2025/mais um"],
            ["import", self.source("apagado"), "apagado"],
            ["import", self.source("velho relatório"), "Documentos/Relatório anual.txt"],
            ["import", self.source("três blocos"), "Fotos/três blocos"],
            ["import", self.source("novo relatório"), "documentos/RELATÓRIO anual.TXT"],
            ["rename", "documentos/relatório ANUAL.txt", "Documentos/x"],
            ["rename", "Documentos/x", "Documentos/Relatório anual.txt"],
            ["delete", "apagado"], ["mkdir", "ação"], ["mkdir", "Pasta vazia"],
            ["rename", "antes.txt", "depois.txt"], ["move", "depois.txt", "ação"],
            ["import", self.source("folha"), "rascunho/folha.txt"],
            ["rename-folder", "rascunho", "mudou"], ["index"], ["lock"],
            ["!password", self.container, PASSWORD, "x"],
            ["password", self.container, OLD_PASSWORD, PASSWORD])["index"]

    def source(self, name):
        path = self.write("source-" + name, contents_of(name))
        os.utime(path, ns=(SOME_TIME_NS, SOME_TIME_NS))
        return path

    def test_reader_understands_all_of_it(self):
        container = fmt.Container(self.container, PASSWORD.encode())
        with self.subTest("as writers must write"):
            self.assertEqual(container.check_written_form(), [])
        with self.subTest("digests and sizes"):
            self.assertEqual(container.check_contents(), [])
        with self.subTest("files"):
            self.compare_files(container)
        with self.subTest("folders"):
            self.assertCountEqual([folder.path for folder in container.folders], self.FOLDERS)
            for folder in container.folders:
                self.assertRegex(folder.created, fmt.DATE)
                self.assertRegex(folder.modified, fmt.DATE)
        with self.subTest("index as the engine holds it"):
            self.compare_index(container)
        with self.subTest("fixed part of the layout"):
            self.compare_layout(container)
        with self.subTest("old password"), self.assertRaises(fmt.FormatError):
            fmt.Container(self.container, OLD_PASSWORD.encode())
        with self.subTest("command"):
            self.compare_extracted()
        with self.subTest("after compaction"):
            self.compare_compacted(container)

    def compare_files(self, container):
        found = {entry.path: entry for entry in container.files}
        self.assertCountEqual(found, self.EXPECTED)
        self.assertEqual(len({entry.id for entry in container.files}), len(found))
        for path, name in self.EXPECTED.items():
            entry, expected = found[path], contents_of(name)
            self.assertEqual(entry.modified, SOME_TIME)
            self.assertEqual(entry.size, len(expected))
            self.assertEqual(entry.sha256, hashlib.sha256(expected).digest())
            self.assertEqual([block.plain_size for block in entry.blocks],
                             fmt.expected_block_sizes(len(expected)))
            self.assertTrue(b"".join(container.contents(entry)) == expected, path)

    def compare_index(self, container):
        self.assertEqual(self.index["files"], [
            {"path": entry.path, "size": entry.size, "modified": entry.modified,
             "sha256": entry.sha256.hex(), "id": entry.id,
             "blocks": [[b.offset, b.plain_size, b.encrypted_size, b.nonce.hex()]
                        for b in entry.blocks]} for entry in container.files])
        self.assertEqual(self.index["folders"], [
            {"path": folder.path, "created": folder.created, "modified": folder.modified}
            for folder in container.folders])

    def compare_layout(self, container):
        start = self.read("tessel.tvlt")[:8388636]
        header = container.header_json
        self.assertTrue(start == b"TESSEL3" + b"%020d\n" % len(header) + header +
                        bytes(8388608 - len(header)))
        self.assertEqual(container.payload_offset, 8388636)
        self.assertEqual(container.header_json[:11], b'{"crypto":{')
        # Replaced and deleted blocks stay: nine sealed texts are in use, and two are not.
        stored = [contents_of(name) for name in self.EXPECTED.values()]
        stored += [contents_of("apagado"), contents_of("velho relatório")]
        expected = 8388636 + sum(
            len(text) + 16 * len(fmt.expected_block_sizes(len(text))) for text in stored)
        self.assertEqual(os.path.getsize(self.container), expected)

    def compare_extracted(self):
        out = self.path("extraído")
        self.reader(PASSWORD, "extract", self.container, "--into", out)
        for path, name in self.EXPECTED.items():
            with open(os.path.join(out, path), "rb") as file:
                self.assertTrue(file.read() == contents_of(name), path)
        self.assertTrue(os.path.isdir(os.path.join(out, "Pasta vazia")))
        self.assertIn("Documentos/Relatório anual.txt",
                      self.reader(PASSWORD, "list", self.container))
        self.assertEqual(self.reader(PASSWORD, "verify", "--strict", self.container),
                         "9 files and 6 folders are sound\n")

    def compare_compacted(self, before):
        self.engine(["unlock", self.container, PASSWORD], ["compact"], ["lock"])
        after = fmt.Container(self.container, PASSWORD.encode())
        self.assertEqual(after.check_written_form() + after.check_contents(), [])
        self.assertEqual(after.crypto.encrypted_master_key, before.crypto.encrypted_master_key)
        self.assertEqual(after.master_key, before.master_key)
        self.assertNotEqual(after.crypto.payload_nonce, before.crypto.payload_nonce)
        self.assertEqual([(entry.id, [block.nonce for block in entry.blocks])
                          for entry in after.files],
                         [(entry.id, [block.nonce for block in entry.blocks])
                          for entry in before.files])
        live = sum(block.encrypted_size for entry in after.files for block in entry.blocks)
        self.assertEqual(os.path.getsize(self.container), 8388636 + live)


class PythonWrites(InteropCase):
    FILES = {"vazio": "vazio", "Documentos/Relatório anual.txt": "relatório",
             "Documentos/mais um": "mais um"}

    def setUp(self):
        super().setUp()
        self.derive_cheaply()

    def write_container(self, **options):
        writer = fmt.Writer(self.container, PASSWORD.encode(), **options)
        writer.add_folder("Documentos", SOME_TIME, SOME_TIME)
        for path, name in self.FILES.items():
            writer.add_file(path, io.BytesIO(contents_of(name)), SOME_TIME)
            writer.leave_gap(100)
        writer.finish()

    def test_engine_opens_exports_imports_and_compacts(self):
        self.write_container()
        before = fmt.Container(self.container, PASSWORD.encode())
        exports = [["export", path, self.path(f"out{i}")] for i, path in enumerate(self.FILES)]
        novo = self.write("novo", contents_of("novo"))
        self.engine(
            ["!unlock", self.container, OLD_PASSWORD], ["unlock", self.container, PASSWORD],
            *exports, ["import", novo, "Documentos/novo"], ["delete", "vazio"], ["compact"],
            ["lock"])
        for i, name in enumerate(self.FILES.values()):
            self.assertTrue(self.read(f"out{i}") == contents_of(name), name)
        after = fmt.Container(self.container, PASSWORD.encode())
        self.assertEqual(after.check_written_form() + after.check_contents(), [])
        self.assertEqual([entry.path for entry in after.files],
                         [*list(self.FILES)[1:], "Documentos/novo"])
        self.assertEqual(after.folders, before.folders)
        self.assertEqual([entry.id for entry in after.files][:2],
                         [entry.id for entry in before.files][1:])
        self.assertEqual(b"".join(after.contents(after.entry("documentos/NOVO"))),
                         contents_of("novo"))

    def test_engine_reads_what_the_command_creates(self):
        os.mkdir(self.path("Fotos"))
        photo = self.write("Fotos/praia ao pôr do sol", contents_of("praia"))
        os.utime(photo, ns=(SOME_TIME_NS, SOME_TIME_NS))
        self.reader(PASSWORD, "create", self.container, self.path("Fotos"))
        index = self.engine(
            ["unlock", self.container, PASSWORD], ["index"],
            ["export", "Fotos/praia ao pôr do sol", self.path("out")], ["lock"])["index"]
        self.assertEqual(self.read("out"), contents_of("praia"))
        self.assertEqual([entry["modified"] for entry in index["files"]], [SOME_TIME])
        self.assertEqual([folder["path"] for folder in index["folders"]], ["Fotos"])

    def test_names_that_begin_with_a_byte_order_mark_stay_apart(self):
        self.write_container(kdf="PBKDF2-HMAC-SHA256", kdf_iterations=1)
        names = ["\ufeffnota", "nota", "\ufeff\ufeffnota", '"\ufeffnota"']
        imports = [["import", self.write("source", contents_of("nota")), name] for name in names]
        index = self.engine(
            ["unlock", self.container, PASSWORD], *imports, ["mkdir", "\ufeffpasta"], ["lock"],
            ["unlock", self.container, PASSWORD], ["index"], ["lock"])["index"]
        container = fmt.Container(self.container, PASSWORD.encode())
        # The cheap key derivation is only in this test's writer.
        self.assertEqual(container.check_written_form() + container.check_contents(), ["kdf"])
        self.assertEqual([entry.path for entry in container.files], [*self.FILES, *names])
        self.assertIn("\ufeffpasta", [folder.path for folder in container.folders])
        self.assertEqual(len(index["files"]), len(self.FILES) + len(names))

    def test_engine_re_keys_another_derivation(self):
        self.write_container(kdf="PBKDF2-HMAC-SHA256", kdf_iterations=3)
        self.engine(["unlock", self.container, PASSWORD], ["lock"],
                    ["password", self.container, PASSWORD, OLD_PASSWORD],
                    ["!unlock", self.container, PASSWORD],
                    ["unlock", self.container, OLD_PASSWORD],
                    ["export", "Documentos/mais um", self.path("out")], ["lock"])
        self.assertTrue(self.read("out") == contents_of("mais um"))
        after = fmt.Container(self.container, OLD_PASSWORD.encode())
        self.assertEqual(after.check_written_form() + after.check_contents(), [])

    def test_reader_refuses_altered_bytes(self):
        self.write_container(kdf="PBKDF2-HMAC-SHA256", kdf_iterations=1)
        container = fmt.Container(self.container, PASSWORD.encode())
        block = container.entry("Documentos/mais um").blocks[1]
        with open(self.container, "r+b") as file:
            file.seek(block.offset)
            byte = file.read(1)[0]
            file.seek(block.offset)
            file.write(bytes([byte ^ 1]))
        self.assertEqual(container.check_contents(),
                         ["Documentos/mais um: wrong key or altered bytes"])


if __name__ == "__main__":
    unittest.main()
