// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/ProgressProbe.h"
#include "support/TestProgram.h"
#include "support/WindowTest.h"
#include "ui/DisplayFormats.h"
#include "ui/ModalProgress.h"

#include <QAction>
#include <QApplication>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QTableWidget>
#include <QTest>
#include <QToolButton>
#include <QWindow>

#include <algorithm>

using namespace Tessel::Tests;
using Tessel::UI::formatFileSize;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Password = u"senha de teste"_s;
const QString SpeedNote = QStringLiteral(
    "A velocidade depende da taxa de leitura e escrita da unidade USB.\nDispositivos USB 3 ou "
    "superiores tendem a ser mais rápidos.");
constexpr qint64 MiB = 1048576;

/// What the progress dialog says when it opens.
class FirstLabel : public QObject {
public:
    FirstLabel() { qApp->installEventFilter(this); }
    ~FirstLabel() override { qApp->removeEventFilter(this); }
    Q_DISABLE_COPY_MOVE(FirstLabel)

    bool eventFilter(QObject* watched, QEvent* event) override {
        const auto* dialog = qobject_cast<QProgressDialog*>(watched);
        if (dialog != nullptr && event->type() == QEvent::Show && text.isEmpty()) {
            text = dialog->labelText();
        }
        return QObject::eventFilter(watched, event);
    }

    QString text;
};

} // namespace

class TestModalOperations : public WindowTest {
    Q_OBJECT

private:
    [[nodiscard]] QString containerPath() const { return m_folder->filePath(u"t.tvlt"_s); }
    int m_attempts = 0;

    [[nodiscard]] bool prepare(const QString& operation) {
        CraftedContainer crafted;
        crafted.addFolder(u"docs"_s).addFile(u"a.txt"_s, "aaa").addFile(u"b.txt"_s, noise(5000));
        if (!crafted.writeTo(containerPath()) || !writeFile(m_folder->filePath(u"n.bin"_s), "n")) {
            return false;
        }
        if (operation == u"Fazer backup...") {
            return m_driver->chooseContainer(containerPath());
        }
        return m_driver->openVault(containerPath(), Password) && m_driver->selectRow(u"a.txt"_s);
    }

    void start(const QString& operation) {
        DialogDriver& dialogs = m_driver->dialogs;
        if (operation == u"Importar...") {
            dialogs.answerFiles(u"Importar arquivos para o cofre"_s,
                                {m_folder->filePath(u"n.bin"_s)});
        } else if (operation == u"Compactar cofre...") {
            dialogs.press(u"Compactar cofre"_s, u"Sim"_s);
            dialogs.acceptInformation(u"Compactar cofre"_s);
        } else {
            dialogs.answerFiles(u"Fazer backup do container"_s,
                                {m_folder->filePath(u"copy.tvlt"_s)});
            dialogs.acceptInformation(u"Fazer backup"_s);
        }
        m_driver->action(operation)->trigger();
    }

    /// All that a person, or a program that speaks for one, can try while the operation runs. A
    /// command that started would open a dialog nobody expects.
    void tryEverything(QProgressDialog* dialog) {
        ++m_attempts;
        const bool openBefore = m_driver->vaultIsOpen();
        const QStringList rowsBefore = m_driver->rowNames();
        const QList<QAction*> actions = m_driver->window.findChildren<QAction*>();
        for (QAction* action : actions) {
            // A menu's own entry is no command.
            if (!action->menu()) {
                action->trigger();
            }
        }
        const Qt::KeyboardModifiers control = Qt::ControlModifier;
        for (const Qt::Key key : {Qt::Key_O, Qt::Key_N, Qt::Key_I, Qt::Key_E, Qt::Key_B, Qt::Key_P,
                                  Qt::Key_L, Qt::Key_Q}) {
            QTest::keyClick(&m_driver->window, key, control);
        }
        QTest::keyClick(&m_driver->window, Qt::Key_L, control | Qt::ShiftModifier);
        const int rowBefore = m_driver->table()->currentRow();
        for (const Qt::Key key :
             {Qt::Key_Return, Qt::Key_Delete, Qt::Key_F6, Qt::Key_Up, Qt::Key_Down, Qt::Key_Left,
              Qt::Key_Right, Qt::Key_Backspace, Qt::Key_F10}) {
            QTest::keyClick(&m_driver->window, key);
            QTest::keyClick(m_driver->deviceList(), key);
            QCOMPARE(m_driver->table()->currentRow(), rowBefore);
            QVERIFY(QApplication::activePopupWidget() == nullptr);
        }
        m_driver->padlock()->click();
        for (int row = 0; row < m_driver->table()->rowCount(); ++row) {
            Q_EMIT m_driver->table()->itemDoubleClicked(m_driver->table()->item(row, 1));
        }
        clickEverywhere();
        m_driver->window.close();
        QTest::keyClick(dialog, Qt::Key_Escape);
        dialog->close();
        QVERIFY(dialog->isVisible());
        QVERIFY(m_driver->window.isVisible());
        QCOMPARE(m_driver->vaultIsOpen(), openBefore);
        QCOMPARE(m_driver->rowNames(), rowsBefore);
    }

