# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Errors that are reported late: a drive that accepts every write and loses it.

The drive is ext4 on a loop device whose file is on a small, full file system. Writes succeed in the
page cache; only a sync reports that they are lost. An operation that adds something to the drive
must fail, and when the drive works again the vault must have its former contents. Needs root and a
loop device.
"""

import os
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
        except OSError:
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


class LateErrors(power_cut.PowerCuts):
    def __init__(self, folder, thorough, jobs):
        super().__init__(folder, thorough, jobs, LyingDrive)

    def problem_with(self, operation):
        drive = self.drive
        world = vw.World(drive.place / "world", operation, self.base, dense=True)
        drive.mount()
        expected = vw.Expected.learn(world, self.checker())
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
            state = world.state(self.checker())
            if state != expected.before:
                return vw.problem_with(state) or "the vault holds something else"
            return None
        except vw.Disagreement as disagreement:
            return str(disagreement)

    def run(self, operation):
        problem = self.problem_with(operation)
        if problem:
            print(f"FAIL {operation.name}: {problem}", flush=True)
        return 1, int(problem is None)


def main():
    operations = [operation for operation in vw.OPERATIONS if operation.name in OPERATIONS]
    return vw.run_sweep(__doc__, LateErrors, "late errors", operations)


if __name__ == "__main__":
    sys.exit(power_cut.run_on_a_drive(main))
