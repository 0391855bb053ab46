#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""Lists, extracts, verifies and creates containers without the program.

The password is asked for, or read from the first line of --password-file ("-": standard input).
"""

import argparse
import getpass
import os
import sys

import tessel_format as fmt


def read_password(options):
    if options.password_file is None:
        return getpass.getpass("Password: ").encode()
    if options.password_file == "-":
        return sys.stdin.buffer.readline().rstrip(b"\n")
    with open(options.password_file, "rb") as file:
        return file.readline().rstrip(b"\n")


def list_contents(options, password):
    container = fmt.Container(options.container, password)
    for folder in container.folders:
        print(f"{'folder':>14}  {folder.modified:24}  {folder.path}/")
    for entry in container.files:
        print(f"{entry.size:14}  {entry.modified:24}  {entry.path}")


def destination(folder, vault_path):
    """The path to which a file of the vault is written; never outside the folder."""
    parts = vault_path.replace("\\", "/").split("/")
    if any(part.strip() in ("", ".", "..") or "\0" in part for part in parts):
        raise fmt.FormatError(f"unusable path {vault_path!r}")
    return os.path.join(folder, *parts)


def extract(options, password):
    container = fmt.Container(options.container, password)
    wanted = [container.entry(path) for path in options.paths] or container.files
    for folder in [] if options.paths else container.folders:
        os.makedirs(destination(options.into, folder.path), exist_ok=True)
    for entry in wanted:
        target = destination(options.into, entry.path)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(target, "wb") as file:
            for plain in container.contents(entry):
                file.write(plain)


def verify(options, password):
    container = fmt.Container(options.container, password)
    faults = container.check_contents()
    if options.strict:
        faults += container.check_written_form()
    for fault in faults:
        print(fault)
    if faults:
        raise fmt.FormatError(f"{len(faults)} fault(s)")
    print(f"{len(container.files)} files and {len(container.folders)} folders are sound")


def create(options, password):
    writer = fmt.Writer(options.container, password)
    for path in options.paths:
        add_tree(writer, path, os.path.basename(os.path.abspath(path)))
    writer.finish()


def add_tree(writer, path, vault_path):
    modified = fmt.date_text(os.path.getmtime(path))
    if os.path.isdir(path):
        writer.add_folder(vault_path, modified, modified)
        for name in sorted(os.listdir(path)):
            add_tree(writer, os.path.join(path, name), f"{vault_path}/{name}")
    else:
        with open(path, "rb") as source:
            writer.add_file(vault_path, source, modified)


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--password-file")
    commands = parser.add_subparsers(required=True)

    command = commands.add_parser("list", help="print folders and files")
    command.set_defaults(run=list_contents)
    command.add_argument("container")

    command = commands.add_parser("extract", help="write decrypted files")
    command.set_defaults(run=extract)
    command.add_argument("container")
    command.add_argument("--into", default=".", metavar="FOLDER")
    command.add_argument("paths", nargs="*", help="vault paths; all files without any")

    command = commands.add_parser("verify", help="decrypt everything and compare the digests")
    command.set_defaults(run=verify)
    command.add_argument("--strict", action="store_true", help="also check what writers must do")
    command.add_argument("container")

    command = commands.add_parser("create", help="write a new container")
    command.set_defaults(run=create)
    command.add_argument("container")
    command.add_argument("paths", nargs="*", help="files and folders to store")
    return parser.parse_args()


def main():
    options = parse_arguments()
    try:
        options.run(options, read_password(options))
    except (fmt.FormatError, OSError) as error:
        sys.exit(f"{options.container}: {error}")


if __name__ == "__main__":
    main()
