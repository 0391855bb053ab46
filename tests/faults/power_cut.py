# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Real power cuts: ext4 on a loop device, shut down without writing anything more.

An operation runs on a vault on that file system. The file system is shut down either after a number
of milliseconds, whatever the operation is doing, or as soon as the operation has reported success.
It is then mounted again, which replays its journal. The vault must have its contents from before or
after the operation; what was reported done must be there. Needs root and a loop device.
"""

import fcntl
import os
import random
import shutil
import struct
import subprocess
import sys
import time
from pathlib import Path

import vault_world as vw

# _IOR('X', 125, __u32), and the flag that the journal is not written either.
SHUTDOWN = 0x8004587D
WITHOUT_LOG = struct.pack("I", 2)
IMAGE_BYTES = 192 << 20


class Refused(Exception):
    """This machine cannot provide such a drive."""


def run(*command):
    found = subprocess.run(command, check=False, text=True, stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT)
    if found.returncode != 0:
        raise OSError(f"{' '.join(map(str, command))}: {found.stdout.strip()}")
    return found.stdout


class Drive:
    """ext4 in a file, mounted on a loop device."""

    def __init__(self, folder):
        self.image = Path(folder, "drive.img")
        self.place = Path(folder, "mounted")
        self.place.mkdir()
        with open(self.image, "wb") as image:
            image.truncate(IMAGE_BYTES)
        run("mkfs.ext4", "-q", self.image)
        # The same device throughout: a second one on the same file would have its own cache.
        self.device = run("losetup", "--find", "--show", self.image).strip()
        self.mounted = False

    def mount(self):
        if not self.mounted:
            run("mount", self.device, self.place)
            self.mounted = True

    def unmount(self):
        if self.mounted:
            run("umount", self.place)
            self.mounted = False

    def close(self):
        self.unmount()
        run("losetup", "--detach", self.device)

    def cut(self):
        descriptor = os.open(self.place, os.O_RDONLY)
        try:
            fcntl.ioctl(descriptor, SHUTDOWN, WITHOUT_LOG)
        finally:
            os.close(descriptor)


def cut_after(drive, process, delay):
    """Cuts the power after the delay or, without one, when the process has ended."""
    if delay is None:
        process.wait()
    else:
        # The moment of the cut is what the test varies; there is no event to wait for.
        time.sleep(delay)
    drive.cut()
    said, _ = process.communicate()
    return vw.parse_said(said)


def problem_with(drive, world, expected, checker, delay):
    drive.mount()
    world.reset()
    # The state before the operation is on the drive.
    for path in world.container.parent.iterdir():
        descriptor = os.open(path, os.O_RDWR)
        os.fsync(descriptor)
        os.close(descriptor)
    process = subprocess.Popen(world.command(), env=world.environment(), text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    said = cut_after(drive, process, delay)
    drive.unmount()
    drive.mount()
    try:
        state = world.state(checker)
        if vw.problem_with(state):
            return vw.problem_with(state)
        done = said.get("result") == "true"
        if delay is None and not done:
            return "the operation failed undisturbed"
        if done and state != expected.after:
            return "what was reported done is lost"
        if state not in (expected.before, expected.after):
            return "the vault holds something else"
        return None if not done or world.has_exported(expected) else "the exported file is lost"
    except vw.Disagreement as disagreement:
        return str(disagreement)


class PowerCuts(vw.Sweep):
    def __init__(self, folder, thorough, jobs, drive=Drive):
        super().__init__(folder, thorough, jobs)
        try:
            self.drive = drive(folder)
            self.drive.mount()
            self.drive.unmount()
        except OSError as reason:
            super().close()
            raise Refused(str(reason)) from reason

    def close(self):
        self.drive.close()
        super().close()

    def run(self, operation):
        drive = self.drive
        world = vw.World(drive.place / "world", operation, self.base, dense=True)
        drive.mount()
        expected = vw.Expected.learn(world, self.checker())
        chance = random.Random(operation.name)
        times = 20 if self.thorough else 2
        delays = [None] + [chance.random() * expected.lasted for _ in range(times - 1)]
        whole = 0
        for delay in delays:
            problem = problem_with(drive, world, expected, self.checker(), delay)
            whole += problem is None
            if problem:
                print(f"FAIL {operation.name}: power cut after {delay} s of "
                      f"{expected.lasted}: {problem}", flush=True)
        return len(delays), whole


def enter_own_mounts():
    """Starts this program again with private mounts: a process that saw them would keep the file
    system mounted when it is unmounted here."""
    if "TESSEL_OWN_MOUNTS" not in os.environ:
        os.environ["TESSEL_OWN_MOUNTS"] = "1"
        os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable,
                              "-B", *sys.argv])


def run_on_a_drive(run):
    """Runs a test that mounts a drive; the exit status, also where none can be mounted."""
    if os.geteuid() != 0 or not shutil.which("mkfs.ext4"):
        return vw.refused("only root can mount a loop device, and needs mkfs.ext4")
    enter_own_mounts()
    try:
        return run()
    except Refused as reason:
        return vw.refused(reason)


if __name__ == "__main__":
    sys.exit(run_on_a_drive(lambda: vw.run_sweep(__doc__, PowerCuts, "cuts")))
