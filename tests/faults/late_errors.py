# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Errors that are reported late: a drive that accepts every write and loses it.

The drive is ext4 on a loop device whose file is on a small, full file system. Writes succeed in the
page cache; only a sync reports that they are lost. An operation that adds something to the drive
must fail, and when the drive works again the vault must have its former contents. Needs root and a
loop device.
"""

import contextlib
import os
import shutil
import subprocess
import sys
from pathlib import Path

import power_cut
import vault_world as vw

# Enough for a vault, not for the whole drive.
SMALL_BYTES = 96 << 20
# The result of these is lost if nothing new gets onto the drive.
OPERATIONS = ("import", "import, replacing", "export", "new folder", "compact",
              "lock, taking an edited copy back")


class LyingDrive(power_cut.Drive):
    """A drive whose free space can be taken away."""

    def __init__(self, folder):
        self.small = Path(folder, "small")
        self.small.mkdir()
        power_cut.run("mount", "-t", "tmpfs", "-o", f"size={SMALL_BYTES}", "tmpfs", self.small)
        try:
            super().__init__(self.small)
        except power_cut.Refused:
            power_cut.run("umount", self.small)
            raise

    def rob(self):
        # Everything written so far must be on the drive before its space is gone.
        power_cut.run("sync", "--file-system", self.place)
        with open(self.small / "filler", "wb") as filler:
            room = os.statvfs(self.small)
            os.posix_fallocate(filler.fileno(), 0, room.f_bavail * room.f_frsize)

    def give_back(self):
        (self.small / "filler").unlink()

    def close(self):
        super().close()
        power_cut.run("umount", self.small)


def problem_with(drive, operation, base, checker):
    world = vw.World(drive.place / "world", operation, base)
    drive.mount()
    expected = vw.Expected.learn(world, checker)
    world.reset()
    drive.rob()
    ran = subprocess.run(world.command(), env=world.environment(), text=True, check=False,
                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    drive.give_back()
    drive.unmount()
    drive.mount()
    try:
        if vw.parse_said(ran.stdout).get("result") != "false":
            return f"what the drive has lost was reported done: {ran.stdout!r}"
        state = world.state(checker)
        if state is None:
            return "the vault does not open"
        return None if state == expected.before else "the vault holds something else"
    except vw.Disagreement as disagreement:
        return str(disagreement)
    finally:
        drive.unmount()


def try_all(drive, base, checker):
    whole = True
    for operation in vw.OPERATIONS:
        if operation.name in OPERATIONS:
            problem = problem_with(drive, operation, base, checker)
            print(f"{operation.name}: {problem or 'fails, and leaves the vault whole'}", flush=True)
            whole = whole and problem is None
    return 0 if whole else 1


def main():
    if os.geteuid() != 0 or not shutil.which("mkfs.ext4"):
        return vw.refused("only root can mount a loop device, and needs mkfs.ext4")
    power_cut.enter_own_mounts()
    with vw.fast_folder() as folder, contextlib.ExitStack() as closing:
        checker = vw.Checker(False)
        closing.callback(checker.close)
        base = vw.make_base(checker, folder)
        try:
            drive = LyingDrive(folder)
            closing.callback(drive.close)
            drive.mount()
            drive.unmount()
        except power_cut.Refused as reason:
            return vw.refused(reason)
        return try_all(drive, base, checker)


if __name__ == "__main__":
    sys.exit(main())
