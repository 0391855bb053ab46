// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/VaultManager.h"
#include "support/Files.h"
#include "support/MustRun.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QDir>
#include <QMimeDatabase>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Vault = u"application/x-tessel-vault"_s;

} // namespace

/// The desktop's database of file types, with the one that the package brings.
class TestRecognition : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void aContainerIsRecognised_data();
    void aContainerIsRecognised();
    void nothingElseIsRecognised_data();
    void nothingElseIsRecognised();
    void theTypeIsNamedInBothLanguages();
    void openingAContainerStartsTheProgramWithoutIt();

private:
    [[nodiscard]] QString pathOf(const QString& name) const { return m_folder.filePath(name); }

    QTemporaryDir m_folder;
};

void TestRecognition::initTestCase() {
    const QString types = pathOf(u"data/mime"_s);
    QVERIFY(QDir().mkpath(types + u"/packages"_s));
    QVERIFY(QFile::copy(QStringLiteral(TESSEL_MIME_TYPES),
                        types + u"/packages/example.tessel.Tessel.xml"_s));
    qputenv("XDG_DATA_HOME", QFile::encodeName(pathOf(u"data"_s)));

    QProcess update;
    update.start(u"update-mime-database"_s, {types});
    QVERIFY(update.waitForFinished());
    QCOMPARE(update.readAllStandardError(), QByteArray());
    QCOMPARE(update.exitCode(), 0);

    Tessel::Core::VaultManager vault;
    QVERIFY(vault.createVault(pathOf(u"engine"_s), "senha de teste"));
}

void TestRecognition::aContainerIsRecognised_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("mode");
    const struct {
        const char* name;
        QMimeDatabase::MatchMode mode;
    } modes[] = {{"name", QMimeDatabase::MatchExtension},
                 {"contents", QMimeDatabase::MatchContent},
                 {"both", QMimeDatabase::MatchDefault}};
    const QString usual = u"tessel.tvlt"_s;
    for (const auto& [mode, value] : modes) {
        QTest::addRow("usual name, by %s", mode) << usual << static_cast<int>(value);
    }
    QTest::newRow("no extension") << u"cofre"_s << int(QMimeDatabase::MatchDefault);
    QTest::newRow("unknown extension") << u"cofre.antigo"_s << int(QMimeDatabase::MatchDefault);
    QTest::newRow("extension of another type")
        << u"cofre.txt"_s << int(QMimeDatabase::MatchContent);
}

void TestRecognition::aContainerIsRecognised() {
    QFETCH(const QString, name);
    QFETCH(const int, mode);
    QVERIFY(QFile::copy(pathOf(u"engine"_s), pathOf(name)) || QFile::exists(pathOf(name)));
    const auto matching = static_cast<QMimeDatabase::MatchMode>(mode);
    QCOMPARE(QMimeDatabase().mimeTypeForFile(pathOf(name), matching).name(), Vault);
}

void TestRecognition::nothingElseIsRecognised_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("contents");
    QTest::newRow("text") << u"nota.txt"_s << QByteArray("uma linha\n");
    QTest::newRow("text without extension") << u"nota"_s << QByteArray("uma linha\n");
    QTest::newRow("six of the seven bytes") << u"seis"_s << QByteArray("TESSEL");
    QTest::newRow("another seventh byte") << u"outro"_s << QByteArray("TESSEL4\n");
    QTest::newRow("lower case") << u"minusculas"_s << QByteArray("tessel3\n");
    QTest::newRow("behind a byte") << u"depois"_s << QByteArray(" TESSEL3\n");
    QTest::newRow("the name without its dot") << u"tvlt"_s << QByteArray("uma linha\n");
}

void TestRecognition::nothingElseIsRecognised() {
    QFETCH(const QString, name);
    QFETCH(const QByteArray, contents);
    QVERIFY(writeFile(pathOf(name), contents));
    QCOMPARE(QMimeDatabase().mimeTypeForFile(pathOf(name)).name(), u"text/plain"_s);
}

void TestRecognition::theTypeIsNamedInBothLanguages() {
    const QMimeType type = QMimeDatabase().mimeTypeForName(Vault);
    QVERIFY(type.isValid());
    QLocale::setDefault(QLocale(QLocale::English));
    QCOMPARE(type.comment(), u"Tessel vault"_s);
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
    QCOMPARE(type.comment(), u"Cofre do Tessel"_s);
    QCOMPARE(type.genericIconName(), u"package-x-generic"_s);
    QCOMPARE(type.iconName(), u"tessel"_s);
    QCOMPARE(type.globPatterns(), QStringList(u"*.tvlt"_s));
}

/// As a double click in a file manager does.
void TestRecognition::openingAContainerStartsTheProgramWithoutIt() {
    const QString entries = pathOf(u"data/applications"_s);
    QVERIFY(QDir().mkpath(entries) && QDir().mkpath(pathOf(u"bin"_s)));
    QVERIFY(QFile::copy(QStringLiteral(TESSEL_CONTAINER_ENTRY),
                        entries + u"/example.tessel.Tessel.Container.desktop"_s));
    QProcess update;
    update.start(u"update-desktop-database"_s, {entries});
    QVERIFY(update.waitForFinished());
    QCOMPARE(update.exitCode(), 0);

    // In the program's place, one that tells what it was given.
    const QString told = pathOf(u"told"_s);
    const QString program = pathOf(u"bin/tessel"_s);
    QVERIFY(writeFile(program, "#!/bin/sh\nprintf '%s arguments' $# > '" + told.toUtf8() +
                                   ".new' && mv '" + told.toUtf8() + ".new' '" + told.toUtf8() +
                                   "'\n"));
    QVERIFY(QFile::setPermissions(program, QFile::ReadOwner | QFile::ExeOwner));
    qputenv("PATH", QFile::encodeName(pathOf(u"bin"_s)) + ':' + qgetenv("PATH"));
    const QString container = pathOf(u"meu \"cofre\" $HOME.tvlt"_s);
    QVERIFY(QFile::copy(pathOf(u"engine"_s), container));
    QProcess open;
    open.start(u"gio"_s, {u"open"_s, container});
    QVERIFY(open.waitForFinished());
    QVERIFY2(open.exitCode() == 0, open.readAllStandardError().constData());
    QTRY_VERIFY(QFile::exists(told));
    QCOMPARE(readFile(told), QByteArray("0 arguments"));
}

namespace {

int run(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    for (const char* program : {"update-mime-database", "update-desktop-database", "gio"}) {
        if (QStandardPaths::findExecutable(QString::fromLatin1(program)).isEmpty()) {
            return refused((QByteArray(program) + " is not installed here").constData());
        }
    }
    TestRecognition test;
    return QTest::qExec(&test, argc, argv);
}

} // namespace

TESSEL_TEST_MAIN(run);

#include "test_recognition.moc"
