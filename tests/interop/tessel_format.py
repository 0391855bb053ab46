# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""A second implementation of the container format, written from docs/container-format.md.

It shares no code with the engine, so that the two can be tested against each other and against
the document. It needs PyNaCl (Debian: python3-nacl) and nothing else.
"""

import base64
import binascii
import datetime
import hashlib
import json
import os
import re
import uuid
from collections.abc import Callable
from dataclasses import dataclass, field, replace

import nacl.exceptions
import nacl.pwhash
from nacl import bindings

MAGIC = b"TESSEL3"
LENGTH_DIGITS = 20
HEADER_REGION_BYTES = 8388608
HEADER_OFFSET = len(MAGIC) + LENGTH_DIGITS + 1
PAYLOAD_OFFSET = HEADER_OFFSET + HEADER_REGION_BYTES
FORMAT_VERSION = 3
CHUNK_BYTES = 16777216
TAG_BYTES = 16
KEY_BYTES = 32
NONCE_BYTES = 24
SALT_BYTES = 16
MASTER_KEY_BYTES = 64
ARGON2_PASSES = 3
ARGON2_MEMORY_BYTES = 268435456
REDO_MARK = b"TESSEL-REDO\n"
REDO_TRAILER_BYTES = 32 + LENGTH_DIGITS + len(REDO_MARK)
ASCII_SPACE = b" \t\n\v\f\r"
CIPHER = "XChaCha20-Poly1305"


class FormatError(Exception):
    """The file is not a container, or a damaged one; or the password is wrong."""


def seal(plain, key, nonce, associated_data):
    return bindings.crypto_aead_xchacha20poly1305_ietf_encrypt(
        bytes(plain), associated_data, nonce, key)


def unseal(sealed, key, nonce, associated_data):
    if len(sealed) < TAG_BYTES or len(nonce) != NONCE_BYTES:
        raise FormatError("too short for a sealed text, or a nonce of another length")
    try:
        return bindings.crypto_aead_xchacha20poly1305_ietf_decrypt(
            sealed, associated_data, nonce, key)
    except nacl.exceptions.CryptoError as error:
        raise FormatError("wrong key or altered bytes") from error


# --- Keys and associated data ----------------------------------------------------------------

@dataclass
class Crypto:
    """The header's "crypto" object; byte fields are decoded."""
    kdf: str = ""
    cipher: str = ""
    kdf_iterations: int = 250000
    salt: bytes = b""
    nonce: bytes = b""
    payload_nonce: bytes = b""
    auth_tag: bytes = b""
    encrypted_master_key: bytes = b""

    @staticmethod
    def from_json(value):
        iterations = value.get("kdfIterations")
        return Crypto(
            kdf=text(value, "kdf"), cipher=text(value, "cipher"),
            kdf_iterations=int32(iterations, 250000),
            salt=base64_member(value, "salt"), nonce=base64_member(value, "nonce"),
            payload_nonce=base64_member(value, "payloadNonce"),
            auth_tag=base64_member(value, "authTag"),
            encrypted_master_key=base64_member(value, "encryptedMasterKey"))

    def to_json(self):
        return {
            "authTag": to_base64(self.auth_tag), "cipher": self.cipher,
            "encryptedMasterKey": to_base64(self.encrypted_master_key), "kdf": self.kdf,
            "kdfIterations": self.kdf_iterations, "nonce": to_base64(self.nonce),
            "payloadNonce": to_base64(self.payload_nonce), "salt": to_base64(self.salt)}


def password_key(password, crypto):
    if not password or not crypto.salt:
        raise FormatError("no password or no salt")
    if crypto.kdf == "Argon2id":
        if len(crypto.salt) < SALT_BYTES:
            raise FormatError("salt too short for Argon2id")
        return nacl.pwhash.argon2id.kdf(
            64, password, crypto.salt[:SALT_BYTES], opslimit=ARGON2_PASSES,
            memlimit=ARGON2_MEMORY_BYTES)
    if crypto.kdf_iterations < 1:
        raise FormatError("iteration count below 1")
    return hashlib.pbkdf2_hmac("sha256", password, crypto.salt, crypto.kdf_iterations, 64)


