# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""tessel_format.py accepts exactly the redo records that the document defines."""

import unittest

import tessel_format as fmt
from interop_case import InteropCase

PASSWORD = b"senha do cofre"


def record_of(image):
    return image + fmt.redo_trailer(image)


def image_of(header):
    return fmt.length_line(len(header)) + header


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

    def folder_in(self, rows):
        container = self.open_torn(record_of(image_of(self.writer.header_in_rows(rows))))
        self.assertTrue(container.in_rows)
        return container.folders[0]

    def test_rows_are_no_index_of_a_header(self):
        image = image_of(self.writer.header_in_rows(b"[[],[]]"))
        self.write("tessel.tvlt",
                   fmt.MAGIC + image + self.whole[len(fmt.MAGIC) + len(image):])
        with self.assertRaises(fmt.FormatError):
            fmt.Container(self.container, PASSWORD)

    def test_header_that_opens_goes_before_a_record(self):
        record = record_of(image_of(self.writer.header_in_rows(b'[[["d",0,0]],[]]')))
        self.write("tessel.tvlt", self.whole + record)
        container = fmt.Container(self.container, PASSWORD)
        self.assertFalse(container.from_redo_record)
        self.assertEqual(container.folders, [])

    def test_record_may_end_the_header_region(self):
        record = record_of(image_of(self.writer.header_in_rows(b'[[["d",0,0]],[]]')))
        for payload in (b"", b"payload", record[1:]):
            container = self.open_torn(payload, in_region=record)
            self.assertEqual([folder.path for folder in container.folders], ["d"])
        for damaged in (record[:-1] + b"x", record[:9] + b"x" + record[10:], record + b"\0"):
            with self.assertRaises(fmt.FormatError):
                self.open_torn(b"", in_region=damaged)

    def test_record_behind_the_payload_goes_before_one_in_the_region(self):
        newer, older = (record_of(image_of(self.writer.header_in_rows(rows)))
                        for rows in (b'[[["d",0,0]],[]]', b"[[],[]]"))
        container = self.open_torn(newer, in_region=older)
        self.assertEqual([folder.path for folder in container.folders], ["d"])

    def test_header_that_opens_ignores_the_region_behind_it(self):
        record = record_of(image_of(self.writer.header_in_rows(b'[[["d",0,0]],[]]')))
        self.write("tessel.tvlt", self.whole[:-len(record)] + record)
        container = fmt.Container(self.container, PASSWORD)
        self.assertFalse(container.from_redo_record)
        self.assertEqual(container.folders, [])

    def test_record_must_be_whole(self):
        # White space at the end has no meaning in JSON: only the digest shows that it changed.
        image = image_of(self.writer.header_in_rows(b"[[],[]]") + b" ")
        record = record_of(image)
        self.assertEqual(self.open_torn(record).files, [])
        for behind in (b"", record[1:], record[:-1], record + b"x",
                       image[:-1] + b"\n" + record[len(image):]):
            self.refuses(behind)

    def test_record_must_have_its_own_length_line(self):
        header = self.writer.header_in_rows(b"[[],[]]")
        for length in (len(header) - 1, len(header) + 1):
            self.refuses(record_of(b"%020d\n" % length + header))

    def test_record_must_begin_behind_the_header_region(self):
        # Its digest is right for everything that it covers.
        image = image_of(self.writer.header_in_rows(b"[[],[]]"))
        with open(self.container, "wb") as file:
            file.write(fmt.MAGIC)
            file.seek(fmt.PAYLOAD_OFFSET - 1)
            file.write(record_of(image))
        with self.assertRaises(fmt.FormatError):
            fmt.Container(self.container, PASSWORD)

    def test_record_must_not_be_larger_than_a_header_can_be(self):
        header = self.writer.header_in_rows(b"[[],[]]")
        for size in (fmt.HEADER_REGION_BYTES, fmt.HEADER_REGION_BYTES + 1):
            behind = record_of(image_of(header + b" " * (size - len(header))))
            if size > fmt.HEADER_REGION_BYTES:
                self.refuses(behind)
            else:
                self.assertEqual(self.open_torn(behind).files, [])

    def test_text_that_is_no_rows_counts_as_none(self):
        for rows in (b"[" * 100000, b"no JSON", b"{}", b"7", b"[[1,{}],[null,[],[[]]]]",
                     b'[[["",0,0]],[["id",""]]]'):
            with self.subTest(rows[:20]):
                container = self.open_torn(record_of(image_of(self.writer.header_in_rows(rows))))
                self.assertEqual((container.files, container.folders), ([], []))

    def test_short_and_repeated_rows(self):
        container = self.open_torn(record_of(image_of(self.writer.header_in_rows(
            b'[[["d"]],[["1","f"],["2","g","7",{},5,[[],[1]]],["3","f"]]]'))))
        self.assertEqual([(entry.id, entry.path, entry.size) for entry in container.files],
                         [("3", "f", 0), ("2", "g", 7)])
        self.assertEqual([block.offset for block in container.files[1].blocks], [0, 1])
        self.assertEqual(container.folders, [fmt.FolderEntry("d", "", "")])

    def test_dates_have_four_digits_of_a_year(self):
        folder = self.folder_in(b'[[["d",-62135596800000,-33000000000000]],[]]')
        self.assertEqual(folder.created, "0001-01-01T00:00:00.000Z")
        self.assertEqual(folder.modified, "0924-04-09T13:20:00.000Z")
        folder = self.folder_in(b'[[["d",253402300799999,null]],[]]')
        self.assertEqual(folder.created, "9999-12-31T23:59:59.999Z")
        self.assertEqual(folder.modified, "")


if __name__ == "__main__":
    unittest.main()
