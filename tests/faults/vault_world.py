# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""The operations that the sweeps disturb, the folders they work in, and what must be true after."""

import argparse
import concurrent.futures
import contextlib
import glob
import hashlib
import json
import os
import shutil
import subprocess
import sys
import threading
import time
from dataclasses import dataclass, field
from pathlib import Path

TESTS = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / "support"), str(TESTS / "interop")]

import tessel_format as fmt
from must_run import refused
from vault_tool import VaultTool, fast_folder, tool

PAGE = 4096
ZEROS = bytes(PAGE)
PASSWORD = "senha de teste"
NEW_PASSWORD = "outra senha longa"
NEW_CONTENTS = bytes(range(256)) * 300


@dataclass(frozen=True)
class Operation:
    name: str
    command: str
    arguments: tuple = ()
    # With Argon2id, which takes most of a second each time in the long form.
    slow: bool = False
    passwords: tuple = (PASSWORD,)
    # By how many bytes the container can grow, as on a full drive.
    room: int = None
    # Whether the drive has no space for a second container: for a time the only one is then in the
    # temporary folder.
    fits_once: bool = False
    # How much of the new container an interrupted compaction has left beside the old one:
    # "nothing", "part" or "all". None without a compaction.
    cut: str = None
    # What the same session does first, undisturbed.
    first: tuple = ()


# One block and its tag: no redo record fits after it.
ROOM_FOR_THE_IMPORT = len(NEW_CONTENTS) + 16

OPERATIONS = (
    Operation("create", "create", slow=True, passwords=(NEW_PASSWORD, PASSWORD)),
    Operation("unlock", "unlock"),
    Operation("import", "import", ("@files/novo.bin", "pasta nova/novo.bin")),
    Operation("import, replacing", "import", ("@files/novo.bin", "docs/a.bin")),
    Operation("export", "export", ("docs/a.bin", "@files/saida.bin")),
    Operation("new folder", "mkdir", ("nova/funda",)),
    Operation("rename file", "rename", ("b.txt", "d.txt")),
    Operation("move file", "move", ("b.txt", "docs")),
    Operation("delete file", "delete", ("docs/a.bin",)),
    # A session reads through the header region at its first change only.
    Operation("import, later in a session", "import", ("@files/novo.bin", "pasta nova/novo.bin"),
              first=("save",)),
    Operation("delete file, later in a session", "delete", ("docs/a.bin",), first=("save",)),
    Operation("rename folder", "rename-folder", ("docs", "x/papeis")),
    Operation("delete folder", "delete-folder", ("pasta 3",)),
    Operation("change password", "password", (NEW_PASSWORD,), slow=True,
              passwords=(PASSWORD, NEW_PASSWORD)),
    Operation("delete file, full drive", "delete", ("docs/a.bin",), room=0),
    Operation("new folder, full drive", "mkdir", ("nova/funda",), room=0),
    Operation("import, full drive", "import", ("@files/novo.bin", "pasta nova/novo.bin"),
              room=ROOM_FOR_THE_IMPORT),
    Operation("rename file, full drive, later in a session", "rename", ("b.txt", "d.txt"), room=0,
              first=("save",)),
    Operation("change password, full drive", "password", (NEW_PASSWORD,), slow=True,
              passwords=(PASSWORD, NEW_PASSWORD), room=0),
    Operation("compact", "compact"),
    Operation("compact, full drive", "compact", fits_once=True),
    Operation("unlock, compaction cut at its begin", "unlock", cut="nothing"),
    Operation("unlock, compaction cut in its middle", "unlock", cut="part"),
    Operation("unlock, compaction cut at its end", "unlock", cut="all"),
    Operation("lock, taking an edited copy back", "lock", first=("edit", "b.txt", "editado")),
)


class Content:
    """A file's bytes in pages. Pages of zeros are left out: they are most of a container."""

    def __init__(self, pages=None, size=0):
        self.pages = dict(pages or {})
        self.size = size

    @staticmethod
    def of(data):
        content = Content()
        content.write(0, data)
        return content

    def copy(self):
        return Content(self.pages, self.size)

    def write(self, offset, data):
        self.size = max(self.size, offset + len(data))
        at = 0
        while at < len(data):
            number, begin = divmod(offset + at, PAGE)
            piece = data[at:at + PAGE - begin]
            at += len(piece)
            if len(piece) < PAGE:
                page = self.pages.get(number, ZEROS)
                piece = page[:begin] + piece + page[begin + len(piece):]
            if piece == ZEROS:
                self.pages.pop(number, None)
            else:
                self.pages[number] = piece

    def truncate(self, size):
        last, rest = divmod(size, PAGE)
        cut = self.pages.get(last, ZEROS)[:rest]
        self.pages = {number: page for number, page in self.pages.items() if number < last}
        self.size = size - rest
        self.write(self.size, cut.ljust(rest, b"\0"))
        self.size = size

    def fingerprint(self):
        return self.size, frozenset(self.pages.items())

    def put(self, path, dense=False):
        """Writes the file; its zeros take no space unless it is to be dense."""
        with open(path, "wb") as file:
            file.write(bytes(self.size if dense else 0))
            for number, page in self.pages.items():
                file.seek(number * PAGE)
                file.write(page)
            file.truncate(self.size)


