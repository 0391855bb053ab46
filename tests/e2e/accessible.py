# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""A person before the program: reads the screen as a screen reader does, through the
accessibility service, and acts with the keys and buttons of a real keyboard and mouse."""

import contextlib
import subprocess
import time
import unicodedata

import pyatspi
from gi.repository import Atspi, GLib

from desktop import SCALE

PATIENCE_S = 30
POLL_MS = 20
# While it derives a key, the program does not answer.
ANSWER_MS = 20000
# More than a pressed mouse must move before Qt takes it for a drag.
DRAG_PIXELS = 20 * SCALE

# How a Brazilian keyboard writes what stands above a letter.
DEAD_KEYS = {"\u0300": "dead_grave", "\u0301": "dead_acute", "\u0302": "dead_circumflex",
             "\u0303": "dead_tilde", "\u0308": "dead_diaeresis"}
KEY_NAMES = {" ": "space", ",": "comma", '"': "quotedbl", "-": "minus", ".": "period",
             "/": "slash", "_": "underscore", "ç": "ccedilla"}

Atspi.set_timeout(ANSWER_MS, ANSWER_MS)


def wait_until(what, condition, patience_s=PATIENCE_S):
    """Waits until the condition gives something true, and returns that. What the condition looks
    at may come and go meanwhile."""
    deadline = time.monotonic() + patience_s
    while True:
        try:
            result = condition()
        except (AttributeError, GLib.Error, LookupError, NotImplementedError):
            result = None  # it vanished while it was looked at
        if result:
            return result
        if time.monotonic() > deadline:
            raise AssertionError(
                f"waited {patience_s} s in vain for {what() if callable(what) else what}")
        let_events_in()


def let_events_in():
    """Handles what the accessibility service reports, or returns soon when it reports nothing."""
    timer = GLib.timeout_add(POLL_MS, lambda: True)
    GLib.MainContext.default().iteration(True)
    GLib.source_remove(timer)


@contextlib.contextmanager
def listening(kind, listener):
    """Lets the listener have the accessibility service's events of this kind."""
    pyatspi.Registry.registerEventListener(listener, kind)
    try:
        yield
    finally:
        pyatspi.Registry.deregisterEventListener(listener, kind)


def children(element):
    found = (element.getChildAtIndex(i) for i in range(element.childCount))
    return [child for child in found if child is not None]


def has_state(element, state):
    return element.getState().contains(state)


def shown_below(element):
    """What is on the screen of this element. What is hidden is left alone, as by a screen
    reader: a hidden view has no answers yet."""
    for child in children(element):
        if has_state(child, pyatspi.STATE_SHOWING):
            yield child
            yield from shown_below(child)


def find(parent, role, name=None):
    """The element with this role and, if given, this name; waits until it is on the screen."""
    def names():
        return [element.name for element in shown_below(parent) if element.getRole() == role]

    def look():
        return next((element for element in shown_below(parent)
                     if element.getRole() == role and name in (None, element.name)), None)
    return wait_until(lambda: f"{name!r} as {role}; there are {names()}", look)


def expect_keyboard_in(element):
    wait_until(f"the keyboard in {element.name!r}",
               lambda: has_state(element, pyatspi.STATE_FOCUSED))


def press_keys(*keys):
    subprocess.run(["xdotool", "key", "--delay", "4", *keys], check=True)


def strokes_of(letter):
    if letter in KEY_NAMES:
        return [KEY_NAMES[letter]]
    base, *marks = unicodedata.normalize("NFD", letter)
    return [*(DEAD_KEYS[mark] for mark in marks), base]


def pieces(text):
    """The text cut before and after each letter that takes more than one key."""
    run = ""
    for letter in text:
        if len(strokes_of(letter)) == 1:
            run += letter
            continue
        yield from (piece for piece in (run, letter) if piece)
        run = ""
    if run:
        yield run


def type_into(line, text):
    """Types over what the line holds; it must have the keyboard, or get it by itself.

    Qt lets each key wait until the accessibility service has seen it, but not what a
    dead key composed, which would overtake the letters before it. So nothing is typed before
    what precedes it has arrived."""
    content = line.queryText()
    expect_keyboard_in(line)
    if content.characterCount > 0:
        press_keys("ctrl+a")
        wait_until(f"everything selected in {line.name!r}",
                   lambda: content.getSelection(0) == (0, content.characterCount))
    typed = 0
    for piece in pieces(text):
        press_keys(*(stroke for letter in piece for stroke in strokes_of(letter)))
        typed += len(piece)
        wait_until(lambda: f"{typed} letters in {line.name!r}, not {content.characterCount}",
                   lambda: content.characterCount == typed)
    if line.getRole() == pyatspi.ROLE_TEXT:
        assert content.getText(0, -1) == text, content.getText(0, -1)


def place_of(element):
    """The element's rectangle on the screen, in pixels, once it stands still."""
    places = [None]

    def settled():
        box = element.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
        places.append((box.x * SCALE, box.y * SCALE, box.width * SCALE, box.height * SCALE))
        return places[-1] == places[-2] and min(places[-1][2:]) > 0
    wait_until(f"a place for {element.name!r}", settled)
    return places[-1]


def click(element, button=1, times=1):
    x, y = middle_of(element)
    subprocess.run(["xdotool", "mousemove", str(x), str(y), "click", "--repeat", str(times), "--delay", "40", str(button)], check=True)


def middle_of(element):
    left, top, width, height = place_of(element)
    return left + width // 2, top + height // 2


def drag(element, target):
    """Drags an element to a point of the screen with the left button. Qt merges
    moves that wait together, so each is answered before the next is sent. The
    first says that the mouse moves while it is pressed, the second begins the drag."""
    x, y = middle_of(element)
    moves = ((x, y), (x + DRAG_PIXELS, y), (x + 2 * DRAG_PIXELS, y),
             (target[0] + SCALE, target[1]), target)
    for number, point in enumerate(moves):
        press = ["mousedown", "1"] if number == 0 else []
        subprocess.run(["xdotool", "mousemove", *map(str, point), *press], check=True)
        place_of(element)
    subprocess.run(["xdotool", "mouseup", "1"], check=True)


class Program:
    """A running program as the accessibility service shows it."""

    def __init__(self, name):
        desktop = pyatspi.Registry.getDesktop(0)
        # What was once read of an element is out of date as soon as the program changes it.
        desktop.set_cache_mask(Atspi.Cache.NONE)
        self._root = wait_until(f"{name} on the accessibility bus", lambda: next(
            (element for element in children(desktop) if element.name == name), None))

    def window(self, title, role):
        """The window with this title, once it is the active one."""
        return wait_until(f"window {title!r}", lambda: next(
            (window for window in children(self._root)
             if window.name == title and window.getRole() == role
             and has_state(window, pyatspi.STATE_ACTIVE)), None))

    def titles(self):
        return [window.name for window in children(self._root)]
