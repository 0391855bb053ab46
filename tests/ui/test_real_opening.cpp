// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/VaultManager.h"
#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/OwnDisplay.h"
#include "support/TestProgram.h"
#include "support/WindowDriver.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <utility>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Password = u"senha de teste"_s;

} // namespace

/// A plain X session without a desktop's own services, whose person has chosen a text editor. No
/// handler of Qt is in between: the copy goes through xdg-open to that editor.
class TestRealOpening : public QObject {
    Q_OBJECT

private:
    [[nodiscard]] QString pathOf(const QString& name) const { return m_home.filePath(name); }
    QTemporaryDir m_home;

    /// The editor tells which path it was given, once it has appended a line to the file there.
    [[nodiscard]] bool installEditor() const {
        const QString editor = pathOf(u"editor"_s);
        const QByteArray script = "#!/bin/sh\n"
                                  "echo 'mais uma linha' >>\"$1\"\n"
                                  "printf %s \"$1\" >\"$0.new\" && mv \"$0.new\" \"$0.opened\"\n";
        const QByteArray entry = "[Desktop Entry]\nType=Application\nName=Editor\n"
                                 "MimeType=text/plain;\nExec=" +
                                 QFile::encodeName(editor) + " %f\n";
        return writeFile(editor, script) &&
               QFile::setPermissions(editor,
                                     QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner) &&
               QDir().mkpath(pathOf(u"data/applications"_s)) &&
               writeFile(pathOf(u"data/applications/editor.desktop"_s), entry) &&
               writeFile(pathOf(u"config/mimeapps.list"_s),
                         "[Default Applications]\ntext/plain=editor.desktop\n");
    }

private Q_SLOTS:
    void initTestCase() {
        const std::pair<const char*, QString> folders[] = {{"HOME", u"home"_s},
                                                           {"TMPDIR", u"tmp"_s},
                                                           {"XDG_RUNTIME_DIR", u"run"_s},
                                                           {"XDG_DATA_HOME", u"data"_s},
                                                           {"XDG_CONFIG_HOME", u"config"_s}};
        for (const auto& [variable, folder] : folders) {
            QVERIFY(QDir().mkdir(pathOf(folder)));
            QVERIFY(QFile::setPermissions(pathOf(folder),
                                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
            qputenv(variable, QFile::encodeName(pathOf(folder)));
        }
        // Whichever desktop these tests run on, xdg-open is not to ask its services.
        qputenv("XDG_CURRENT_DESKTOP", "X-Generic");
        QVERIFY(installEditor());
    }

    void theEditorsChangeComesBackOnLocking_data() {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("name");
        QTest::newRow("plain name") << QString() << u"a.txt"_s;
        QTest::newRow("name that a URL encodes") << u"atas"_s << u"março & abril, 100%25 #1?.txt"_s;
    }
    void theEditorsChangeComesBackOnLocking() {
        QFETCH(const QString, folder);
        QFETCH(const QString, name);
        const QString vaultPath = folder.isEmpty() ? name : folder + u'/' + name;
        const QString container = pathOf(u"t.tvlt"_s);
        CraftedContainer crafted;
        if (!folder.isEmpty()) {
            crafted.addFolder(folder);
        }
        QVERIFY(crafted.addFile(vaultPath, "uma linha\n").writeTo(container));

        WindowDriver driver;
        QVERIFY(driver.openVault(container, Password));
        QVERIFY(folder.isEmpty() || driver.activateRow(folder));
        QVERIFY(driver.selectRow(name));
        driver.action(u"Abrir"_s)->trigger();
        QCOMPARE(driver.statusMessage(), u"Arquivo aberto para edição."_s);

        const QString told = pathOf(u"editor.opened"_s);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(told), 30000);
        const QString copy = QFile::decodeName(readFile(told));
        QVERIFY(QFile::remove(told));
        QVERIFY2(copy.startsWith(pathOf(u"tmp/Tessel/"_s)), qPrintable(copy));
        QVERIFY2(copy.endsWith(u'/' + vaultPath), qPrintable(copy));
        QCOMPARE(readFile(copy), "uma linha\nmais uma linha\n"_ba);

        driver.action(u"Bloquear"_s)->trigger();
        QVERIFY2(driver.dialogs.finished(), qPrintable(driver.dialogs.problems()));
        QVERIFY(!driver.vaultIsOpen());
        QVERIFY(!QFile::exists(copy));

        Tessel::Core::VaultManager vault;
        QVERIFY(vault.unlockVault(container, Password.toUtf8()));
        const bool exported = vault.exportFile(vaultPath, pathOf(u"exported"_s));
        QVERIFY(vault.lockVault());
        QVERIFY(exported);
        QCOMPARE(readFile(pathOf(u"exported"_s)), "uma linha\nmais uma linha\n"_ba);
    }
};

namespace {

int run(int argc, char** argv) {
    // Opening a document is the business of the platform plugin, and the offscreen one opens none.
    if (!isOnOwnDisplay()) {
        return startOnOwnDisplay(argc, argv);
    }
    if (QStandardPaths::findExecutable(u"xdg-open"_s).isEmpty()) {
        return refused("xdg-open is not installed here");
    }
    if (QStandardPaths::findExecutable(u"file"_s).isEmpty()) {
        return refused("file, which tells xdg-open the type, is not installed here");
    }
    return runTest<QApplication, TestRealOpening>(argc, argv);
}

} // namespace

TESSEL_TEST_MAIN(run);

#include "test_real_opening.moc"
