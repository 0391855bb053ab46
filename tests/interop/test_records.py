# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""tessel_format.py accepts exactly the redo records that the document defines."""

import subprocess
import unittest

import tessel_format as fmt
from interop_case import InteropCase

PASSWORD = b"senha do cofre"


FOLDER = b"\1\2d\0\0\0"
NOTHING = b"\0\0"


def record_of(image):
    return image + fmt.redo_trailer(image)


def image_of(header, sealed_index=b""):
    return fmt.length_line(len(header)) + header + sealed_index


# The record is removed by cutting it off.
WITHOUT_CUTTING = ("strace", "-f", "-qq", "-o", "/dev/null", "-e", "trace=ftruncate",
                   "-e", "inject=ftruncate:error=EIO")


class RecordsOfTheEngine(InteropCase):
    """Records that the engine leaves, in front of which the header is then torn."""

    def setUp(self):
        super().setUp()
        self.derive_cheaply()
        if subprocess.run([*WITHOUT_CUTTING, "true"], check=False).returncode != 0:
            self.skipTest("strace is missing or not allowed to trace here")
        source = self.write("source", bytes(range(256)) * 20)
        self.engine(["create", self.container, PASSWORD.decode()],
                    ["unlock", self.container, PASSWORD.decode()],
                    ["import", source, "docs/ação \ufeff.bin"], ["import", source, "outro"],
                    ["lock"])

    def open_torn(self, password):
        self.assertTrue(self.read("tessel.tvlt").endswith(fmt.REDO_MARK))
        with open(self.container, "r+b") as file:
            file.seek(100)
            file.write(b"torn")
        container = fmt.Container(self.container, password)
        self.assertTrue(container.from_redo_record)
        self.assertEqual(container.index,
                         container.index_form.write(container.files, container.folders))
        self.assertEqual(container.check_contents(), [])
        return container

    def test_record_of_a_change_has_the_packed_index(self):
        self.engine(["unlock", self.container, PASSWORD.decode()], ["mkdir", "pasta nova"],
                    under=WITHOUT_CUTTING)
        container = self.open_torn(PASSWORD)
        self.assertIs(container.index_form, fmt.PACKED_FORM)
        self.assertEqual([entry.path for entry in container.files],
                         ["docs/ação \ufeff.bin", "outro"])
        self.assertEqual([folder.path for folder in container.folders], ["docs", "pasta nova"])
        self.assertEqual(container.header["encryptedIndex"], "")

    def test_record_of_a_password_change_has_the_index_as_it_is(self):
        self.engine(["password", self.container, PASSWORD.decode(), "outra senha"],
                    under=WITHOUT_CUTTING)
        container = self.open_torn(b"outra senha")
        self.assertIs(container.index_form, fmt.JSON_FORM)
        self.assertEqual(len(container.files), 2)
        self.assertEqual(container.header["encryptedIndex"], "")