def master_key_data(crypto):
    return b"|".join([
        b"TESSEL", b"master-key", b"3", crypto.cipher.encode(), crypto.kdf.encode(),
        str(crypto.kdf_iterations).encode(), crypto.salt, crypto.nonce])


def index_data(crypto):
    return b"|".join([b"TESSEL", b"index", b"3", crypto.cipher.encode(), crypto.payload_nonce])


def rows_data(crypto):
    return b"|".join([
        b"TESSEL", b"index-rows", b"3", crypto.cipher.encode(), crypto.payload_nonce])


def packed_data(crypto):
    return b"|".join([
        b"TESSEL", b"index-packed", b"3", crypto.cipher.encode(), crypto.payload_nonce])


def block_data():
    return b"TESSEL|file-block|3"


# --- JSON, read as leniently as the document allows -----------------------------------------

def parse_json_object(data, what):
    try:
        value = json.loads(data.decode("utf-8"), parse_constant=_no_constant)
    except (ValueError, RecursionError) as error:
        raise FormatError(f"{what} is no JSON") from error
    if not isinstance(value, dict):
        raise FormatError(f"{what} is no JSON object")
    return value


def _no_constant(name):
    raise ValueError(f"{name} is not JSON")


def compact_json(value):
    written = json.dumps(value, ensure_ascii=False, separators=(",", ":"), sort_keys=True)
    # A byte order mark at the beginning of a string is escaped, because some readers drop it. The
    # quote matched here begins a string and is not inside one.
    return re.sub(r'(?<=[{,:\[])"\ufeff', r'"\\ufeff', written).encode()


def text(value, key):
    member = value.get(key)
    return member if isinstance(member, str) else ""


def to_base64(data):
    return base64.b64encode(data).decode("ascii")


def from_base64(value):
    """Characters outside the alphabet are skipped; padding may be missing."""
    digits = re.sub(r"[^A-Za-z0-9+/]", "", value)
    if len(digits) % 4 == 1:
        digits = digits[:-1]
    return base64.b64decode(digits + "=" * (-len(digits) % 4))


def base64_member(value, key):
    return from_base64(text(value, key))


def is_number(value):
    return isinstance(value, (int, float)) and not isinstance(value, bool)


def int32(value, default):
    if not is_number(value) or value != int(value) or not -2**31 <= value < 2**31:
        return default
    return int(value)


def int64(value):
    """A number, or a string that contains one; everything else counts as 0."""
    if isinstance(value, str):
        return int(value) if re.fullmatch(r"[+-]?[0-9]{1,19}", value) else 0
    return round(value) if is_number(value) and abs(value) < 2**63 else 0


def array(value, key):
    member = value.get(key)
    return member if isinstance(member, list) else []


def as_object(value):
    return value if isinstance(value, dict) else {}


# --- Index ------------------------------------------------------------------------------------

@dataclass
class Block:
    offset: int
    plain_size: int
    encrypted_size: int
    nonce: bytes

    def to_json(self):
        return {"encryptedSize": self.encrypted_size, "nonce": to_base64(self.nonce),
                "offset": self.offset, "plainSize": self.plain_size}


@dataclass
class FileEntry:
    id: str
    path: str
    size: int
    modified: str
    sha256: bytes
    blocks: list = field(default_factory=list)

    def to_json(self):
        return {"blocks": [block.to_json() for block in self.blocks], "id": self.id,
                "lastModifiedUtc": self.modified, "sha256": self.sha256.hex(),
                "sizeBytes": self.size, "vaultPath": self.path}


@dataclass
class FolderEntry:
    path: str
    created: str
    modified: str

    def to_json(self):
        return {"createdUtc": self.created, "modifiedUtc": self.modified, "path": self.path}


