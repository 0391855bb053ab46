// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/WorkspaceLeftovers.h"
#include "support/FileModes.h"
#include "support/Files.h"
#include "support/KilledRun.h"
#include "support/MustRun.h"
#include "support/TestProgram.h"
#include "support/VaultFixture.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <functional>
#include <memory>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr uid_t Ana = 12345;
constexpr uid_t Beto = 12346;

/// Whether @p action succeeds when a process of that account does it.
bool asAccount(uid_t account, const std::function<bool()>& action) {
    const pid_t child = ::fork();
    if (child == 0) {
        const bool changed = ::setresgid(account, account, account) == 0 &&
                             ::setresuid(account, account, account) == 0;
        ::_exit(changed && action() ? 0 : 1);
    }
    int status = 0;
    return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

bool opensAFile(const VaultFixture& fixture) {
    VaultManager vault;
    QString copy;
    return vault.unlockVault(fixture.container(), TestPassword) &&
           vault.prepareFileForEditing(u"a.txt"_s, &copy) && readFile(copy) == "line of a\n" &&
           vault.lockVault();
}

} // namespace

/// Several accounts of one machine share its temporary folder.
class TestOtherAccounts : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<VaultFixture> m_fixture;

    [[nodiscard]] QString parent() const { return m_fixture->temporaryFolder() + u"/Tessel"_s; }
    [[nodiscard]] bool plantParent(uid_t owner, mode_t mode) const {
        const QByteArray path = QFile::encodeName(parent());
        return ::mkdir(path.constData(), 0700) == 0 &&
               ::chown(path.constData(), owner, owner) == 0 && ::chmod(path.constData(), mode) == 0;
    }

private Q_SLOTS:
    void init() {
        CraftedContainer crafted;
        crafted.addFile(u"a.txt"_s, "line of a\n");
        m_fixture = std::make_unique<VaultFixture>(crafted);
        // A drive and a temporary folder as every account sees them.
        const QString root = QFileInfo(m_fixture->temporaryFolder()).path();
        QCOMPARE(::chmod(QFile::encodeName(root).constData(), 0755), 0);
        QCOMPARE(::chmod(QFile::encodeName(m_fixture->temporaryFolder()).constData(), 01777), 0);
        QCOMPARE(::chmod(QFile::encodeName(m_fixture->container()).constData(), 0644), 0);
    }

    // Before the next one, which would be made inside of it.
    void cleanup() { m_fixture.reset(); }

    void eachAccountOpensFiles() {
        const FileModeMask nobodyElse(0077);
        QVERIFY(asAccount(Ana, [this] { return opensAFile(*m_fixture); }));
        QVERIFY(asAccount(Beto, [this] { return opensAFile(*m_fixture); }));
        QVERIFY(asAccount(Ana, [this] { return opensAFile(*m_fixture); }));
    }

    void anAccountTakesItsEditsBack() {
        QCOMPARE(::chown(QFile::encodeName(m_fixture->container()).constData(), Ana, Ana), 0);
        QVERIFY(asAccount(Ana, [this] {
            // As the program does: its own process files then belong to the superuser.
            return ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0 && m_fixture->unlock() &&
                   !m_fixture->openAndEdit(u"a.txt"_s, "edited").isEmpty() &&
                   m_fixture->vault.lockVault();
        }));
        QVERIFY(m_fixture->unlock());
        QCOMPARE(m_fixture->stored(u"a.txt"_s), "edited"_ba);
        QVERIFY(m_fixture->vault.lockVault());
    }

    void aParentOfAnotherAccountIsUsedOnlyWhenItIsSticky_data() {
        QTest::addColumn<uid_t>("owner");
        QTest::addColumn<mode_t>("mode");
        QTest::addColumn<bool>("used");
        QTest::newRow("open to all") << Ana << mode_t{0777} << false;
        QTest::newRow("sticky") << Ana << mode_t{01777} << true;
        QTest::newRow("the superuser's") << uid_t{0} << mode_t{0777} << true;
        QTest::newRow("our own") << Beto << mode_t{0700} << true;
    }
    void aParentOfAnotherAccountIsUsedOnlyWhenItIsSticky() {
        QFETCH(const uid_t, owner);
        QFETCH(const mode_t, mode);
        QFETCH(const bool, used);
        QVERIFY(plantParent(owner, mode));
        QCOMPARE(asAccount(Beto, [this] { return opensAFile(*m_fixture); }), used);
        QVERIFY(QDir(parent()).isEmpty());
    }

    void whatAnotherAccountsRunLeftIsNotTouched() {
        KilledRun run([this] {
            QString copy;
            return ::setresgid(Ana, Ana, Ana) == 0 && ::setresuid(Ana, Ana, Ana) == 0 &&
                   m_fixture->unlock() && m_fixture->vault.prepareFileForEditing(u"a.txt"_s, &copy);
        });
        QVERIFY(run.isReady());
        run.kill();
        const auto left = [this] {
            return QDir(parent()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
        };
        const auto start = [] {
            WorkspaceLeftovers leftovers;
            leftovers.clear();
            return leftovers.untoldFolders().isEmpty();
        };
        QCOMPARE(left().size(), 2);
        // The superuser could, and Beto could not.
        QVERIFY(start());
        QVERIFY(asAccount(Beto, start));
        QCOMPARE(left().size(), 2);
        QVERIFY(asAccount(Ana, start));
        QCOMPARE(left(), QStringList());
    }

    void theOwnerOfTheParentGetsNothingByMovingTheWorkspace() {
        // The superuser's session: nobody is kept from a folder by its mode but by its owner.
        QVERIFY(plantParent(Ana, 01777));
        QVERIFY(m_fixture->unlock());
        QString copy;
        QVERIFY(m_fixture->vault.prepareFileForEditing(u"a.txt"_s, &copy));
        const QString workspace = QFileInfo(copy).path();
        const QString moved = parent() + u"/moved"_s;
        QVERIFY(asAccount(Ana, [&] {
            return QDir().rename(workspace, moved) && QDir().mkdir(workspace) &&
                   writeFile(copy, "planted") && readFile(moved + u"/a.txt"_s).isEmpty();
        }));
        copy.clear();
        QVERIFY(!m_fixture->vault.prepareFileForEditing(u"a.txt"_s, &copy));
        QVERIFY(copy.isEmpty());
        QVERIFY(!m_fixture->vault.syncModifiedTempFiles());
        QVERIFY(!m_fixture->vault.lockVault());
        QCOMPARE(m_fixture->stored(u"a.txt"_s), "line of a\n"_ba);
        QCOMPARE(readFile(workspace + u"/a.txt"_s), "planted"_ba);
    }
};

namespace {

int run(int argc, char** argv) {
    if (::geteuid() != 0 || !asAccount(Ana, [] { return true; })) {
        return refused("only the superuser can act for two accounts");
    }
    return runTest<QCoreApplication, TestOtherAccounts>(argc, argv);
}

} // namespace

TESSEL_TEST_MAIN(run);
#include "test_other_accounts.moc"
