#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Makes the seeds of the fuzz targets: tests/fuzz/seeds/TARGET/NAME.

Each is named after its contents or the fault that it once showed. Usage:
    make_seeds.py            writes the seeds, and removes those it does not make
    make_seeds.py --check    fails if the committed seeds are not what it would write
"""

import json
import sys
from pathlib import Path

SEEDS = Path(__file__).parent / "seeds"
sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "interop"))

import tessel_format as fmt
from tessel_format import MAGIC, length_line

DATE = "2025-03-01T14:05:09.120Z"


def compact(value):
    return json.dumps(value, separators=(",", ":"), ensure_ascii=False).encode()


text64 = fmt.to_base64


# --- The index ----------------------------------------------------------------------------------


def sealed_blocks():
    """The blocks that are in the vault target's container."""
    blocks = []
    offset = fmt.PAYLOAD_OFFSET
    for number, size in enumerate((1, 100, 5000, 70000)):
        nonce = bytes([ord("A") + number]) * fmt.NONCE_BYTES
        blocks.append(fmt.Block(offset, size, size + fmt.TAG_BYTES, nonce).to_json())
        offset += size + fmt.TAG_BYTES
    return blocks


ONE, HUNDRED, THOUSANDS, LARGE = sealed_blocks()


def file(path, *blocks, **members):
    entry = fmt.FileEntry("0f8fad5b-d9cb-469f-a165-70867728950e", path,
                          sum(block.get("plainSize", 0) for block in blocks), DATE, bytes(32))
    return {**entry.to_json(), "blocks": list(blocks), **members}


def folder(path):
    return fmt.FolderEntry(path, DATE, DATE).to_json()


def index(files=(), folders=()):
    return {"directories": list(folders), "files": list(files), "formatVersion": 1}


def rows(value):
    """The index in the form of earlier redo records."""
    return fmt.index_to_rows(*fmt.index_from_json(compact(value)))


def packed(value):
    """The index in the form of a redo record."""
    return fmt.index_to_packed(*fmt.index_from_json(json.dumps(value).encode()))


GOOD_INDEX = index([file("docs/a.txt", HUNDRED), file("b.bin", ONE, THOUSANDS), file("empty")],
                   [folder("docs"), folder("docs/old")])


def index_seeds():
    yield "empty", b"{}"
    yield "good", compact(GOOD_INDEX)
    yield "no-object", b'[{"files":[]}]'
    yield "escapes", (b'{"files":[{"vaultPath":"\\"\\\\\\/\\b\\f\\n\\r\\t\\u0000\\u001f\\u007f'
                      b'\\u2028\\ufffe\\ud83d\\ude00"}],"directories":[{"path":"\xc3\xa7"}]}')
    # One kind of character in each path, so that each that needs an escape is tested alone.
    yield "escapes-apart", compact(index([file(letter) for letter in (
        '"', "\\", "/", "\x00", "\x08", "\n", "\x1f", "\x7f", "\u00e7", "\u2028", "\uffff",
        "\U0001f600")]))
    yield "half-surrogates", (b'{"files":[{"vaultPath":"a\\ud800"},{"vaultPath":"\\udc00a"},'
                              b'{"vaultPath":"\\ud800\\ud800\\udc00"}]}')
    yield "byte-order-marks", compact(index([file("\ufeffm"), file('"\ufeff'), file("m\ufeff")],
                                            [folder("\ufeff")]))
    yield "numbers", (b'{"files":[{"vaultPath":"f","sizeBytes":9223372036854775807,"blocks":['
                      b'{"offset":-9223372036854775808,"plainSize":1e300,"encryptedSize":"42"},'
                      b'{"offset":9223372036854775808,"plainSize":0.5,"encryptedSize":true},'
                      b'{"offset":"-1","plainSize":-0.0,"encryptedSize":null},1,[],null]}]}')
    yield "times", (b'{"directories":['
                    b'{"path":"a","createdUtc":"9999-12-31T23:59:59.999-14:00",'
                    b'"modifiedUtc":"0001-01-01T00:00:00.000+14:00"},'
                    b'{"path":"b","createdUtc":"2018-11-04T00:30:00.000",'
                    b'"modifiedUtc":"2025-03-01T24:00:00"},'
                    b'{"path":"c","createdUtc":"2025-03-01","modifiedUtc":"2025-03-01T14:05:09,9999Z"},'
                    b'{"path":"d","createdUtc":"-0001-01-01T00:00:00Z","modifiedUtc":"T"}]}')
    yield "repeated-keys", (b'{"files":[{"vaultPath":"a","id":"1"},{"vaultPath":"b"},'
                            b'{"vaultPath":"a","id":"2"}],'
                            b'"directories":[{"path":"d"},{"path":"D"},{"path":"d"},{"path":""}]}')
    yield "lenient-bytes", (b'{"files":[{"vaultPath":"f","sha256":"0xA fz","blocks":['
                            b'{"nonce":"QUJD*RA=="},{"nonce":"QUJDRA"},{"nonce":"===="},'
                            b'{"nonce":"QUI=QUI="},{"nonce":"QUJD\\n"},{"nonce":"-_-_"},'
                            b'{"nonce":"\xc3\xa7\xc3\xa7\xc3\xa7\xc3\xa7"}]}]}')
    yield "deep", b'{"files":' + b"[" * 600 + b"]" * 600 + b"}"
    yield "too-deep", b'{"files":' + b"[" * 1100 + b"]" * 1100 + b"}"
    yield from rows_seeds()
    yield from packed_seeds()