def index_from_json(data):
    """The file and folder entries; a later entry takes the place of one with the same path."""
    try:
        value = parse_json_object(data, "index")
    except FormatError:
        value = {}
    files, folders = {}, {}
    for item in map(as_object, array(value, "files")):
        if text(item, "vaultPath"):
            files[text(item, "vaultPath")] = _file_from_json(item)
    for item in map(as_object, array(value, "directories")):
        if text(item, "path"):
            folders[text(item, "path")] = FolderEntry(
                text(item, "path"), text(item, "createdUtc"), text(item, "modifiedUtc"))
    return list(files.values()), list(folders.values())


def _file_from_json(item):
    try:
        digest = binascii.unhexlify(text(item, "sha256"))
    except (ValueError, binascii.Error):
        digest = b""
    blocks = [
        Block(int64(block.get("offset")), int64(block.get("plainSize")),
              int64(block.get("encryptedSize")), base64_member(block, "nonce"))
        for block in map(as_object, array(item, "blocks"))]
    return FileEntry(text(item, "id"), text(item, "vaultPath"), int64(item.get("sizeBytes")),
                     text(item, "lastModifiedUtc"), digest, blocks)


def index_to_json(files, folders):
    return compact_json({
        "directories": [folder.to_json() for folder in folders],
        "files": [entry.to_json() for entry in files], "formatVersion": 1})


# --- The index in rows, in a redo record ------------------------------------------------------

EPOCH = datetime.datetime(1970, 1, 1, tzinfo=datetime.timezone.utc)
MILLISECOND = datetime.timedelta(milliseconds=1)
FOLDER_ROW = ("path", "createdUtc", "modifiedUtc")
FILE_ROW = ("id", "vaultPath", "sizeBytes", "lastModifiedUtc", "sha256", "blocks")
BLOCK_ROW = ("offset", "plainSize", "encryptedSize", "nonce")


def index_to_rows(files, folders):
    return compact_json([
        [[folder.path, _milliseconds(folder.created), _milliseconds(folder.modified)]
         for folder in folders],
        [[entry.id, entry.path, entry.size, _milliseconds(entry.modified), to_base64(entry.sha256),
          [[block.offset, block.plain_size, block.encrypted_size, to_base64(block.nonce)]
           for block in entry.blocks]] for entry in files]])


def index_from_rows(data):
    """The file and folder entries; a later row takes the place of one with the same path."""
    try:
        value = json.loads(data.decode("utf-8"), parse_constant=_no_constant)
    except (ValueError, RecursionError):
        value = []
    lists = _members(value, ("folders", "files"))
    files, folders = {}, {}
    for row in array(lists, "files"):
        entry = _file_from_row(_members(row, FILE_ROW))
        if entry.path:
            files[entry.path] = entry
    for row in array(lists, "folders"):
        item = _members(row, FOLDER_ROW)
        if text(item, "path"):
            folders[text(item, "path")] = FolderEntry(
                text(item, "path"), _date(item.get("createdUtc")), _date(item.get("modifiedUtc")))
    return list(files.values()), list(folders.values())


def _members(row, names):
    return dict(zip(names, row)) if isinstance(row, list) else {}


def _file_from_row(item):
    blocks = [
        Block(int64(block.get("offset")), int64(block.get("plainSize")),
              int64(block.get("encryptedSize")), base64_member(block, "nonce"))
        for block in (_members(row, BLOCK_ROW) for row in array(item, "blocks"))]
    return FileEntry(text(item, "id"), text(item, "vaultPath"), int64(item.get("sizeBytes")),
                     _date(item.get("lastModifiedUtc")), base64_member(item, "sha256"), blocks)


def _milliseconds(date):
    return (datetime.datetime.fromisoformat(date) - EPOCH) // MILLISECOND if date else None


def _date(milliseconds):
    try:
        known = is_number(milliseconds)
        return _iso_date(EPOCH + int64(milliseconds) * MILLISECOND) if known else ""
    except OverflowError:
        return ""


