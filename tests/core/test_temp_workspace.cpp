// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/TempWorkspaceManager.h"
#include "support/Faults.h"
#include "support/FileModes.h"
#include "support/Files.h"
#include "support/TestProgram.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <optional>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

/// Makes a file and the folders above it.
bool plantFile(const QString& path, const QByteArray& bytes) {
    return QDir().mkpath(QFileInfo(path).path()) && writeFile(path, bytes);
}

/// Whether anything has this name, a link that leads nowhere included.
bool isThere(const QString& path) {
    return QFileInfo::exists(path) || QFileInfo(path).isSymLink();
}

/// Lets this process have no more than so many files open.
class DescriptorLimit {
public:
    explicit DescriptorLimit(rlim_t most) {
        if (::getrlimit(RLIMIT_NOFILE, &m_before) != 0) {
            qFatal("getrlimit failed");
        }
        const struct rlimit limit = {most, m_before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &m_before); }
    Q_DISABLE_COPY_MOVE(DescriptorLimit)

private:
    struct rlimit m_before = {};
};

} // namespace

class TestTempWorkspace : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_temp;
    std::unique_ptr<QTemporaryDir> m_outside;
    QByteArray m_tmpdirBefore;

    QString inTemp(const QString& name) const { return m_temp->filePath(name); }
    QString outside(const QString& name) const { return m_outside->filePath(name); }