class Records(InteropCase):
    """One empty vault with a torn header, and the records that may follow it."""

    def setUp(self):
        super().setUp()
        self.writer = fmt.Writer(self.container, PASSWORD, kdf="PBKDF2", kdf_iterations=1)
        self.writer.finish()
        self.whole = self.read("tessel.tvlt")

    def open_torn(self, behind, in_region=b""):
        torn = self.whole[:100] + b"torn" + self.whole[104:fmt.PAYLOAD_OFFSET - len(in_region)]
        self.write("tessel.tvlt", torn + in_region + behind)
        return fmt.Container(self.container, PASSWORD)

    def refuses(self, behind):
        with self.assertRaises(fmt.FormatError):
            self.open_torn(behind)

    def image(self, packed=NOTHING):
        """The image of a record with any bytes for the packed index."""
        return image_of(*self.writer.recorded(fmt.PACKED_FORM, packed))

    def record(self, packed=NOTHING):
        return record_of(self.image(packed))

    def record_in_rows(self, rows):
        return fmt.redo_record(self.writer.recorded_in_header(fmt.ROWS_FORM, rows))

    def folder_in(self, rows):
        container = self.open_torn(self.record_in_rows(rows))
        self.assertIs(container.index_form, fmt.ROWS_FORM)
        return container.folders[0]

    def test_forms_of_a_record_are_no_index_of_a_header(self):
        for form, index in ((fmt.PACKED_FORM, NOTHING), (fmt.ROWS_FORM, b"[[],[]]")):
            image = image_of(self.writer.recorded_in_header(form, index))
            self.write("tessel.tvlt",
                       fmt.MAGIC + image + self.whole[len(fmt.MAGIC) + len(image):])
            with self.assertRaises(fmt.FormatError):
                fmt.Container(self.container, PASSWORD)

    def test_every_form_may_be_in_the_header_or_behind_it(self):
        self.writer.add_folder("d", "2025-03-01T14:05:09.120Z", "")
        for form in fmt.RECORDED_FORMS:
            for record in (fmt.redo_record(*self.writer.recorded(form)),
                           fmt.redo_record(self.writer.recorded_in_header(form))):
                container = self.open_torn(record)
                self.assertTrue(container.from_redo_record)
                self.assertIs(container.index_form, form)
                self.assertEqual(container.folders, self.writer.folders)

    def test_header_that_opens_goes_before_a_record(self):
        record = self.record(FOLDER)
        self.write("tessel.tvlt", self.whole + record)
        container = fmt.Container(self.container, PASSWORD)
        self.assertFalse(container.from_redo_record)
        self.assertEqual(container.folders, [])

    def test_record_may_end_the_header_region(self):
        record = self.record(FOLDER)
        for payload in (b"", b"payload", record[1:]):
            container = self.open_torn(payload, in_region=record)
            self.assertEqual([folder.path for folder in container.folders], ["d"])
        for damaged in (record[:-1] + b"x", record[:9] + b"x" + record[10:], record + b"\0"):
            with self.assertRaises(fmt.FormatError):
                self.open_torn(b"", in_region=damaged)

    def test_record_behind_the_payload_goes_before_one_in_the_region(self):
        container = self.open_torn(self.record(FOLDER), in_region=self.record())
        self.assertEqual([folder.path for folder in container.folders], ["d"])

    def test_header_that_opens_ignores_the_region_behind_it(self):
        record = self.record(FOLDER)
        self.write("tessel.tvlt", self.whole[:-len(record)] + record)
        container = fmt.Container(self.container, PASSWORD)
        self.assertFalse(container.from_redo_record)
        self.assertEqual(container.folders, [])

    def test_record_must_be_whole(self):
        # White space in front has no meaning in JSON: only the digest shows that it changed.
        header, sealed_index = self.writer.recorded(fmt.PACKED_FORM)
        record = record_of(image_of(b" " + header, sealed_index))
        self.assertEqual(self.open_torn(record).files, [])
        for behind in (b"", record[1:], record[:-1], record + b"x",
                       record.replace(b"\n {", b"\n\n{")):
            self.refuses(behind)

    def test_record_must_have_its_own_length_line(self):
        header, sealed_index = self.writer.recorded(fmt.PACKED_FORM)
        rest = header + sealed_index
        for line in (b"%020d\n" % (len(header) - 1), b"%020d\n" % (len(header) + 1),
                     b"%020d\n" % len(rest), b"%020d\n" % (len(rest) + 1), b"%020d\n" % 0,
                     b"%020d " % len(header), b"%20d\n" % len(header)):
            self.refuses(record_of(line + rest))

    def test_record_must_begin_behind_the_header_region(self):
        # Its digest is right for everything that it covers.
        with open(self.container, "wb") as file:
            file.write(fmt.MAGIC)
            file.seek(fmt.PAYLOAD_OFFSET - 1)
            file.write(self.record())
        with self.assertRaises(fmt.FormatError):
            fmt.Container(self.container, PASSWORD)

    def test_record_must_not_be_larger_than_a_header_can_be(self):
        header, sealed_index = self.writer.recorded(fmt.PACKED_FORM)
        for size in (fmt.HEADER_REGION_BYTES, fmt.HEADER_REGION_BYTES + 1):
            blanks = b" " * (size - len(header) - len(sealed_index))
            behind = record_of(image_of(header + blanks, sealed_index))
            if size > fmt.HEADER_REGION_BYTES:
                self.refuses(behind)
            else:
                self.assertEqual(self.open_torn(behind).files, [])

    def test_text_that_is_no_rows_counts_as_none(self):
        for rows in (b"[" * 100000, b"no JSON", b"{}", b"7", b"[[1,{}],[null,[],[[]]]]",
                     b'[[["",0,0]],[["id",""]]]'):
            with self.subTest(rows[:20]):
                container = self.open_torn(self.record_in_rows(rows))
                self.assertEqual((container.files, container.folders), ([], []))

    def test_short_and_repeated_rows(self):
        container = self.open_torn(self.record_in_rows(
            b'[[["d"]],[["1","f"],["2","g","7",{},5,[[],[1]]],["3","f"]]]'))
        self.assertEqual([(entry.id, entry.path, entry.size) for entry in container.files],
                         [("3", "f", 0), ("2", "g", 7)])
        self.assertEqual([block.offset for block in container.files[1].blocks], [0, 1])
        self.assertEqual(container.folders, [fmt.FolderEntry("d", "", "")])

    def test_packed_index_is_read(self):
        self.writer.add_folder("d", "1969-12-31T23:59:59.999Z", "")
        self.writer.add_folder("\ufeff\U0001f600", "0001-01-01T00:00:00.000Z",
                               "9999-12-31T23:59:59.999Z")
        self.writer.files = [
            fmt.FileEntry("00000000-0000-4000-8000-000000000001", "usual", 300, "", b"s" * 32,
                          [fmt.Block(1 << 40, 128, 144, b"n" * 24)]),
            fmt.FileEntry("x", "half \ud83dx", -1, "1970-01-01T00:00:00.000Z", b"",
                          [fmt.Block(-5, 2**63 - 1, -2**63, b"")])]
        container = self.open_torn(fmt.redo_record(*self.writer.recorded(fmt.PACKED_FORM)))
        self.assertEqual(container.files, self.writer.files)
        self.assertEqual(container.folders, self.writer.folders)

    def test_packed_index_takes_the_later_of_two_with_one_path(self):
        container = self.open_torn(self.record(
            b"\3" + b"\2d\0\1" + b"\2e\0\0" + b"\2d\1\0" + b"\0"))
        self.assertEqual([(folder.path, folder.created) for folder in container.folders],
                         [("d", "1970-01-01T00:00:00.000Z"), ("e", "")])

    def test_malformed_packed_index_is_refused(self):
        self.assertEqual(len(self.open_torn(self.record(FOLDER)).folders), 1)
        for packed in (b"\0", FOLDER + b"\0", FOLDER[:-1], b"\x80\0\0", b"\xff" * 9 + b"\2\0",
                       b"\1\0\0\0\0", b"\1\2\xff\0\0\0", b"\1\3d\0\0\0", b"\2\2d\0\0\0",
                       b"\1\2d" + b"\xff" * 9 + b"\1\0\0", b"\0\1\2", b"\0\1\1" + bytes(20),
                       b"\1\6\xed\xa0\x80\0\0\0", b"\1" + b"\xff" * 9 + b"\1" + b"\0\0\0"):
            with self.subTest(packed):
                self.refuses(self.record(packed))

    def test_cut_packed_index_is_refused(self):
        self.writer.add_folder("d", "", "2025-03-01T14:05:09.120Z")
        self.writer.files = [fmt.FileEntry(
            "00000000-0000-4000-8000-000000000001", "f", 3, "", b"s" * 32,
            [fmt.Block(8388636, 3, 19, b"n" * 24)])]
        packed = fmt.PACKED_FORM.write(self.writer.files, self.writer.folders)
        self.assertEqual(fmt.index_from_packed(packed), (self.writer.files, self.writer.folders))
        for size in range(len(packed)):
            with self.assertRaises(fmt.FormatError):
                fmt.index_from_packed(packed[:size])

    def test_dates_have_four_digits_of_a_year(self):
        folder = self.folder_in(b'[[["d",-62135596800000,-33000000000000]],[]]')
        self.assertEqual(folder.created, "0001-01-01T00:00:00.000Z")
        self.assertEqual(folder.modified, "0924-04-09T13:20:00.000Z")
        folder = self.folder_in(b'[[["d",253402300799999,null]],[]]')
        self.assertEqual(folder.created, "9999-12-31T23:59:59.999Z")
        self.assertEqual(folder.modified, "")


if __name__ == "__main__":
    unittest.main()
