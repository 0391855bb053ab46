// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"
#include "support/FileModes.h"
#include "support/Files.h"
#include "support/ProgressProbe.h"
#include "support/TestProgram.h"
#include "support/WindowDriver.h"
#include "ui/ApplicationSetup.h"
#include "ui/ProcessPrivacy.h"
#include "ui/TerminationWatcher.h"

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QLineEdit>
#include <QProcess>
#include <QSessionManager>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

#include <csignal>
#include <cstdlib>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Password = u"senha de teste"_s;

/// The workspace folders of every run under this temporary folder.
QStringList workspaces() {
    return QDir(QDir::tempPath() + u"/Tessel"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
}

/// As far as the system lets this process.
void raiseCoreLimit() {
    rlimit core{};
    static_cast<void>(::getrlimit(RLIMIT_CORE, &core));
    core.rlim_cur = core.rlim_max;
    static_cast<void>(::setrlimit(RLIMIT_CORE, &core));
}

} // namespace

class TestTermination : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_folder;
    QString m_container;

    /// Starts the program. @return whether the signal would reach it in the end.
    [[nodiscard]] static bool startProgram(QProcess* program, const QStringList& arguments,
                                           int signal) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        // Where a session has no such folder, Qt says so.
        environment.insert(u"XDG_RUNTIME_DIR"_s, QDir::tempPath());
        program->setProcessEnvironment(environment);
        program->start(QStringLiteral(TESSEL_PROGRAM),
                       arguments + QStringList{u"-platform"_s, u"offscreen"_s});
        if (!program->waitForStarted()) {
            return false;
        }
        // The watcher is there once the handler shows in the process's table of caught signals; it
        // follows the window.
        const auto catches = [program, signal] {
            const QList<QByteArray> lines =
                readFile(u"/proc/%1/status"_s.arg(program->processId())).split('\n');
            for (const QByteArray& line : lines) {
                if (line.startsWith("SigCgt:")) {
                    return (line.mid(7).trimmed().toULongLong(nullptr, 16) >> (signal - 1) & 1) ==
                           1;
                }
            }
            return false;
        };
        return QTest::qWaitFor(catches, 30000);
    }

    /// Sends the signal and waits until the program has ended in order.
    static void endProgram(QProcess* program, int signal) {
        QCOMPARE(::kill(static_cast<pid_t>(program->processId()), signal), 0);
        QVERIFY(program->waitForFinished(30000));
        QCOMPARE(program->exitStatus(), QProcess::NormalExit);
        QCOMPARE(program->exitCode(), 0);
    }

