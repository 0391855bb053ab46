// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Two sessions on one container, and a container that is replaced while its vault is open: every
// change works on what the drive holds, so no file is lost.

#include "VaultFixture.h"
#include "support/Files.h"
#include "support/TestProgram.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QFileInfo>
#include <QTest>

#include <functional>
#include <utility>

using namespace Tessel::Core;
using namespace Tessel::Tests;

namespace {

const QString A = QStringLiteral("docs/a.bin");
const QString B = QStringLiteral("b.txt");

QByteArray contentsOfA() {
    return noise(5000, 1);
}

QByteArray contentsOfB() {
    return QByteArrayLiteral("conteudo de b");
}

/// A vault whose blocks a compaction moves to the front.
CraftedContainer withAGap() {
    CraftedContainer crafted;
    crafted.addFolder(QStringLiteral("docs"))
        .addFolder(QStringLiteral("vazia"))
        .leaveGap(7000)
        .addFile(A, contentsOfA(), 1000)
        .addFile(B, contentsOfB())
        .addFile(QStringLiteral("velho"), "velho");
    return crafted;
}

bool isKept(const VaultManager& vault, const QString& path, const QByteArray& contents) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    return buffer.open(QIODevice::WriteOnly) && vault.writeVaultFileToDevice(path, &buffer) &&
           bytes == contents;
}

/// Whether a new session reads both files.
bool bothAreKept(const QString& container) {
    VaultManager fresh;
    return fresh.unlockVault(container, TestPassword) && isKept(fresh, A, contentsOfA()) &&
           isKept(fresh, B, contentsOfB()) && fresh.lockVault();
}

bool compactElsewhere(const QString& container) {
    VaultManager other;
    return other.unlockVault(container, TestPassword) && other.compactVault({}, nullptr) &&
           other.lockVault();
}

bool importElsewhere(const VaultFixture& fixture, const QString& path, const QByteArray& bytes) {
    VaultManager other;
    return other.unlockVault(fixture.container(), TestPassword) &&
           other.importFile(fixture.write(QStringLiteral("fonte"), bytes), path) &&
           other.lockVault();
}

/// Runs something once, before it takes the first bytes.
class InterruptedDevice : public QBuffer {
public:
    explicit InterruptedDevice(std::function<bool()> interruption)
        : m_interruption(std::move(interruption)) {}

    [[nodiscard]] bool succeeded() const { return m_succeeded; }

protected:
    qint64 writeData(const char* data, qint64 size) override {
        if (m_interruption) {
            m_succeeded = std::exchange(m_interruption, {})();
        }
        return QBuffer::writeData(data, size);
    }

private:
    std::function<bool()> m_interruption;
    bool m_succeeded = false;
};

using Change = bool (*)(VaultFixture& fixture);

} // namespace

Q_DECLARE_METATYPE(Change)