def rows_seeds():
    yield "rows", rows(GOOD_INDEX)
    yield "rows-repeated", compact([[["d", 0, None], ["d", 1, 2]],
                                    [["1", "f"], ["2", ""], ["3", "f"]]])
    yield "rows-of-other-types", compact([[1, {}, ["d", "x", 1e300]],
                                          [[{}, "f", "7", -1e300, 5, [[]]]]])
    yield "rows-of-times", compact([[["a", -62135596800000, 253402300799999],
                                     ["b", 9223372036854775807, -9223372036854775808],
                                     ["c", 253402300800000, 0.5]], []])


def packed_seeds():
    general = file("general", {**HUNDRED, "nonce": ""}, id="no UUID", sha256="ab")
    yield "packed", packed(GOOD_INDEX)
    yield "packed-empty", packed(index())
    yield "packed-general", packed(index([file("usual", ONE), general]))
    yield "packed-names", packed(index([file("\ufeffm"), file("\ud83d"), file("\u00e7\U0001f600")],
                                       [folder("\ufeff"), folder("n" * 200)]))
    yield "packed-dates", packed(index([], [
        {"path": "a", "createdUtc": "0001-01-01T00:00:00.000Z",
         "modifiedUtc": "9999-12-31T23:59:59.999Z"},
        {"path": "b", "createdUtc": "1969-12-31T23:59:59.999Z", "modifiedUtc": ""}]))
    yield "packed-sizes", packed(index([file("a", {
        **ONE, "offset": -1, "plainSize": 2**63 - 1, "encryptedSize": -2**63})]))
    yield "packed-repeated", packed(index([], [folder("d"), folder("e")])).replace(b"e", b"d")
    yield "packed-cut-short", packed(GOOD_INDEX)[:-1]
    yield "packed-too-long", packed(GOOD_INDEX) + b"\0"
    yield "packed-most-folders", fmt.pack_number(2**64 - 1) + b"\0"
    yield "packed-most-files", b"\0" + fmt.pack_number(2**64 - 1)
    yield "packed-most-blocks", packed(index([file("a")]))[:-1] + fmt.pack_number(2**62)


# --- The header ---------------------------------------------------------------------------------