    /// With the mouse, through the window system, which is where a modal dialog keeps it away.
    void clickEverywhere() {
        const QHeaderView* header = m_driver->table()->horizontalHeader();
        const int sortedBefore = header->sortIndicatorSection();
        const Qt::SortOrder orderBefore = header->sortIndicatorOrder();
        QWindow* handle = m_driver->window.windowHandle();
        const QList<const QWidget*> targets{m_driver->padlock(), header->viewport(),
                                            m_driver->table()->viewport(),
                                            m_driver->deviceList()->viewport()};
        for (const QWidget* target : targets) {
            const QPoint position = target->mapTo(&m_driver->window, target->rect().center());
            QTest::mouseClick(handle, Qt::LeftButton, Qt::NoModifier, position);
            QTest::mouseDClick(handle, Qt::LeftButton, Qt::NoModifier, position);
        }
        QCOMPARE(header->sortIndicatorSection(), sortedBefore);
        QCOMPARE(header->sortIndicatorOrder(), orderBefore);
    }

    void compareDialog(const QProgressDialog* dialog, const QString& title) {
        QCOMPARE(dialog->windowTitle(), title);
        QCOMPARE(dialog->minimum(), 0);
        QCOMPARE(dialog->maximum(), 1000);
        QCOMPARE(dialog->windowModality(), Qt::ApplicationModal);
        QCOMPARE(dialog->minimumDuration(), 0);
        QVERIFY(!dialog->autoClose());
        QVERIFY(!dialog->autoReset());
        QVERIFY(dialog->findChildren<QPushButton*>().isEmpty());
    }

private Q_SLOTS:
    void initTestCase() { keepTemporaryFilesInMemory(); }

    void init() {
        WindowTest::init();
        m_attempts = 0;
    }

    void nothingElseStartsMeanwhile_data() {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("result");
        QTest::newRow("import") << u"Importar..."_s << u"Importar arquivos"_s
                                << u"Arquivo importado com sucesso."_s;
        QTest::newRow("compaction") << u"Compactar cofre..."_s << u"Compactar cofre"_s
                                    << u"Cofre compactado com sucesso."_s;
        QTest::newRow("backup") << u"Fazer backup..."_s << u"Fazer backup"_s
                                << u"Backup do container concluído."_s;
    }
    void nothingElseStartsMeanwhile() {
        QFETCH(const QString, operation);
        QFETCH(const QString, title);
        QFETCH(const QString, result);
        QVERIFY(prepare(operation));
        const ProgressProbe probe([&](QProgressDialog* dialog, int) {
            compareDialog(dialog, title);
            // Once is enough, and trying again from within an attempt would not end.
            if (m_attempts == 0) {
                tryEverything(dialog);
            }
        });
        start(operation);
        QCOMPARE(m_attempts, 1);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QCOMPARE(status(), result);
        QVERIFY(m_driver->window.isVisible());
    }

    void progressIsReckonedInThousandths_data() {
        QTest::addColumn<qint64>("done");
        QTest::addColumn<qint64>("total");
        QTest::addColumn<int>("whenEmpty");
        QTest::addColumn<int>("value");
        QTest::newRow("part of nothing") << qint64{5} << qint64{0} << 0 << 0;
        QTest::newRow("less than nothing") << qint64{0} << qint64{-1} << 0 << 0;
        QTest::newRow("nothing, which is complete") << qint64{0} << qint64{0} << 1000 << 1000;
        QTest::newRow("a third, rounded down") << qint64{1} << qint64{3} << 0 << 333;
        QTest::newRow("two thirds, rounded down") << qint64{2} << qint64{3} << 0 << 666;
        QTest::newRow("begun") << qint64{0} << qint64{3} << 1000 << 0;
        QTest::newRow("complete") << qint64{3} << qint64{3} << 0 << 1000;
        QTest::newRow("a drive's worth") << 2000 * 1024 * MiB << 4000 * 1024 * MiB << 0 << 500;
    }
    void progressIsReckonedInThousandths() {
        QFETCH(const qint64, done);
        QFETCH(const qint64, total);
        QFETCH(const int, whenEmpty);
        QTEST(Tessel::UI::progressValue(done, total, whenEmpty), "value");
    }