private Q_SLOTS:
    void initTestCase() { m_tmpdirBefore = qgetenv("TMPDIR"); }
    void init() {
        m_temp = std::make_unique<QTemporaryDir>();
        m_outside = std::make_unique<QTemporaryDir>();
        QVERIFY(m_temp->isValid() && m_outside->isValid());
        qputenv("TMPDIR", QFile::encodeName(m_temp->path()));
    }
    void cleanup() {
        if (m_tmpdirBefore.isNull()) {
            qunsetenv("TMPDIR");
        } else {
            qputenv("TMPDIR", m_tmpdirBefore);
        }
    }

    // --- Where it lies ---------------------------------------------------------------------

    void theWorkspaceIsAFreshFolderBelowTessel() {
        const TempWorkspaceManager workspace;
        const QRegularExpression shape(
            u"^Tessel/[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}$"_s);
        const QString path = workspace.workspacePath();
        QVERIFY(QDir::isAbsolutePath(path));
        QVERIFY2(shape.match(QDir(m_temp->path()).relativeFilePath(path)).hasMatch(),
                 qPrintable(path));
        QVERIFY(TempWorkspaceManager().workspacePath() != path);
    }

    void choosingItCreatesNothing() {
        const TempWorkspaceManager workspace;
        QVERIFY(QDir(m_temp->path()).isEmpty());
    }

    void itIsChosenOnce() {
        TempWorkspaceManager workspace;
        const QString path = workspace.workspacePath();
        qputenv("TMPDIR", QFile::encodeName(m_outside->path()));
        QCOMPARE(workspace.workspacePath(), path);
        QVERIFY(workspace.prepare());
        QVERIFY(QFileInfo(path).isDir());
        QVERIFY(QDir(m_outside->path()).isEmpty());
    }

    void copiesMirrorTheVaultsFolders_data() {
        QTest::addColumn<QString>("vaultPath");
        QTest::newRow("at the root") << u"a.txt"_s;
        QTest::newRow("in folders") << u"docs/2025/a.txt"_s;
        QTest::newRow("blanks and accents") << u"meus docs/a\u00e7\u00e3o.txt"_s;
    }
    void copiesMirrorTheVaultsFolders() {
        QFETCH(const QString, vaultPath);
        const TempWorkspaceManager workspace;
        QCOMPARE(workspace.pathForVaultFile(vaultPath),
                 workspace.workspacePath() + QLatin1Char('/') + vaultPath);
    }

    void anAbsolutePathDoesNotLeaveTheWorkspace() {
        const TempWorkspaceManager workspace;
        const QString path = QDir::cleanPath(workspace.pathForVaultFile(u"/etc/x"_s));
        QVERIFY(path.startsWith(workspace.workspacePath() + QLatin1Char('/')));
    }

    // --- Preparing -------------------------------------------------------------------------

    void preparingCreatesTheFolderAndItsParent() {
        TempWorkspaceManager workspace;
        QVERIFY(workspace.prepare());
        QVERIFY(QFileInfo(workspace.workspacePath()).isDir());
        QCOMPARE(QDir(m_temp->path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList(u"Tessel"_s));
        QVERIFY(plantFile(workspace.pathForVaultFile(u"a"_s), "kept"));
        QVERIFY(workspace.prepare());
        QCOMPARE(readFile(workspace.pathForVaultFile(u"a"_s)), "kept"_ba);
    }

    void preparingFailsWhereAFileIsInTheWay() {
        QVERIFY(writeFile(inTemp(u"Tessel"_s), "a file"));
        TempWorkspaceManager workspace;
        QVERIFY(!workspace.prepare());
        QCOMPARE(readFile(inTemp(u"Tessel"_s)), "a file"_ba);
    }

    void preparingFailsWithoutTheRight() {
        TempWorkspaceManager workspace;
        {
            const UnwritableFolder folder(m_temp->path());
            QVERIFY(!workspace.prepare());
        }
        QVERIFY(QDir(m_temp->path()).isEmpty());
    }

    void theFolderIsForItsUserAlone_data() {
        QTest::addColumn<mode_t>("mask");
        QTest::newRow("no mask") << mode_t{0};
        QTest::newRow("the usual mask") << mode_t{0022};
    }
    void theFolderIsForItsUserAlone() {
        QFETCH(const mode_t, mask);
        const FileModeMask fileModeMask(mask);
        TempWorkspaceManager workspace;
        QVERIFY(workspace.prepare());
        QCOMPARE(modeOf(workspace.workspacePath()), mode_t{0700});
        QVERIFY(workspace.cleanup());
    }

    void theParentIsForAllAccounts_data() {
        QTest::addColumn<bool>("isThere");
        QTest::newRow("made by this run") << false;
        QTest::newRow("made by an earlier version, for its user alone") << true;
    }
    void theParentIsForAllAccounts() {
        QFETCH(const bool, isThere);
        const QString parent = inTemp(u"Tessel"_s);
        const FileModeMask nobodyElse(0077);
        QVERIFY(!isThere || QDir().mkdir(parent));
        TempWorkspaceManager workspace;
        QVERIFY(workspace.prepare());
        QCOMPARE(modeOf(parent), mode_t{01777});
        QVERIFY(workspace.cleanup());
    }

    void aParentThatIsALinkIsNotUsed() {
        QVERIFY(QFile::link(m_outside->path(), inTemp(u"Tessel"_s)));
        TempWorkspaceManager workspace;
        QVERIFY(!workspace.prepare());
        QVERIFY(QDir(m_outside->path()).isEmpty());
    }

    void startedProgramsInheritNoDescriptor() {
        TempWorkspaceManager workspace;
        QVERIFY(workspace.prepare());
        QProcess list;
        list.start(u"ls"_s, {u"-l"_s, u"/proc/self/fd"_s});
        QVERIFY(list.waitForFinished() && list.exitCode() == 0);
        const QByteArray descriptors = list.readAllStandardOutput();
        QVERIFY2(!descriptors.contains("/Tessel"), descriptors.constData());
        QVERIFY(workspace.cleanup());
    }

    // --- Removing --------------------------------------------------------------------------

    void removingNothingSucceeds() {
        TempWorkspaceManager workspace;
        QVERIFY(workspace.cleanup());
        QVERIFY(QDir(m_temp->path()).isEmpty());
        QVERIFY(workspace.prepare());
        QVERIFY(workspace.cleanup());
        QVERIFY(workspace.cleanup());
    }

    void everythingInItIsRemoved() {
        TempWorkspaceManager workspace;
        QVERIFY(workspace.prepare());
        for (const char* name : {"a.txt", "docs/b.txt", "docs/deep/deeper/c.txt", ".hidden",
                                 ".hidden folder/.d", "~$lock.docx", "line\nbreak"}) {
            QVERIFY(plantFile(workspace.pathForVaultFile(QString::fromLatin1(name)), name));
        }
        const QString readOnly = workspace.pathForVaultFile(u"read-only"_s);
        QVERIFY(plantFile(readOnly, "x"));
        QVERIFY(QFile::setPermissions(readOnly, {}));
        QVERIFY(QDir().mkpath(workspace.pathForVaultFile(u"empty/folders"_s)));
        QVERIFY(workspace.cleanup());
        QVERIFY(!QFileInfo::exists(workspace.workspacePath()));
    }

    void theParentAndOtherRunsStay() {
        TempWorkspaceManager workspace;
        TempWorkspaceManager other;
        QVERIFY(workspace.prepare() && other.prepare());
        QVERIFY(writeFile(other.pathForVaultFile(u"a"_s), "of another run"));
        QVERIFY(workspace.cleanup());
        QCOMPARE(readFile(other.pathForVaultFile(u"a"_s)), "of another run"_ba);
        QVERIFY(other.cleanup());
        QVERIFY(QFileInfo(inTemp(u"Tessel"_s)).isDir());
    }

    void itCanBePreparedAgainAfterItsRemoval() {
        TempWorkspaceManager workspace;
        QVERIFY(workspace.prepare());
        const QString path = workspace.workspacePath();
        QVERIFY(workspace.cleanup());
        QVERIFY(workspace.prepare());
        QCOMPARE(workspace.workspacePath(), path);
        QVERIFY(QFileInfo(path).isDir());
    }

    void linksInItAreRemovedAndNotFollowed_data() {
        QTest::addColumn<QString>("linkName");
        QTest::addColumn<QString>("target");
        QTest::newRow("to a folder") << u"link"_s << u"folder"_s;
        QTest::newRow("to a folder, further down") << u"docs/deep/link"_s << u"folder"_s;
        QTest::newRow("to a file") << u"link"_s << u"folder/file"_s;
        QTest::newRow("to nothing") << u"link"_s << u"missing"_s;
    }
    void linksInItAreRemovedAndNotFollowed() {
        QFETCH(const QString, linkName);
        QFETCH(const QString, target);
        QVERIFY(plantFile(outside(u"folder/file"_s), "not the vault's"));
        TempWorkspaceManager workspace;
        QVERIFY(workspace.prepare());
        const QString link = workspace.pathForVaultFile(linkName);
        QVERIFY(QDir().mkpath(QFileInfo(link).path()));
        QVERIFY(QFile::link(outside(target), link));
        QVERIFY(workspace.cleanup());
        QVERIFY(!isThere(workspace.workspacePath()));
        QCOMPARE(readFile(outside(u"folder/file"_s)), "not the vault's"_ba);
    }

    void aLinkInItsPlaceIsRemovedAndNotFollowed_data() {
        QTest::addColumn<QString>("target");
        QTest::newRow("to a folder") << u"folder"_s;
        QTest::newRow("to a file") << u"folder/file"_s;
        QTest::newRow("to nothing") << u"missing"_s;
    }
    void aLinkInItsPlaceIsRemovedAndNotFollowed() {
        QFETCH(const QString, target);
        QVERIFY(plantFile(outside(u"folder/file"_s), "not the vault's"));
        TempWorkspaceManager workspace;
        QVERIFY(workspace.prepare());
        QVERIFY(QDir().rmdir(workspace.workspacePath()));
        QVERIFY(QFile::link(outside(target), workspace.workspacePath()));
        QVERIFY(workspace.cleanup());
        QVERIFY(!isThere(workspace.workspacePath()));
        QCOMPARE(readFile(outside(u"folder/file"_s)), "not the vault's"_ba);
    }

    void aFolderInItsPlaceIsLeftAlone_data() {
        QTest::addColumn<bool>("isLink");
        QTest::newRow("a folder") << false;
        QTest::newRow("a link to one") << true;
    }
    void aFolderInItsPlaceIsLeftAlone() {
        QFETCH(const bool, isLink);
        TempWorkspaceManager workspace;
        QVERIFY(workspace.prepare());
        QVERIFY(plantFile(workspace.pathForVaultFile(u"docs/a"_s), "a copy"));
        // Moved away by somebody who may; something else takes the name.
        const QString moved = inTemp(u"moved"_s);
        QVERIFY(QDir().rename(workspace.workspacePath(), moved));
        const QString other = isLink ? outside(u"folder"_s) : workspace.workspacePath();
        QVERIFY(plantFile(other + u"/docs/a"_s, "not the vault's"));
        QVERIFY(!isLink || QFile::link(other, workspace.workspacePath()));
        QVERIFY(!workspace.cleanup());
        QCOMPARE(readFile(other + u"/docs/a"_s), "not the vault's"_ba);
        // The copies are removed where they are.
        QVERIFY(QDir(moved).isEmpty());
    }

    void foldersWithinFoldersAreRemovedHoweverDeep() {
        TempWorkspaceManager workspace;
        QVERIFY(workspace.prepare());
        // Deeper than a process may have files open.
        const DescriptorLimit few(64);
        const QString deepest = workspace.pathForVaultFile(u"a/"_s.repeated(200) + u"x"_s);
        QVERIFY(plantFile(deepest, "x"));
        QVERIFY(workspace.cleanup());
        QVERIFY(!isThere(workspace.workspacePath()));
    }

    void theParentHoldsNothingAfterwards() {
        TempWorkspaceManager workspace;
        QVERIFY(workspace.prepare());
        QVERIFY(workspace.cleanup());
        QCOMPARE(QDir(inTemp(u"Tessel"_s))
                     .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList());
    }

    void whatCannotBeRemovedIsReported() {
        NEEDS_PRIVATE_MOUNTS();
        TempWorkspaceManager workspace;
        QVERIFY(workspace.prepare());
        const QString stuck = workspace.pathForVaultFile(u"docs/stuck"_s);
        const QString other = workspace.pathForVaultFile(u"docs/other"_s);
        QVERIFY(plantFile(stuck, "x") && plantFile(other, "y"));
        {
            const PinnedFile pinned(stuck);
            QVERIFY(!workspace.cleanup());
            QVERIFY(QFileInfo::exists(stuck));
            // One file that stays is no reason to leave the others.
            QVERIFY(!QFileInfo::exists(other));
        }
        QVERIFY(workspace.cleanup());
        QVERIFY(!isThere(workspace.workspacePath()));
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestTempWorkspace>);
#include "test_temp_workspace.moc"
