# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Kills the program at a system call, or makes the call fail, and checks the vault.

Every operation runs once under strace, undisturbed, to learn its calls. It then runs once for each
call and each fault: killed there, failing there, failing from there on (together with every other
call that changes something). A sync also fails twice: a drive that works again may still report one
error for the file's data and one for its metadata. Without --long only a sample of the calls is
tried.
"""

import re
import shutil
import subprocess
import sys
from dataclasses import dataclass, replace
from pathlib import Path

import vault_world as vw

CHANGING = ("openat", "write", "pwrite64", "fsync", "fdatasync", "sync_file_range", "ftruncate",
            "rename", "renameat2", "linkat", "unlink", "rmdir", "mkdir")
READING = ("read", "pread64", "lseek", "statx", "close")
# Calls whose failure must fail the operation, whatever the error: on any file or folder, and on the
# container.
SYNCS = ("fsync", "fdatasync", "sync_file_range")
MUST_FAIL = (*SYNCS, "write")
LINE = re.compile(r"^\d+\s+(\w+)\((.*)$")


@dataclass(frozen=True)
class Call:
    name: str
    number: int
    # How often each changing call was made before this one.
    before: tuple
    text: str
    on_container: bool = False
    # Whether the operation may succeed although this call fails: nothing has been written yet, or
    # what was is on the drive already.
    spared: bool = False
    # Whether it must succeed: it is on the drive, and only what could undo it is being removed.
    late: bool = False


@dataclass(frozen=True)
class Fault:
    call: Call
    kind: str

    def injections(self):
        if self.kind == "KILL":
            return [f"{self.call.name}:signal=KILL:when={self.call.number}"]
        if self.kind == "EIO twice":
            number = self.call.number
            return [f"{self.call.name}:error=EIO:when={number}..{number + 1}"]
        if not self.kind.endswith("+"):
            return [f"{self.call.name}:error={self.kind}:when={self.call.number}"]
        counts = dict(self.call.before)
        error = self.kind[:-1]
        return [f"{name}:error={error}:when={counts.get(name, 0) + 1}+"
                for name in CHANGING if name not in ("openat",) or name == self.call.name]


def strace(options, world, again):
    more = {"TESSEL_TRY_AGAIN": "1"} if again else {}
    return subprocess.run(["strace", "-f", "-qq", *options, *world.command()],
                          env=world.environment(**more), text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, check=False)


def learn_calls(world):
    """The calls on our folders between the driver's two marks."""
    world.reset()
    log = Path(f"{world.root}.strace")
    names = ",".join(CHANGING + READING)
    strace(["-y", "-o", str(log), "-e", f"trace={names}"], world, False)
    counts = {}
    calls = []
    inside = False
    for line in log.read_text(errors="replace").splitlines():
        found = LINE.match(line)
        if not found:
            continue
        name, text = found.groups()
        inside = (inside or "/tessel-begin" in text) and "/tessel-end" not in text
        before = tuple(counts.items())
        counts[name] = counts.get(name, 0) + 1
        if inside and str(world.root) in text and "/tessel-" not in text[:12]:
            calls.append(Call(name, counts[name], before, text[:160],
                              str(world.container) in text))
    log.unlink()
    return mark_spared(world, calls)


def mark_spared(world, calls):
    """A change that does not follow another one begins with a sync, for earlier errors. QSaveFile
    syncs once more and does not look at the result. On a full drive a change ends by writing zeros
    over its redo record, and a compaction ends by removing the old container."""
    operation = world.operation
    own = [call for call in calls if call.on_container]
    syncs = [call for call in own if call.name == "fdatasync"]
    writes = [call for call in own if call.name == "pwrite64"]
    unnamed = [call for call in calls if call.name == "fdatasync" and "(deleted)" in call.text]
    spared = unnamed[-1:] + (syncs[:1] if operation.first != ("save",) else [])
    late = syncs[-1:] + writes[-1:] if operation.room is not None else []
    if operation.command == "compact" and not operation.fits_once:
        late += [call for call in calls if call.name == "fsync"][-1:]
    return [replace(call, spared=call in spared, late=call in late) for call in calls]


def faults_of(operation, calls, thorough):
    faults = []
    for call in calls:
        if call.name in READING:
            # A kill here leaves the same as a kill at the next changing call.
            if (thorough and not operation.slow) or operation.command in ("unlock", "export"):
                kinds = ("KILL", "EIO") if call.name in ("read", "lseek") else ("KILL",)
                faults += [Fault(call, kind) for kind in kinds]
            continue
        kinds = ("KILL", "EIO", "EIO+", "ENOSPC", "ENOSPC+")
        if call.name == "openat":
            kinds = ("KILL", "EIO", "EROFS+")
        if call.name == "fdatasync":
            kinds += ("EIO twice",)
        faults += [Fault(call, kind) for kind in kinds]
    if thorough:
        return faults
    # A fixed sample. Each step is a prime, so that the sample has all kinds of faults.
    step = 7
    sample = faults[len(operation.name) % step::step]
    always = [fault for fault in faults
              if fault.call.name in SYNCS and fault.kind in ("EIO twice", "ENOSPC")
              or fault.call.late and fault.kind == "EIO"]
    return sample + [fault for fault in always if fault not in sample]