# --- The packed index, in a redo record -------------------------------------------------------

GENERAL_FORM, USUAL_FORM = 0, 1
EARLIEST_DATE, LATEST_DATE = -62135596800000, 253402300799999


def pack_number(number):
    packed = bytearray()
    number &= (1 << 64) - 1
    while number >= 0x80:
        packed.append(number & 0x7F | 0x80)
        number >>= 7
    packed.append(number)
    return bytes(packed)


def pack_bytes(data):
    return pack_number(len(data)) + data


def pack_text(value):
    try:
        utf8 = value.encode("utf-8")
        return pack_number(2 * len(utf8)) + utf8
    except UnicodeEncodeError:
        utf16 = value.encode("utf-16-le", "surrogatepass")
        return pack_number(len(utf16) + 1) + utf16


def pack_date(date):
    if not date:
        return pack_number(0)
    time = _milliseconds(date)
    return pack_number(2 * time + 1 if time >= 0 else -2 * time)


def _is_usual(entry):
    return (re.fullmatch("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}", entry.id)
            and len(entry.sha256) == 32
            and all(len(block.nonce) == NONCE_BYTES and block.plain_size >= 0
                    and block.encrypted_size == block.plain_size + TAG_BYTES
                    for block in entry.blocks))


def pack_file(entry):
    usual = _is_usual(entry)
    packed = pack_number(USUAL_FORM if usual else GENERAL_FORM)
    packed += uuid.UUID(entry.id).bytes if usual else pack_text(entry.id)
    packed += pack_text(entry.path) + pack_number(entry.size) + pack_date(entry.modified)
    packed += entry.sha256 if usual else pack_bytes(entry.sha256)
    packed += pack_number(len(entry.blocks))
    for block in entry.blocks:
        packed += pack_number(block.offset) + pack_number(block.plain_size)
        if usual:
            packed += block.nonce
        else:
            packed += pack_number(block.encrypted_size) + pack_bytes(block.nonce)
    return packed


def index_to_packed(files, folders):
    packed = [pack_number(len(folders))]
    packed += [pack_text(folder.path) + pack_date(folder.created) + pack_date(folder.modified)
               for folder in folders]
    return b"".join([*packed, pack_number(len(files)), *map(pack_file, files)])


