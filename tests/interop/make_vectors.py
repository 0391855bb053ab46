#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""Writes the test vectors again: vectors/NAME.tvlt.xz and vectors/NAME.json.

Users' containers look like these: a change of the committed vectors is a change of the format.
"""

import base64
import hashlib
import io
import json
import lzma
import os
import sys
import tempfile

import tessel_format as fmt

VECTORS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "vectors")
PASSWORD = "senha do cofre çã€"
DATE = "2025-03-01T14:05:09.120Z"
FILES = {
    "vazio": b"",
    "Documentos/um byte": b"A",
    "Documentos/2025/Relatório anual.txt": "Relatório anual: tudo em ordem.\n".encode(),
    "dados.bin": bytes(range(256)) * 3 + b"fim",
}
FOLDERS = ["Documentos", "Documentos/2025", "Pasta vazia"]


def byte_stream(label):
    """A source of bytes that look random and are the same in every run."""
    drawn = 0

    def draw(size):
        nonlocal drawn
        drawn += 1
        return hashlib.shake_256(f"tessel vector {label} {drawn}".encode()).digest(size)
    return draw


def identifier(number):
    return f"00000000-0000-4000-8000-{number:012x}"


def fill(writer):
    for folder in FOLDERS:
        writer.add_folder(folder, DATE, DATE)
    for number, (path, contents) in enumerate(FILES.items()):
        writer.add_file(path, io.BytesIO(contents), DATE, identifier(number))


def argon2id(path):
    """A container exactly as the program writes it."""
    writer = fmt.Writer(path, PASSWORD.encode(), random_bytes=byte_stream("argon2id"))
    fill(writer)
    writer.finish()


def lenient(path):
    """Everything that readers must accept although our writer does not write it."""
    writer = fmt.Writer(path, PASSWORD.encode(), kdf="PBKDF2-HMAC-SHA256", kdf_iterations=1000,
                        chunk_bytes=100, length_line=b" \t+%024d \r\n",
                        random_bytes=byte_stream("lenient"))
    writer.leave_gap(33)
    fill(writer)
    writer.leave_gap(7)
    writer.finish(lenient_index(writer), lenient_header)
    with open(path, "r+b") as file:
        file.seek(writer.payload_offset - 5)
        file.write(b"stuff")


def lenient_index(writer):
    """Indented, unsorted, with numbers as strings, unknown members, and entries that are dropped."""
    index = json.loads(fmt.index_to_json(writer.files, writer.folders))
    for entry in index["files"]:
        entry["sizeBytes"] = str(entry["sizeBytes"])
        entry["comment"] = ["unknown", {"members": None}]
    overwritten = {"vaultPath": "dados.bin", "sizeBytes": 1, "blocks": [{"offset": 1}]}
    nameless = {"vaultPath": "", "sizeBytes": 3}
    files = [overwritten, nameless, *reversed(index["files"]), 7]
    folders = [*index["directories"], {"createdUtc": DATE}, "text"]
    return json.dumps({"formatVersion": 99, "files": files, "directories": folders},
                      indent=2, ensure_ascii=True).encode()


def lenient_header(header):
    crypto = dict(reversed(header["crypto"].items()))
    del crypto["authTag"]
    crypto["encryptedMasterKey"] = crypto["encryptedMasterKey"].rstrip("=")
    crypto["salt"] = "*" + crypto["salt"][:9] + "\n " + crypto["salt"][9:]
    other = {
        "unknown": 1, "fileIndex": {"files": [{"vaultPath": "not in the vault"}]},
        "encryptedPayload": base64.b64encode(b"not used").decode(),
        "filePayloads": {"name": "AAAA"}, "formatVersion": 3.0, "magic": "TESSEL"}
    return json.dumps({**other, "encryptedIndex": header["encryptedIndex"], "crypto": crypto},
                      indent=4).encode()


def torn(path):
    """A header that was half rewritten when the drive was pulled out, and its redo record."""
    written_for_tearing(path, "torn")
    tear(path, fmt.redo_record)


def torn_rows(path):
    """The same with the record of a change of the index, which holds the index in rows."""
    writer = written_for_tearing(path, "torn rows")
    tear(path, lambda _: fmt.redo_record(writer.recorded_in_header(fmt.ROWS_FORM)))


def torn_packed(path):
    """The same with the packed index behind the header."""
    writer = written_for_tearing(path, "torn packed")
    tear(path, lambda _: fmt.redo_record(*writer.recorded(fmt.PACKED_FORM)))


def written_for_tearing(path, label):
    writer = fmt.Writer(path, PASSWORD.encode(), kdf="PBKDF2-HMAC-SHA256", kdf_iterations=1000,
                        random_bytes=byte_stream(label))
    fill(writer)
    writer.finish()
    return writer


def tear(path, record_for):
    """`record_for` makes the record of the new header."""
    with open(path, "r+b") as file:
        file.seek(len(fmt.MAGIC))
        line, length = fmt.read_length_line(file)
        header = file.read(length)
        file.seek(0, os.SEEK_END)
        file.write(record_for(header))
        image_bytes = len(line) + length
        file.seek(len(fmt.MAGIC) + image_bytes // 2)
        file.write(b"old header" * (image_bytes // 20))


MAKERS = {"argon2id": argon2id, "lenient": lenient, "torn": torn, "torn-rows": torn_rows,
          "torn-packed": torn_packed}


def describe(container):
    """Everything between the password and the plaintext, for comparison step by step."""
    with open(container.path, "rb") as file:
        whole = file.read()
    crypto = container.crypto
    return {
        "containerBytes": len(whole), "containerSha256": hashlib.sha256(whole).hexdigest(),
        "password": PASSWORD, "passwordHex": PASSWORD.encode().hex(),
        "headerFrom": "redo record" if container.from_redo_record else "header region",
        "lengthLineHex": container.length_line.hex(),
        "payloadOffset": container.payload_offset,
        "headerJson": container.header_json.decode(),
        "kdf": crypto.kdf, "kdfIterations": crypto.kdf_iterations, "cipher": crypto.cipher,
        "saltHex": crypto.salt.hex(), "nonceHex": crypto.nonce.hex(),
        "payloadNonceHex": crypto.payload_nonce.hex(),
        "passwordKeyHex": container.password_key.hex(),
        "masterKeyAssociatedDataHex": fmt.master_key_data(crypto).hex(),
        "encryptedMasterKeyHex": crypto.encrypted_master_key.hex(),
        "masterKeyHex": container.master_key.hex(),
        **describe_index(container),
        "encryptedIndexHex": container.encrypted_index.hex(),
        "indexJson": container.index_json.decode(),
        "blockAssociatedDataHex": fmt.block_data().hex(),
        "files": [describe_file(container, entry, whole) for entry in container.files],
        "folders": [{"path": folder.path, "createdUtc": folder.created,
                     "modifiedUtc": folder.modified} for folder in container.folders]}


def describe_index(container):
    data = container.index_form.associated_data(container.crypto).hex()
    if container.index_form is fmt.PACKED_FORM:
        return {"packedIndexAssociatedDataHex": data, "packedIndexHex": container.index.hex()}
    if container.index_form is fmt.ROWS_FORM:
        return {"indexRowsAssociatedDataHex": data, "indexRows": container.index.decode()}
    return {"indexAssociatedDataHex": data}


def describe_file(container, entry, whole):
    return {
        "vaultPath": entry.path, "id": entry.id, "sizeBytes": entry.size,
        "lastModifiedUtc": entry.modified, "sha256": entry.sha256.hex(),
        "contentsHex": b"".join(container.contents(entry)).hex(),
        "blocks": [{
            "offset": block.offset, "plainSize": block.plain_size,
            "encryptedSize": block.encrypted_size, "nonceHex": block.nonce.hex(),
            "sealedHex": whole[block.offset:block.offset + block.encrypted_size].hex()}
            for block in entry.blocks]}


def main():
    os.makedirs(VECTORS, exist_ok=True)
    for name, make in MAKERS.items():
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "tessel.tvlt")
            make(path)
            description = describe(fmt.Container(path, PASSWORD.encode()))
            with open(path, "rb") as file:
                packed = lzma.compress(file.read(), preset=9)
        target = os.path.join(VECTORS, name)
        with open(target + ".tvlt.xz", "wb") as file:
            file.write(packed)
        with open(target + ".json", "w", encoding="utf-8") as file:
            json.dump({"about": make.__doc__, **description}, file, indent=1, ensure_ascii=False)
            file.write("\n")
        print(f"{name}: {len(packed)} bytes", file=sys.stderr)


if __name__ == "__main__":
    main()