def set_aside(container):
    """Where a compaction keeps the old container while it writes the new one."""
    return Path(f"{container}.anterior")


class Disagreement(ValueError):
    """The engine and the second reader find different contents in a container."""


class Checker(VaultTool):
    """Opens containers with the engine and with a reader that shares no code with it."""

    def look(self, path, operation):
        """The state of the vault there. The engine reads second: it may repair the header."""
        read = second_look(path, operation)
        return compared(path, State.of(self.ask("look", path, *operation.passwords)), read)

    def change(self, path, operation):
        """The state of the vault with one more folder, "tambem"; None if the change fails."""
        changed = self.ask("change", path, *operation.passwords)
        found = compared(path, State.of(changed), second_look(path, operation))
        return found if changed["result"] else None


def second_look(path, operation):
    """What the second reader finds. If the container does not open, it reads the one that a
    compaction has set aside."""
    return second_state(path, operation.passwords) or second_state(set_aside(path),
                                                                   operation.passwords)


def compared(path, found, read):
    if read != found:
        raise Disagreement(f"{path}: the engine finds {found}, the second reader {read}")
    return found


@dataclass(frozen=True)
class State:
    """The contents of a container that must be the same before or after an operation."""
    files: tuple
    folders: tuple
    password: str

    @staticmethod
    def of(found):
        if "files" not in found:
            return None
        return State(tuple(sorted(found["files"].items())), tuple(sorted(found["folders"])),
                     found["password"])

    def with_folder(self, folder):
        return State(self.files, tuple(sorted({*self.folders, folder})), self.password)

    def is_whole(self):
        return all(digest for _, digest in self.files)


def second_state(path, passwords):
    """The state that the reader of tests/interop finds, with the first password that works; None if
    none does. Writes nothing to the container."""
    for number, password in enumerate(passwords):
        try:
            container = fmt.Container(path, password.encode())
        except (fmt.FormatError, OSError):
            continue
        return State.of({
            "files": {entry.path: whole_digest(container, entry) for entry in container.files},
            "folders": [folder.path for folder in container.folders], "password": number})
    return None


def leftovers(path, operation):
    """What a change must not leave in the container; None if there is none of it."""
    for password in operation.passwords:
        try:
            padding = fmt.Container(path, password.encode()).padding()
        except fmt.FormatError:
            continue
        with open(path, "rb") as file:
            file.seek(-len(fmt.REDO_MARK), os.SEEK_END)
            if file.read() == fmt.REDO_MARK:
                return "the next change has left a redo record"
        is_zero = padding == bytes(len(padding))
        return None if is_zero else "the next change has left bytes behind the header"
    return "the vault does not open"


def whole_digest(container, entry):
    try:
        digest, size = container.digest_and_size(entry)
    except fmt.FormatError:
        return None
    return digest.hex() if digest == entry.sha256 and size == entry.size else None


