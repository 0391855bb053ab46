# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""The operations that the sweeps disturb, the folders they work in, and what must be true after."""

import glob
import hashlib
import json
import os
import shutil
import subprocess
import sys
import tempfile
from dataclasses import dataclass, field
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "support"))

import second_reader
from must_run import refused

PASSWORD = "senha de teste"
NEW_PASSWORD = "outra senha longa"
NEW_CONTENTS = bytes(range(256)) * 300


@dataclass(frozen=True)
class Operation:
    name: str
    command: str
    arguments: tuple = ()
    # With Argon2id, which takes most of a second each time.
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
    Operation("import, later in a session", "later-import",
              ("@files/novo.bin", "pasta nova/novo.bin")),
    Operation("delete file, later in a session", "later-delete", ("docs/a.bin",)),
    Operation("rename folder", "rename-folder", ("docs", "x/papeis")),
    Operation("delete folder", "delete-folder", ("pasta 3",)),
    Operation("change password", "password", (NEW_PASSWORD,), slow=True,
              passwords=(PASSWORD, NEW_PASSWORD)),
    Operation("delete file, full drive", "delete", ("docs/a.bin",), room=0),
    Operation("new folder, full drive", "mkdir", ("nova/funda",), room=0),
    Operation("import, full drive", "import", ("@files/novo.bin", "pasta nova/novo.bin"),
              room=ROOM_FOR_THE_IMPORT),
    Operation("rename file, full drive, later in a session", "later-rename", ("b.txt", "d.txt"),
              room=0),
    Operation("change password, full drive", "password", (NEW_PASSWORD,), slow=True,
              passwords=(PASSWORD, NEW_PASSWORD), room=0),
    Operation("compact", "compact"),
    Operation("compact, full drive", "compact", fits_once=True),
    Operation("unlock, compaction cut at its begin", "unlock", cut="nothing"),
    Operation("unlock, compaction cut in its middle", "unlock", cut="part"),
    Operation("unlock, compaction cut at its end", "unlock", cut="all"),
    Operation("lock, taking an edited copy back", "lock-edited", ("b.txt", "editado")),
)


def tool(name):
    for folder in os.environ["TESSEL_FAULT_TOOLS"].split(":"):
        path = Path(folder, name)
        if path.exists():
            return str(path)
    raise FileNotFoundError(name)


def set_aside(container):
    """Where a compaction keeps the old container while it writes the new one."""
    return Path(f"{container}.anterior")


class Disagreement(ValueError):
    """The engine and the second reader find different contents in a container."""


class Checker:
    """vault_checker, kept running, and a second reader that shares no code with the engine.

    Without `thorough` the second reader skips the vaults that are slow to open."""

    def __init__(self, thorough):
        self.thorough = thorough
        self.folder = tempfile.mkdtemp(prefix="tessel-checker-")
        self.process = subprocess.Popen(
            [tool("vault_checker")], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
            env={**os.environ, "TMPDIR": self.folder})

    def ask(self, *request):
        self.process.stdin.write("\t".join(map(str, request)) + "\n")
        self.process.stdin.flush()
        return json.loads(self.process.stdout.readline())

    def look(self, path, operation):
        """The state of the vault there. The engine reads second: it may repair the header."""
        read = self.second_look(path, operation)
        found = State.of(self.ask("look", path, *operation.passwords))
        self.compare(path, found, read)
        return found

    def change(self, path, operation):
        """The state of the vault with one more folder, "tambem"; None if the change fails."""
        changed = self.ask("change", path, *operation.passwords)
        found = State.of(changed)
        self.compare(path, found, self.second_look(path, operation))
        return found if changed.get("changed") else None

    def second_look(self, path, operation):
        """What the second reader finds; nothing at all, not even None, if it skips the vault. If the
        container does not open, it reads the one that a compaction has set aside."""
        if operation.slow and not self.thorough:
            return ()
        found = second_reader.contents(path, operation.passwords)
        return State.of(found or second_reader.contents(set_aside(path), operation.passwords))

    @staticmethod
    def compare(path, found, read):
        if read != () and read != found:
            raise Disagreement(f"{path}: the engine finds {found}, the second reader {read}")

    def close(self):
        self.process.stdin.close()
        self.process.wait()
        shutil.rmtree(self.folder, ignore_errors=True)