class PackedReader:
    """Takes one value after the other; refuses what is not exactly of the packed form."""

    def __init__(self, data):
        self.data = data
        self.position = 0

    def at_end(self):
        return self.position == len(self.data)

    def take(self, size):
        if size > len(self.data) - self.position:
            raise FormatError("packed index cut short")
        self.position += size
        return self.data[self.position - size:self.position]

    def number(self):
        value = 0
        for shift in range(0, 64, 7):
            byte = self.take(1)[0]
            value |= (byte & 0x7F) << shift
            if (shift and byte == 0) or value >= 1 << 64:
                break
            if byte < 0x80:
                return value
        raise FormatError("number in the packed index")

    def signed(self):
        value = self.number()
        return value - (1 << 64) if value >= 1 << 63 else value

    def text(self):
        form = self.number()
        try:
            if form % 2 == 0:
                return self.take(form // 2).decode("utf-8")
            return self.take(form - 1).decode("utf-16-le", "surrogatepass")
        except UnicodeDecodeError as error:
            raise FormatError("text in the packed index") from error

    def path(self):
        path = self.text()
        if not path:
            raise FormatError("empty path in the packed index")
        return path

    def date(self):
        number = self.number()
        if number == 0:
            return ""
        time = number // 2 if number % 2 else -(number // 2)
        if not EARLIEST_DATE <= time <= LATEST_DATE:
            raise FormatError("date in the packed index")
        return _date(time)

    def file(self):
        form = self.number()
        if form not in (GENERAL_FORM, USUAL_FORM):
            raise FormatError("form of a file in the packed index")
        usual = form == USUAL_FORM
        identifier = str(uuid.UUID(bytes=self.take(16))) if usual else self.text()
        entry = FileEntry(identifier, self.path(), self.signed(), self.date(), b"")
        entry.sha256 = self.take(32 if usual else self.number())
        entry.blocks = [self.block(usual) for _ in range(self.number())]
        return entry

    def block(self, usual):
        offset, plain_size = self.signed(), self.signed()
        if usual and not 0 <= plain_size < (1 << 63) - TAG_BYTES:
            raise FormatError("size of a block in the packed index")
        encrypted_size = plain_size + TAG_BYTES if usual else self.signed()
        nonce = self.take(NONCE_BYTES if usual else self.number())
        return Block(offset, plain_size, encrypted_size, nonce)


def index_from_packed(data):
    """The file and folder entries; a later one takes the place of one with the same path."""
    reader = PackedReader(data)
    folders, files = {}, {}
    for _ in range(reader.number()):
        folder = FolderEntry(reader.path(), reader.date(), reader.date())
        folders[folder.path] = folder
    for _ in range(reader.number()):
        entry = reader.file()
        files[entry.path] = entry
    if not reader.at_end():
        raise FormatError("bytes behind the packed index")
    return list(files.values()), list(folders.values())


# --- The forms of the index -------------------------------------------------------------------

@dataclass(frozen=True)
class IndexForm:
    associated_data: Callable
    read: Callable
    write: Callable


JSON_FORM = IndexForm(index_data, index_from_json, index_to_json)
PACKED_FORM = IndexForm(packed_data, index_from_packed, index_to_packed)
ROWS_FORM = IndexForm(rows_data, index_from_rows, index_to_rows)
RECORDED_FORMS = JSON_FORM, PACKED_FORM, ROWS_FORM


# --- Reading ----------------------------------------------------------------------------------

def read_length_line(file):
    """The line after the magic with its line feed; of limited length, unlike in the format."""
    line = file.readline(1 << 20)
    digits = line.strip(ASCII_SPACE)
    if not line.endswith(b"\n") or not re.fullmatch(rb"\+?[0-9]+", digits):
        raise FormatError("length line")
    length = int(digits)
    if not 1 <= length <= HEADER_REGION_BYTES:
        raise FormatError("length of the header")
    return line, length


def read_redo_record(file):
    """The length line, header and sealed index of the record that ends the file, else of the one
    that ends the header region. The sealed index is empty where the header holds it."""
    try:
        return read_redo_record_at(file, PAYLOAD_OFFSET, file.seek(0, os.SEEK_END))
    except FormatError:
        return read_redo_record_at(file, len(MAGIC) + LENGTH_DIGITS + 1, PAYLOAD_OFFSET)


def read_redo_record_at(file, first, end):
    """The same of the record that ends there and begins at `first` or later."""
    if end < first + REDO_TRAILER_BYTES:
        raise FormatError("no room for a redo record")
    file.seek(end - REDO_TRAILER_BYTES)
    trailer = file.read(REDO_TRAILER_BYTES)
    digest, digits = trailer[:32], trailer[32:32 + LENGTH_DIGITS]
    if not trailer.endswith(REDO_MARK) or not digits.isdigit():
        raise FormatError("no redo record")
    if int(digits) > LENGTH_DIGITS + 1 + HEADER_REGION_BYTES:
        raise FormatError("size of the redo record")
    begin = end - REDO_TRAILER_BYTES - int(digits)
    if begin < first:
        raise FormatError("size of the redo record")
    file.seek(begin)
    image = file.read(int(digits))
    if hashlib.sha256(image).digest() != digest:
        raise FormatError("redo record cut short")
    return split_image(image)


def split_image(image):
    line, rest = image[:LENGTH_DIGITS + 1], image[LENGTH_DIGITS + 1:]
    digits = line[:LENGTH_DIGITS]
    size = int(digits) if digits.isdigit() else 0
    if line != length_line(size) or not 1 <= size <= len(rest):
        raise FormatError("length line of the redo record")
    return line, rest[:size], rest[size:]


class Container:
    """An opened container: header, keys and index. Blocks are read when they are asked for."""

    def __init__(self, path, password):
        self.path = path
        self.from_redo_record = False
        with open(path, "rb") as file:
            if file.read(len(MAGIC)) != MAGIC:
                raise FormatError("magic")
            try:
                self._open_header(*self._read_region(file), password)
            except FormatError as fault:
                self._open_redo_record(file, password, fault)

    def _read_region(self, file):
        """The length line and the header."""
        line, length = read_length_line(file)
        header = file.read(length)
        if os.fstat(file.fileno()).st_size < len(MAGIC) + len(line) + HEADER_REGION_BYTES:
            raise FormatError("header region cut short")
        return line, header

    def _open_redo_record(self, file, password, fault):
        """Opens the record instead of the header; without one, raises the header's fault."""
        try:
            line, header, sealed_index = read_redo_record(file)
        except FormatError:
            raise fault from None
        self.from_redo_record = True
        self._open_header(line, header, password, sealed_index)

    def _open_header(self, line, header, password, sealed_index=b""):
        self.length_line, self.header_json = line, header
        self.payload_offset = len(MAGIC) + len(line) + HEADER_REGION_BYTES
        self.header = parse_json_object(header, "header")
        if self.header.get("magic") != "TESSEL":
            raise FormatError('"magic" member')
        if int32(self.header.get("formatVersion"), 0) != FORMAT_VERSION:
            raise FormatError("format version")
        self.crypto = Crypto.from_json(as_object(self.header.get("crypto")))
        self.encrypted_index = sealed_index or base64_member(self.header, "encryptedIndex")
        self._open_index(password)

    def _open_index(self, password):
        self.password_key = password_key(password, self.crypto)
        self.master_key = unseal(
            self.crypto.encrypted_master_key, self.password_key[:KEY_BYTES], self.crypto.nonce,
            master_key_data(self.crypto))
        self.working_key = self.master_key[:KEY_BYTES]
        for form in RECORDED_FORMS if self.from_redo_record else (JSON_FORM,):
            try:
                self.index = unseal(self.encrypted_index, self.working_key,
                                    self.crypto.payload_nonce, form.associated_data(self.crypto))
            except FormatError:
                continue
            if not self.index:
                break
            self.index_form = form
            self.files, self.folders = form.read(self.index)
            return
        raise FormatError("sealed index")

    @property
    def index_json(self):
        """The index in the form of a header."""
        return (self.index if self.index_form is JSON_FORM
                else index_to_json(self.files, self.folders))

    def entry(self, path):
        """The file with this path, letter case ignored."""
        for entry in self.files:
            if entry.path.casefold() == path.casefold():
                return entry
        raise FormatError(f"no file {path}")

    def contents(self, entry):
        """Yields the plaintext of each block; nothing of a block whose tag does not verify."""
        with open(self.path, "rb") as file:
            for block in entry.blocks:
                yield self._open_block(file, block)

    def _open_block(self, file, block):
        if block.offset < 0 or not TAG_BYTES < block.encrypted_size <= CHUNK_BYTES + TAG_BYTES:
            raise FormatError("block bounds")
        file.seek(block.offset)
        sealed = file.read(block.encrypted_size)
        if len(sealed) != block.encrypted_size:
            raise FormatError("block cut short")
        plain = unseal(sealed, self.working_key, block.nonce, block_data())
        if len(plain) != block.plain_size:
            raise FormatError("block size")
        return plain

    def digest_and_size(self, entry):
        digest, size = hashlib.sha256(), 0
        for plain in self.contents(entry):
            digest.update(plain)
            size += len(plain)
        return digest.digest(), size

    def check_contents(self):
        """What is wrong with the files' bytes, as a list of texts."""
        faults = []
        for entry in self.files:
            try:
                digest, size = self.digest_and_size(entry)
            except FormatError as error:
                faults.append(f"{entry.path}: {error}")
                continue
            if digest != entry.sha256:
                faults.append(f"{entry.path}: digest differs")
            if size != entry.size:
                faults.append(f"{entry.path}: {size} bytes instead of {entry.size}")
        return faults

    def check_written_form(self):
        """Where the container differs from what writers must write, as a list of texts."""
        faults = []
        checks = [
            ("length line", self.length_line == length_line(len(self.header_json))),
            ("padding", not self.padding().strip(b"\0")),
            ("header JSON", self.header_json == compact_json({
                "crypto": self.crypto.to_json(), "encryptedIndex": to_base64(self.encrypted_index),
                "formatVersion": FORMAT_VERSION, "magic": "TESSEL"})),
            ("kdf", (self.crypto.kdf, self.crypto.kdf_iterations) == ("Argon2id", 0)),
            ("cipher", self.crypto.cipher == CIPHER),
            ("authTag", self.crypto.auth_tag == b""),
            ("salt", len(self.crypto.salt) == SALT_BYTES),
            ("nonces", len(self.crypto.nonce) == len(self.crypto.payload_nonce) == NONCE_BYTES),
            ("master key", len(self.master_key) == MASTER_KEY_BYTES),
            ("index", self.index == self.index_form.write(self.files, self.folders)),
        ]
        faults += [name for name, good in checks if not good]
        for entry in self.files:
            faults += [f"{entry.path}: {fault}" for fault in _entry_faults(entry)]
        return faults + self._block_faults()

    def padding(self):
        """The rest of the header region; nothing if the header is not the one there."""
        if self.from_redo_record:
            return b""
        begin = len(MAGIC) + len(self.length_line) + len(self.header_json)
        with open(self.path, "rb") as file:
            file.seek(begin)
            return file.read(self.payload_offset - begin)

    def _block_faults(self):
        faults, end = [], self.payload_offset
        blocks = sorted((b for entry in self.files for b in entry.blocks), key=lambda b: b.offset)
        for block in blocks:
            if block.offset < end:
                faults.append(f"block at {block.offset} overlaps what lies before it")
            end = block.offset + block.encrypted_size
        if end > os.path.getsize(self.path):
            faults.append("the last block ends behind the file")
        if len({block.nonce for block in blocks}) != len(blocks):
            faults.append("a nonce stands twice")
        return faults


DATE = re.compile(r"[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{3}Z")
IDENTIFIER = re.compile(r"[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}")


def _entry_faults(entry):
    sizes = [block.plain_size for block in entry.blocks]
    checks = [
        ("id", IDENTIFIER.fullmatch(entry.id)),
        ("date", DATE.fullmatch(entry.modified)),
        ("digest length", len(entry.sha256) == 32),
        ("size", sum(sizes) == entry.size),
        ("block sizes", sizes == expected_block_sizes(entry.size)),
        ("sealed sizes", all(b.encrypted_size == b.plain_size + TAG_BYTES for b in entry.blocks)),
        ("block nonces", all(len(b.nonce) == NONCE_BYTES for b in entry.blocks)),
    ]
    return [name for name, good in checks if not good]


def expected_block_sizes(size):
    full, rest = divmod(size, CHUNK_BYTES)
    return [CHUNK_BYTES] * full + ([rest] if rest else [])


# --- Writing ----------------------------------------------------------------------------------

def date_text(seconds):
    return _iso_date(datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc))


