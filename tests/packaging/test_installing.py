# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""test_installing.py FOLDER installs the package into a system of its own with dpkg, starts the
program from there as the desktop does, ends it as the session does, and removes the package."""

import configparser
import os
import shutil
import signal
import stat
import struct
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree
from pathlib import Path

from toolbox import conclude, need, package_in

ID = "example.tessel.Tessel"
SIZES = (16, 24, 32, 48, 64, 128, 256)
FILES = {
    "usr/bin/tessel": 0o755,
    f"usr/share/applications/{ID}.desktop": 0o644,
    f"usr/share/applications/{ID}.Container.desktop": 0o644,
    "usr/share/doc/tessel/changelog.gz": 0o644,
    "usr/share/doc/tessel/copyright": 0o644,
    **{f"usr/share/icons/hicolor/{size}x{size}/apps/tessel.png": 0o644 for size in SIZES},
    "usr/share/icons/hicolor/scalable/apps/tessel.svg": 0o644,
    "usr/share/man/man1/tessel.1.gz": 0o644,
    "usr/share/man/pt_BR/man1/tessel.1.gz": 0o644,
    f"usr/share/metainfo/{ID}.metainfo.xml": 0o644,
    f"usr/share/mime/packages/{ID}.xml": 0o644,
}
DATABASE = "var/lib/dpkg"
PATIENCE = 60  # seconds, for a machine that is busy with other tests


class Display:
    """A virtual X display of its own, while the block lasts."""

    def __enter__(self):
        reader, writer = os.pipe()
        self.server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(writer), "-screen", "0", "1280x1024x24", "-nolisten", "tcp"],
            pass_fds=[writer], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)
        os.close(writer)
        with os.fdopen(reader) as number:
            return f":{number.readline().strip()}"

    def __exit__(self, *_):
        self.server.terminate()
        self.server.wait()


def dpkg(root, *arguments):
    """Works on the system in ROOT and on no other. A system without shell and libraries needs
    neither dependencies nor what the administrator's dpkg leaves out."""
    command = ["dpkg", f"--root={root}", f"--log={root}.log", "--force-depends",
               "--force-script-chrootless", "--path-include=*", *arguments]
    if os.geteuid() != 0:
        need("fakeroot")
        command = ["fakeroot", *command[:1], "--force-not-root", *command[1:]]
    run = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                         env=os.environ | {"PATH": f"{os.environ['PATH']}:/usr/sbin:/sbin"},
                         check=False)
    if run.returncode != 0:
        conclude([run.stdout, f"dpkg ended with {run.returncode}"])


def empty_system(root):
    (root / DATABASE / "info").mkdir(parents=True)
    (root / DATABASE / "updates").mkdir()
    (root / DATABASE / "status").touch()


def files_of(root):
    """Every file outside of dpkg's database, with its mode."""
    return {str(path.relative_to(root)): stat.S_IMODE(path.lstat().st_mode)
            for path in root.rglob("*")
            if not path.is_dir() and not str(path.relative_to(root)).startswith(DATABASE)}


def place_faults(root):
    """Everything lies where it is looked for, and nothing lies elsewhere."""
    found = files_of(root)
    for name in sorted(FILES.keys() - found.keys()):
        yield f"{name}: missing"
    for name in sorted(found.keys() - FILES.keys()):
        yield f"{name}: nobody expects it there"
    for name in sorted(found.keys() & FILES.keys()):
        if found[name] != FILES[name]:
            yield f"{name}: mode {found[name]:o} instead of {FILES[name]:o}"
    for path in root.joinpath("usr").rglob("*"):
        if path.is_dir() and stat.S_IMODE(path.stat().st_mode) != 0o755:
            yield f"{path.relative_to(root)}: not open to everybody"


def desktop_entry(root):
    parser = configparser.RawConfigParser()
    parser.optionxform = str
    parser.read(root / f"usr/share/applications/{ID}.desktop", encoding="utf-8")
    return parser["Desktop Entry"]