@dataclass(frozen=True)
class State:
    """The contents of a container that must be the same before or after an operation."""
    files: tuple
    folders: tuple
    password: str

    @staticmethod
    def of(found):
        if not found:
            return None
        return State(tuple(sorted(found["files"].items())), tuple(sorted(found["folders"])),
                     found["password"])

    def with_folder(self, folder):
        return State(self.files, tuple(sorted({*self.folders, folder})), self.password)

    def is_whole(self):
        return all(digest for _, digest in self.files)


@dataclass
class World:
    """A drive, a folder for ordinary files and a temporary folder, all below one root."""
    root: Path
    operation: Operation
    base: Path
    container: Path = field(init=False)
    # Where state() found the vault.
    vault: Path = field(init=False)

    def __post_init__(self):
        self.container = self.root / "drive" / "tessel.tvlt"
        self.vault = self.container

    def reset(self):
        shutil.rmtree(self.root, ignore_errors=True)
        for name in ("drive", "files", "tmp"):
            (self.root / name).mkdir(parents=True)
        shutil.copyfile(self.base, self.container)
        if self.operation.cut is not None:
            self.cut_compaction()
        (self.root / "files" / "novo.bin").write_bytes(NEW_CONTENTS)

    def cut_compaction(self):
        whole = self.container.read_bytes()
        self.container.rename(set_aside(self.container))
        if self.operation.cut == "part":
            self.container.write_bytes(bytes(7) + whole[7:len(whole) * 2 // 3])
        elif self.operation.cut == "all":
            shutil.copyfile(compacted(self.base), self.container)

    def clear_drive(self):
        for path in self.container.parent.iterdir():
            path.unlink()

    def command(self):
        password = NEW_PASSWORD if self.operation.command == "create" else PASSWORD
        arguments = [argument.replace("@files", str(self.root / "files"))
                     for argument in self.operation.arguments]
        return [tool("fault_driver"), str(self.container), password, self.operation.command,
                *arguments]

    def environment(self, **more):
        if self.operation.room is not None:
            limit = self.base.stat().st_size + self.operation.room
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

    def exported(self):
        path = self.root / "files" / "saida.bin"
        return hashlib.sha256(path.read_bytes()).hexdigest() if path.exists() else None

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

    @staticmethod
    def learn(world, checker):
        world.reset()
        before = world.state(checker)
        subprocess.run(world.command(), env=world.environment(), check=True,
                       stdout=subprocess.DEVNULL)
        after = world.state(checker)
        if not before or not after or not before.is_whole() or not after.is_whole():
            raise AssertionError(f"{world.operation.name}: does not work undisturbed")
        changes = world.operation.command not in ("unlock", "export", "compact")
        if changes != (before != after):
            raise AssertionError(f"{world.operation.name}: before and after are not as they should")
        return Expected(before, after)


def parse_said(text):
    return dict(line.split("=", 1) for line in text.splitlines() if "=" in line)


def make_base(checker, folder):
    base = Path(folder, "base.tvlt")
    if not checker.ask("make", base).get("made"):
        raise OSError("cannot write the vault to start from")
    compact_copy(base)
    return base


def compacted(base):
    """The same vault after a compaction, in another file."""
    return Path(f"{base}.compacted")


def compact_copy(base):
    with tempfile.TemporaryDirectory() as folder:
        copy = Path(folder, "tessel.tvlt")
        shutil.copyfile(base, copy)
        subprocess.run([tool("fault_driver"), str(copy), PASSWORD, "compact"],
                       env={**os.environ, "TMPDIR": folder}, check=True,
                       stdout=subprocess.DEVNULL)
        shutil.copyfile(copy, compacted(base))


def fast_folder():
    """A folder in memory if possible: the sweeps write gigabytes."""
    place = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    return tempfile.TemporaryDirectory(prefix="tessel-faults-", dir=place)
