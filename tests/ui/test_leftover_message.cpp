// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/VaultManager.h"
#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/KilledRun.h"
#include "support/TestProgram.h"
#include "support/WindowDriver.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <memory>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Password = u"senha de teste"_s;

/// The message box that is shown beside the window; nothing without one.
QMessageBox* message() {
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget* window : windows) {
        auto* box = qobject_cast<QMessageBox*>(window);
        if (box != nullptr && box->isVisible()) {
            return box;
        }
    }
    return nullptr;
}

/// Opens the vault's file; with @p edit also saves something else into the copy.
bool openCopy(const QString& container, bool edit) {
    // Left to the process, which is killed.
    static Tessel::Core::VaultManager vault;
    QString copy;
    return vault.unlockVault(container, Password.toUtf8()) &&
           vault.prepareFileForEditing(u"a.txt"_s, &copy) &&
           (!edit || writeFile(copy, "alterado, e mais longo"));
}

} // namespace

/// What the window says of copies that an earlier run has left.
class TestLeftoverMessage : public QObject {
    Q_OBJECT

private:
    [[nodiscard]] QDir runs() const { return QDir(m_folder->filePath(u"Tessel"_s)); }
    [[nodiscard]] QStringList workspaces() const {
        return runs().entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    }
    std::unique_ptr<QTemporaryDir> m_folder;
    QByteArray m_tmpdirBefore;
    QString m_container;

private Q_SLOTS:
    void init() {
        m_folder = std::make_unique<QTemporaryDir>();
        m_tmpdirBefore = qgetenv("TMPDIR");
        qputenv("TMPDIR", QFile::encodeName(m_folder->path()));
        m_container = m_folder->filePath(u"tessel.tvlt"_s);
        CraftedContainer crafted;
        crafted.addFile(u"a.txt"_s, "como no cofre");
        QVERIFY(crafted.writeTo(m_container));
    }

    void cleanup() {
        if (m_tmpdirBefore.isNull()) {
            qunsetenv("TMPDIR");
        } else {
            qputenv("TMPDIR", m_tmpdirBefore);
        }
        m_folder.reset();
    }

    void itIsShownOnceAfterTheWindow() {
        KilledRun run([this] { return openCopy(m_container, true); });
        QVERIFY(run.isReady());
        run.kill();
        QCOMPARE(workspaces().size(), 1);
        const QString folder = runs().filePath(workspaces().first());
        {
            Tessel::UI::MainWindow window;
            QCoreApplication::processEvents();
            QVERIFY(!message());
            window.show();
            QVERIFY(!message());
            QTRY_VERIFY(message());
            QCOMPARE(message()->windowTitle(), u"Tessel"_s);
            QCOMPARE(
                message()->text(),
                u"O Tessel foi encerrado sem bloquear o cofre. As cópias de arquivos abertos que "
                "foram alteradas continuam em:\n\n%1\n\nImporte para o cofre o que quiser guardar "
                "e depois apague o que restar ali."_s.arg(folder));
            QCOMPARE(message()->icon(), QMessageBox::Information);
            QCOMPARE(message()->parentWidget(), &window);
            // Once for a window, however often it is hidden and shown.
            message()->button(QMessageBox::Ok)->click();
            window.hide();
            window.show();
            QCoreApplication::processEvents();
            QVERIFY(!message());
        }
        Tessel::UI::MainWindow next;
        next.show();
        QCoreApplication::processEvents();
        QVERIFY(!message());
        QCOMPARE(readFile(folder + u"/a.txt"_s), QByteArray("alterado, e mais longo"));
    }

    void nothingIsSaidOfUnchangedCopies() {
        KilledRun run([this] { return openCopy(m_container, false); });
        QVERIFY(run.isReady());
        run.kill();
        Tessel::UI::MainWindow window;
        window.show();
        QTRY_COMPARE(workspaces().size(), 0);
        QVERIFY(!message());
    }

    void nothingIsSaidOfARunThatLives() {
        const KilledRun run([this] { return openCopy(m_container, true); });
        QVERIFY(run.isReady());
        Tessel::UI::MainWindow window;
        window.show();
        QCoreApplication::processEvents();
        QVERIFY(!message());
        QCOMPARE(workspaces().size(), 1);
    }

    void theWindowWorksBesideIt() {
        KilledRun run([this] { return openCopy(m_container, true); });
        QVERIFY(run.isReady());
        run.kill();
        WindowDriver driver;
        QTRY_VERIFY(message());
        QVERIFY(!message()->isModal());
        QVERIFY(driver.openVault(m_container, Password));
        QCOMPARE(driver.rowNames(), QStringList(u"a.txt"_s));
        QVERIFY(driver.window.close());
        QVERIFY2(driver.dialogs.finished(), qPrintable(driver.dialogs.problems()));
    }

    void theProgramEndsBesideIt() {
        KilledRun run([this] { return openCopy(m_container, true); });
        QVERIFY(run.isReady());
        run.kill();
        QProcess program;
        program.start(QStringLiteral(TESSEL_PROGRAM), {u"-platform"_s, u"offscreen"_s});
        QVERIFY(program.waitForStarted());
        // The note says so as soon as the message is shown.
        const QStringList notes = runs().entryList({u".*.lock"_s}, QDir::Files | QDir::Hidden);
        QCOMPARE(notes.size(), 1);
        QTRY_VERIFY_WITH_TIMEOUT(readFile(runs().filePath(notes.first())).endsWith("told\n"),
                                 30000);
        QCOMPARE(::kill(static_cast<pid_t>(program.processId()), SIGTERM), 0);
        QVERIFY(program.waitForFinished(30000));
        QCOMPARE(program.exitStatus(), QProcess::NormalExit);
        QCOMPARE(program.exitCode(), 0);
    }

    void aLongPathDoesNotWidenIt() {
        const QString longFolder =
            m_folder->filePath(QString(200, u'm') + u'/' + QString(200, u'w'));
        QVERIFY(QDir().mkpath(longFolder));
        qputenv("TMPDIR", QFile::encodeName(longFolder));
        KilledRun run([this] { return openCopy(m_container, true); });
        QVERIFY(run.isReady());
        run.kill();
        Tessel::UI::MainWindow window;
        window.show();
        QTRY_VERIFY(message());
        QVERIFY(message()->text().contains(longFolder));
        const int width = message()->width();
        QVERIFY2(width <= window.width(), qPrintable(QString::number(width)));
        QVERIFY2(width < message()->screen()->availableGeometry().width(),
                 qPrintable(QString::number(width)));
        // What is selected, to be copied, can be seen.
        auto* label = message()->findChild<QLabel*>(u"qt_msgbox_label"_s);
        const QImage before = label->grab().toImage();
        label->setSelection(0, static_cast<int>(label->text().size()));
        QCOMPARE(label->selectedText().replace(QChar::ParagraphSeparator, u'\n'), label->text());
        QVERIFY(label->grab().toImage() != before);
    }
};

TESSEL_TEST_MAIN(runTest<QApplication, TestLeftoverMessage>);
#include "test_leftover_message.moc"