def _iso_date(moment):
    # The C library gives years before 1000 fewer than four digits.
    return (f"{moment.year:04d}" + moment.strftime("-%m-%dT%H:%M:%S.") +
            f"{moment.microsecond // 1000:03d}Z")


def length_line(size):
    return b"%020d\n" % size


def redo_trailer(image, size=None):
    """What follows the image in a record; the size may be given, for a record that is none."""
    return hashlib.sha256(image).digest() + (size or b"%020d" % len(image)) + REDO_MARK


def redo_record(header, sealed_index=b""):
    """Without a sealed index, a record of earlier versions: its header holds the index."""
    image = length_line(len(header)) + header + sealed_index
    return image + redo_trailer(image)


class Writer:
    """Writes a container. Files are added one after the other; finish() writes the header.

    `random_bytes(n)` may be replaced to write the same container twice.
    """

    def __init__(self, path, password, kdf="Argon2id", kdf_iterations=0,
                 chunk_bytes=CHUNK_BYTES, length_line=b"%020d\n", random_bytes=os.urandom):
        """`length_line` is a pattern that gives a line of the same length for every header."""
        self.path = path
        self._length_line = length_line
        self._random = random_bytes
        self._chunk_bytes = chunk_bytes
        self.crypto = Crypto(kdf, CIPHER, kdf_iterations, salt=random_bytes(SALT_BYTES),
                             nonce=random_bytes(NONCE_BYTES),
                             payload_nonce=random_bytes(NONCE_BYTES))
        self.master_key = random_bytes(MASTER_KEY_BYTES)
        self.crypto.encrypted_master_key = seal(
            self.master_key, password_key(password, self.crypto)[:KEY_BYTES], self.crypto.nonce,
            master_key_data(self.crypto))
        self.files, self.folders = [], []
        self._file = open(path, "wb")
        self.payload_offset = len(MAGIC) + len(length_line % 0) + HEADER_REGION_BYTES
        self._file.seek(self.payload_offset)

    def add_folder(self, path, created, modified):
        self.folders.append(FolderEntry(path, created, modified))

    def add_file(self, path, source, modified, identifier=None):
        """`source` is an open binary file; it is read to its end."""
        entry = FileEntry(identifier or str(uuid.uuid4()), path, 0, modified, b"")
        digest = hashlib.sha256()
        while chunk := source.read(self._chunk_bytes):
            digest.update(chunk)
            entry.size += len(chunk)
            entry.blocks.append(self._append_block(chunk))
        entry.sha256 = digest.digest()
        self.files.append(entry)
        return entry

    def leave_gap(self, size):
        self._file.write(bytes(size))

    def _append_block(self, chunk):
        nonce = self._random(NONCE_BYTES)
        sealed = seal(chunk, self.master_key[:KEY_BYTES], nonce, block_data())
        block = Block(self._file.tell(), len(chunk), len(sealed), nonce)
        self._file.write(sealed)
        return block

    def finish(self, index_json=None, header_json=None):
        """The two texts may be given, to write what our writer does not."""
        index_json = index_json or index_to_json(self.files, self.folders)
        header = self._header(self.crypto, seal(
            index_json, self.master_key[:KEY_BYTES], self.crypto.payload_nonce,
            index_data(self.crypto)))
        header = header_json(header) if header_json else compact_json(header)
        if len(header) > HEADER_REGION_BYTES:
            raise FormatError("the index is too large for a header")
        self._file.truncate(max(self._file.tell(), self.payload_offset))
        self._file.seek(0)
        self._file.write(MAGIC + self._length_line % len(header) + header)
        self._file.close()

    def recorded(self, form, index=None):
        """The header without its index and the sealed index, as redo_record() takes them; any bytes
        may be given for the index."""
        crypto = replace(self.crypto, payload_nonce=self._random(NONCE_BYTES))
        index = form.write(self.files, self.folders) if index is None else index
        sealed = seal(index, self.master_key[:KEY_BYTES], crypto.payload_nonce,
                      form.associated_data(crypto))
        return compact_json(self._header(crypto, b"")), sealed

    def recorded_in_header(self, form, index=None):
        """The header of a redo record of earlier versions, with the index in it."""
        header, sealed = self.recorded(form, index)
        return compact_json({**json.loads(header), "encryptedIndex": to_base64(sealed)})

    def _header(self, crypto, sealed_index):
        return {"crypto": crypto.to_json(), "encryptedIndex": to_base64(sealed_index),
                "formatVersion": FORMAT_VERSION, "magic": "TESSEL"}
