# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Tessel's window with a person before it: what they read there, and how they answer."""

import pyatspi

from accessible import (Program, children, click, expect_keyboard_in, find, has_state, listening,
                        press_keys, type_into, wait_until)

# Those that a file's row enables.
CONTEXT_COMMANDS = ("Nova pasta...", "Importar...", "Exportar...", "Abrir", "Mover para pasta...",
                    "Renomear arquivo...", "Excluir...")


class TesselWindow:
    """The window and the dialogs of the running program. The album gets a picture of each dialog
    before it is confirmed."""

    def __init__(self, album):
        self.album = album
        self._program = Program("Tessel")

    # --- Reading the window -----------------------------------------------------------------

    def main(self):
        return self._program.window("Tessel", pyatspi.ROLE_FRAME)

    def dialog(self, title):
        return self._program.window(title, pyatspi.ROLE_DIALOG)

    def box(self, title):
        return self._program.window(title, pyatspi.ROLE_ALERT)

    def expect_label(self, text):
        find(self.main(), pyatspi.ROLE_LABEL, text)

    def expect_status(self, text):
        find(self.main(), pyatspi.ROLE_STATUS_BAR, text)

    def drive(self, text):
        return find(find(self.main(), pyatspi.ROLE_LIST, "Dispositivos USB"),
                    pyatspi.ROLE_LIST_ITEM, text)

    def expect_keyboard(self):
        """The keyboard is where it always is while no dialog and no menu is open."""
        expect_keyboard_in(find(self.main(), pyatspi.ROLE_LIST, "Dispositivos USB"))

    def padlock(self, name):
        return find(self.main(), pyatspi.ROLE_CHECK_BOX, name)

    def table(self):
        return find(self.main(), pyatspi.ROLE_TABLE, "Arquivos protegidos")

    def expect_rows(self, *expected):
        """The names, sizes and types in the table."""
        def rows():
            table = self.table().queryTable()
            return [tuple(table.getAccessibleAt(row, column).name for column in (1, 2, 3))
                    for row in range(table.nRows)]
        wait_until(lambda: f"the rows {expected}, not {rows()}", lambda: rows() == list(expected))

    # --- Acting -----------------------------------------------------------------------------

    def choose(self, *path):
        """Chooses a command by its menus, with the mouse."""
        item = find(find(self.main(), pyatspi.ROLE_MENU_BAR), pyatspi.ROLE_MENU_ITEM, path[0])
        click(item)
        for text in path[1:]:
            item = find(children(item)[0], pyatspi.ROLE_MENU_ITEM, text)
            assert has_state(item, pyatspi.STATE_ENABLED), f"{text!r} is disabled"
            click(item)

    def choose_for_files(self, text):
        self.choose("USB", "Acesso ao cofre", "Arquivos protegidos", text)

    def cell(self, name):
        return find(self.table(), pyatspi.ROLE_TABLE_CELL, name)

    def select(self, name):
        cell = self.cell(name)
        click(cell)
        wait_until(f"{name} selected", lambda: has_state(cell, pyatspi.STATE_SELECTED))

    def answer(self, title, label, text, role=pyatspi.ROLE_TEXT):
        type_into(find(self.dialog(title), role, label), text)
        self.album.take_screen(title)
        press_keys("Return")

    def answer_password(self, title, password):
        # The field has the dialog's title as its name.
        self.answer(title, title, password, pyatspi.ROLE_PASSWORD_TEXT)

    def answer_file(self, title, *names):
        """Types the names of files. In quotation marks, as the dialog takes several: under an
        unfinished bare name it opens a list of proposals, which swallows a dead key."""
        self.answer(title, "Nome do arquivo:", " ".join(f'"{name}"' for name in names))

    def choose_in_context_menu(self, name, text):
        """Chooses a command of the menu that the right button opens on a file. Qt shows
        such a menu in no window and names its commands only the first time; so the first command
        is waited for, and the others are counted."""
        reached = []
        with listening("object:state-changed:focused",
                       lambda event: reached.append(event.source.name)):
            click(self.cell(name), button=3)
            press_keys("Down")
            wait_until(f"the menu of {name}", lambda: CONTEXT_COMMANDS[0] in reached)
        press_keys(*["Down"] * CONTEXT_COMMANDS.index(text), "Return")

    def cancel(self, key, title, role=pyatspi.ROLE_DIALOG):
        """Opens a dialog by its key and leaves it with Esc."""
        press_keys(key)
        self._program.window(title, role)
        press_keys("Escape")
        self.expect_keyboard()

    def confirm(self, title, text, button):
        """Reads a message box and presses one of its buttons."""
        box = self.box(title)
        find(box, pyatspi.ROLE_LABEL, text)
        self.album.take_screen(title)
        click(find(box, pyatspi.ROLE_PUSH_BUTTON, button))
