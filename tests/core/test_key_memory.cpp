// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What remains of keys and passwords in the memory of a process that has locked its vault. A
// second process works on the vault; this one, which knows the keys, reads that one's memory.

#include "core/SecretBytes.h"
#include "support/Files.h"
#include "support/MustRun.h"
#include "support/ProcessMemory.h"
#include "support/TestProgram.h"
#include "support/VaultFixture.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <utility>

#include <unistd.h>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int PatienceMs = 60000;
constexpr const char* WorkerOption = "--work";

// --- The process that works on the vault ---------------------------------------------------------

// Past Qt's buffers, which nobody wipes.
QByteArray readLine() {
    QByteArray line;
    line.reserve(256);
    char c = 0;
    while (::read(STDIN_FILENO, &c, 1) == 1 && c != '\n') {
        line.append(c);
    }
    return line;
}

bool say(const char* word) {
    const QByteArray line = QByteArray(word) + '\n';
    return ::write(STDOUT_FILENO, line.constData(), static_cast<std::size_t>(line.size())) ==
           line.size();
}

// Says where it is and goes on when it is told to.
bool pauseAt(const char* word) {
    return say(word) && readLine() == "go";
}

bool workOn(VaultManager& vault, const QString& folder) {
    const QString source = folder + u"/source"_s;
    QString copy;
    return vault.importFile(source, u"b/c.bin"_s) &&
           vault.exportFile(u"b/c.bin"_s, folder + u"/out"_s) &&
           vault.prepareFileForEditing(u"a.txt"_s, &copy) && vault.createDirectory(u"d"_s) &&
           vault.compactVault({}, nullptr);
}

int work(const QString& container, const QString& folder) {
    VaultManager vault;
    QByteArray password = readLine();
    const bool opened = vault.changePassword(container, password, password) &&
                        vault.unlockVault(container, password);
    wipe(&password);
    if (!opened) {
        return 1;
    }
    if (!pauseAt("open") || !workOn(vault, folder) || !vault.lockVault()) {
        return 2;
    }
    return pauseAt("locked") ? 0 : 3;
}

} // namespace

class TestKeyMemory : public QObject {
    Q_OBJECT

private:
    /// How often each secret is in the process's memory, in the order of m_secrets.
    [[nodiscard]] QList<qsizetype> occurrences(qint64 process) const {
        QList<qsizetype> counts(m_secrets.size(), 0);
        const bool read = forEachMemoryRegion(process, [&](const QByteArray& region) {
            for (qsizetype i = 0; i < m_secrets.size(); ++i) {
                counts[i] += region.count(m_secrets.at(i));
            }
        });
        return read ? counts : QList<qsizetype>();
    }

    QList<QByteArray> m_secrets;

private Q_SLOTS:
    void nothingRemainsOnceTheVaultIsLocked() {
        CraftedContainer crafted;
        crafted.keys.kdf = "Argon2id";
        crafted.keys.kdfIterations = 0;
        crafted.keys.password = "uma senha que se reconhece";
        crafted.addFile(u"a.txt"_s, "contents of a");
        VaultFixture fixture(crafted);
        QVERIFY(writeFile(fixture.file(u"source"_s), noise(100000)));
        const QByteArray passwordKey = crafted.passwordKey();
        m_secrets = {crafted.keys.password, crafted.keys.masterKey.first(32),
                     crafted.keys.masterKey.last(32), passwordKey.first(32), passwordKey.last(32)};

        QProcess worker;
        worker.start(QCoreApplication::applicationFilePath(),
                     {QLatin1String(runningTest()), QLatin1String(WorkerOption),
                      fixture.container(), QFileInfo(fixture.file(u"source"_s)).path()});
        QVERIFY(worker.waitForStarted(PatienceMs));
        worker.write(crafted.keys.password + '\n');
        QVERIFY(worker.waitForReadyRead(PatienceMs));
        QCOMPARE(worker.readAll(), QByteArray("open\n"));

        // The keys of an open vault are there, or this test would find nothing anywhere.
        QList<qsizetype> found = occurrences(worker.processId());
        SKIP_UNLESS(!found.isEmpty(), "the memory of another process cannot be read here");
        QCOMPARE(found, QList<qsizetype>({0, 1, 1, 0, 0}));
        worker.write("go\n");
        QVERIFY(worker.waitForReadyRead(PatienceMs));
        QCOMPARE(worker.readAll(), QByteArray("locked\n"));
        QCOMPARE(occurrences(worker.processId()), QList<qsizetype>({0, 0, 0, 0, 0}));

        worker.write("go\n");
        QVERIFY(worker.waitForFinished(PatienceMs));
        QCOMPARE(worker.exitCode(), 0);
    }

    void aSecretTakesTheBytes() {
        QByteArray bytes("a secret of some length");
        bytes.detach();
        SecretBytes secret(std::move(bytes));
        QVERIFY(bytes.isEmpty());
        QCOMPARE(secret.all(), QByteArray("a secret of some length"));
        QCOMPARE(secret.first(8), QByteArray("a secret"));
        QCOMPARE(secret.first(1000), secret.all());
        secret.clear();
        QVERIFY(secret.isEmpty());
        QVERIFY(secret.all().isEmpty());
    }

    void aSharedArrayIsLeftAlone() {
        QByteArray bytes("a secret of some length");
        bytes.detach();
        const QByteArray shared = bytes;
        wipe(&bytes);
        QVERIFY(bytes.isEmpty());
        QCOMPARE(shared, QByteArray("a secret of some length"));
    }
};

namespace {

int run(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    if (argc == 4 && qstrcmp(argv[1], WorkerOption) == 0) {
        return work(QFile::decodeName(argv[2]), QFile::decodeName(argv[3]));
    }
    TestKeyMemory test;
    return QTest::qExec(&test, argc, argv);
}

} // namespace

TESSEL_TEST_MAIN(run);

#include "test_key_memory.moc"
