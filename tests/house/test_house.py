# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Checks the sources with every rule, and every rule with a source that breaks it."""

import contextlib
import os
import tempfile
import unittest
from pathlib import Path

import house_rules

QT_INCLUDE = Path(os.environ["TESSEL_QTCORE"]).parent
TOP = Path(os.environ["TESSEL_SOURCES"])
HEAD = "".join(f"// {line}\n" for line in house_rules.LICENCE)
HASH_HEAD = HEAD.replace("//", "#")


class Sources(unittest.TestCase):
    def assert_none(self, faults):
        self.assertEqual([], list(faults))

    def test_the_rules_see_every_module(self):
        seen = {path.parts[1] for path, _, _ in house_rules.modules(TOP)}
        self.assertEqual({"core", "platform"}, seen & {"core", "platform"})
        self.assertTrue(QT_INCLUDE.joinpath("QtCore", "QString").is_file())

    def test_modules_include_only_what_they_may_use(self):
        self.assert_none(house_rules.include_faults(TOP, QT_INCLUDE))

    def test_no_include_of_the_engine_leads_up(self):
        self.assert_none(house_rules.layer_faults(TOP))

    def test_modules_link_only_what_they_may_use(self):
        self.assert_none(house_rules.link_faults(TOP))

    def test_only_the_window_words_texts(self):
        self.assert_none(house_rules.wording_faults(TOP))

    def test_nothing_speaks_to_the_network(self):
        self.assert_none(house_rules.network_faults(TOP))

    def test_nothing_shows_a_background_picture(self):
        self.assert_none(house_rules.background_faults(TOP))

    def test_one_source_asks_for_the_version_of_qt(self):
        self.assert_none(house_rules.version_faults(TOP))

    def test_every_source_names_its_licence(self):
        self.assert_none(house_rules.licence_faults(TOP))

    def test_nothing_is_left_undone(self):
        self.assert_none(house_rules.left_undone_faults(TOP))