def header(**members):
    crypto = fmt.Crypto("Argon2id", fmt.CIPHER, 0, b"s" * fmt.SALT_BYTES, b"n" * fmt.NONCE_BYTES,
                        b"p" * fmt.NONCE_BYTES, b"", b"m" * 80)
    value = {"crypto": crypto.to_json(), "encryptedIndex": text64(b"index"), "formatVersion": 3,
             "magic": "TESSEL"}
    value.update(members)
    return compact({key: value[key] for key in value if value[key] is not None})


def container_seeds():
    header_only, as_it_stands = b"\x01", b"\x00"
    good = header()
    yield "good", header_only + good
    yield "region-one-byte-short", b"\x03" + good
    yield "region-one-byte-long", b"\x05" + good
    yield "start-alone", b"\x06" + MAGIC + length_line(len(good)) + good
    yield "no-crypto", header_only + header(crypto=None)
    yield "no-version", header_only + header(formatVersion=None)
    yield "version-text", header_only + header(formatVersion="3")
    yield "version-fraction", header_only + header(formatVersion=3.5)
    yield "version-4", header_only + header(formatVersion=4)
    yield "magic-lower-case", header_only + header(magic="tessel")
    yield "older-layout", header_only + header(
        encryptedPayload=text64(b"payload"), filePayloads={"a": text64(b"1"), "b": 2, "": "*"},
        fileIndex=GOOD_INDEX)
    yield "base64-shapes", header_only + header(
        encryptedIndex="QUJD*RA==", encryptedPayload="QUI=QUI=",
        filePayloads={"a": "====", "b": "QUJDRA", "c": "-_-_", "d": "QU\nJD", "e": "QUJDRA=Q"})
    yield "lone-surrogate", header_only + good.replace(b"Argon2id", b"\\ud800\\u0000")
    yield "iterations-fraction", header_only + good.replace(b':0,"nonce', b':1e99,"nonce')
    for name, line in (("zero", length_line(0)), ("blanks", b"  %d\n" % len(good)),
                       ("plus", b"+%d\r\n" % len(good)), ("minus", b"-%d\n" % len(good)),
                       ("two-numbers", b"%d 1\n" % len(good)), ("region", length_line(8388608)),
                       ("beyond-region", length_line(8388609)), ("hex", b"0x%x\n" % len(good)),
                       ("beyond-64-bits", b"18446744073709551617\n"), ("none", b"\n"),
                       ("form-feed", b"\x0b\x0c%d\t\n" % len(good)),
                       ("long", b"0" * 300 + b"%d\n" % len(good)),
                       ("zero-byte", b"%d\x00\n" % len(good)), ("longer", length_line(999)),
                       ("shorter", length_line(10))):
        yield "length-" + name, as_it_stands + MAGIC + line + good
    yield "length-without-end", as_it_stands + MAGIC + b" " * 200
    yield "other-magic", as_it_stands + b"TESSEL2" + length_line(len(good)) + good


# --- The redo record ----------------------------------------------------------------------------


trailer = fmt.redo_trailer


