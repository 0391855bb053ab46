// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Two sessions on one container, and a container that is replaced while its vault is open: every
// change works on what the drive holds, so no file is lost.

#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/VaultFixture.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QFileInfo>
#include <QTest>

#include <functional>
#include <utility>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString A = u"docs/a.bin"_s;
const QString B = u"b.txt"_s;

QByteArray contentsOfA() {
    return noise(5000, 1);
}

QByteArray contentsOfB() {
    return "conteudo de b"_ba;
}

/// A vault whose blocks a compaction moves to the front.
CraftedContainer withAGap() {
    CraftedContainer crafted;
    crafted.addFolder(u"docs"_s)
        .addFolder(u"vazia"_s)
        .leaveGap(7000)
        .addFile(A, contentsOfA(), 1000)
        .addFile(B, contentsOfB())
        .addFile(u"velho"_s, "velho");
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

bool importElsewhere(const VaultFixture& vault, const QString& path, const QByteArray& bytes) {
    VaultManager other;
    return other.unlockVault(vault.container(), TestPassword) &&
           other.importFile(vault.write(u"fonte"_s, bytes), path) && other.lockVault();
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

using Change = bool (*)(VaultFixture& vault);

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
            return f.vault.createDirectory(u"nova"_s) && f.folderPaths().contains(u"nova"_s);
        });
        row("import",
            [](VaultFixture& f) { return f.store(u"c"_s, "c") && f.stored(u"c"_s) == "c"; });
        row("move a file", [](VaultFixture& f) { return f.vault.moveFile(u"velho"_s, u"docs"_s); });
        row("rename a file",
            [](VaultFixture& f) { return f.vault.renameFile(u"velho"_s, u"novo"_s); });
        row("delete a file", [](VaultFixture& f) { return f.vault.deleteFile(u"velho"_s); });
        row("rename a folder",
            [](VaultFixture& f) { return f.vault.renameDirectory(u"vazia"_s, u"nova"_s); });
        row("delete a folder", [](VaultFixture& f) { return f.vault.deleteDirectory(u"vazia"_s); });
        row("compact", [](VaultFixture& f) { return f.vault.compactVault({}, nullptr); });
        row("lock", [](VaultFixture& f) { return f.vault.lockVault(); });
        row("lock with an edited copy", [](VaultFixture& f) {
            return !f.openAndEdit(u"velho"_s, "editado").isEmpty() && f.vault.lockVault() &&
                   f.unlock() && f.stored(u"velho"_s) == "editado";
        });
    }