def has_succeeded(world, said):
    # Locking also fails if the copies could not be removed; the vault has the file by then.
    locked = world.operation.command == "lock" and said.get("state") == "locked"
    return locked or said.get("result") == "true"


def problem_with(world, fault, expected, run, checker):
    """What is wrong after a fault; None if the vault is whole."""
    said = vw.parse_said(run.stdout)
    ended = run.returncode in (0, 3) and bool(said)
    if fault.kind == "KILL" and ended:
        return "the program was not killed"
    if fault.kind != "KILL" and not ended:
        return f"the program ended with {run.returncode}"
    succeeded = has_succeeded(world, said)
    state = world.state(checker, said.get("text", ""))
    if vw.problem_with(state):
        return vw.problem_with(state)
    allowed = [expected.after] if succeeded else [expected.before, expected.after]
    if said.get("again") == "true":
        # The folder created afterwards shows that the program and the drive had the same index.
        allowed = [expected.before.with_folder("depois")]
    elif fault.kind in ("EIO", "ENOSPC") and ended and not succeeded:
        allowed = [expected.before] + ([expected.after] if world.operation.slow else [])
    if state not in allowed:
        return "the vault holds something else"
    if ended and not succeeded and said.get("index") == "new":
        return "the index in memory is not what it was"
    if said.get("again") == "false" and not fault.kind.endswith("+") and not world.preserved():
        return "the next operation fails although the drive works again"
    return problem_with_result(world, fault, expected, said, checker)


def problem_with_result(world, fault, expected, said, checker):
    succeeded = has_succeeded(world, said)
    if fault.call.late and fault.kind in ("EIO", "ENOSPC") and not succeeded:
        return "a change that is on the drive passed for a failure"
    if succeeded and fault.kind != "KILL" and must_fail(world.operation, fault):
        return "a failed call passed for success"
    if fault.call.name in SYNCS and fault.kind in ("EIO", "ENOSPC") and not said.get("text") and \
            world.preserved():
        return "a copy that nobody was told of is left in the temporary folder"
    if succeeded and not world.has_exported(expected):
        return "the exported file is not the stored one"
    changed = checker.change(world.vault, world.operation)
    if changed is None or "tambem" not in changed.folders:
        return "the vault takes no change any more"
    return vw.leftovers(world.vault, world.operation)


def must_fail(operation, fault):
    call = fault.call
    # Unlocking reads: what it cleans up may wait.
    if call.spared or call.late or (operation.command == "unlock" and call.name == "fsync"):
        return False
    if not call.on_container:
        return call.name in SYNCS
    return call.name in MUST_FAIL or (call.name == "pwrite64" and fault.kind.startswith("EIO"))


class FailingCalls(vw.Sweep):
    def try_fault(self, operation, fault, expected):
        world = self.world(operation)
        world.reset()
        injections = fault.injections()
        names = ",".join(injection.split(":")[0] for injection in injections)
        options = ["-o", "/dev/null", "-e", f"trace={names}"]
        if fault.kind != "KILL":
            # Only these calls stop the program, but strace cannot kill it there.
            options.append("--seccomp-bpf")
        for injection in injections:
            options += ["-e", f"inject={injection}"]
        run = strace(options, world, True)
        try:
            problem = problem_with(world, fault, expected, run, self.checker())
        except (ValueError, BrokenPipeError) as error:
            problem = f"the checker gave up: {error}"
        if problem:
            print(f"FAIL {operation.name}: {fault.kind} at {fault.call.name} "
                  f"{fault.call.number} ({fault.call.text}): {problem}\n  {run.stdout!r}",
                  flush=True)
        return problem is None

    def run(self, operation):
        world = self.world(operation)
        expected = vw.Expected.learn(world, self.checker())
        faults = faults_of(operation, learn_calls(world), self.thorough)
        whole = self.pool.map(lambda fault: self.try_fault(operation, fault, expected), faults)
        return len(faults), sum(whole)


def main():
    if not shutil.which("strace") or subprocess.run(
            ["strace", "-f", "-qq", "-o", "/dev/null", "true"], check=False,
            stderr=subprocess.DEVNULL).returncode != 0:
        return vw.refused("strace is missing or not allowed to trace here")
    return vw.run_sweep(__doc__, FailingCalls, "faults")


if __name__ == "__main__":
    sys.exit(main())