class Rules(unittest.TestCase):
    """Each rule against a small source tree."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.top = Path(folder.name)
        for header in ("core/Vault.h", "platform/Drive.h", "ui/Window.h"):
            self.write(f"src/{header}", HEAD)

    def write(self, path, text):
        file = self.top / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text, encoding="utf-8")

    @contextlib.contextmanager
    def planted(self, path, text):
        """A file that exists inside the block only."""
        self.write(path, text)
        try:
            yield
        finally:
            self.top.joinpath(path).unlink()

    def include_faults(self, module, header):
        with self.planted(f"src/{module}/Source.cpp", f"{HEAD}#include {header}\n"):
            return list(house_rules.include_faults(self.top, QT_INCLUDE))

    def test_allowed_includes(self):
        for module, header in (
                ("core", '"core/Vault.h"'), ("core", "<QString>"), ("core", "<QtGlobal>"),
                ("core", "<QtCore/QString>"), ("core", "<qglobal.h>"), ("core", "<vector>"),
                ("core", "<sys/stat.h>"), ("core", "<unistd.h>"), ("core", "<sodium.h>"),
                ("core", "<sodium/utils.h>"), ("core", "<openssl/evp.h>"),
                ("core", '"Source.moc"'),
                ("platform", '"platform/Drive.h"'), ("platform", "<QStorageInfo>"),
                ("ui", '"core/Vault.h"'), ("ui", '"platform/Drive.h"'), ("ui", '"ui/Window.h"'),
                ("ui", "<sodium.h>"), ("ui", "<QWidget>"), ("ui", "<QIcon>"), ("ui", "<QFile>")):
            with self.subTest(module=module, header=header):
                self.assertEqual([], self.include_faults(module, header))

    def test_forbidden_includes(self):
        for module, header, reason in (
                ("core", '"platform/Drive.h"', "belongs to src/platform"),
                ("core", '"ui/Window.h"', "belongs to src/ui"),
                ("core", '"Vault.h"', "not written from src/"),
                ("core", '"core/Missing.h"', "not written from src/"),
                ("core", '"../core/Vault.h"', "not written from src/"),
                ("core", '"core/../platform/Drive.h"', "not written from src/"),
                ("core", "<core/Vault.h>", "no library"),
                ("core", "<QIcon>", "belongs to QtGui"),
                ("core", "<QMessageBox>", "belongs to QtWidgets"),
                ("core", "<qwidget.h>", "belongs to QtWidgets"),
                ("core", "<QtWidgets/QWidget>", "belongs to QtWidgets"),
                ("core", "<QNetworkReply>", "belongs to "),
                ("core", "<QNothing>", "unknown Qt module"),
                ("core", "<curl/curl.h>", "no library"),
                ("platform", '"core/Vault.h"', "belongs to src/core"),
                ("platform", '"ui/Window.h"', "belongs to src/ui"),
                ("platform", "<QIcon>", "belongs to QtGui"),
                ("platform", "<sodium.h>", "belongs to the engine"),
                ("platform", "<libudev.h>", "no library"),
                ("ui", "<openssl/evp.h>", "belongs to the engine"),
                ("ui", "<QTest>", "belongs to "),
                ("ui", '"Window.h"', "not written from src/")):
            with self.subTest(module=module, header=header):
                faults = self.include_faults(module, header)
                self.assertEqual(1, len(faults), faults)
                self.assertIn(f"src/{module}/Source.cpp:3: {header}", faults[0])
                self.assertIn(reason, faults[0])

    def test_includes_may_be_spaced(self):
        self.write("src/core/Source.cpp", HEAD + '  #  include"ui/Window.h"\n')
        self.assertEqual(1, len(list(house_rules.include_faults(self.top, QT_INCLUDE))))

    def test_a_new_module_needs_a_rule(self):
        faults = self.include_faults("net", "<QString>")
        self.assertEqual(["src/net/Source.cpp: no rule says what this module may use"], faults)

    def layer_faults(self, source, header):
        with self.planted(f"src/core/{source}", f'{HEAD}#include "core/{header}"\n'):
            self.top.joinpath("src/core/Vault.h").unlink(missing_ok=True)
            return list(house_rules.layer_faults(self.top))

    def test_layers_of_the_engine(self):
        for source, header, fault in (
                ("VaultManager.cpp", "VaultSession.h", False),
                ("VaultManagerStorage.cpp", "VaultManager.h", False),
                ("VaultSession.cpp", "HeaderWriter.h", False),
                ("HeaderWriter.cpp", "RedoRecord.h", False),
                ("VaultSession.h", "VaultManager.h", True),
                ("ContainerManager.cpp", "VaultSession.h", True),
                ("HeaderWriter.cpp", "ContainerManager.h", True),
                ("HeaderCodec.cpp", "HeaderWriter.h", True),
                ("RedoRecord.cpp", "HeaderWriter.h", True),
                ("DiskSync.cpp", "RedoRecord.h", True)):
            with self.subTest(source=source, header=header):
                name = source.split(".")[0]
                expected = f'src/core/{source}:3: "core/{header}" is above {name}'
                self.assertEqual([expected] if fault else [], self.layer_faults(source, header))

    def test_a_new_source_of_the_engine_needs_a_layer(self):
        self.assertEqual(["src/core/News.cpp: belongs to no layer"],
                         self.layer_faults("News.cpp", "DiskSync.h"))

    def test_forbidden_links(self):
        for module, library, fault in (
                ("core", "Qt6::Core", False), ("core", "PkgConfig::sodium", False),
                ("core", "Qt6::Gui", True), ("core", "tessel_platform", True),
                ("platform", "Qt6::Core", False), ("platform", "tessel_core", True),
                ("platform", "Qt6::Widgets", True), ("platform", "OpenSSL::Crypto", True),
                ("ui", "tessel_core", False), ("ui", "OpenSSL::Crypto", True),
                ("ui", "Qt6::Network", True)):
            with self.subTest(module=module, library=library):
                text = (f"{HASH_HEAD}target_link_libraries(tessel_{module}\n"
                        f"    PUBLIC Qt6::Core # and\n    PRIVATE {library})\n")
                with self.planted(f"src/{module}/CMakeLists.txt", text):
                    faults = list(house_rules.link_faults(self.top))
                expected = f"src/{module}/CMakeLists.txt: tessel_{module} must not link {library}"
                self.assertEqual([expected] if fault else [], faults)

    def test_words_for_the_user(self):
        self.write("src/ui/Window.cpp", f'{HEAD}auto a = tr("Senha:");\n')
        self.assertEqual([], list(house_rules.wording_faults(self.top)))
        self.write("src/core/Vault.cpp", f'{HEAD}// tr("x")\nauto a = ptr(1); // tr(2)\n')
        self.assertEqual([], list(house_rules.wording_faults(self.top)))
        self.write("src/core/Vault.cpp", f'{HEAD}auto a = Vault::tr("Senha:");\n')
        self.assertEqual(["src/core/Vault.cpp:3: words a text for the user"],
                         list(house_rules.wording_faults(self.top)))

    def test_the_network(self):
        for line, fault in (
                ("#include <QSocketNotifier>", None), ("#include <QLocale>", None),
                ("#include <QUrl>", None), ("#include <QDesktopServices>", None),
                ("#include <sys/stat.h>", None), ("// socket(1)", None),
                ("connect(a, &A::b, this, &C::d);", None), ("websocket.open();", None),
                ("#include <QNetworkReply>", "<QNetworkReply> leads to the network"),
                ("#include <QtNetwork/QHostInfo>", "<QtNetwork/QHostInfo> leads to the network"),
                ("#include <QTcpSocket>", "<QTcpSocket> leads to the network"),
                ("#include <qudpsocket.h>", "<qudpsocket.h> leads to the network"),
                ("#include <QLocalServer>", "<QLocalServer> leads to the network"),
                ("#include <sys/socket.h>", "<sys/socket.h> leads to the network"),
                ("#include <netinet/in.h>", "<netinet/in.h> leads to the network"),
                ("int s = ::socket(AF_INET, 1, 0);", "opens a socket"),
                ("getaddrinfo (name, 0, 0, &list);", "opens a socket")):
            with self.subTest(line=line):
                with self.planted("src/ui/Source.cpp", f"{HEAD}{line}\n"):
                    faults = list(house_rules.network_faults(self.top))
                expected = [] if fault is None else [f"src/ui/Source.cpp:3: {fault}"]
                self.assertEqual(expected, faults)

    def test_background_pictures(self):
        self.write("src/ui/Window.cpp", f'{HEAD}auto a = ":/icons/Tessel.ico";\n')
        self.assertEqual([], list(house_rules.background_faults(self.top)))
        self.write("src/ui/Window.cpp", f'{HEAD}auto a = ":/backgrounds/Fundo01.png";\n')
        self.assertEqual(["src/ui/Window.cpp:3: shows a background picture"],
                         list(house_rules.background_faults(self.top)))

    def test_version_of_qt(self):
        line = "#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)"
        self.write("src/core/QtVersions.h", f"{HEAD}{line}\n")
        self.write("src/ui/Window.cpp", f"{HEAD}text = qVersion();\n")
        self.assertEqual([], list(house_rules.version_faults(self.top)))
        for path in ("src/ui/Window.cpp", "tests/ui/test_window.cpp"):
            with self.planted(path, f"{HEAD}{line}\n"):
                self.assertEqual(
                    [f"{path}:3: asks for Qt's version, which src/core/QtVersions.h does"],
                    list(house_rules.version_faults(self.top)))

    def test_licence_lines(self):
        for path, text, fault in (
                ("src/core/A.cpp", HEAD, False),
                ("src/core/A.cpp", "", True),
                ("src/core/A.cpp", "\n" + HEAD, True),
                ("src/core/A.h", HASH_HEAD, True),
                ("src/core/A.h", HEAD.replace("2026", "2025"), True),
                ("src/core/A.h", HEAD.splitlines()[0] + "\n#pragma once\n", True),
                ("tests/core/CMakeLists.txt", HASH_HEAD, False),
                ("tests/core/CMakeLists.txt", HEAD, True),
                ("tests/core/a.py", "#!/usr/bin/env python3\n" + HASH_HEAD, False),
                ("benchmarks/a.cpp", "int a;\n", True),
                ("scripts/run", "#!/usr/bin/env bash\n" + HASH_HEAD, False),
                ("scripts/run", "#!/usr/bin/env bash\nset -e\n", True),
                (".ci/run", "#!/bin/sh\n", True),
                ("tests/core/data.tvlt", "TESSEL3", False)):
            with self.subTest(path=path, text=text):
                with self.planted(path, text):
                    faults = list(house_rules.licence_faults(self.top))
                expected = f"{path}: does not begin with the two SPDX lines"
                self.assertEqual([expected] if fault else [], faults)

    def test_work_left_undone(self):
        for word in ("TO" "DO", "FIX" "ME"):
            self.write("src/core/A.cpp", f"{HEAD}// {word}: later\n// {word}S are other words\n")
            self.assertEqual([f"src/core/A.cpp:3: // {word}: later"],
                             list(house_rules.left_undone_faults(self.top)))


if __name__ == "__main__":
    unittest.main()
