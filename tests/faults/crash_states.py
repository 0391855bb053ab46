# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Simulates power cuts: creates the states that a drive may be in, and opens the vault in each.

Every operation runs once with record_calls preloaded, which logs its system calls. From the log
follow the states that a power cut after any event may leave. Each write and truncation of a file
that was not synced since is there, is not, or is there in some of its 512-byte sectors. Of the
changes of a folder that was not synced since, any number is there, in their order. The new name of
a renamed file that was not synced since may lead to an empty file or to its former target, as on
FAT. A fixed sample of these states is created and opened; --long takes a larger one.

Until the operation has reported success, the vault must have its contents from before or after the
operation; from then on, those from after it.
"""

import os
import random
import struct
import subprocess
import sys
from dataclasses import dataclass, field
from pathlib import Path

import vault_world as vw
from vault_world import Content

HEAD = struct.Struct("=IIQqQ")
CREATE, TRUNCATE, WRITE, SYNC, SYNC_FOLDER, RENAME, REMOVE, MAKE_FOLDER, MARK, EXCHANGE = range(1, 11)
SECTOR = 512

@dataclass(frozen=True)
class Event:
    kind: int
    path: str
    inode: int
    offset: int
    data: bytes


def read_log(path):
    raw = path.read_bytes()
    at = 0
    events = []
    while at < len(raw):
        kind, path_bytes, inode, offset, data_bytes = HEAD.unpack_from(raw, at)
        at += HEAD.size
        name = raw[at:at + path_bytes].decode()
        at += path_bytes
        events.append(Event(kind, name, inode, offset, raw[at:at + data_bytes]))
        at += data_bytes
    return events


@dataclass
class Image:
    """What is certainly on the drive, and what may be."""
    names: dict = field(default_factory=dict)
    contents: dict = field(default_factory=dict)
    pending_writes: dict = field(default_factory=dict)
    pending_names: dict = field(default_factory=dict)
    folders: frozenset = frozenset()
    # For each file that was not synced since it was renamed: its new name, and the former target
    # of that name.
    renamed: dict = field(default_factory=dict)

    def copy(self):
        return Image(dict(self.names), dict(self.contents),
                     {inode: list(events) for inode, events in self.pending_writes.items()},
                     {folder: list(events) for folder, events in self.pending_names.items()},
                     self.folders, dict(self.renamed))

    def inode_of(self, path):
        names = dict(self.names)
        for events in self.pending_names.values():
            for event in events:
                rename(names, event)
        return names.get(path)

    def names_lead_to(self, inode):
        named = {event.inode for events in self.pending_names.values() for event in events}
        return inode in named or inode in self.names.values()

    def take(self, event):
        if event.kind in (WRITE, TRUNCATE):
            self.pending_writes.setdefault(event.inode, []).append(event)
        elif event.kind == SYNC:
            self.renamed.pop(event.inode, None)
            content = self.contents.get(event.inode, Content()).copy()
            for pending in self.pending_writes.pop(event.inode, ()):
                change(content, pending)
            self.contents[event.inode] = content
        elif event.kind == SYNC_FOLDER:
            for pending in self.pending_names.pop(event.path, ()):
                rename(self.names, pending)
        elif event.kind in (CREATE, RENAME, EXCHANGE, REMOVE, MAKE_FOLDER):
            if event.kind == MAKE_FOLDER:
                self.folders |= {event.path}
            elif event.kind in (RENAME, EXCHANGE):
                path = event.data.decode()
                moved, replaced = self.inode_of(event.path), self.inode_of(path)
                self.renamed[moved] = (path, replaced)
                if event.kind == EXCHANGE:
                    self.renamed[replaced] = (event.path, moved)
            self.pending_names.setdefault(os.path.dirname(event.path), []).append(event)


def change(content, event, sectors=None):
    """Applies a write or truncation; of a write only the given sectors, if any are given."""
    if event.kind == TRUNCATE:
        content.truncate(event.offset)
        return
    begin, end = event.offset, event.offset + len(event.data)
    for first, last in [(begin, end)] if sectors is None else runs(sectors):
        low, high = max(begin, first), min(end, last)
        content.write(low, event.data[low - begin:high - begin])


def runs(sectors):
    """The ranges of bytes in ascending sectors, neighbours joined."""
    joined = []
    for sector in sectors:
        begin = sector * SECTOR
        if joined and joined[-1][1] == begin:
            begin = joined.pop()[0]
        joined.append((begin, (sector + 1) * SECTOR))
    return joined


def rename(names, event):
    if event.kind in (CREATE, MAKE_FOLDER):
        names[event.path] = event.inode
    elif event.kind == REMOVE:
        names.pop(event.path, None)
    elif event.kind == EXCHANGE:
        other = event.data.decode()
        if event.path in names and other in names:
            names[event.path], names[other] = names[other], names[event.path]
    elif event.path in names:
        names[event.data.decode()] = names.pop(event.path)


def sectors_of(event):
    return range(event.offset // SECTOR, (event.offset + len(event.data) - 1) // SECTOR + 1)


def some_sectors(event, chance):
    sectors = list(sectors_of(event))
    kind = chance.randrange(4)
    cut = chance.randrange(len(sectors) + 1)
    if kind == 0:
        return sectors[:cut]
    if kind == 1:
        return sectors[cut:]
    if kind == 2 and len(sectors) > 1:
        gone = chance.randrange(len(sectors))
        return sectors[:gone] + sectors[gone + 1:]
    return [sector for sector in sectors if chance.random() < 0.5]


def choices_at(image, chance, extra):
    """The possible outcomes of the pending events: one fate for each of them, the number of changes
    of each folder, and whether renamed files have their size."""
    writes = [event for events in image.pending_writes.values() for event in events]
    folders = list(image.pending_names)
    full = {folder: len(image.pending_names[folder]) for folder in folders}
    none = dict.fromkeys(folders, 0)
    keep = ["keep"] * len(writes)
    drop = ["drop"] * len(writes)
    choices = [(keep, full), (drop, none), (keep, none), (drop, full)]
    for position in range(len(writes)):
        for base in (keep, drop):
            for fate in ("keep", "drop", "tear"):
                changed = list(base)
                changed[position] = fate
                choices.append((changed, full))
    for _ in range(extra):
        fates = [chance.choice(("keep", "drop", "tear")) for _ in writes]
        choices.append((fates, {folder: chance.randrange(full[folder] + 1) for folder in folders}))
    sizes = (True, False) if image.renamed else (True,)
    return [(*choice, sized) for choice in choices for sized in sizes]


def outcome(image, fates, lengths, sized, chance):
    """The files, by path, that one choice leaves."""
    contents = dict(image.contents)
    names = dict(image.names)
    fate = iter(fates)
    for inode, events in image.pending_writes.items():
        own = [(event, next(fate)) for event in events]
        if all(kind == "drop" for _, kind in own):
            continue
        content = contents.get(inode, Content()).copy()
        for event, kind in own:
            if kind != "drop":
                torn = kind == "tear" and event.kind == WRITE
                change(content, event, some_sectors(event, chance) if torn else None)
        contents[inode] = content
    for folder, length in lengths.items():
        for event in image.pending_names[folder][:length]:
            rename(names, event)
    if not sized:
        contents.update((inode, image.contents.get(replaced, Content()))
                        for inode, (path, replaced) in image.renamed.items()
                        if names.get(path) == inode)
    lost = [folder + "/" for folder in image.folders if folder not in names]
    return {path: contents.get(inode, Content()) for path, inode in names.items()
            if path not in image.folders and not path.startswith(tuple(lost))}


def fingerprint(files):
    return frozenset((path, content.fingerprint()) for path, content in files.items())


class Recording:
    """One undisturbed run of an operation, and all states that a power cut may leave."""

    def __init__(self, world, thorough):
        self.world = world
        # Opening a vault with the real key derivation is slow.
        self.extra = (20 if world.operation.slow else 200) if thorough else 8
        world.reset()
        self.start = Image()
        for path in world.root.rglob("*"):
            if path.is_file():
                inode = path.stat().st_ino
                self.start.names[str(path)] = inode
                self.start.contents[inode] = Content.of(path.read_bytes())
        log = Path(f"{world.root}.calls")
        environment = world.environment(LD_PRELOAD=vw.tool("librecord_calls.so"),
                                        TESSEL_RECORD_ROOT=str(world.root),
                                        TESSEL_RECORD_LOG=str(log))
        subprocess.run(world.command(), env=environment, check=True, stdout=subprocess.DEVNULL)
        self.events = read_log(log)
        log.unlink()

    def states(self):
        """Pairs of files and whether the operation had reported success, each state once."""
        chance = random.Random(self.world.operation.name)
        image = self.start.copy()
        seen = set()
        begun = done = False
        for event in self.events:
            image.take(event)
            begun = begun or (event.kind == MARK and event.path == "/tessel-begin")
            done = done or (event.kind == MARK and event.path == "/tessel-end")
            if not begun or event.kind in (SYNC, SYNC_FOLDER):
                continue
            # A file that no name leads to yet is lost in a power cut, whatever it contains.
            if event.kind == WRITE and not image.names_lead_to(event.inode):
                continue
            for fates, lengths, sized in choices_at(image, chance, self.extra):
                files = outcome(image, fates, lengths, sized, chance)
                key = (fingerprint(files), done)
                if key not in seen:
                    seen.add(key)
                    yield files, done


class CrashStates(vw.Sweep):
    def problem_with(self, recorded, files, done, expected):
        """Creates the state on a drive of its own and checks it; None if the vault is whole."""
        world = self.world(recorded.operation)
        world.make_folders()
        for path, content in files.items():
            place = world.root / Path(path).relative_to(recorded.root)
            place.parent.mkdir(parents=True, exist_ok=True)
            content.put(place)
        state = world.state(self.checker())
        if vw.problem_with(state):
            return vw.problem_with(state)
        if state != expected.after and (done or state != expected.before):
            return "what was reported done is lost" if done else "the vault holds something else"
        if done and not world.container.exists():
            return "the container is not on the drive"
        if done and not world.has_exported(expected):
            return "the exported file is lost"
        return None

    def try_state(self, recorded, files, done, expected):
        try:
            problem = self.problem_with(recorded, files, done, expected)
        except vw.Disagreement as disagreement:
            problem = str(disagreement)
        if problem:
            sizes = {str(Path(path).relative_to(recorded.root)): content.size
                     for path, content in files.items()}
            print(f"FAIL {recorded.operation.name}: {problem} (done: {done}, files: {sizes})",
                  flush=True)
        return problem is None

    def run(self, operation):
        world = vw.World(self.folder / "recorded", operation, self.base)
        expected = vw.Expected.learn(world, self.checker())
        states = list(Recording(world, self.thorough).states())
        whole = self.pool.map(lambda state: self.try_state(world, *state, expected), states)
        return len(states), sum(whole)


if __name__ == "__main__":
    sys.exit(vw.run_sweep(__doc__, CrashStates, "states"))