class TestTwoSessions : public QObject {
    Q_OBJECT

private:
    static void addChanges() {
        const auto row = [](const char* name, Change change) {
            QTest::newRow(name) << QVariant::fromValue(change);
        };
        QTest::addColumn<QVariant>("change");
        row("new folder", [](VaultFixture& f) {
            return f.vault.createDirectory(QStringLiteral("nova")) &&
                   f.folderPaths().contains(QStringLiteral("nova"));
        });
        row("import", [](VaultFixture& f) {
            return f.store(QStringLiteral("c"), "c") && f.stored(QStringLiteral("c")) == "c";
        });
        row("move a file", [](VaultFixture& f) {
            return f.vault.moveFile(QStringLiteral("velho"), QStringLiteral("docs"));
        });
        row("rename a file", [](VaultFixture& f) {
            return f.vault.renameFile(QStringLiteral("velho"), QStringLiteral("novo"));
        });
        row("delete a file",
            [](VaultFixture& f) { return f.vault.deleteFile(QStringLiteral("velho")); });
        row("rename a folder", [](VaultFixture& f) {
            return f.vault.renameDirectory(QStringLiteral("vazia"), QStringLiteral("nova"));
        });
        row("delete a folder",
            [](VaultFixture& f) { return f.vault.deleteDirectory(QStringLiteral("vazia")); });
        row("compact", [](VaultFixture& f) { return f.vault.compactVault({}, nullptr); });
        row("lock", [](VaultFixture& f) { return f.vault.lockVault(); });
        row("lock with an edited copy", [](VaultFixture& f) {
            return !f.openAndEdit(QStringLiteral("velho"), "editado").isEmpty() &&
                   f.vault.lockVault() && f.unlock() &&
                   f.stored(QStringLiteral("velho")) == "editado";
        });
    }

private Q_SLOTS:
    void changesInTurnLoseNothing() {
        VaultFixture fixture(withAGap());
        VaultManager other;
        QVERIFY(fixture.unlock());
        QVERIFY(other.unlockVault(fixture.container(), TestPassword));

        QVERIFY(fixture.store(QStringLiteral("c.bin"), noise(5000, 3)));
        QVERIFY(other.importFile(fixture.write(QStringLiteral("d"), noise(6000, 4)),
                                 QStringLiteral("d.bin")));
        QVERIFY(fixture.vault.createDirectory(QStringLiteral("minha")));
        QVERIFY(other.createDirectory(QStringLiteral("dela")));
        QVERIFY(fixture.vault.moveFile(QStringLiteral("d.bin"), QStringLiteral("dela")));
        QVERIFY(other.deleteFile(B));
        QVERIFY(fixture.vault.deleteDirectory(QStringLiteral("vazia")));
        QVERIFY(other.lockVault());
        QVERIFY(fixture.vault.renameDirectory(QStringLiteral("dela"), QStringLiteral("nossa")));

        QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword),
                 fixture.vault.fileIndex().toJson());
        QVERIFY(!fixture.filePaths().contains(B));
        QCOMPARE(fixture.folderPaths(),
                 QStringList(
                     {QStringLiteral("docs"), QStringLiteral("minha"), QStringLiteral("nossa")}));
        QCOMPARE(fixture.stored(A), contentsOfA());
        QCOMPARE(fixture.stored(QStringLiteral("c.bin")), noise(5000, 3));
        QCOMPARE(fixture.stored(QStringLiteral("nossa/d.bin")), noise(6000, 4));
    }

    void whatAnotherSessionMadeIsInTheWay() {
        VaultFixture fixture(withAGap());
        QVERIFY(fixture.unlock());
        QVERIFY(importElsewhere(fixture, QStringLiteral("novo"), "dela"));
        QVERIFY(!fixture.vault.createDirectory(QStringLiteral("novo")));
        QVERIFY(!fixture.vault.renameFile(B, QStringLiteral("novo")));
        QVERIFY(bothAreKept(fixture.container()));
    }

    void aChangeAfterAnotherSessionCompacted_data() { addChanges(); }
    void aChangeAfterAnotherSessionCompacted() {
        QFETCH(const QVariant, change);
        VaultFixture fixture(withAGap());
        QVERIFY(fixture.unlock());
        QVERIFY(compactElsewhere(fixture.container()));
        QVERIFY(change.value<Change>()(fixture));
        QVERIFY(bothAreKept(fixture.container()));
    }

    void aChangeAfterACopyWasPutBack_data() { addChanges(); }
    void aChangeAfterACopyWasPutBack() {
        // As a backup is, or the container that a compaction could not put in place.
        QFETCH(const QVariant, change);
        VaultFixture fixture(withAGap());
        const QByteArray backup = readFile(fixture.container());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QVERIFY(fixture.store(QStringLiteral("perdido"), "perdido"));
        QVERIFY(writeFile(fixture.container(), backup));
        QVERIFY(change.value<Change>()(fixture));
        QVERIFY(bothAreKept(fixture.container()));
    }

    void anExportFindsMovedBlocks() {
        VaultFixture fixture(withAGap());
        QVERIFY(fixture.unlock());
        QVERIFY(compactElsewhere(fixture.container()));
        QCOMPARE(fixture.stored(A), contentsOfA());
        const QString out = fixture.file(QStringLiteral("saida"));
        QVERIFY(fixture.vault.exportFile(B, out));
        QCOMPARE(readFile(out), contentsOfB());
    }

    void anOpenedCopyFindsMovedBlocks() {
        VaultFixture fixture(withAGap());
        QVERIFY(fixture.unlock());
        QVERIFY(compactElsewhere(fixture.container()));
        QString copy;
        QVERIFY(fixture.vault.prepareFileForEditing(A, &copy));
        QCOMPARE(readFile(copy), contentsOfA());
    }

    void blocksThatMoveDuringAnExportAreFollowed() {
        VaultFixture fixture(withAGap());
        const QByteArray before = readFile(fixture.container());
        QVERIFY(compactElsewhere(fixture.container()));
        const QByteArray compacted = readFile(fixture.container());
        QVERIFY(writeFile(fixture.container(), before));
        QVERIFY(fixture.unlock());
        InterruptedDevice device([&] { return writeFile(fixture.container(), compacted); });
        QVERIFY(device.open(QIODevice::WriteOnly));
        QVERIFY(fixture.vault.writeVaultFileToDevice(A, &device));
        QVERIFY(device.succeeded());
        QCOMPARE(device.data(), contentsOfA());
    }

    void anExportNeverMixesTwoStoredCopies() {
        VaultFixture fixture(withAGap());
        const QByteArray before = readFile(fixture.container());
        QVERIFY(importElsewhere(fixture, A, noise(5000, 9)));
        QVERIFY(compactElsewhere(fixture.container()));
        const QByteArray replaced = readFile(fixture.container());
        QVERIFY(writeFile(fixture.container(), before));
        QVERIFY(fixture.unlock());
        InterruptedDevice device([&] { return writeFile(fixture.container(), replaced); });
        QVERIFY(device.open(QIODevice::WriteOnly));
        QVERIFY(!fixture.vault.writeVaultFileToDevice(A, &device));
        QVERIFY(device.succeeded());
        QCOMPARE(device.data(), contentsOfA().first(1000));
    }

    void savingAnIndexSavesWhatItIsGiven() {
        VaultFixture fixture(withAGap());
        QVERIFY(fixture.unlock());
        const SecureFileIndex given = fixture.vault.fileIndex();
        QVERIFY(importElsewhere(fixture, QStringLiteral("c"), "c"));
        QVERIFY(fixture.vault.saveIndex(given));
        QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword), given.toJson());
        QCOMPARE(fixture.vault.fileIndex().toJson(), given.toJson());
    }

    void aContainerBehindALinkIsCompactedWhereItIs() {
        VaultFixture fixture(withAGap());
        const QString link = fixture.file(QStringLiteral("link.tvlt"));
        QVERIFY(QFile::link(fixture.container(), link));
        QVERIFY(fixture.vault.unlockVault(link, TestPassword));
        const qint64 before = QFileInfo(fixture.container()).size();
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QVERIFY(QFileInfo(link).isSymLink());
        QVERIFY(QFileInfo(fixture.container()).size() < before);
        QVERIFY(bothAreKept(fixture.container()));
    }

    void aPasswordChangedElsewhereStaysChanged() {
        VaultFixture fixture(withAGap());
        QVERIFY(fixture.unlock());
        const QByteArray newPassword = QByteArrayLiteral("outra senha");
        QVERIFY(VaultManager().changePassword(fixture.container(), TestPassword, newPassword));
        QVERIFY(fixture.vault.createDirectory(QStringLiteral("um")));
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QVERIFY(fixture.vault.createDirectory(QStringLiteral("dois")));
        QCOMPARE(indexAsOpenedAnew(fixture.container(), newPassword),
                 fixture.vault.fileIndex().toJson());
    }
};

TESSEL_TEST_MAIN(runTest<QCoreApplication, TestTwoSessions>);
#include "test_two_sessions.moc"
