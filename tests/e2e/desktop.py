# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""A Brazilian desktop of its own for one run of the program: an X server with a window manager and
a Brazilian keyboard, a session bus with the accessibility service, a home folder, and a USB drive
that exists for this run alone. Nothing of it touches the person's own desktop or files.

The screen has two pixels for each point, as many laptops do, so that pictures of it are sharp.

Usage: desktop.py SCRIPT ARGUMENT... runs the script there; TESSEL_WITH_FAKE_USB names the program
that makes up the drive. Exits like the script, or with 77 where a desktop cannot be had."""

import importlib.util
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))

from must_run import refused  # noqa: E402

SCALE = 2
SCREEN = "2000x1280x24"
LOCALE_SOURCE = pathlib.Path("/usr/share/i18n/locales/pt_BR")
DRIVE = pathlib.Path("/media/ana/VIAGEM")
DRIVE_MEBIBYTES = 14 * 1024

PROGRAMS = ("Xvfb", "dbus-run-session", "file", "import", "localedef", "openbox", "setpriv",
            "setxkbmap", "unshare", "xauth", "xdg-open", "xdotool")

# What is started under these two ends with the last of it or when this process does, however that
# ends, with every service that was started on the way.
BOUND_TO_THIS_PROCESS = ("setpriv", "--pdeathsig", "KILL", "--",
                         "unshare", "--pid", "--fork", "--kill-child", "--")

# One desktop, large titles for the dense screen, and the usual key to close a window.
WINDOW_MANAGER = """<?xml version="1.0" encoding="UTF-8"?>
<openbox_config xmlns="http://openbox.org/3.4/rc">
  <theme>
    <name>Clearlooks</name>
    <titleLayout>LC</titleLayout>
    <font place="ActiveWindow"><name>sans</name><size>18</size><weight>bold</weight></font>
    <font place="InactiveWindow"><name>sans</name><size>18</size><weight>bold</weight></font>
  </theme>
  <desktops><number>1</number></desktops>
  <keyboard><keybind key="A-F4"><action name="Close"/></keybind></keyboard>
  <mouse>
    <context name="Client">
      <mousebind button="Left" action="Press"><action name="Focus"/></mousebind>
    </context>
  </mouse>
  <menu/>
</openbox_config>
"""


def home():
    """The folder that holds everything the desktop writes, the person's own files in "ana"."""
    return pathlib.Path(os.environ["TESSEL_E2E_HOME"])


def missing_parts():
    modules = ("gi", "pyatspi")
    return ([program for program in PROGRAMS if shutil.which(program) is None] +
            [module for module in modules if importlib.util.find_spec(module) is None] +
            [str(path) for path in (LOCALE_SOURCE,) if not path.exists()])


def run(script):
    """Runs a script with its arguments on a machine that has the USB drive, and on a session bus
    of its own. Returns its exit code."""
    missing = missing_parts()
    if missing:
        return refused(f"not installed: {', '.join(missing)}")
    command = [os.environ["TESSEL_WITH_FAKE_USB"], "--mounted", f"sdz1={DRIVE}:{DRIVE_MEBIBYTES}",
               "--label", f"sdz1={DRIVE.name}", "--", *BOUND_TO_THIS_PROCESS,
               "dbus-run-session", "--", sys.executable, "-B", *script]
    # What the services of the desktop say about themselves is of interest when it fails only.
    with tempfile.TemporaryDirectory(prefix="tessel-e2e-") as folder, \
            tempfile.TemporaryFile() as said:
        environment = scratch_environment(pathlib.Path(folder))
        code = subprocess.run(command, env=environment, stderr=said, check=False).returncode
        if code != 0:
            said.seek(0)
            sys.stderr.write(said.read().decode(errors="replace"))
    return code


def scratch_environment(folder):
    """What a freshly installed Brazilian system sets for a person, with all files in a folder."""
    kept = {name: value for name, value in os.environ.items()
            if name in ("PATH", "CI") or name.startswith("TESSEL_")}
    folders = {name: str(folder / place) for name, place in {
        "HOME": "ana", "TMPDIR": "tmp", "XDG_CONFIG_HOME": "config", "XDG_DATA_HOME": "data",
        "XDG_CACHE_HOME": "cache", "XDG_STATE_HOME": "state", "XDG_RUNTIME_DIR": "run",
        "LOCPATH": "locales"}.items()}
    for place in folders.values():
        os.mkdir(place, 0o700)
    # Without the locale itself the C library and Qt would fall back and say so.
    subprocess.run(["localedef", "-i", "pt_BR", "-f", "UTF-8", folder / "locales/pt_BR.UTF-8"],
                   check=True)
    return kept | folders | {"TESSEL_E2E_HOME": str(folder), "USER": "ana", "LOGNAME": "ana",
                             "LANG": "pt_BR.UTF-8", "XAUTHORITY": str(folder / "run/xauthority")}


class Desktop:
    """The X server and its window manager. A context: all of it is gone when it is left."""

    def __init__(self):
        self._processes = []

    def __enter__(self):
        try:
            self._start_server()
            self._start_window_manager()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for process in reversed(self._processes):
            process.kill()
            process.wait()

    def spawn(self, command, **options):
        """Starts a program that ends with this desktop at the latest."""
        process = subprocess.Popen(command, **options)
        self._processes.append(process)
        return process

    def _start_server(self):
        cookie = os.urandom(16).hex()
        authority = pathlib.Path(os.environ["XAUTHORITY"])
        authority.touch(0o600)
        subprocess.run(["xauth", "-q", "add", ":0", ".", cookie], check=True)
        reading, writing = os.pipe()
        # The server finds a free number and tells it as soon as it is ready.
        self.spawn(["Xvfb", "-displayfd", str(writing), "-screen", "0", SCREEN, "-noreset",
                    "-nolisten", "tcp", "-auth", authority], pass_fds=[writing])
        os.close(writing)
        with os.fdopen(reading) as answer:
            display = f":{answer.readline().strip()}"
        subprocess.run(["xauth", "-q", "add", display, ".", cookie], check=True)
        os.environ["DISPLAY"] = display
        subprocess.run(["setxkbmap", "-layout", "br"], check=True)

    def _start_window_manager(self):
        settings = home() / "config" / "openbox.xml"
        settings.write_text(WINDOW_MANAGER, encoding="utf-8")
        started = home() / "run" / "openbox-started"
        os.mkfifo(started)
        self.spawn(["openbox", "--sm-disable", "--config-file", settings,
                    "--startup", f"sh -c 'echo >{started}'"])
        with open(started, encoding="utf-8") as fifo:
            fifo.read()


class Album:
    """A folder of pictures of the screen, numbered as they are taken. Earlier ones are removed."""

    def __init__(self, folder):
        self._folder = folder
        self._count = 0
        for picture in folder.glob("*.png"):
            picture.unlink()

    def take_screen(self, name):
        self._count += 1
        self._take(f"{self._count:02}-{name.replace(' ', '-')}", ["-window", "root"])

    def take_window(self, name, title):
        """A picture of one window with its frame, without a number."""
        self._take(name, ["-frame", "-window", title])

    def _take(self, name, area):
        subprocess.run(["import", "-silent", *area, "-strip", "-depth", "8",
                        self._folder / f"{name}.png"], check=True)


if __name__ == "__main__":
    sys.exit(run(sys.argv[1:]))