def name_faults(root):
    """What one file calls another is there under that name."""
    share = root / "usr/share"
    entry = desktop_entry(root)
    metainfo = xml.etree.ElementTree.parse(share / f"metainfo/{ID}.metainfo.xml")
    names = [(f"usr/bin/{entry['Exec']}", "Exec"), (f"usr/bin/{entry['TryExec']}", "TryExec"),
             (f"usr/share/applications/{metainfo.findtext('launchable')}", "launchable"),
             (f"usr/bin/{metainfo.findtext('provides/binary')}", "binary")]
    names += [(f"usr/share/icons/hicolor/{size}x{size}/apps/{entry['Icon']}.png", "Icon")
              for size in SIZES]
    for name, source in names:
        if not (root / name).is_file():
            yield f"{source} names {name}, which is not there"
    for size in SIZES:
        icon = (share / f"icons/hicolor/{size}x{size}/apps/tessel.png").read_bytes()
        if struct.unpack(">II", icon[16:24]) != (size, size):
            yield f"the icon of {size} pixels has another size"


def property_of_window(display, name):
    """A property of the window titled Tessel; empty when there is none."""
    run = subprocess.run(["xprop", "-display", display, "-name", "Tessel", name],
                         capture_output=True, text=True, check=False)
    return run.stdout if run.returncode == 0 else ""


def is_on_screen(display):
    run = subprocess.run(["xwininfo", "-display", display, "-name", "Tessel"],
                         capture_output=True, text=True, check=False)
    return "Map State: IsViewable" in run.stdout


def wait_for(condition):
    """Until it holds, or patience ends."""
    end = time.monotonic() + PATIENCE
    while not condition() and time.monotonic() < end:
        # What another process shows or leaves behind has to be asked for again and again.
        time.sleep(0.05)


def run_faults(root, home):
    """The program that the desktop entry names shows its window, says nothing and ends cleanly."""
    entry = desktop_entry(root)
    path = f"{root}/usr/bin:{os.environ['PATH']}"
    command = shutil.which(entry["Exec"], path=path)
    if command is None:
        yield f"{entry['Exec']} cannot be started"
        return
    with Display() as display, tempfile.TemporaryFile() as said:
        environment = {
            "DISPLAY": display, "HOME": str(home), "TMPDIR": str(home), "LC_ALL": "C.UTF-8",
            "XDG_RUNTIME_DIR": str(home), "XDG_DATA_DIRS": f"{root}/usr/share:/usr/share",
            "PATH": path}
        program = subprocess.Popen([command], env=environment, cwd="/", stdin=subprocess.DEVNULL,
                                   stdout=said, stderr=said)
        try:
            wait_for(lambda: is_on_screen(display) or program.poll() is not None)
            if not is_on_screen(display):
                yield "the window did not come up"
            if entry["StartupWMClass"] not in property_of_window(display, "WM_CLASS"):
                yield "the window is not of the class that the desktop entry names"
            program.send_signal(signal.SIGTERM)
            code = program.wait(PATIENCE)
            if code != 0:
                yield f"the program ended with {code}"
        finally:
            program.kill()
            program.wait()
        said.seek(0)
        text = said.read().decode()
        if text:
            yield f"the program said:\n{text}"


def faults(package, scratch):
    root = scratch / "system"
    empty_system(root)
    dpkg(root, "--install", str(package))
    yield from place_faults(root)
    yield from name_faults(root)
    home = scratch / "home"
    home.mkdir(mode=0o700)
    yield from run_faults(root, home)
    for path in sorted(home.rglob("*")):
        if path.relative_to(home).parts[0] != ".cache":  # Qt's
            yield f"the program left {path.relative_to(home)} in the home folder"
    dpkg(root, "--purge", "tessel")
    for path in sorted(root.rglob("*")):
        name = str(path.relative_to(root))
        if not name.startswith(DATABASE) and not DATABASE.startswith(f"{name}/"):
            yield f"removing the package left {name}"


def main(folder):
    need("dpkg", "Xvfb", "xprop", "xwininfo")
    package = package_in(folder)
    with tempfile.TemporaryDirectory() as scratch:
        conclude(faults(package, Path(scratch)))


if __name__ == "__main__":
    main(Path(sys.argv[1]))