    void progressMovesInThousandths_data() {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QString>("firstLabel");
        QTest::addColumn<QString>("lastLabel");
        const QString one = formatFileSize(1);
        QTest::newRow("compaction") << u"Compactar cofre..."_s
                                    << u"Compactando o cofre...\n\nSerá criado temporariamente um "
                                       u"container criptografado no disco "
                                       u"local."_s
                                    << u"Substituindo container no USB...\n%1 de %1"_s;
        QTest::newRow("import") << u"Importar..."_s
                                << u"Importando arquivos para o cofre...\n\n%1"_s.arg(SpeedNote)
                                << u"Importando n.bin...\n%1 de %1\n\n%2"_s.arg(one, SpeedNote);
        QTest::newRow("backup")
            << u"Fazer backup..."_s
            << u"Copiando backup criptografado...\n\nO backup permanece protegido "
               u"pela senha do cofre."_s
            << u"Copiando backup criptografado...\n%1 de %1"_s;
    }
    void progressMovesInThousandths() {
        QFETCH(const QString, operation);
        QFETCH(const QString, firstLabel);
        QFETCH(QString, lastLabel);
        QVERIFY(prepare(operation));
        if (operation == u"Fazer backup...") {
            lastLabel = lastLabel.arg(formatFileSize(QFileInfo(containerPath()).size()));
        }
        QList<int> values;
        QString label;
        FirstLabel first;
        const ProgressProbe probe([&](const QProgressDialog* dialog, int value) {
            values.append(value);
            label = dialog->labelText();
        });
        start(operation);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        if (operation == u"Compactar cofre...") {
            // The one label that counts bytes of the new container.
            lastLabel = lastLabel.arg(formatFileSize(QFileInfo(containerPath()).size()));
        }
        QCOMPARE(first.text, firstLabel);
        QCOMPARE(label, lastLabel);
        QCOMPARE(values.last(), 1000);
        // A compaction has two phases, and each starts at nothing.
        QVERIFY(operation == u"Compactar cofre..." ||
                std::is_sorted(values.cbegin(), values.cend()));
    }

    void backupCountsItsChunks() {
        CraftedContainer crafted;
        QVERIFY(crafted.leaveGap(9 * MiB).writeTo(containerPath()));
        QVERIFY(m_driver->chooseContainer(containerPath()));
        const qint64 total = crafted.fileSize();
        QStringList expected;
        for (const qint64 copied : {8 * MiB, 16 * MiB, total}) {
            expected.append(u"%1: Copiando backup criptografado...\n%2 de %3"_s.arg(
                QString::number(copied * 1000 / total), formatFileSize(copied),
                formatFileSize(total)));
        }
        QStringList steps;
        const ProgressProbe probe([&steps](const QProgressDialog* dialog, int value) {
            steps.append(u"%1: %2"_s.arg(QString::number(value), dialog->labelText()));
        });
        start(u"Fazer backup..."_s);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QCOMPARE(steps, expected);
    }

    void importNamesEachFileAndCountsItsBytes() {
        QVERIFY(prepare(u"Importar..."_s));
        QVERIFY(m_driver->activateRow(u"docs"_s));
        const QString small = m_folder->filePath(u"n.bin"_s);
        const QString large = m_folder->filePath(u"grande.bin"_s);
        QVERIFY(writeFile(large, noise(17 * MiB)));
        dialogs().answerFiles(u"Importar arquivos para o cofre"_s, {small, large});
        QStringList steps;
        const ProgressProbe probe([&steps](const QProgressDialog* dialog, int value) {
            steps.append(u"%1: %2"_s.arg(QString::number(value), dialog->labelText()));
        });
        VERIFY_RUN(u"Importar..."_s);
        // Before its first byte a file is called by its name alone, then by its place in the vault.
        QCOMPARE(
            steps,
            QStringList(
                {u"0: Importando n.bin...\n\n"_s + SpeedNote,
                 u"1000: Importando docs/n.bin...\n1 bytes de 1 bytes\n\n"_s + SpeedNote,
                 u"0: Importando grande.bin...\n\n"_s + SpeedNote,
                 u"941: Importando docs/grande.bin...\n16.0 MB de 17.0 MB\n\n"_s + SpeedNote,
                 u"1000: Importando docs/grande.bin...\n17.0 MB de 17.0 MB\n\n"_s + SpeedNote}));
    }

    void longNamesDoNotWidenTheProgress() {
        QVERIFY(prepare(u"Importar..."_s));
        const QString name = QString(250, u'm');
        QVERIFY(writeFile(m_folder->filePath(name), "n"));
        dialogs().answerFiles(u"Importar arquivos para o cofre"_s, {m_folder->filePath(name)});
        int widest = 0;
        bool named = false;
        const ProgressProbe probe([&](QProgressDialog* dialog, int) {
            widest = std::max(widest, dialog->width());
            named = dialog->labelText().contains(name);
        });
        VERIFY_RUN(u"Importar..."_s);
        QVERIFY2(widest <= m_driver->window.width(), qPrintable(QString::number(widest)));
        QVERIFY(named);
    }
};

TESSEL_TEST_MAIN(runTest<QApplication, TestModalOperations>);
#include "test_modal_operations.moc"