def redo_record_seeds():
    sealed, own_line, two, rewrite, in_region, index_behind = 1, 2, 4, 8, 16, 32
    good = header()
    image = length_line(len(good)) + good

    def seed(shape, start, tail):
        return bytes([shape, len(start)]) + start + tail

    torn = length_line(len(good)) + good[:60]
    yield "behind-a-torn-header", seed(sealed | own_line, torn, good)
    yield "twice", seed(sealed | own_line | two, b"", good)
    no_index = header(encryptedIndex="")
    yield "index-behind", seed(sealed | own_line | index_behind, torn, no_index + b"i" * 40)
    yield "index-behind-twice", seed(sealed | own_line | index_behind | two, torn,
                                     no_index + b"i" * 40)
    yield "index-behind-rewrite", seed(sealed | own_line | index_behind | rewrite, torn,
                                       no_index + b"i" * 40)
    yield "index-behind-region", seed(sealed | own_line | index_behind | in_region, torn,
                                      no_index + b"i" * 40)
    yield "index-in-both", seed(sealed | own_line | index_behind, torn, good + b"i" * 40)
    yield "index-behind-too-short", seed(sealed | own_line | index_behind, torn, b"{}")
    yield "rewrite", seed(sealed | own_line | rewrite, torn, good)
    yield "rewrite-twice", seed(sealed | own_line | two | rewrite, torn, good)
    yield "rewrite-without-record", seed(rewrite, torn, b"more payload")
    yield "rewrite-short-line", seed(rewrite, b"5\n{}", b"more payload")
    yield "region", seed(sealed | own_line | in_region, torn, good)
    yield "region-rewrite", seed(sealed | own_line | in_region | rewrite, torn, good)
    yield "region-rewrite-whole", seed(sealed | own_line | in_region | rewrite, b"", good)
    yield "region-twice", seed(sealed | own_line | two | in_region, torn, good)
    yield "region-cut-short", seed(in_region, torn, (
        image + trailer(image))[:-1])
    yield "region-size", seed(in_region, torn, image + trailer(image, b"%020d" % 8388629))
    yield "no-header-in-it", seed(sealed, torn, length_line(1) + b"{")
    yield "line-too-small", seed(sealed, torn, length_line(5) + good)
    yield "line-too-large", seed(sealed, torn, length_line(len(good) + 1) + good)
    yield "line-zero", seed(sealed, torn, length_line(0) + good)
    yield "line-no-number", seed(sealed, torn, b"x" * 20 + b"\n" + good)
    yield "line-blanks", seed(sealed, torn, b"%20d\n" % len(good) + good)
    yield "line-without-end", seed(sealed, torn, length_line(len(good))[:-1] + b"0" + good)
    yield "only-a-line", seed(sealed, torn, length_line(1))
    yield "raw", seed(0, torn, image + trailer(image))
    yield "raw-other-digest", seed(0, torn, image + trailer(good, b"%020d" % len(image)))
    for name, size in (("negative", b"-9223372036854775808"), ("minus-one", b"%20d" % -1),
                       ("largest", b"09223372036854775807"), ("beyond", b"99999999999999999999"),
                       ("plus", b"+%019d" % len(image)), ("zero", b"%020d" % 0),
                       ("one-more", b"%020d" % (len(image) + 1)), ("region", b"%020d" % 8388629)):
        yield "size-" + name, seed(0, torn, image + trailer(image, size))
    yield "cut-short", seed(0, torn, (image + trailer(image))[:-1])


# --- Paths and mounts ---------------------------------------------------------------------------


def vault_path_seeds():
    for name, path in (
            ("plain", "docs/report.txt"), ("backslashes", "\\docs\\\\report.txt\\"),
            ("blanks", " / a / b "), ("blank-component", "a/ /b"), ("dot", "a/./b"),
            ("dots", "a/../b"), ("dots-with-blanks", "a/ .. /b"), ("three-dots", "..."),
            ("slashes", "////"), ("empty", ""), ("no-break-space", "\u00a0a\u00a0/\u2003b\u3000"),
            ("case", "A/a/A"), ("control", "a\x00/\x1f/\x7f"), ("blank-slash", "a / "),
            ("blank-backslash", " \\ a"), ("letters", "ação/ß/ǅ/😀")):
        yield name, b"\x00" + path.encode()
    yield "half-surrogates", b"\x01" + "a/".encode("utf-16-le") + b"\x00\xd8/\x00\x00\xdc"
    yield "sixteen-bit", b"\x01" + " \\a/../b".encode("utf-16-le")