@dataclass
class World:
    """A drive, a folder for ordinary files and a temporary folder, all below one root."""
    root: Path
    operation: Operation
    base: "Base"
    # Whether the header region takes space, as on a drive that was in use.
    dense: bool = False
    container: Path = field(init=False)
    # Where state() found the vault.
    vault: Path = field(init=False)

    def __post_init__(self):
        self.container = self.root / "drive" / "tessel.tvlt"
        self.vault = self.container

    def make_folders(self):
        shutil.rmtree(self.root, ignore_errors=True)
        for name in ("drive", "files", "tmp"):
            (self.root / name).mkdir(parents=True)

    def reset(self):
        self.make_folders()
        self.base.whole.put(self.container, self.dense)
        if self.operation.cut is not None:
            self.cut_compaction()
        (self.root / "files" / "novo.bin").write_bytes(NEW_CONTENTS)

    def cut_compaction(self):
        self.container.rename(set_aside(self.container))
        if self.operation.cut == "part":
            part = self.base.whole.copy()
            part.write(0, bytes(len(fmt.MAGIC)))
            part.truncate(part.size * 2 // 3)
            part.put(self.container, self.dense)
        elif self.operation.cut == "all":
            self.base.compacted.put(self.container, self.dense)

    def command(self):
        password = NEW_PASSWORD if self.operation.command == "create" else PASSWORD
        first = [*self.operation.first, "then"] if self.operation.first else []
        arguments = [argument.replace("@files", str(self.root / "files"))
                     for argument in self.operation.arguments]
        return [tool("vault_tool"), str(self.container), password, *first, self.operation.command,
                *arguments]

    def environment(self, **more):
        if self.operation.room is not None:
            limit = self.base.whole.size + self.operation.room
            more["TESSEL_FILE_LIMIT"] = str(limit)
        if self.operation.fits_once:
            libraries = [more["LD_PRELOAD"]] if "LD_PRELOAD" in more else []
            more["LD_PRELOAD"] = ":".join([*libraries, tool("libno_room.so")])
        # A sanitizer's runtime refuses to be loaded after a preloaded library, although it works.
        return {**os.environ, "TMPDIR": str(self.root / "tmp"), "LC_ALL": "C.UTF-8",
                "ASAN_OPTIONS": "detect_leaks=0:verify_asan_link_order=0", **more}

    def preserved(self):
        """The rebuilt container of a compaction that was disturbed after it deleted the old one."""
        found = glob.glob(str(self.root / "tmp" / "Tessel-compact-*" / "tessel.tvlt"))
        return Path(found[0]) if found else None

    def has_exported(self, expected):
        """Whether the exported file has its bytes; true for any other operation."""
        path = self.root / "files" / "saida.bin"
        return self.operation.command != "export" or (
            path.exists() and hashlib.sha256(path.read_bytes()).hexdigest() ==
            dict(expected.after.files)["docs/a.bin"])

    def state(self, checker, reported=""):
        """The vault's state. That of a preserved container counts only if the drive has no space for
        two, or if the operation reported its path."""
        self.vault = self.container
        found = checker.look(self.vault, self.operation)
        whole = found is not None and found.is_whole()
        if not whole and self.preserved() and (self.operation.fits_once or reported):
            self.vault = self.preserved()
            found = checker.look(self.vault, self.operation)
        return found


@dataclass
class Expected:
    """The states before and after an undisturbed operation."""
    before: State
    after: State
    # How many seconds it took.
    lasted: float

    @staticmethod
    def learn(world, checker):
        world.reset()
        before = world.state(checker)
        began = time.monotonic()
        said = subprocess.run(world.command(), env=world.environment(), check=True, text=True,
                              stdout=subprocess.PIPE).stdout
        lasted = time.monotonic() - began
        after = world.state(checker)
        if parse_said(said)["result"] != "true" or problem_with(before) or problem_with(after):
            raise AssertionError(f"{world.operation.name}: does not work undisturbed")
        changes = world.operation.command not in ("unlock", "export", "compact")
        if changes != (before != after):
            raise AssertionError(f"{world.operation.name}: before and after are not as they should")
        return Expected(before, after, lasted)


def parse_said(text):
    return dict(line.split("=", 1) for line in text.splitlines() if "=" in line)


def problem_with(state):
    """What is wrong with any state of a vault that was disturbed."""
    if state is None:
        return "the vault does not open"
    return None if state.is_whole() else "a file cannot be read"


@dataclass
class Base:
    """The vault that every operation starts from, and the same vault after a compaction."""
    whole: Content
    compacted: Content

    @staticmethod
    def make(checker, folder):
        path = Path(folder, "base.tvlt")
        if not checker.ask("craft", path)["result"]:
            raise OSError("cannot write the vault to start from")
        whole = Content.of(path.read_bytes())
        subprocess.run([tool("vault_tool"), str(path), PASSWORD, "compact"],
                       env={**os.environ, "TMPDIR": str(folder)}, check=True,
                       stdout=subprocess.DEVNULL)
        return Base(whole, Content.of(path.read_bytes()))


def derive_cheaply():
    """The short form does not wait for Argon2id; the long one uses the real parameters."""
    os.environ["TESSEL_CHEAP_DERIVATION"] = "1"
    fmt.ARGON2_PASSES, fmt.ARGON2_MEMORY_BYTES = 1, 8192


class Sweep:
    """Disturbs one operation after the other, on several threads, each with a checker and a drive
    of its own."""

    def __init__(self, folder, thorough, jobs):
        self.folder = Path(folder)
        self.thorough = thorough
        self.local = threading.local()
        self.lock = threading.Lock()
        self.checkers = []
        self.base = Base.make(self.checker(), folder)
        self.pool = concurrent.futures.ThreadPoolExecutor(jobs)

    def checker(self):
        if not hasattr(self.local, "checker"):
            with self.lock:
                self.local.checker = Checker()
                self.checkers.append(self.local.checker)
                self.local.number = len(self.checkers)
        return self.local.checker

    def world(self, operation):
        self.checker()
        return World(self.folder / f"world-{self.local.number}", operation, self.base)

    def close(self):
        self.pool.shutdown()
        for checker in self.checkers:
            checker.close()


def run_sweep(description, kind, unit, operations=OPERATIONS):
    """The main() of a sweep: `kind` is a Sweep with a run(operation), which returns how many times
    the operation was disturbed, under the name of the unit, and how many left the vault whole."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--long", action="store_true", help="take a larger sample")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--json", help="where to write the counts")
    parser.add_argument("--only", help="the operation to try")
    options = parser.parse_args()
    if not options.long:
        derive_cheaply()
    with fast_folder("tessel-faults-") as folder, contextlib.ExitStack() as closing:
        sweep = kind(folder, options.long, options.jobs)
        closing.callback(sweep.close)
        results = []
        for operation in operations:
            if options.only in (None, operation.name):
                tried, whole = sweep.run(operation)
                results.append({"operation": operation.name, unit: tried, "whole": whole})
                print(f"{operation.name}: {tried} {unit}, {whole} left the vault whole", flush=True)
    if options.json:
        Path(options.json).write_text(json.dumps(results), encoding="utf-8")
    return 0 if results and all(row["whole"] == row[unit] > 0 for row in results) else 1