private Q_SLOTS:
    void initTestCase() {
        qputenv("TMPDIR", m_folder.path().toLocal8Bit());
        m_container = m_folder.filePath(u"tessel.tvlt"_s);
        CraftedContainer crafted;
        crafted.addFile(u"a.txt"_s, "conteúdo");
        QVERIFY(crafted.writeTo(m_container));
    }

    void startedProgramsInheritNothing() {
        // What an editor goes by when it saves, or when it crashes.
        const auto surroundings = [] {
            QProcess shell;
            shell.start(u"sh"_s, {u"-c"_s, u"umask; ulimit -S -c; ulimit -H -c; "
                                           "grep -E 'SigIgn|SigBlk' /proc/self/status"_s});
            return shell.waitForFinished() ? shell.readAllStandardOutput() : QByteArray();
        };
        const FileModeMask usual(0022);
        raiseCoreLimit();
        const QByteArray before = surroundings();
        Tessel::UI::makeProcessPrivate();
        QCOMPARE(surroundings(), before);
        QVERIFY2(before.startsWith("0022") && before.contains("SigIgn"), before.constData());
    }

    void noCoreDumpHoldsKeys() {
        const pid_t child = ::fork();
        if (child == 0) {
            raiseCoreLimit();
            Tessel::UI::makeProcessPrivate();
            static_cast<void>(std::signal(SIGABRT, SIG_DFL));
            std::abort();
        }
        int status = 0;
        QCOMPARE(::waitpid(child, &status, 0), child);
        QVERIFY(WIFSIGNALED(status));
        QVERIFY(!WCOREDUMP(status));
    }

    void noOtherProcessOfTheUserReadsTheMemory() {
        Tessel::UI::makeProcessPrivate();
        QCOMPARE(::prctl(PR_GET_DUMPABLE, 0, 0, 0, 0), 0);
    }

    void aSizeLimitMakesAWriteFail() {
        rlimit before{};
        QCOMPARE(::getrlimit(RLIMIT_FSIZE, &before), 0);
        const rlimit tight{100, before.rlim_max};
        Tessel::UI::makeProcessPrivate();
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &tight), 0);
        const bool written = writeFile(m_folder.filePath(u"limited"_s), QByteArray(1000, 'x'));
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &before), 0);
        QVERIFY(!written);
    }

    void signalsArriveInTheEventLoop_data() {
        QTest::addColumn<int>("signal");
        QTest::newRow("SIGTERM") << SIGTERM;
        QTest::newRow("SIGINT") << SIGINT;
        QTest::newRow("SIGHUP") << SIGHUP;
    }
    void signalsArriveInTheEventLoop() {
        QFETCH(int, signal);
        const Tessel::UI::TerminationWatcher watcher;
        const QSignalSpy spy(&watcher, &Tessel::UI::TerminationWatcher::terminationRequested);
        QCOMPARE(std::raise(signal), 0);
        QCOMPARE(spy.count(), 0);
        QTRY_COMPARE(spy.count(), 1);
    }

    void aRequestLocksTheVaultAndClosesTheWindow() {
        WindowDriver driver;
        QVERIFY(driver.openVault(m_container, Password));
        QCOMPARE(workspaces().size(), 1);
        driver.window.requestClose();
        QVERIFY(!driver.window.isVisible());
        QCOMPARE(workspaces().size(), 0);
    }

    void aRequestWithdrawsTheDialogThatIsOpen() {
        WindowDriver driver;
        QVERIFY(driver.openVault(m_container, Password));
        driver.dialogs.handle(u"Nova pasta"_s, [&](QDialog*) { driver.window.requestClose(); });
        driver.action(u"Nova pasta..."_s)->trigger();
        QVERIFY2(driver.dialogs.finished(), qPrintable(driver.dialogs.problems()));
        QVERIFY(!driver.window.isVisible());
        QCOMPARE(workspaces().size(), 0);
    }

    void aRequestWithdrawsEveryDialogOfAFlow() {
        WindowDriver driver;
        const QString path = m_folder.filePath(u"novo.tvlt"_s);
        driver.dialogs.answerFiles(u"Criar container Tessel"_s, {path});
        driver.dialogs.answerText(u"Definir senha do cofre"_s, u"dez caracteres"_s);
        driver.dialogs.handle(u"Confirmar senha do cofre"_s,
                              [&](QDialog*) { driver.window.requestClose(); });
        driver.dialogs.handle(u"Tessel"_s, [](QDialog*) {}); // "não coincidem": goes by itself
        driver.action(u"Criar novo cofre..."_s)->trigger();
        QVERIFY2(driver.dialogs.finished(), qPrintable(driver.dialogs.problems()));
        QVERIFY(!driver.window.isVisible());
        QVERIFY(!QFile::exists(path));
    }

    void aRequestWithdrawsADialogOnTopOfAnother_data() {
        QTest::addColumn<bool>("exports");
        QTest::newRow("warning on the password dialog") << false;
        QTest::newRow("question on the save dialog") << true;
    }
    void aRequestWithdrawsADialogOnTopOfAnother() {
        QFETCH(const bool, exports);
        WindowDriver driver;
        const auto request = [&](QDialog*) {
            driver.window.requestClose();
        };
        if (exports) {
            const QString existing = m_folder.filePath(u"existe.txt"_s);
            QVERIFY(writeFile(existing, "o que já estava"));
            QVERIFY(driver.openVault(m_container, Password) && driver.selectRow(u"a.txt"_s));
            driver.dialogs.press(u"Exportar arquivo"_s, u"Continuar"_s);
            driver.dialogs.handle(u"Exportar arquivo"_s, [&](QDialog* dialog) {
                // Qt asks, on the file dialog, whether to replace the file.
                driver.dialogs.handle(u"Exportar arquivo"_s, request);
                dialog->findChild<QLineEdit*>(u"fileNameEdit"_s)->setText(existing);
                QMetaObject::invokeMethod(dialog, "accept");
            });
            driver.action(u"Exportar..."_s)->trigger();
            QCOMPARE(readFile(existing), "o que já estava"_ba);
            QVERIFY(QFile::remove(existing));
        } else {
            QVERIFY(driver.chooseContainer(m_container));
            driver.dialogs.handle(u"Alterar senha do cofre"_s, [&](QDialog* dialog) {
                driver.dialogs.handle(u"Alterar senha"_s, request);
                QVERIFY(pressButton(dialog, u"Alterar"_s));
            });
            driver.action(u"Alterar senha..."_s)->trigger();
        }
        QVERIFY2(driver.dialogs.finished(), qPrintable(driver.dialogs.problems()));
        QVERIFY(!driver.window.isVisible());
        QCOMPARE(workspaces().size(), 0);
    }

    void aRequestDuringAnImportWaitsForItsEnd() {
        const QString source = m_folder.filePath(u"grande.bin"_s);
        QVERIFY(writeFile(source, noise(40 * 1024 * 1024)));
        bool asked = false;
        {
            WindowDriver driver;
            QVERIFY(driver.openVault(m_container, Password));
            driver.dialogs.answerFiles(u"Importar arquivos para o cofre"_s, {source});
            const ProgressProbe probe([&](QProgressDialog* dialog, int value) {
                if (value > 300 && value < 1000) {
                    driver.window.requestClose();
                    QVERIFY(dialog->isVisible());
                    QVERIFY(driver.window.isVisible());
                    asked = true;
                }
            });
            driver.action(u"Importar..."_s)->trigger();
            QVERIFY(!driver.window.isVisible());
            QCOMPARE(workspaces().size(), 0);
        }
        Tessel::Core::VaultManager vault;
        QVERIFY(vault.unlockVault(m_container, Password.toUtf8()));
        const bool imported = vault.fileIndex().contains(u"grande.bin"_s);
        QVERIFY(vault.lockVault());
        QVERIFY(asked);
        QVERIFY(imported);
    }

    void aSecondRequestChangesNothing() {
        WindowDriver driver;
        QVERIFY(driver.openVault(m_container, Password));
        driver.dialogs.handle(u"Nova pasta"_s, [&](QDialog*) {
            driver.window.requestClose();
            driver.window.requestClose();
        });
        driver.action(u"Nova pasta..."_s)->trigger();
        QVERIFY(!driver.window.isVisible());
        driver.window.requestClose();
        QVERIFY2(driver.dialogs.finished(), qPrintable(driver.dialogs.problems()));
    }

    void theWindowStaysWhenTheVaultCannotBeLocked() {
        const QString container = m_folder.filePath(u"gone.tvlt"_s);
        QVERIFY(QFile::copy(m_container, container));
        WindowDriver driver;
        QVERIFY(driver.openWithoutWayBack(container, Password, u"a.txt"_s));
        driver.dialogs.handle(u"Tessel"_s, [&](QDialog* dialog) {
            driver.window.requestClose(); // a second signal while the first is being answered
            dialog->accept();
        });
        driver.window.requestClose();
        QCOMPARE(driver.dialogs.lastText(), u"Não foi possível bloquear o cofre."_s);
        QVERIFY(driver.window.isVisible());
        QVERIFY(driver.vaultIsOpen());

        QVERIFY(WindowDriver::bringBack(container));
        driver.window.requestClose();
        QVERIFY2(driver.dialogs.finished(), qPrintable(driver.dialogs.problems()));
        QVERIFY(!driver.window.isVisible());
    }

    void logOutLocksTheVaultAndClosesTheWindow() {
        auto* session = qApp->findChild<QSessionManager*>();
        QVERIFY(session);
        WindowDriver driver;
        Tessel::UI::closeAtLogOut(*qApp, driver.window);
        QVERIFY(driver.openVault(m_container, Password));
        QCOMPARE(workspaces().size(), 1);
        Q_EMIT qApp->commitDataRequest(*session);
        QVERIFY(!driver.window.isVisible());
        QCOMPARE(workspaces().size(), 0);
        driver.window.updateActions();
        QVERIFY(!driver.vaultIsOpen());
    }

    void logOutIsCancelledWhenTheVaultCannotBeLocked() {
        const QString container = m_folder.filePath(u"logout.tvlt"_s);
        QVERIFY(QFile::copy(m_container, container));
        WindowDriver driver;
        QVERIFY(driver.openWithoutWayBack(container, Password, u"a.txt"_s));
        int cancelled = 0;
        const auto cancel = [&cancelled] {
            ++cancelled;
        };
        driver.dialogs.acceptWarning(u"Tessel"_s);
        Tessel::UI::closeOrCancel(driver.window, cancel);
        QVERIFY2(driver.dialogs.finished(), qPrintable(driver.dialogs.problems()));
        QCOMPARE(driver.dialogs.lastText(), u"Não foi possível bloquear o cofre."_s);
        QCOMPARE(cancelled, 1);
        QVERIFY(driver.window.isVisible());
        QVERIFY(driver.vaultIsOpen());
        QCOMPARE(workspaces().size(), 1);

        QVERIFY(WindowDriver::bringBack(container));
        Tessel::UI::closeOrCancel(driver.window, cancel);
        QCOMPARE(cancelled, 1);
        QVERIFY(!driver.window.isVisible());
        QCOMPARE(workspaces().size(), 0);
    }

    void logOutIsCancelledWhileACommandRuns() {
        WindowDriver driver;
        QVERIFY(driver.openVault(m_container, Password));
        int cancelled = 0;
        driver.dialogs.handle(u"Nova pasta"_s, [&](QDialog* dialog) {
            Tessel::UI::closeOrCancel(driver.window, [&cancelled] { ++cancelled; });
            dialog->reject();
        });
        driver.action(u"Nova pasta..."_s)->trigger();
        QVERIFY2(driver.dialogs.finished(), qPrintable(driver.dialogs.problems()));
        QCOMPARE(cancelled, 1);
        QVERIFY(driver.window.isVisible());
        QVERIFY(driver.vaultIsOpen());
        QVERIFY(driver.window.close());
    }

    void theProgramEndsOnASignal_data() { signalsArriveInTheEventLoop_data(); }
    void theProgramEndsOnASignal() {
        QFETCH(int, signal);
        QProcess program;
        QVERIFY(startProgram(&program, {}, signal));
        endProgram(&program, signal);
    }

    void theProgramHasNoOptions_data() {
        QTest::addColumn<QString>("argument");
        QTest::newRow("--version") << u"--version"_s;
        QTest::newRow("--help") << u"--help"_s;
        QTest::newRow("a container") << m_container;
    }
    /// Whatever it is started with, it shows its window and says nothing: a program without a
    /// window would not end when its window is closed.
    void theProgramHasNoOptions() {
        QFETCH(const QString, argument);
        QProcess program;
        QVERIFY(startProgram(&program, {argument}, SIGTERM));
        endProgram(&program, SIGTERM);
        QCOMPARE(program.readAllStandardOutput(), QByteArray());
        QCOMPARE(program.readAllStandardError(), QByteArray());
    }
};

TESSEL_TEST_MAIN(runTest<QApplication, TestTermination>);
#include "test_termination.moc"