def mount_table_seeds():
    good = "36 35 8:17 / /media/ana/MY\\040DISK rw,nosuid shared:1 - vfat /dev/sdb1 rw,uid=1000"
    yield "good", good.encode()
    yield "no-optional-fields", b"36 35 8:17 / /mnt rw - ext4 /dev/sdb1 rw"
    yield "no-separator", b"36 35 8:17 / /mnt rw ext4 /dev/sdb1 rw"
    yield "few-fields", b"36 35 8:17 / - ext4 /dev/sdb1 rw"
    yield "few-fields-behind", b"36 35 8:17 / /mnt rw - ext4 /dev/sdb1"
    yield "separator-in-mount-point", b"36 35 8:17 / /mnt - ext4 /dev/sdb1 rw - vfat /dev/sdc1 rw"
    yield "escapes", b"36 35 8:17 / /mnt/\\134040\\011\\012\\043\\04\\0400 rw - ext4 /dev/s\\134db rw"
    yield "source-without-name", b"36 35 8:17 / / rw - ext4 /dev/ rw\n36 35 8:17 / / rw - x /dev/.. rw"
    yield "percent", b"36 35 8:17 / /mnt/%1%2 rw - ext4 /dev/%1 rw"
    yield "bytes", b"36 35 8:17 / /mnt/\xff\xfe\x00 rw - ext4 /dev/\xc3 rw"
    yield "several", (good + "\n\n" + good + "\r\n").encode()


# --- A whole container --------------------------------------------------------------------------


