# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""The whole story of a vault, from the empty drive to the closed window, told to the program as
it is installed: in a process of its own, on a real X server, with real keys and the real password
derivation. Every chapter is checked, leaves a screenshot, and may not make the program say
anything on its standard error.

Usage: desktop.py test_whole_story.py FOLDER, which gets the screenshots. TESSEL_PROGRAM names the
program."""

import filecmp
import os
import pathlib
import random
import signal
import sys
import time

import pyatspi

import desktop
from accessible import (PATIENCE_S, click, drag, expect_keyboard_in, find, has_state, listening,
                        middle_of, press_keys, type_into, wait_until)
from tessel_window import TesselWindow

HOME = desktop.home()
CONTAINER = desktop.DRIVE / "tessel.tvlt"
BACKUP = HOME / "ana" / "cópia do cofre.tvlt"
DOCUMENTS = HOME / "ana" / "Documentos"
WORKSPACES = HOME / "tmp" / "Tessel"

PASSWORD = "Senhá-çõ ümlaut"
NEW_PASSWORD = "Ônibus às três, João"
DIARY = "O farol visto do barco ao pôr do sol.\n" * 1000
ADDED_LINE = "Linha acrescentada pelo editor.\n"
# So large that its import can be watched.
FILM_KIBIBYTES = 192 * 1024
BLOCK_KIBIBYTES = 16 * 1024
# The container's fixed beginning.
EMPTY_CONTAINER_BYTES = 8388636

KIBIBYTES = {"certidão.pdf": 412, "orçamento.ods": 57, "chave do servidor.pem": 4,
             "entrevista.mp3": 5120, "farol.jpg": 2890, "festa.mp4": FILM_KIBIBYTES}
DAYS = {"certidão.pdf": "2026-03-02 13:05", "diário.txt": "2026-11-18 22:12",
        "orçamento.ods": "2026-10-07 18:33", "chave do servidor.pem": "2026-05-19 09:41",
        "entrevista.mp3": "2026-08-30 16:20", "farol.jpg": "2026-01-14 11:02",
        "festa.mp4": "2026-02-17 23:58"}

EDITOR = f"""#!/bin/sh
printf '{ADDED_LINE[:-1]}\\n' >>"$1"
"""
EDITOR_ENTRY = """[Desktop Entry]
Type=Application
Name=Editor
Exec={editor} %f
MimeType=text/plain;
"""
EDITOR_CHOICE = "[Default Applications]\ntext/plain=editor.desktop\n"


def write_documents():
    DOCUMENTS.mkdir()
    noise = random.Random(7)
    for name, kibibytes in KIBIBYTES.items():
        (DOCUMENTS / name).write_bytes(noise.randbytes(kibibytes * 1024))
    (DOCUMENTS / "diário.txt").write_text(DIARY, encoding="utf-8")
    for name, day in DAYS.items():
        seconds = time.mktime(time.strptime(day, "%Y-%m-%d %H:%M"))
        os.utime(DOCUMENTS / name, (seconds, seconds))


def install_editor():
    """An application that adds a line to the text file it is started with."""
    editor = HOME / "ana" / "editor"
    editor.write_text(EDITOR, encoding="utf-8")
    editor.chmod(0o700)
    entries = HOME / "data" / "applications"
    entries.mkdir()
    (entries / "editor.desktop").write_text(EDITOR_ENTRY.format(editor=editor), encoding="utf-8")
    (HOME / "config" / "mimeapps.list").write_text(EDITOR_CHOICE, encoding="utf-8")


def start_program(screen, errors):
    # Qt 6.8 says it when a screen reader asks about a dialog that has just been closed.
    environment = dict(os.environ, QT_QPA_PLATFORM="xcb", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1",
                       QT_SCALE_FACTOR=str(desktop.SCALE),
                       QT_LOGGING_RULES="qt.accessibility.atspi.warning=false")
    with errors.open("wb") as output:
        return screen.spawn([os.environ["TESSEL_PROGRAM"]], cwd=DOCUMENTS, env=environment,
                            stdout=output, stderr=output)


class Story(TesselWindow):
    """A person's way through the program. The chapters stand in their order."""

    # Once everything is where it stays.
    ROOT = (("Documentos", "", "Pasta"), ("Fotos", "", "Pasta"),
            ("certidão.pdf", "412,0 kB", "PDF"), ("chave do servidor.pem", "4,0 kB", "PEM"),
            ("diário.txt", "38,1 kB", "TXT"), ("entrevista.mp3", "5,0 MB", "MP3"),
            ("farol.jpg", "2,8 MB", "JPG"))

    def __init__(self, process, album):
        super().__init__(album)
        self._process = process

    def find_the_drive(self):
        drive = self.drive("VIAGEM (/media/ana/VIAGEM) | 14,0 GB livres")
        assert has_state(drive, pyatspi.STATE_SELECTED)
        self.expect_status("Pronto")
        self.expect_label("Nenhum cofre em uso (aberto)")
        assert not has_state(self.padlock("Selecione um container para desbloquear o cofre."),
                             pyatspi.STATE_ENABLED)

    def read_the_guide(self):
        self.choose("Sobre", "Ajuda")
        dialog = self.dialog("Ajuda do Tessel")
        guide = find(dialog, pyatspi.ROLE_LABEL, "Ajuda do Tessel").queryText()
        assert "Primeiros passos" in guide.getText(0, -1)
        self.album.take_screen("Ajuda do Tessel")
        click(find(dialog, pyatspi.ROLE_PUSH_BUTTON, "Fechar"))

    def create_the_vault(self):
        self.choose("USB", "Container", "Criar novo cofre...")
        self.answer_file("Criar container Tessel", str(CONTAINER))
        self.answer_password("Definir senha do cofre", PASSWORD)
        self.answer_password("Confirmar senha do cofre", PASSWORD)
        self.expect_status("Cofre criado com sucesso.")
        self.expect_label("Container: Tessel")
        assert CONTAINER.stat().st_size == EMPTY_CONTAINER_BYTES
        self.album.take_window("cofre-bloqueado", "Tessel")

    def leave_the_dialogs(self):
        for key, title in (("ctrl+o", "Escolher container Tessel"),
                           ("ctrl+n", "Criar container Tessel"),
                           ("ctrl+b", "Fazer backup do container"),
                           ("ctrl+p", "Alterar senha do cofre"), ("ctrl+l", "Senha do cofre")):
            self.cancel(key, title)

    def come_back_from_a_warning(self):
        press_keys("ctrl+p")
        field = find(self.dialog("Alterar senha do cofre"), pyatspi.ROLE_PASSWORD_TEXT,
                     "Nova senha:")
        press_keys("Tab")
        expect_keyboard_in(field)
        press_keys("Return")
        self.box("Alterar senha")
        press_keys("Return")
        self.dialog("Alterar senha do cofre")
        expect_keyboard_in(field)
        press_keys("Escape")

    def come_back_from_a_question(self):
        press_keys("ctrl+n")
        title = "Criar container Tessel"
        self.answer_file(title, str(CONTAINER))
        self.box(title)
        press_keys("Escape")
        expect_keyboard_in(find(self.dialog(title), pyatspi.ROLE_TEXT, "Nome do arquivo:"))
        press_keys("Escape")

    def unlock_it(self):
        click(self.padlock("Desbloquear cofre"))
        self.answer_password("Senha do cofre", PASSWORD)
        self.expect_status("Cofre desbloqueado.")
        self.expect_label("Arquivos protegidos | Pasta: Raiz | O cofre está vazio.")

    def make_folders(self):
        for name in ("Documentos", "Fotos"):
            self.choose_for_files("Nova pasta...")
            self.answer("Nova pasta", "Nome da pasta:", name)
            self.cell(name)
        self.expect_status("Pasta criada.")
        self.expect_rows(("Documentos", "", "Pasta"), ("Fotos", "", "Pasta"))

    def import_three_files(self):
        self.choose_for_files("Importar...")
        self.answer_file("Importar arquivos para o cofre",
                         "certidão.pdf", "diário.txt", "orçamento.ods")
        self.expect_status("3 arquivos importados com sucesso.")
        self.expect_label("Arquivos protegidos | Pasta: Raiz | 3 arquivos no cofre.")
        self.expect_rows(("Documentos", "", "Pasta"), ("Fotos", "", "Pasta"),
                         ("certidão.pdf", "412,0 kB", "PDF"), ("diário.txt", "38,1 kB", "TXT"),
                         ("orçamento.ods", "57,0 kB", "ODS"))
        assert DIARY[:32].encode() not in CONTAINER.read_bytes()

    def import_more(self):
        self.choose_for_files("Importar...")
        self.answer_file("Importar arquivos para o cofre",
                         "chave do servidor.pem", "entrevista.mp3", "farol.jpg")
        self.expect_status("3 arquivos importados com sucesso.")
        self.select("diário.txt")
        self.album.take_window("cofre-aberto", "Tessel")

    def leave_the_dialogs_of_the_open_vault(self):
        for key, title in (("ctrl+shift+n", "Nova pasta"),
                           ("ctrl+i", "Importar arquivos para o cofre"),
                           ("F2", "Renomear arquivo")):
            self.cancel(key, title)
        for key, title in (("ctrl+e", "Exportar arquivo"), ("Delete", "Excluir arquivo"),
                           ("F6", "Compactar cofre")):
            self.cancel(key, title, pyatspi.ROLE_ALERT)
        self.choose_in_context_menu("diário.txt", "Mover para pasta...")
        self.dialog("Mover arquivo")
        press_keys("Escape")
        self.expect_keyboard()
        assert has_state(self.cell("diário.txt"), pyatspi.STATE_SELECTED)

    def open_one(self):
        click(self.cell("diário.txt"), times=2)
        self.expect_status("Arquivo aberto para edição.")
        self.wait_for_the_editor(ADDED_LINE)

    def lock_it(self):
        click(self.padlock("Bloquear cofre"))
        self.expect_status("Cofre bloqueado.")
        self.expect_label("Nenhum cofre em uso (aberto)")
        self.expect_rows()
        assert not list(WORKSPACES.iterdir()), "decrypted copies were left behind"

    def refuse_a_wrong_password(self):
        press_keys("ctrl+l")
        self.answer_password("Senha do cofre", "Senha-co umlaut")
        self.confirm("Tessel", "Não foi possível desbloquear o cofre. Verifique a senha ou se o "
                     "container foi alterado.", "OK")
        self.expect_label("Nenhum cofre em uso (aberto)")

    def unlock_it_again(self):
        press_keys("ctrl+l")
        self.answer_password("Senha do cofre", PASSWORD)
        self.expect_status("Cofre desbloqueado.")
        self.expect_label("Arquivos protegidos | Pasta: Raiz | 6 arquivos no cofre.")

    def find_the_change(self):
        self.export("diário.txt", "diário exportado.txt")
        exported = (DOCUMENTS / "diário exportado.txt").read_text(encoding="utf-8")
        assert exported == DIARY + ADDED_LINE

    def export_unchanged(self):
        self.export("entrevista.mp3", "entrevista exportada.mp3")
        assert filecmp.cmp(DOCUMENTS / "entrevista.mp3", DOCUMENTS / "entrevista exportada.mp3",
                           shallow=False)

    def export(self, name, target):
        self.select(name)
        self.choose_for_files("Exportar...")
        self.confirm("Exportar arquivo", f"Exportar {name} criará uma cópia descriptografada fora "
                     "do cofre. Alterações feitas nessa cópia não voltam automaticamente para o "
                     "Tessel.", "Continuar")
        self.answer_file("Exportar arquivo", target)
        self.expect_status("Arquivo exportado com sucesso.")

    def rename_one(self):
        self.choose_in_context_menu("orçamento.ods", "Renomear arquivo...")
        self.answer("Renomear arquivo", "Novo nome:", "orçamento da reforma.ods")
        self.expect_status("Arquivo renomeado.")
        self.cell("orçamento da reforma.ods")

    def move_it(self):
        self.choose_in_context_menu("orçamento da reforma.ods", "Mover para pasta...")
        dialog = self.dialog("Mover arquivo")
        find(dialog, pyatspi.ROLE_LABEL, "Mover orçamento da reforma.ods para:")
        find(dialog, pyatspi.ROLE_COMBO_BOX)
        self.album.take_screen("Mover arquivo")
        click(find(dialog, pyatspi.ROLE_PUSH_BUTTON, "Mover"))
        self.expect_status("Arquivo movido.")
        click(self.cell("Documentos"), times=2)
        self.expect_rows(("..", "", "Pasta"), ("orçamento da reforma.ods", "57,0 kB", "ODS"))
        click(self.cell(".."), times=2)
        self.expect_label("Arquivos protegidos | Pasta: Raiz | 6 arquivos no cofre.")

    def drag_it(self):
        click(self.cell("Documentos"), times=2)
        drag(self.cell("orçamento da reforma.ods"), middle_of(self.cell("..")))
        self.expect_rows(("..", "", "Pasta"))
        self.expect_status("Arquivo movido.")
        click(self.cell(".."), times=2)
        drag(self.cell("orçamento da reforma.ods"), middle_of(self.cell("Documentos")))
        self.expect_rows(*self.ROOT)
        drag(self.cell("Fotos"), middle_of(self.cell("Documentos")))
        self.expect_rows(self.ROOT[0], *self.ROOT[2:])
        self.expect_status("Pasta renomeada.")
        click(self.cell("Documentos"), times=2)
        drag(self.cell("Fotos"), middle_of(self.cell("..")))
        click(self.cell(".."), times=2)
        self.expect_rows(*self.ROOT)

    def drag_out_of_the_window(self):
        drag(self.cell("certidão.pdf"), (1, 1))
        self.expect_rows(*self.ROOT)
        # The window goes on as before.
        self.select("diário.txt")

    def watch_an_import(self):
        self.choose_for_files("Importar...")
        moves = []

        def halt_in_the_middle(event):
            # So that there is time for a picture of a moment.
            moves.append(event)
            if len(moves) == FILM_KIBIBYTES // BLOCK_KIBIBYTES // 2:
                self._process.send_signal(signal.SIGSTOP)
        with listening("object:property-change:accessible-value", halt_in_the_middle):
            self.answer_file("Importar arquivos para o cofre", "festa.mp4")
            wait_until("progress", lambda: len(moves) >= FILM_KIBIBYTES // BLOCK_KIBIBYTES // 2)
        self.album.take_window("importando", "Importar arquivos")
        self._process.send_signal(signal.SIGCONT)
        self.expect_status("Arquivo importado com sucesso.")
        self.drive("VIAGEM (/media/ana/VIAGEM) | 13,8 GB livres")

    def delete_it(self):
        self.select("festa.mp4")
        press_keys("Delete")
        self.confirm("Excluir arquivo", "Excluir festa.mp4 removerá o arquivo da lista do "
                     "cofre.\n\nOs dados físicos só serão liberados do container após executar "
                     "Compactar cofre.", "Sim")
        self.expect_status("Arquivo excluído do cofre.")
        self.expect_label("Arquivos protegidos | Pasta: Raiz | 6 arquivos no cofre.")
        assert CONTAINER.stat().st_size > FILM_KIBIBYTES * 1024

    def compact(self):
        self.choose("USB", "Acesso ao cofre", "Compactar cofre...")
        self.confirm("Compactar cofre", "A compactação reconstruirá o container removendo "
                     "fisicamente dados de arquivos já excluídos.\n\nDurante a operação, será "
                     "criado temporariamente um container criptografado no disco local. Nenhum "
                     "arquivo descriptografado será gravado fora do cofre.\n\nDeseja continuar?",
                     "Sim")
        self.confirm("Compactar cofre", "Cofre compactado com sucesso.", "OK")
        self.expect_label("Arquivos protegidos | Pasta: Raiz | 6 arquivos no cofre.")
        self.drive("VIAGEM (/media/ana/VIAGEM) | 14,0 GB livres")
        assert CONTAINER.stat().st_size < EMPTY_CONTAINER_BYTES + FILM_KIBIBYTES * 1024

    def change_the_password(self):
        press_keys("ctrl+shift+l")
        self.expect_status("Cofre bloqueado.")
        self.choose("USB", "Container", "Alterar senha...")
        dialog = self.dialog("Alterar senha do cofre")
        for label, text in (("Senha atual:", PASSWORD), ("Nova senha:", NEW_PASSWORD),
                            ("Confirmar nova senha:", NEW_PASSWORD)):
            type_into(find(dialog, pyatspi.ROLE_PASSWORD_TEXT, label), text)
            press_keys("Tab")
        self.album.take_screen("Alterar senha do cofre")
        click(find(dialog, pyatspi.ROLE_PUSH_BUTTON, "Alterar"))
        self.confirm("Tessel", "Senha alterada com sucesso.", "OK")

    def back_up(self):
        self.choose("USB", "Container", "Fazer backup...")
        self.answer_file("Fazer backup do container", str(BACKUP))
        self.confirm("Fazer backup", "Backup concluído com sucesso.\n\nO arquivo de backup é uma "
                     "cópia criptografada do container e permanece protegido pela senha do cofre.",
                     "OK")
        assert filecmp.cmp(CONTAINER, BACKUP, shallow=False)

    def open_the_backup(self):
        self.choose("USB", "Container", "Escolher container...")
        self.answer_file("Escolher container Tessel", str(BACKUP))
        self.expect_status("Container selecionado.")
        press_keys("ctrl+l")
        self.answer_password("Senha do cofre", NEW_PASSWORD)
        self.expect_status("Cofre desbloqueado.")
        self.expect_label("Arquivos protegidos | Pasta: Raiz | 6 arquivos no cofre.")
        self.expect_rows(*self.ROOT)

    def close_the_window(self):
        click(self.cell("diário.txt"), times=2)
        self.wait_for_the_editor(ADDED_LINE * 2)
        self.main()
        press_keys("alt+F4")
        code = self._process.wait(PATIENCE_S)
        assert code == 0, f"the program ended with {code}"
        assert not list(WORKSPACES.iterdir()), "decrypted copies were left behind"
        assert not filecmp.cmp(CONTAINER, BACKUP, shallow=False), "the edit was not taken back"
        assert not self.kept_settings(), f"kept for the next run: {self.kept_settings()}"

    @staticmethod
    def kept_settings():
        """What the program has put where programs keep settings. The file dialog is Qt's and
        remembers its own size there, under Qt's name."""
        return [path for place in ("config", "data", "state", "cache")
                for path in (HOME / place).rglob("*") if "tessel" in path.name.lower()]

    @staticmethod
    def wait_for_the_editor(ending):
        wait_until("the editor's line in the opened copy", lambda: any(
            copy.read_text(encoding="utf-8").endswith(ending)
            for copy in WORKSPACES.glob("*/diário.txt")))


CHAPTERS = (
    Story.find_the_drive, Story.read_the_guide, Story.create_the_vault, Story.leave_the_dialogs,
    Story.come_back_from_a_warning, Story.come_back_from_a_question, Story.unlock_it,
    Story.make_folders, Story.import_three_files, Story.import_more,
    Story.leave_the_dialogs_of_the_open_vault, Story.open_one, Story.lock_it,
    Story.refuse_a_wrong_password, Story.unlock_it_again, Story.find_the_change,
    Story.export_unchanged, Story.rename_one, Story.move_it, Story.drag_it,
    Story.drag_out_of_the_window, Story.watch_an_import, Story.delete_it, Story.compact,
    Story.change_the_password, Story.back_up, Story.open_the_backup, Story.close_the_window)


def check_silence(errors):
    said = errors.read_text(encoding="utf-8")
    assert not said, f"the program said: {said}"


def tell(results):
    errors = results / "stderr.txt"
    with desktop.Desktop() as screen:
        story = Story(start_program(screen, errors), desktop.Album(results))
        try:
            for chapter in CHAPTERS:
                began = time.monotonic()
                story.expect_keyboard()
                chapter(story)
                check_silence(errors)
                title = chapter.__name__.replace("_", " ")
                print(f"{title}: ok, {time.monotonic() - began:.1f} s", flush=True)
                story.album.take_screen(title)
        except BaseException:
            story.album.take_screen("failed")
            check_silence(errors)
            raise


def main():
    results = pathlib.Path(sys.argv[1]).resolve()
    results.mkdir(parents=True, exist_ok=True)
    write_documents()
    install_editor()
    tell(results)


if __name__ == "__main__":
    main()
