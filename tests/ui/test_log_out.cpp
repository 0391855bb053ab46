// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The end of a desktop session, with a session manager that asks for it over the wire as a
// desktop's own does.

#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/OwnDisplay.h"
#include "support/TestProgram.h"
#include "support/WindowDriver.h"
#include "ui/ApplicationSetup.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

#include <unistd.h>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Password = u"senha de teste"_s;
constexpr int PatienceMs = 10000;
/// Where the session manager writes what it was answered.
constexpr const char* LogVariable = "TESSEL_TEST_SESSION_LOG";

QString logPath() {
    return qEnvironmentVariable(LogVariable);
}

/// The session manager started this program.
void askForTheEnd() {
    QCOMPARE(::kill(::getppid(), SIGUSR1), 0);
}

} // namespace

class TestLogOut : public QObject {
    Q_OBJECT

private:
    [[nodiscard]] QString containerPath() const { return m_folder->filePath(u"t.tvlt"_s); }
    /// What has been answered since the test began.
    [[nodiscard]] QStringList answers() const {
        return QString::fromLatin1(readFile(logPath()).mid(m_logBefore))
            .split(u'\n', Qt::SkipEmptyParts);
    }
    std::unique_ptr<QTemporaryDir> m_folder;
    qsizetype m_logBefore = 0;

private Q_SLOTS:
    void initTestCase() {
        // This program itself; each one that comes later has the next number.
        QTRY_COMPARE_WITH_TIMEOUT(answers(), QStringList{u"1 takes part"_s}, PatienceMs);
    }

    void init() {
        m_folder = std::make_unique<QTemporaryDir>();
        CraftedContainer crafted;
        QVERIFY(crafted.addFile(u"a.txt"_s, "aaa").writeTo(containerPath()));
        m_logBefore = readFile(logPath()).size();
    }

    void cleanupTestCase() { QVERIFY(QFile::remove(logPath())); }

    void theProgramAgreesAndEnds() {
        QProcess program;
        program.start(QStringLiteral(TESSEL_PROGRAM), QStringList());
        QVERIFY(program.waitForStarted());
        const auto end = qScopeGuard([&program] { program.kill(); });
        QTRY_COMPARE_WITH_TIMEOUT(answers(), QStringList{u"2 takes part"_s}, PatienceMs);
        askForTheEnd();
        // Nobody tells it to end: it ends because its window has been closed.
        QTRY_COMPARE_WITH_TIMEOUT(program.state(), QProcess::NotRunning, PatienceMs);
        QCOMPARE(program.exitStatus(), QProcess::NormalExit);
        QCOMPARE(program.exitCode(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(answers().contains(u"2 has ended"_s), PatienceMs);
        QVERIFY(answers().contains(u"2 agrees"_s));
    }

    void anOpenVaultIsLockedFirst() {
        WindowDriver driver;
        Tessel::UI::closeAtLogOut(*qApp, driver.window);
        QVERIFY(driver.openVault(containerPath(), Password));
        askForTheEnd();
        QTRY_COMPARE_WITH_TIMEOUT(answers(), QStringList{u"1 agrees"_s}, PatienceMs);
        QVERIFY2(driver.dialogs.finished(), qPrintable(driver.dialogs.problems()));
        QVERIFY(!driver.window.isVisible());
        driver.window.updateActions();
        QVERIFY(!driver.vaultIsOpen());
    }

    void aVaultThatCannotBeLockedCancels() {
        WindowDriver driver;
        Tessel::UI::closeAtLogOut(*qApp, driver.window);
        QVERIFY(driver.openWithoutWayBack(containerPath(), Password, u"a.txt"_s));
        driver.dialogs.acceptWarning(u"Tessel"_s);
        askForTheEnd();
        QTRY_COMPARE_WITH_TIMEOUT(answers(), (QStringList{u"1 cancels"_s, u"1 cannot"_s}),
                                  PatienceMs);
        QVERIFY2(driver.dialogs.finished(), qPrintable(driver.dialogs.problems()));
        QCOMPARE(driver.dialogs.lastText(), u"Não foi possível bloquear o cofre."_s);
        QVERIFY(driver.window.isVisible());
        QVERIFY(driver.vaultIsOpen());
        QVERIFY(WindowDriver::bringBack(containerPath()));
        QVERIFY(driver.window.close());
    }

    void aDialogThatIsOpenCancels() {
        WindowDriver driver;
        Tessel::UI::closeAtLogOut(*qApp, driver.window);
        QVERIFY(driver.openVault(containerPath(), Password));
        driver.dialogs.handle(u"Nova pasta"_s, [this](QDialog* dialog) {
            const auto close = qScopeGuard([dialog] { dialog->reject(); });
            askForTheEnd();
            QTRY_COMPARE_WITH_TIMEOUT(answers(), (QStringList{u"1 cancels"_s, u"1 cannot"_s}),
                                      PatienceMs);
        });
        driver.action(u"Nova pasta..."_s)->trigger();
        QVERIFY2(driver.dialogs.finished(), qPrintable(driver.dialogs.problems()));
        QVERIFY(driver.window.isVisible());
        QVERIFY(driver.vaultIsOpen());
        QVERIFY(driver.window.close());
    }
};

namespace {

int run(int argc, char** argv) {
    const QByteArray sessionManager = QByteArrayLiteral(SESSION_MANAGER);
    if (sessionManager.isEmpty()) {
        return refused("libsm-dev was not installed here when the tests were built");
    }
    // Only the X platform takes part in a session.
    if (!isOnOwnDisplay()) {
        const QString log = QDir::temp().filePath(u"tessel-session-%1"_s.arg(::getpid()));
        qputenv(LogVariable, QFile::encodeName(log));
        return startOnOwnDisplay(argc, argv, {sessionManager, QFile::encodeName(log)});
    }
    return runTest<QApplication, TestLogOut>(argc, argv);
}

} // namespace

TESSEL_TEST_MAIN(run);

#include "test_log_out.moc"