def vault_seeds():
    (export, copies, move, rename, folders, imports, compact_, change) = (
        1 << bit for bit in range(8))
    everything = 255

    def seed(operations, value, selector=0):
        data = value if isinstance(value, bytes) else compact(value)
        return bytes([operations, selector]) + data

    def block(**members):
        return dict(HUNDRED, **members)

    yield "good", seed(everything, GOOD_INDEX)
    yield "good-second", seed(everything & ~folders, GOOD_INDEX, 1)
    yield "good-copies-changed", seed(copies | change, GOOD_INDEX)
    yield "large-block", seed(export | copies | imports | compact_,
                              index([file("l", LARGE, HUNDRED, ONE)]))
    yield "rows", seed(everything, rows(GOOD_INDEX))
    yield "rows-second", seed(everything & ~folders, rows(GOOD_INDEX), 1)
    yield "rows-copies-changed", seed(copies | change, rows(GOOD_INDEX))
    yield "rows-empty", seed(everything, b"[]")
    mark = b"\xfe"
    yield "packed", seed(everything, mark + packed(GOOD_INDEX))
    yield "packed-second", seed(everything & ~folders, mark + packed(GOOD_INDEX), 1)
    yield "packed-copies-changed", seed(copies | change, mark + packed(GOOD_INDEX))
    yield "packed-malformed", seed(everything, mark + packed(GOOD_INDEX) + b"\0")
    yield "packed-paths-that-leave", seed(everything, mark + packed(index(
        [file(path, HUNDRED) for path in ("../a", "/etc/a", "..", "a/./b")], [folder("..")])))
    yield "packed-hostile-numbers", seed(everything, mark + packed(index([file("a", block(
        offset=-2**63, plainSize=2**63 - 1, encryptedSize=2**63 - 1))])))
    yield "rows-paths-that-leave", seed(everything, rows(index(
        [file(path, HUNDRED) for path in ("../a", "/etc/a", "..", "a/./b")], [folder("..")])))
    yield "rows-hostile-numbers", seed(everything, rows(index([file("a", block(
        offset=-1, plainSize=2**63 - 1, encryptedSize=2**63 - 1))])).replace(b"-1", b"%d" % -2**63))
    yield "no-object", seed(everything, b"7")
    yield "no-json", seed(everything, b"\x00\xff")
    yield "same-block-twice", seed(export | compact_, index([file("a", ONE, ONE), file("b", ONE)]))
    yield "paths-that-leave", seed(everything, index(
        [file(path, HUNDRED) for path in ("../a", "/etc/a", "a/../../b", "..", "\\..\\c", "a/./b")],
        [folder(".."), folder("/"), folder("../d")]))
    yield "paths-with-nul", seed(copies | change, index(
        [file("a", HUNDRED), file("a\x00b", ONE), file("..\x00/c", ONE), file("d\x00/e", ONE)]))
    yield "paths-with-half-surrogates", seed(
        copies | change, compact(index([file("a1", HUNDRED), file("a2", ONE)]))
        .replace(b'"a1"', b'"a\\ud800"').replace(b'"a2"', b'"a\\udc01"'))
    yield "paths-case", seed(move | rename, index(
        [file("a", HUNDRED), file("A", ONE), file("B/x", ONE), file("b/X", ONE)],
        [folder("d"), folder("D")]))
    yield "paths-case-folders", seed(folders | compact_, index(
        [file("d/x", HUNDRED), file("D/X", ONE)], [folder("d"), folder("D"), folder("d/e")]))
    yield "paths-long", seed(copies, index([file("n" * 300, ONE), file("m/" * 700 + "x", ONE)]))
    yield "paths-file-and-folder", seed(copies | folders, index(
        [file("a", ONE), file("a/b", HUNDRED)], [folder("a"), folder("a/b")]))
    yield "paths-equal-normalized", seed(everything, index(
        [file("a", ONE), file("/a", HUNDRED), file("a/", THOUSANDS), file(" a ", ONE)]))
    for name, change_to in (
            ("offset-negative", {"offset": -1}), ("offset-smallest", {"offset": -2**63}),
            ("offset-largest", {"offset": 2**63 - 1}), ("offset-header", {"offset": 0}),
            ("offset-one-more", {"offset": HUNDRED["offset"] + 1}),
            ("sealed-negative", {"encryptedSize": -1}), ("sealed-tag", {"encryptedSize": 16}),
            ("sealed-largest", {"encryptedSize": 2**63 - 1}),
            ("sealed-largest-block", {"encryptedSize": 16777232}),
            ("sealed-region", {"encryptedSize": 8388608, "offset": 28}),
            ("sealed-one-more", {"encryptedSize": 117}),
            ("plain-negative", {"plainSize": -1}), ("plain-largest", {"plainSize": 2**63 - 1}),
            ("plain-one-less", {"plainSize": 99}),
            ("nonce-empty", {"nonce": ""}), ("nonce-short", {"nonce": "QUFB"}),
            ("nonce-long", {"nonce": text64(b"B" * 25)}), ("nonce-other", {"nonce": ONE["nonce"]})):
        hostile = index([file("first", block(**change_to)), file("second", HUNDRED)])
        yield "block-" + name, seed(export | copies | imports | compact_, hostile)
    yield "plain-sizes-overflow", seed(compact_, index(
        [file("a", block(plainSize=2**63 - 1), block(plainSize=2**63 - 1))]))
    yield "plain-sizes-underflow", seed(compact_, index(
        [file("a", block(plainSize=-2**63), block(plainSize=-2**63))]))
    yield "file-sizes-overflow", seed(compact_, index(
        [file("a", HUNDRED, sizeBytes=2**63 - 1), file("b", sizeBytes=2**63 - 1)]))
    yield "blocks-larger-than-the-drive", seed(compact_ | imports, index(
        [file("a", *[block(offset=28, encryptedSize=8388608)] * 8)]))


TARGETS = {"container": container_seeds, "index": index_seeds, "mount_table": mount_table_seeds,
           "redo_record": redo_record_seeds, "vault": vault_seeds,
           "vault_path": vault_path_seeds}


def main():
    made = {SEEDS / target / name: data
            for target, seeds in TARGETS.items() for name, data in seeds()}
    found = {path: path.read_bytes() for path in SEEDS.glob("*/*")}
    if sys.argv[1:] == ["--check"]:
        different = [path for path in made.keys() | found.keys()
                     if made.get(path) != found.get(path)]
        for path in sorted(different):
            print(f"not as made: {path.relative_to(SEEDS)}")
        print(f"{len(found)} seeds, {len(different)} not as make_seeds.py makes them")
        return 1 if different else 0
    for path in found.keys() - made.keys():
        path.unlink()
    for path, data in made.items():
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)
    print(f"{len(made)} seeds")
    return 0


if __name__ == "__main__":
    sys.exit(main())