private Q_SLOTS:
    void changesInTurnLoseNothing() {
        VaultFixture vault(withAGap());
        VaultManager other;
        QVERIFY(vault.unlock());
        QVERIFY(other.unlockVault(vault.container(), TestPassword));

        QVERIFY(vault.store(u"c.bin"_s, noise(5000, 3)));
        QVERIFY(other.importFile(vault.write(u"d"_s, noise(6000, 4)), u"d.bin"_s));
        QVERIFY(vault->createDirectory(u"minha"_s));
        QVERIFY(other.createDirectory(u"dela"_s));
        QVERIFY(vault->moveFile(u"d.bin"_s, u"dela"_s));
        QVERIFY(other.deleteFile(B));
        QVERIFY(vault->deleteDirectory(u"vazia"_s));
        QVERIFY(other.lockVault());
        QVERIFY(vault->renameDirectory(u"dela"_s, u"nossa"_s));

        QVERIFY(vault.isSaved());
        QVERIFY(!vault.filePaths().contains(B));
        QCOMPARE(vault.folderPaths(), QStringList({u"docs"_s, u"minha"_s, u"nossa"_s}));
        QCOMPARE(vault.stored(A), contentsOfA());
        QCOMPARE(vault.stored(u"c.bin"_s), noise(5000, 3));
        QCOMPARE(vault.stored(u"nossa/d.bin"_s), noise(6000, 4));
    }

    void whatAnotherSessionMadeIsInTheWay() {
        OpenVault vault(withAGap());
        QVERIFY(importElsewhere(vault, u"novo"_s, "dela"));
        QVERIFY(!vault->createDirectory(u"novo"_s));
        QVERIFY(!vault->renameFile(B, u"novo"_s));
        QVERIFY(bothAreKept(vault.container()));
    }

    void aChangeAfterAnotherSessionCompacted_data() { addChanges(); }
    void aChangeAfterAnotherSessionCompacted() {
        QFETCH(const QVariant, change);
        OpenVault vault(withAGap());
        QVERIFY(compactElsewhere(vault.container()));
        QVERIFY(change.value<Change>()(vault));
        QVERIFY(bothAreKept(vault.container()));
    }

    void aChangeAfterOneOfOursAndOneOfAnotherSession_data() { addChanges(); }
    void aChangeAfterOneOfOursAndOneOfAnotherSession() {
        // The session knows the header that it has written, and must notice that it is gone.
        QFETCH(const QVariant, change);
        OpenVault vault(withAGap());
        QVERIFY(vault.store(u"minha"_s, "minha"));
        QVERIFY(importElsewhere(vault, u"dela"_s, "dela"));
        QVERIFY(compactElsewhere(vault.container()));
        QVERIFY(change.value<Change>()(vault));
        QVERIFY(bothAreKept(vault.container()));
        VaultManager fresh;
        QVERIFY(fresh.unlockVault(vault.container(), TestPassword));
        QVERIFY(isKept(fresh, u"minha"_s, "minha") && isKept(fresh, u"dela"_s, "dela"));
        QVERIFY(fresh.lockVault());
    }

    void aChangeAfterACopyWasPutBack_data() { addChanges(); }
    void aChangeAfterACopyWasPutBack() {
        // As a backup is, or the container that a compaction could not put in place.
        QFETCH(const QVariant, change);
        VaultFixture vault(withAGap());
        const QByteArray backup = vault.bytes();
        QVERIFY(vault.unlock());
        QVERIFY(vault.compact());
        QVERIFY(vault.store(u"perdido"_s, "perdido"));
        QVERIFY(writeFile(vault.container(), backup));
        QVERIFY(change.value<Change>()(vault));
        QVERIFY(bothAreKept(vault.container()));
    }

    void anExportFindsMovedBlocks() {
        OpenVault vault(withAGap());
        QVERIFY(compactElsewhere(vault.container()));
        QCOMPARE(vault.stored(A), contentsOfA());
        const QString out = vault.file(u"saida"_s);
        QVERIFY(vault->exportFile(B, out));
        QCOMPARE(readFile(out), contentsOfB());
    }

    void anOpenedCopyFindsMovedBlocks() {
        OpenVault vault(withAGap());
        QVERIFY(compactElsewhere(vault.container()));
        QString copy;
        QVERIFY(vault->prepareFileForEditing(A, &copy));
        QCOMPARE(readFile(copy), contentsOfA());
    }

    void blocksThatMoveDuringAnExportAreFollowed() {
        VaultFixture vault(withAGap());
        const QByteArray before = vault.bytes();
        QVERIFY(compactElsewhere(vault.container()));
        const QByteArray compacted = vault.bytes();
        QVERIFY(writeFile(vault.container(), before));
        QVERIFY(vault.unlock());
        InterruptedDevice device([&] { return writeFile(vault.container(), compacted); });
        QVERIFY(device.open(QIODevice::WriteOnly));
        QVERIFY(vault->writeVaultFileToDevice(A, &device));
        QVERIFY(device.succeeded());
        QCOMPARE(device.data(), contentsOfA());
    }

    void anExportNeverMixesTwoStoredCopies() {
        VaultFixture vault(withAGap());
        const QByteArray before = vault.bytes();
        QVERIFY(importElsewhere(vault, A, noise(5000, 9)));
        QVERIFY(compactElsewhere(vault.container()));
        const QByteArray replaced = vault.bytes();
        QVERIFY(writeFile(vault.container(), before));
        QVERIFY(vault.unlock());
        InterruptedDevice device([&] { return writeFile(vault.container(), replaced); });
        QVERIFY(device.open(QIODevice::WriteOnly));
        QVERIFY(!vault->writeVaultFileToDevice(A, &device));
        QVERIFY(device.succeeded());
        QCOMPARE(device.data(), contentsOfA().first(1000));
    }

    void savingAnIndexSavesWhatItIsGiven() {
        OpenVault vault(withAGap());
        const SecureFileIndex given = vault->fileIndex();
        QVERIFY(importElsewhere(vault, u"c"_s, "c"));
        QVERIFY(vault->saveIndex(given));
        QCOMPARE(indexOnDrive(vault.container(), TestPassword), given.toJson());
        QCOMPARE(vault->fileIndex().toJson(), given.toJson());
    }

    void aContainerBehindALinkIsCompactedWhereItIs() {
        VaultFixture vault(withAGap());
        const QString link = vault.file(u"link.tvlt"_s);
        QVERIFY(QFile::link(vault.container(), link));
        QVERIFY(vault->unlockVault(link, TestPassword));
        const qint64 before = vault.containerSize();
        QVERIFY(vault.compact());
        QVERIFY(QFileInfo(link).isSymLink());
        QVERIFY(vault.containerSize() < before);
        QVERIFY(bothAreKept(vault.container()));
    }

    void aPasswordChangedElsewhereStaysChanged() {
        OpenVault vault(withAGap());
        const QByteArray newPassword = "outra senha"_ba;
        QVERIFY(vault->createDirectory(u"zero"_s));
        QVERIFY(VaultManager().changePassword(vault.container(), TestPassword, newPassword));
        QVERIFY(vault->createDirectory(u"um"_s));
        QVERIFY(vault.compact());
        QVERIFY(vault->createDirectory(u"dois"_s));
        QVERIFY(vault.isSaved(newPassword));
    }
};

TESSEL_TEST_MAIN(runTest<QCoreApplication, TestTwoSessions>);
#include "test_two_sessions.moc"
