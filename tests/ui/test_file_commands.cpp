// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"
#include "support/FakeDesktop.h"
#include "support/Faults.h"
#include "support/Files.h"
#include "support/ProgressProbe.h"
#include "support/TestProgram.h"
#include "support/WindowTest.h"
#include "ui/DisplayFormats.h"
#include "ui/ImportForecast.h"
#include "ui/VaultColumns.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDateTime>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QScopeGuard>
#include <QScreen>
#include <QSet>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QUrl>
#include <QVBoxLayout>

#include <limits>

using namespace Tessel::Tests;
using Tessel::UI::addByteCounts;
using Tessel::UI::forecastImport;
using Tessel::UI::formatFileSize;
using Tessel::UI::ImportFit;
using namespace Qt::Literals::StringLiterals;
namespace VaultColumn = Tessel::UI::VaultColumn;

namespace {

const QString Password = u"senha de teste"_s;
const QString OpenTitle = u"Importar arquivos para o cofre"_s;
const QString SimpleFileName =
    u"Use um nome de arquivo simples, sem barras, pontos isolados ou caminho relativo."_s;
const QString SimpleFolderName =
    u"Use um nome de pasta simples, sem barras, pontos isolados ou caminho relativo."_s;
const QString NameTaken = u"Já existe um item com esse nome nesta pasta."_s;

/// How a person says no to a question.
enum class No { Button, Escape, Close, Return };

/// Saves as an editor does a minute later.
bool save(const QString& path, const QByteArray& bytes) {
    return writeFile(path, bytes) && makeLater(path, 60000);
}

} // namespace

Q_DECLARE_METATYPE(No)

class TestFileCommands : public WindowTest {
    Q_OBJECT

private:
    [[nodiscard]] QString containerPath() const { return m_folder->filePath(u"drive/t.tvlt"_s); }
    qsizetype m_dialogsBefore = 0;

    [[nodiscard]] bool open(const CraftedContainer& crafted) {
        const bool opened =
            crafted.writeTo(containerPath()) && m_driver->openVault(containerPath(), Password);
        m_driver->window.statusBar()->clearMessage();
        m_dialogsBefore = dialogs().seen().size();
        return opened;
    }

    /// In docs and docs/sub a file each, Apoio empty, a.txt and b.txt at the root.
    [[nodiscard]] bool openSample() {
        CraftedContainer crafted;
        crafted.addFolder(u"docs"_s).addFolder(u"docs/sub"_s).addFolder(u"Apoio"_s);
        crafted.addFile(u"a.txt"_s, "aaa").addFile(u"b.txt"_s, "bb");
        crafted.addFile(u"docs/c.txt"_s, "c").addFile(u"docs/sub/d.txt"_s, "d");
        return open(crafted);
    }

    [[nodiscard]] QStringList dialogTexts() const {
        QStringList texts;
        const QList<DialogDriver::Seen> seen = dialogs().seen();
        for (qsizetype i = m_dialogsBefore; i < seen.size(); ++i) {
            texts.append(seen.at(i).text);
        }
        return texts;
    }

    /// That the dialog was a question whose answer is "Não" unless another one is given.
    static void compareWithYesNoQuestion(const DialogDriver::Seen& seen) {
        QCOMPARE(seen.icon, QMessageBox::Question);
        QCOMPARE(seen.buttons, QStringList({u"Sim"_s, u"Não"_s}));
        QCOMPARE(seen.defaultButton, u"Não"_s);
    }

    void takeContainerAway() { QVERIFY(QDir(m_folder->path()).rename(u"drive"_s, u"elsewhere"_s)); }

    void bringContainerBack() {
        QVERIFY(QDir(m_folder->path()).rename(u"elsewhere"_s, u"drive"_s));
    }

    /// Opens the file and saves @p bytes in its copy, as an editor does a minute later. The copy's
    /// path; empty when that fails.
    [[nodiscard]] QString openAndEdit(const QString& row, const QByteArray& bytes) {
        const FakeDesktop desktop(u"file"_s);
        if (!run(u"Abrir"_s, row) || desktop.opened.size() != 1) {
            return {};
        }
        const QString path = desktop.opened.first().toLocalFile();
        return save(path, bytes) ? path : QString();
    }

    /// Locks and unlocks.
    [[nodiscard]] bool reopen() {
        m_driver->action(u"Bloquear"_s)->trigger();
        return dialogs().finished() && !m_driver->vaultIsOpen() && m_driver->unlock(Password);
    }

private Q_SLOTS:
    void init() {
        WindowTest::init();
        QVERIFY(QDir(m_folder->path()).mkdir(u"drive"_s));
    }

    // --- Room on the drive -----------------------------------------------------------------------

    void forecastReckonsTheRoomNeeded_data() {
        QTest::addColumn<qint64>("selected");
        QTest::addColumn<qint64>("available");
        QTest::addColumn<qint64>("required");
        QTest::addColumn<int>("fit");
        const int fits = static_cast<int>(ImportFit::Fits);
        const int little = static_cast<int>(ImportFit::LittleSpaceLeft);
        const int tooLarge = static_cast<int>(ImportFit::TooLarge);
        QTest::newRow("one byte short") << 1000000LL << 17827215LL << 17827216LL << tooLarge;
        QTest::newRow("just enough") << 1000000LL << 17827216LL << 17827216LL << little;
        QTest::newRow("last with question") << 1000000LL << 152044943LL << 17827216LL << little;
        QTest::newRow("first without") << 1000000LL << 152044944LL << 17827216LL << fits;
        QTest::newRow("nothing selected") << 0LL << 16777216LL << 16777216LL << little;
        QTest::newRow("margin cut off") << 19LL << 16777235LL << 16777235LL << little;
        QTest::newRow("margin of one byte") << 20LL << 16777236LL << 16777237LL << tooLarge;
    }
    void forecastReckonsTheRoomNeeded() {
        QFETCH(const qint64, selected);
        QFETCH(const qint64, available);
        QFETCH(const qint64, required);
        QFETCH(const int, fit);
        const auto forecast = forecastImport(selected, available);
        QCOMPARE(forecast.requiredBytes, required);
        QCOMPARE(forecast.remainingBytes, available - required);
        QCOMPARE(static_cast<int>(forecast.fit), fit);
    }

    void byteCountsDoNotWrap() {
        constexpr qint64 Most = std::numeric_limits<qint64>::max();
        QCOMPARE(addByteCounts(Most, 1), Most);
        QCOMPARE(addByteCounts(1, 2), 3);
        QCOMPARE(static_cast<int>(forecastImport(Most, Most - 1).fit),
                 static_cast<int>(ImportFit::TooLarge));
    }

    void fullDriveRefusesAnImport() {
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(32 * MiB);
        const QString container = disk.filePath(u"t.tvlt"_s);
        QVERIFY(CraftedContainer().writeTo(container));
        QVERIFY(m_driver->openVault(container, Password));
        QVERIFY(disk.fillUpTo(16 * MiB));
        const QString source = path(u"novo.bin"_s);
        QVERIFY(writeFile(source, noise(1000)));
        const qint64 available = disk.bytesFree();
        dialogs().answerFiles(OpenTitle, {source});
        dialogs().acceptWarning(u"Espaço insuficiente"_s);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(
            lastText(),
            u"Não há espaço livre suficiente na unidade do container.\n\nArquivos selecionados: "
            u"%1\nEspaço livre disponível: %2\n\nLibere espaço na unidade USB ou selecione "
            u"arquivos menores."_s.arg(formatFileSize(1000), formatFileSize(available)));
        QVERIFY(m_driver->rowNames().isEmpty());
    }

    void littleRoomIsAskedAbout() {
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(64 * MiB);
        const QString container = disk.filePath(u"t.tvlt"_s);
        QVERIFY(CraftedContainer().writeTo(container));
        QVERIFY(m_driver->openVault(container, Password));
        const QString source = path(u"novo.bin"_s);
        QVERIFY(writeFile(source, noise(1000)));
        const qint64 remaining = disk.bytesFree() - 1050 - 16 * MiB;
        const QString title = u"Espaço livre reduzido"_s;
        dialogs().answerFiles(OpenTitle, {source});
        dialogs().press(title, u"Não"_s);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(lastText(),
                 u"A importação deixará pouco espaço livre na unidade do container.\n\nArquivos "
                 u"selecionados: %1\nEspaço livre restante estimado: %2\n\nDeseja continuar?"_s.arg(
                     formatFileSize(1000), formatFileSize(remaining)));
        compareWithYesNoQuestion(dialogs().last());
        QVERIFY(m_driver->rowNames().isEmpty());

        dialogs().answerFiles(OpenTitle, {source});
        dialogs().press(title, u"Sim"_s);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(m_driver->rowNames(), QStringList(u"novo.bin"_s));
        // Leave the drive before it is taken away.
        m_driver->action(u"Bloquear"_s)->trigger();
    }

    // --- Import ----------------------------------------------------------------------------------

    void importReportsTheCount_data() {
        QTest::addColumn<int>("count");
        QTest::addColumn<QString>("message");
        QTest::newRow("one") << 1 << u"Arquivo importado com sucesso."_s;
        QTest::newRow("two") << 2 << u"2 arquivos importados com sucesso."_s;
    }
    void importReportsTheCount() {
        QFETCH(const int, count);
        QFETCH(const QString, message);
        QVERIFY(open(CraftedContainer()));
        QStringList paths;
        for (int i = 0; i < count; ++i) {
            paths.append(path(u"n%1.bin"_s.arg(i)));
            QVERIFY(writeFile(paths.last(), noise(100)));
        }
        dialogs().answerFiles(OpenTitle, paths);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(m_driver->rowNames().size(), count);
        QCOMPARE(status(), message);
    }

    void importTellsWhichFileOfHowMany_data() {
        QTest::addColumn<int>("count");
        QTest::addColumn<QStringList>("bars");
        QTest::newRow("one") << 1 << QStringList({u"100%"_s});
        QTest::newRow("three") << 3
                               << QStringList(
                                      {u"100% | 1 de 3"_s, u"100% | 2 de 3"_s, u"100% | 3 de 3"_s});
    }
    void importTellsWhichFileOfHowMany() {
        QFETCH(const int, count);
        QFETCH(const QStringList, bars);
        QVERIFY(open(CraftedContainer()));
        QStringList paths;
        for (int i = 0; i < count; ++i) {
            paths.append(path(u"n%1.bin"_s.arg(i)));
            QVERIFY(writeFile(paths.last(), noise(100)));
        }
        QStringList shown;
        const ProgressProbe probe([&shown](const QProgressDialog* dialog, int value) {
            const auto* bar = dialog->findChild<QProgressBar*>();
            if (value == dialog->maximum() && bar->isTextVisible() &&
                !shown.contains(bar->text())) {
                shown.append(bar->text());
            }
        });
        dialogs().answerFiles(OpenTitle, paths);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(shown, bars);
    }

    void importOfNothingIsSilent() {
        QVERIFY(openSample());
        dialogs().reject(OpenTitle);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(status(), QString());
    }

    void importRefusesWhatIsNoFile_data() {
        QTest::addColumn<bool>("becomesFolder");
        QTest::newRow("vanished") << false;
        QTest::newRow("a folder by now") << true;
    }
    void importRefusesWhatIsNoFile() {
        QFETCH(const bool, becomesFolder);
        QVERIFY(open(CraftedContainer()));
        const QString good = path(u"good.bin"_s);
        const QString bad = path(u"bad.bin"_s);
        QVERIFY(writeFile(good, "x"));
        QVERIFY(writeFile(bad, "x"));
        dialogs().handle(OpenTitle, [&](QDialog* dialog) {
            // The file goes just after the person has chosen it.
            connect(dialog, &QDialog::finished, this, [&] {
                QVERIFY(QFile::remove(bad));
                QVERIFY(!becomesFolder || QDir().mkdir(bad));
            });
            dialog->findChild<QLineEdit*>(u"fileNameEdit"_s)
                ->setText(u"\"%1\" \"%2\""_s.arg(good, bad));
            QMetaObject::invokeMethod(dialog, "accept");
        });
        dialogs().acceptWarning(u"Importar arquivos"_s);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(lastText(), u"O arquivo bad.bin não está disponível para importação."_s);
        QVERIFY(m_driver->rowNames().isEmpty());
        QCOMPARE(status(), QString());
    }

    void importGoesIntoTheFolderShown() {
        QVERIFY(openSample());
        QVERIFY(m_driver->activateRow(u"docs"_s));
        const QString source = path(u"novo.txt"_s);
        QVERIFY(writeFile(source, "n"));
        dialogs().answerFiles(OpenTitle, {source});
        VERIFY_RUN(u"Importar..."_s);
        QVERIFY(m_driver->rowNamed(u"novo.txt"_s) > 0);
        QVERIFY(m_driver->activateRow(u".."_s));
        QCOMPARE(m_driver->rowNamed(u"novo.txt"_s), -1);
    }

    void importTakesTheBlanksOffAName() {
        QVERIFY(open(CraftedContainer()));
        const QString source = path(u" x.txt"_s);
        QVERIFY(writeFile(source, "x"));
        dialogs().answerFiles(OpenTitle, {source});
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(m_driver->rowNames(), QStringList(u"x.txt"_s));

        // It is found again under the name that it bears in the vault.
        dialogs().answerFiles(OpenTitle, {source});
        dialogs().press(u"Substituir arquivo"_s, u"Não"_s);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(lastText(), u"x.txt já existe no cofre. Deseja substituir o arquivo protegido?"_s);
    }

    void importReplacesRefusesAndFailsInOneGo() {
        QVERIFY(openSample());
        const QStringList names{u"A.TXT"_s, u"b.txt"_s, u"lost.bin"_s, u"z.bin"_s};
        QStringList paths;
        for (const QString& name : names) {
            paths.append(path(name));
            QVERIFY(writeFile(paths.last(), "new " + name.toUtf8()));
        }
        dialogs().answerFiles(OpenTitle, paths);
        dialogs().press(u"Substituir arquivo"_s, u"Sim"_s);
        dialogs().handle(u"Substituir arquivo"_s, [&](QDialog* dialog) {
            QFile::remove(paths.at(2));
            dialog->reject();
        });
        dialogs().acceptWarning(u"Tessel"_s);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(dialogTexts().mid(1),
                 QStringList({u"A.TXT já existe no cofre. Deseja substituir o arquivo protegido?"_s,
                              u"b.txt já existe no cofre. Deseja substituir o arquivo protegido?"_s,
                              u"Não foi possível importar lost.bin."_s}));
        QCOMPARE(status(), u"2 arquivos importados com sucesso."_s);
        QCOMPARE(m_driver->rowNames(),
                 QStringList({u"Apoio"_s, u"docs"_s, u"A.TXT"_s, u"b.txt"_s, u"z.bin"_s}));
        QCOMPARE(exported(u"A.TXT"_s), "new A.TXT"_ba);
        QCOMPARE(exported(u"b.txt"_s), "bb"_ba);
        QCOMPARE(exported(u"z.bin"_s), "new z.bin"_ba);
    }

    void refusingAllReportsNone() {
        QVERIFY(openSample());
        const QStringList paths{path(u"a.txt"_s), path(u"b.txt"_s)};
        QVERIFY(writeFile(paths.at(0), "new") && writeFile(paths.at(1), "new"));
        dialogs().answerFiles(OpenTitle, paths);
        dialogs().press(u"Substituir arquivo"_s, u"Não"_s);
        dialogs().reject(u"Substituir arquivo"_s);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(status(), u"0 arquivos importados com sucesso."_s);
    }

    void replacingIsAskedWithTheWholePath() {
        QVERIFY(openSample());
        QVERIFY(m_driver->activateRow(u"docs"_s) && m_driver->activateRow(u"sub"_s));
        const QString source = path(u"D.TXT"_s);
        QVERIFY(writeFile(source, "new"));
        dialogs().answerFiles(OpenTitle, {source});
        dialogs().press(u"Substituir arquivo"_s, u"Não"_s);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(lastText(),
                 u"docs/sub/D.TXT já existe no cofre. Deseja substituir o arquivo protegido?"_s);
        compareWithYesNoQuestion(dialogs().last());
        QCOMPARE(exported(u"d.txt"_s), "d"_ba);

        dialogs().answerFiles(OpenTitle, {source});
        dialogs().press(u"Substituir arquivo"_s, u"Sim"_s);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(m_driver->rowNames(), QStringList({u".."_s, u"D.TXT"_s}));
        QCOMPARE(exported(u"D.TXT"_s), "new"_ba);
    }

    // --- Export and open -------------------------------------------------------------------------

    void exportWritesACopy() {
        QVERIFY(openSample());
        QVERIFY(m_driver->activateRow(u"docs"_s));
        const QString destination = path(u"out.txt"_s);
        QString proposed;
        dialogs().press(u"Exportar arquivo"_s, u"Continuar"_s);
        dialogs().handle(u"Exportar arquivo"_s, [&](QDialog* dialog) {
            auto* edit = dialog->findChild<QLineEdit*>(u"fileNameEdit"_s);
            proposed = edit->text();
            edit->setText(destination);
            QMetaObject::invokeMethod(dialog, "accept");
        });
        VERIFY_RUN(u"Exportar..."_s, u"c.txt"_s);
        QCOMPARE(dialogTexts().first(),
                 u"Exportar docs/c.txt criará uma cópia descriptografada fora do cofre. Alterações "
                 u"feitas nessa cópia não voltam automaticamente para o Tessel."_s);
        QCOMPARE(proposed, u"c.txt"_s);
        QCOMPARE(readFile(destination), "c"_ba);
        QCOMPARE(status(), u"Arquivo exportado com sucesso."_s);
        QVERIFY(m_driver->table()->currentRow() >= 0);
    }

    void cancelledExportIsSilent() {
        QVERIFY(openSample());
        dialogs().press(u"Exportar arquivo"_s, u"Continuar"_s);
        dialogs().reject(u"Exportar arquivo"_s);
        VERIFY_RUN(u"Exportar..."_s, u"a.txt"_s);
        QCOMPARE(dialogs().last().className, u"QFileDialog"_s);
        QCOMPARE(status(), QString());
    }

    void exportFailureIsTold() {
        QVERIFY(openSample());
        const QString destination = path(u"out.txt"_s);
        dialogs().press(u"Exportar arquivo"_s, u"Continuar"_s);
        dialogs().handle(u"Exportar arquivo"_s, [&](QDialog* dialog) {
            connect(dialog, &QDialog::finished, this, [this] { takeContainerAway(); });
            dialog->findChild<QLineEdit*>(u"fileNameEdit"_s)->setText(destination);
            QMetaObject::invokeMethod(dialog, "accept");
        });
        dialogs().acceptWarning(u"Tessel"_s);
        VERIFY_RUN(u"Exportar..."_s, u"a.txt"_s);
        QCOMPARE(lastText(), u"Não foi possível exportar o arquivo."_s);
        QCOMPARE(dialogs().last().status, QString());
        QCOMPARE(status(), u"Falha ao exportar o arquivo."_s);
        QCOMPARE(readFile(destination), QByteArray());
    }

    void openHandsTheCopyToTheDesktop() {
        QVERIFY(openSample());
        const FakeDesktop desktop(u"file"_s);
        VERIFY_RUN(u"Abrir"_s, u"a.txt"_s);
        QCOMPARE(desktop.opened.size(), 1);
        QCOMPARE(readFile(desktop.opened.first().toLocalFile()), "aaa"_ba);
        QCOMPARE(status(), u"Arquivo aberto para edição."_s);
    }

    void openFailuresAreTold() {
        QVERIFY(openSample());
        // No program of any kind can be found to open the copy with.
        const QByteArray pathBefore = qgetenv("PATH");
        qputenv("PATH", "/nowhere");
        dialogs().acceptWarning(u"Tessel"_s);
        const bool asExpected = run(u"Abrir"_s, u"a.txt"_s);
        qputenv("PATH", pathBefore);
        QVERIFY2(asExpected, qPrintable(problems()));
        QCOMPARE(lastText(), u"Não foi possível abrir o arquivo no aplicativo padrão."_s);
        QCOMPARE(dialogs().last().status, QString());
        QCOMPARE(status(), u"Falha ao abrir o arquivo."_s);

        m_driver->window.statusBar()->clearMessage();
        takeContainerAway();
        dialogs().acceptWarning(u"Tessel"_s);
        VERIFY_RUN(u"Abrir"_s, u"b.txt"_s);
        QCOMPARE(lastText(), u"Não foi possível preparar o arquivo para edição."_s);
        QCOMPARE(status(), QString());
    }

    // --- Files whose copies were saved -----------------------------------------------------------

    void openingAgainKeepsTheSavedEdit() {
        QVERIFY(openSample());
        const QString copy = openAndEdit(u"a.txt"_s, "edited");
        QVERIFY(!copy.isEmpty());
        const FakeDesktop desktop(u"file"_s);
        VERIFY_RUN(u"Abrir"_s, u"a.txt"_s);
        QCOMPARE(desktop.opened, QList<QUrl>{QUrl::fromLocalFile(copy)});
        QCOMPARE(readFile(copy), "edited"_ba);
        QCOMPARE(dialogTexts(), QStringList());
        QCOMPARE(status(), u"Arquivo aberto para edição."_s);
        // The row shows the new size, and stays the chosen one.
        QCOMPARE(m_driver->table()->currentRow(), m_driver->rowNamed(u"a.txt"_s));
        QCOMPARE(m_driver->table()->item(m_driver->rowNamed(u"a.txt"_s), VaultColumn::Size)->text(),
                 formatFileSize(6));
        QVERIFY(reopen());
        QCOMPARE(exported(u"a.txt"_s), "edited"_ba);
    }

    void openingAgainWithoutTheDriveLeavesTheCopy() {
        QVERIFY(openSample());
        const QString copy = openAndEdit(u"a.txt"_s, "edited");
        QVERIFY(!copy.isEmpty());
        m_driver->window.statusBar()->clearMessage();
        const QDateTime time = QFileInfo(copy).lastModified();
        const FakeDesktop desktop(u"file"_s);
        takeContainerAway();
        dialogs().acceptWarning(u"Tessel"_s);
        VERIFY_RUN(u"Abrir"_s, u"a.txt"_s);
        QCOMPARE(lastText(), u"Não foi possível preparar o arquivo para edição."_s);
        QCOMPARE(status(), QString());
        QVERIFY(desktop.opened.isEmpty());
        QCOMPARE(readFile(copy), "edited"_ba);
        QCOMPARE(QFileInfo(copy).lastModified(), time);
        bringContainerBack();
        QVERIFY(reopen());
        QCOMPARE(exported(u"a.txt"_s), "edited"_ba);
    }

    void aMovedWorkspaceLetsNoEditBeLeftOut() {
        QVERIFY(openSample());
        const QString copy = openAndEdit(u"a.txt"_s, "edited");
        QVERIFY(!copy.isEmpty());
        // With another folder in its place, the path no longer tells whether the copy changed.
        const QString workspace = QFileInfo(copy).path();
        const QString moved = workspace + u".away"_s;
        QVERIFY(QDir().rename(workspace, moved) && QDir().mkdir(workspace));
        const FakeDesktop desktop(u"file"_s);
        dialogs().acceptWarning(u"Tessel"_s);
        VERIFY_RUN(u"Abrir"_s, u"a.txt"_s);
        QCOMPARE(lastText(), u"Não foi possível preparar o arquivo para edição."_s);
        QVERIFY(desktop.opened.isEmpty());
        QCOMPARE(readFile(moved + u"/a.txt"_s), "edited"_ba);
        const QString destination = path(u"out.txt"_s);
        dialogs().press(u"Exportar arquivo"_s, u"Continuar"_s);
        dialogs().answerFiles(u"Exportar arquivo"_s, {destination});
        dialogs().acceptWarning(u"Tessel"_s);
        VERIFY_RUN(u"Exportar..."_s, u"a.txt"_s);
        QCOMPARE(lastText(), u"Não foi possível exportar o arquivo."_s);
        QVERIFY(!QFile::exists(destination));
        QVERIFY(QDir().rmdir(workspace) && QDir().rename(moved, workspace));
        QVERIFY(reopen());
        QCOMPARE(exported(u"a.txt"_s), "edited"_ba);
    }

    void exportingASavedEditTakesItBackFirst() {
        QVERIFY(openSample());
        QVERIFY(!openAndEdit(u"a.txt"_s, "edited").isEmpty());
        QCOMPARE(exported(u"a.txt"_s), "edited"_ba);
        QCOMPARE(status(), u"Arquivo exportado com sucesso."_s);
        QCOMPARE(m_driver->table()->currentRow(), m_driver->rowNamed(u"a.txt"_s));
        // Taken back once: another export and the lock have nothing to take.
        const qint64 size = QFileInfo(containerPath()).size();
        QCOMPARE(exported(u"a.txt"_s), "edited"_ba);
        QVERIFY(reopen());
        QCOMPARE(QFileInfo(containerPath()).size(), size);
    }

    void exportWithoutTheDriveWritesNothing() {
        QVERIFY(openSample());
        const QString copy = openAndEdit(u"a.txt"_s, "edited");
        QVERIFY(!copy.isEmpty());
        m_driver->window.statusBar()->clearMessage();
        const QString destination = path(u"out.txt"_s);
        QVERIFY(writeFile(destination, "what was there before"));
        takeContainerAway();
        dialogs().press(u"Exportar arquivo"_s, u"Continuar"_s);
        dialogs().handle(u"Exportar arquivo"_s, [&](QDialog* dialog) {
            // Its question whether to replace the file is not the subject here.
            qobject_cast<QFileDialog*>(dialog)->setOption(QFileDialog::DontConfirmOverwrite);
            dialog->findChild<QLineEdit*>(u"fileNameEdit"_s)->setText(destination);
            QMetaObject::invokeMethod(dialog, "accept");
        });
        dialogs().acceptWarning(u"Tessel"_s);
        VERIFY_RUN(u"Exportar..."_s, u"a.txt"_s);
        QCOMPARE(lastText(), u"Não foi possível exportar o arquivo."_s);
        QCOMPARE(dialogs().last().status, QString());
        QCOMPARE(status(), u"Falha ao exportar o arquivo."_s);
        QCOMPARE(readFile(destination), "what was there before"_ba);
        QCOMPARE(readFile(copy), "edited"_ba);
        bringContainerBack();
    }

    void importOverAnOpenedFileCountsMoreThanTheEditBeforeIt_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("savedLater");
        QTest::newRow("as it is") << u"a.txt"_s << false;
        QTest::newRow("other letter case") << u"A.TXT"_s << false;
        QTest::newRow("and saved again") << u"a.txt"_s << true;
    }
    void importOverAnOpenedFileCountsMoreThanTheEditBeforeIt() {
        QFETCH(const QString, name);
        QFETCH(const bool, savedLater);
        QVERIFY(openSample());
        const QString copy = openAndEdit(u"a.txt"_s, "the older edit");
        QVERIFY(!copy.isEmpty() && writeFile(path(name), "imported"));
        dialogs().answerFiles(OpenTitle, {path(name)});
        dialogs().press(u"Substituir arquivo"_s, u"Sim"_s);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(status(), u"Arquivo importado com sucesso."_s);
        QCOMPARE(readFile(copy), "imported"_ba);
        QVERIFY(!savedLater || save(copy, "saved later"));
        QVERIFY(reopen());
        QCOMPARE(exported(savedLater ? u"a.txt"_s : name),
                 QByteArray(savedLater ? "saved later" : "imported"));
    }

    void refusedImportLeavesTheEdit() {
        QVERIFY(openSample());
        const QString copy = openAndEdit(u"a.txt"_s, "edited");
        QVERIFY(!copy.isEmpty() && writeFile(path(u"a.txt"_s), "imported"));
        dialogs().answerFiles(OpenTitle, {path(u"a.txt"_s)});
        dialogs().press(u"Substituir arquivo"_s, u"Não"_s);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(readFile(copy), "edited"_ba);
        QVERIFY(reopen());
        QCOMPARE(exported(u"a.txt"_s), "edited"_ba);
    }

    // --- Questions -------------------------------------------------------------------------------

    void questionsDefaultToNo_data() {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("row");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("buttons");
        QTest::addColumn<No>("no");
        const QStringList yesNo{u"Sim"_s, u"Não"_s};
        const struct {
            const char* name;
            No no;
        } ways[] = {{"button", No::Button},
                    {"Escape", No::Escape},
                    {"close", No::Close},
                    {"Return", No::Return}};
        for (const auto& way : ways) {
            QTest::addRow("export, %s", way.name)
                << u"Exportar..."_s << u"a.txt"_s << u"Exportar arquivo"_s
                << u"Exportar a.txt criará uma cópia descriptografada fora do cofre. Alterações "
                   u"feitas "
                   u"nessa cópia não voltam automaticamente para o Tessel."_s
                << QStringList({u"Continuar"_s, u"Cancelar"_s}) << way.no;
            QTest::addRow("delete, %s", way.name)
                << u"Excluir..."_s << u"a.txt"_s << u"Excluir arquivo"_s
                << u"Excluir a.txt removerá o arquivo da lista do cofre.\n\nOs dados físicos só "
                   u"serão "
                   u"liberados do container após executar Compactar cofre."_s
                << yesNo << way.no;
            QTest::addRow("delete folder, %s", way.name)
                << u"Excluir pasta vazia"_s << u"Apoio"_s << u"Excluir pasta"_s
                << u"Excluir a pasta vazia Apoio?"_s << yesNo << way.no;
            QTest::addRow("compact, %s", way.name)
                << u"Compactar cofre..."_s << QString() << u"Compactar cofre"_s
                << u"A compactação reconstruirá o container removendo fisicamente dados de "
                   u"arquivos "
                   u"já excluídos.\n\nDurante a operação, será criado temporariamente um container "
                   u"criptografado no disco local. Nenhum arquivo descriptografado será gravado "
                   u"fora "
                   u"do cofre.\n\nDeseja continuar?"_s
                << yesNo << way.no;
        }
    }
    void questionsDefaultToNo() {
        QFETCH(const QString, command);
        QFETCH(const QString, row);
        QFETCH(const QString, title);
        QFETCH(const QString, text);
        QFETCH(const QStringList, buttons);
        QFETCH(const No, no);
        QVERIFY(openSample());
        const QByteArray before = sha256OfFile(containerPath());
        const QStringList rowsBefore = m_driver->rowNames();
        dialogs().handle(title, [&](QDialog* dialog) {
            switch (no) {
            case No::Button:
                QVERIFY(pressButton(dialog, buttons.last()));
                break;
            case No::Escape:
                QTest::keyClick(dialog, Qt::Key_Escape);
                break;
            case No::Close:
                dialog->close();
                break;
            case No::Return:
                QTest::keyClick(dialog, Qt::Key_Return);
                break;
            }
        });
        VERIFY_RUN(command, row);
        const DialogDriver::Seen seen = dialogs().last();
        QCOMPARE(seen.icon, QMessageBox::Question);
        QCOMPARE(seen.text, text);
        QCOMPARE(seen.buttons, buttons);
        QCOMPARE(seen.defaultButton, buttons.last());
        QCOMPARE(status(), QString());
        QCOMPARE(m_driver->rowNames(), rowsBefore);
        QCOMPARE(sha256OfFile(containerPath()), before);
    }

    void deleteRemovesTheFile() {
        QVERIFY(openSample());
        dialogs().press(u"Excluir arquivo"_s, u"Sim"_s);
        VERIFY_RUN(u"Excluir..."_s, u"a.txt"_s);
        QCOMPARE(m_driver->rowNamed(u"a.txt"_s), -1);
        QCOMPARE(status(), u"Arquivo excluído do cofre."_s);
    }

    // --- Names -----------------------------------------------------------------------------------

    void renamingTrimsTheName_data() {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QString>("told");
        QTest::newRow("file") << u"Renomear arquivo"_s << u"a.txt"_s << u"  novo nome.txt "_s
                              << u"novo nome.txt"_s << u"Arquivo renomeado."_s;
        QTest::newRow("folder") << u"Renomear pasta"_s << u"docs"_s << u" outra\t"_s << u"outra"_s
                                << u"Pasta renomeada."_s;
    }
    void renamingTrimsTheName() {
        QFETCH(const QString, title);
        QFETCH(const QString, name);
        QFETCH(const QString, typed);
        QFETCH(const QString, expected);
        QFETCH(const QString, told);
        QVERIFY(openSample());
        QString prefilled;
        dialogs().handle(title, [&](QDialog* dialog) {
            auto* input = qobject_cast<QInputDialog*>(dialog);
            prefilled = input->textValue();
            input->setTextValue(typed);
            dialog->accept();
        });
        VERIFY_RUN(title + u"..."_s, name);
        QCOMPARE(prefilled, name);
        QCOMPARE(lastText(), u"Novo nome:"_s);
        QVERIFY(m_driver->rowNamed(expected) >= 0);
        QCOMPARE(status(), told);
    }

    void renamingSelectsAFileNameWithoutItsSuffix_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("selected");
        QTest::newRow("suffix") << u"carta.txt"_s << u"carta"_s;
        QTest::newRow("two suffixes") << u"tudo.tar.gz"_s << u"tudo.tar"_s;
        QTest::newRow("no suffix") << u"LEIAME"_s << u"LEIAME"_s;
        QTest::newRow("hidden file") << u".bashrc"_s << u".bashrc"_s;
        QTest::newRow("folder") << u"versão 1.0"_s << u"versão 1.0"_s;
    }
    void renamingSelectsAFileNameWithoutItsSuffix() {
        QFETCH(const QString, name);
        QFETCH(const QString, selected);
        const bool isFolder = name.startsWith(u"versão");
        CraftedContainer crafted;
        QVERIFY(open(isFolder ? crafted.addFolder(name) : crafted.addFile(name, "a")));
        QString found;
        dialogs().handle(isFolder ? u"Renomear pasta"_s : u"Renomear arquivo"_s,
                         [&found](QDialog* dialog) {
                             found = dialog->findChild<QLineEdit*>()->selectedText();
                             dialog->reject();
                         });
        VERIFY_RUN(isFolder ? u"Renomear pasta..."_s : u"Renomear arquivo..."_s, name);
        QCOMPARE(found, selected);
    }

    void longNamesDoNotWidenADialog_data() {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("title");
        QTest::addColumn<int>("letterHeight");
        const int usual = QApplication::font().pointSize();
        for (const int height : {usual, 3 * usual}) {
            const QByteArray size = QByteArray::number(height);
            QTest::newRow("question, " + size) << u"Excluir..."_s << u"Excluir arquivo"_s << height;
            QTest::newRow("choice, " + size)
                << u"Mover para pasta..."_s << u"Mover arquivo"_s << height;
        }
    }
    void longNamesDoNotWidenADialog() {
        QFETCH(const QString, command);
        QFETCH(const QString, title);
        QFETCH(const int, letterHeight);
        const QFont usual = QApplication::font();
        const auto asBefore = qScopeGuard([&usual] { QApplication::setFont(usual); });
        QFont letters = usual;
        letters.setPointSize(letterHeight);
        QApplication::setFont(letters);
        const QString name = QString(246, u'm') + u".txt"_s;
        CraftedContainer crafted;
        QVERIFY(open(crafted.addFile(name, "a").addFolder(QString(250, u'w'))));
        int width = 0;
        int screenWidth = 0;
        QString text;
        dialogs().handle(title, [&](QDialog* dialog) {
            width = dialog->width();
            text = lastText();
            screenWidth = dialog->screen()->availableGeometry().width();
            dialog->reject();
        });
        VERIFY_RUN(command, name);
        QVERIFY2(width <= m_driver->window.width(), qPrintable(QString::number(width)));
        // Qt makes a box as wide as the screen before it cuts the text off.
        QVERIFY2(width < screenWidth, qPrintable(QString::number(width)));
        // Only the picture is broken, not the text.
        QVERIFY(text.contains(name));
    }

    void directionMarksTurnNoQuestion() {
        // Shown as it is, the first name looks like "fotoexe.jpg".
        const QString disguised = u"foto\u202Egpj.exe"_s;
        const QString hebrew = u"\u05D0\u200F.txt"_s;
        CraftedContainer crafted;
        QVERIFY(open(crafted.addFile(disguised, "a").addFile(hebrew, "b")));
        for (const QString& name : {disguised, hebrew}) {
            dialogs().reject(u"Excluir arquivo"_s);
            VERIFY_RUN(u"Excluir..."_s, name);
        }
        const QStringList texts = dialogTexts();
        QVERIFY(texts.at(0).startsWith(u"Excluir \u2068foto\uFFFDgpj.exe\u2069 removerá"_s));
        QVERIFY(texts.at(1).startsWith(u"Excluir \u2068"_s + hebrew + u"\u2069 removerá"_s));
    }

    void newFolderTrimsTheName() {
        QVERIFY(openSample());
        QVERIFY(m_driver->activateRow(u"docs"_s));
        dialogs().answerText(u"Nova pasta"_s, u" fotos "_s);
        VERIFY_RUN(u"Nova pasta..."_s);
        QCOMPARE(lastText(), u"Nome da pasta:"_s);
        QVERIFY(m_driver->rowNamed(u"fotos"_s) >= 0);
        QCOMPARE(status(), u"Pasta criada."_s);
    }

    void namesAreChecked_data() {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("row");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("message");
        const struct {
            const char* name;
            QString command;
            QString row;
            QString title;
            QString simple;
        } commands[] = {
            {"file", u"Renomear arquivo..."_s, u"a.txt"_s, u"Renomear arquivo"_s, SimpleFileName},
            {"folder", u"Renomear pasta..."_s, u"docs"_s, u"Renomear pasta"_s, SimpleFolderName},
            {"new folder", u"Nova pasta..."_s, QString(), u"Nova pasta"_s, SimpleFolderName},
        };
        for (const auto& c : commands) {
            for (const QString& name : {u"."_s, u".."_s, u"x/y"_s, u"x\\y"_s, u" .. "_s}) {
                QTest::addRow("%s, %s", c.name, qPrintable(name))
                    << c.command << c.row << c.title << name << c.simple;
            }
            for (const QString& name : {u"B.TXT"_s, u"APOIO"_s}) {
                QTest::addRow("%s, taken by %s", c.name, qPrintable(name))
                    << c.command << c.row << c.title << name << NameTaken;
            }
        }
        QTest::newRow("file, other case") << u"Renomear arquivo..."_s << u"a.txt"_s
                                          << u"Renomear arquivo"_s << u"A.txt"_s << NameTaken;
    }
    void namesAreChecked() {
        QFETCH(const QString, command);
        QFETCH(const QString, row);
        QFETCH(const QString, title);
        QFETCH(const QString, name);
        QFETCH(const QString, message);
        QVERIFY(openSample());
        const QStringList before = m_driver->rowNames();
        dialogs().answerText(title, name);
        dialogs().acceptWarning(title);
        VERIFY_RUN(command, row);
        QCOMPARE(lastText(), message);
        QCOMPARE(m_driver->rowNames(), before);
        QCOMPARE(status(), QString());
    }

    void emptyAnswersAreSilent_data() {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("row");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("name");
        QTest::newRow("file, blanks")
            << u"Renomear arquivo..."_s << u"a.txt"_s << u"Renomear arquivo"_s << u"   "_s;
        QTest::newRow("file, same")
            << u"Renomear arquivo..."_s << u"a.txt"_s << u"Renomear arquivo"_s << u" a.txt "_s;
        QTest::newRow("folder, blanks")
            << u"Renomear pasta..."_s << u"docs"_s << u"Renomear pasta"_s << u" "_s;
        QTest::newRow("folder, same")
            << u"Renomear pasta..."_s << u"docs"_s << u"Renomear pasta"_s << u"docs"_s;
        QTest::newRow("new folder, blanks")
            << u"Nova pasta..."_s << QString() << u"Nova pasta"_s << u"  "_s;
    }
    void emptyAnswersAreSilent() {
        QFETCH(const QString, command);
        QFETCH(const QString, row);
        QFETCH(const QString, title);
        QFETCH(const QString, name);
        QVERIFY(openSample());
        const QByteArray before = sha256OfFile(containerPath());
        dialogs().answerText(title, name);
        VERIFY_RUN(command, row);
        dialogs().reject(title);
        VERIFY_RUN(command, row);
        QCOMPARE(status(), QString());
        QCOMPARE(sha256OfFile(containerPath()), before);
    }

    // --- Moving and folders ----------------------------------------------------------------------

    void moveOffersFoldersInOrder_data() {
        QTest::addColumn<QStringList>("way");
        QTest::addColumn<QString>("file");
        QTest::addColumn<QStringList>("labels");
        QTest::newRow("root") << QStringList() << u"a.txt"_s
                              << QStringList({u"Apoio"_s, u"docs"_s, u"docs/sub"_s});
        QTest::newRow("docs") << QStringList(u"docs"_s) << u"c.txt"_s
                              << QStringList({u"Raiz"_s, u"Apoio"_s, u"docs/sub"_s});
        QTest::newRow("docs/sub") << QStringList({u"docs"_s, u"sub"_s}) << u"d.txt"_s
                                  << QStringList({u"Raiz"_s, u"Apoio"_s, u"docs"_s});
    }
    void moveOffersFoldersInOrder() {
        QFETCH(const QStringList, way);
        QFETCH(const QString, file);
        QFETCH(const QStringList, labels);
        QVERIFY(openSample());
        for (const QString& folder : way) {
            QVERIFY(m_driver->activateRow(folder));
        }
        QStringList offered;
        QStringList paths;
        int icons = 0;
        bool modal = false;
        QList<const QWidget*> expectedColumn;
        QList<const QWidget*> column;
        dialogs().handle(u"Mover arquivo"_s, [&](QDialog* dialog) {
            const auto* combo = dialog->findChild<QComboBox*>();
            for (int i = 0; i < combo->count(); ++i) {
                offered.append(combo->itemText(i));
                paths.append(combo->itemData(i).toString());
                icons += combo->itemIcon(i).isNull() ? 0 : 1;
            }
            modal = dialog->isModal();
            expectedColumn = {dialog->findChild<QLabel*>(), combo,
                              dialog->findChild<QDialogButtonBox*>()};
            const auto* layout = qobject_cast<QVBoxLayout*>(dialog->layout());
            for (int i = 0; layout != nullptr && i < layout->count(); ++i) {
                column.append(layout->itemAt(i)->widget());
            }
            dialog->reject();
        });
        VERIFY_RUN(u"Mover para pasta..."_s, file);
        QCOMPARE(column, expectedColumn);
        QCOMPARE(offered, labels);
        QCOMPARE(icons, 0);
        QVERIFY(modal);
        QCOMPARE(paths, QStringList(labels).replaceInStrings(u"Raiz"_s, QString()));
        const DialogDriver::Seen seen = dialogs().last();
        QCOMPARE(seen.text, u"Mover %1 para:"_s.arg(file));
        QCOMPARE(QSet<QString>(seen.buttons.cbegin(), seen.buttons.cend()),
                 QSet<QString>({u"Mover"_s, u"Cancelar"_s}));
        QCOMPARE(status(), QString());
    }

    void moveSortsFoldersWhateverTheirCase() {
        CraftedContainer crafted;
        crafted.addFolder(u"docs"_s).addFolder(u"Zeta"_s).addFolder(u"beta"_s);
        // Its folder goes by another letter case, and is not offered all the same.
        crafted.addFolder(u"Apoio"_s).addFile(u"DOCS/c.txt"_s, "c");
        QVERIFY(open(crafted));
        QVERIFY(m_driver->activateRow(u"docs"_s));
        QStringList offered;
        dialogs().handle(u"Mover arquivo"_s, [&offered](QDialog* dialog) {
            const auto* combo = dialog->findChild<QComboBox*>();
            for (int i = 0; i < combo->count(); ++i) {
                offered.append(combo->itemText(i));
            }
            dialog->reject();
        });
        VERIFY_RUN(u"Mover para pasta..."_s, u"c.txt"_s);
        QCOMPARE(offered, QStringList({u"Raiz"_s, u"Apoio"_s, u"beta"_s, u"Zeta"_s}));
    }

    void moveToTheRoot() {
        QVERIFY(openSample());
        QVERIFY(m_driver->activateRow(u"docs"_s));
        dialogs().press(u"Mover arquivo"_s, u"Mover"_s);
        VERIFY_RUN(u"Mover para pasta..."_s, u"c.txt"_s);
        QCOMPARE(status(), u"Arquivo movido."_s);
        QCOMPARE(m_driver->rowNamed(u"c.txt"_s), -1);
        QVERIFY(m_driver->activateRow(u".."_s));
        QVERIFY(m_driver->rowNamed(u"c.txt"_s) >= 0);
    }

    void moveIntoAFolderOfAFolder() {
        QVERIFY(openSample());
        dialogs().handle(u"Mover arquivo"_s, [](QDialog* dialog) {
            dialog->findChild<QComboBox*>()->setCurrentText(u"docs/sub"_s);
            dialog->accept();
        });
        VERIFY_RUN(u"Mover para pasta..."_s, u"a.txt"_s);
        QCOMPARE(status(), u"Arquivo movido."_s);
        QCOMPARE(m_driver->rowNamed(u"a.txt"_s), -1);
        QVERIFY(m_driver->activateRow(u"docs"_s) && m_driver->activateRow(u"sub"_s));
        QCOMPARE(m_driver->rowNames(), QStringList({u".."_s, u"a.txt"_s, u"d.txt"_s}));
        QCOMPARE(exported(u"a.txt"_s), "aaa"_ba);
    }

    void moveWithoutFolderIsTold() {
        // The command is enabled while folders exist; one folder is enough for a file inside it to
        // go to the root, and none leaves it disabled.
        CraftedContainer crafted;
        QVERIFY(open(crafted.addFile(u"a.txt"_s, "a")));
        QVERIFY(m_driver->selectRow(u"a.txt"_s));
        QVERIFY(!m_driver->action(u"Mover para pasta..."_s)->isEnabled());
        m_driver->action(u"Mover para pasta..."_s)->setEnabled(true);
        dialogs().acceptInformation(u"Mover arquivo"_s);
        VERIFY_RUN(u"Mover para pasta..."_s);
        QCOMPARE(lastText(), u"Não há outra pasta disponível para receber este arquivo."_s);
    }

    void moveOntoAnItemIsRefused() {
        CraftedContainer crafted;
        crafted.addFolder(u"docs"_s).addFile(u"a.txt"_s, "1").addFile(u"docs/A.TXT"_s, "2");
        QVERIFY(open(crafted));
        dialogs().press(u"Mover arquivo"_s, u"Mover"_s);
        dialogs().acceptWarning(u"Mover arquivo"_s);
        VERIFY_RUN(u"Mover para pasta..."_s, u"a.txt"_s);
        QCOMPARE(lastText(), u"Já existe um item com esse nome na pasta de destino."_s);
        QVERIFY(m_driver->rowNamed(u"a.txt"_s) >= 0);
    }

    void emptyFolderIsDeleted() {
        QVERIFY(openSample());
        dialogs().press(u"Excluir pasta"_s, u"Sim"_s);
        VERIFY_RUN(u"Excluir pasta vazia"_s, u"Apoio"_s);
        QCOMPARE(m_driver->rowNamed(u"Apoio"_s), -1);
        QCOMPARE(status(), u"Pasta excluída."_s);
    }

    void folderWithFilesStays() {
        QVERIFY(openSample());
        dialogs().press(u"Excluir pasta"_s, u"Sim"_s);
        dialogs().acceptWarning(u"Excluir pasta"_s);
        VERIFY_RUN(u"Excluir pasta vazia"_s, u"docs"_s);
        QCOMPARE(lastText(), u"A pasta não está vazia ou não pode ser excluída."_s);
        QVERIFY(m_driver->rowNamed(u"docs"_s) >= 0);
        QCOMPARE(status(), QString());
    }

    // --- Failures --------------------------------------------------------------------------------

    void commandsWithoutTheirSelectionDoNothing_data() {
        QTest::addColumn<QString>("row");
        QTest::addColumn<QStringList>("commands");
        const QStringList ofAFile{u"Exportar..."_s, u"Abrir"_s, u"Renomear arquivo..."_s,
                                  u"Excluir..."_s, u"Mover para pasta..."_s};
        const QStringList ofAFolder{u"Renomear pasta..."_s, u"Excluir pasta vazia"_s};
        QTest::newRow("nothing") << QString() << ofAFile + ofAFolder;
        QTest::newRow("file") << u"c.txt"_s << ofAFolder;
        QTest::newRow("folder") << u"sub"_s << ofAFile;
        QTest::newRow("parent row") << u".."_s << ofAFile + ofAFolder;
    }
    void commandsWithoutTheirSelectionDoNothing() {
        QFETCH(const QString, row);
        QFETCH(const QStringList, commands);
        QVERIFY(openSample());
        QVERIFY(m_driver->activateRow(u"docs"_s));
        if (row == u"..") {
            // Two levels down this row stands for a folder that has a name.
            QVERIFY(m_driver->activateRow(u"sub"_s));
        }
        QVERIFY(row.isEmpty() || m_driver->selectRow(row));
        const QByteArray before = sha256OfFile(containerPath());
        const QStringList rowsBefore = m_driver->rowNames();
        const FakeDesktop desktop(u"file"_s);
        for (const QString& command : commands) {
            // The menu does not offer it; who gets there all the same is asked nothing.
            QVERIFY2(!m_driver->action(command)->isEnabled(), qPrintable(command));
            m_driver->action(command)->setEnabled(true);
            VERIFY_RUN(command);
            QCOMPARE(dialogTexts(), QStringList());
            QCOMPARE(status(), QString());
        }
        QVERIFY(desktop.opened.isEmpty());
        QCOMPARE(m_driver->rowNames(), rowsBefore);
        QCOMPARE(sha256OfFile(containerPath()), before);
    }

    void vanishedContainerFailsEveryCommand_data() {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("row");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("failureTitle");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("statusText");
        QTest::newRow("rename file") << u"Renomear arquivo..."_s << u"a.txt"_s
                                     << u"Renomear arquivo"_s << QString() << u"Renomear arquivo"_s
                                     << u"Não foi possível renomear o arquivo. Feche o arquivo se "
                                        u"ele estiver aberto e tente "
                                        u"novamente."_s
                                     << QString();
        QTest::newRow("delete file")
            << u"Excluir..."_s << u"a.txt"_s << u"Excluir arquivo"_s << u"Sim"_s << u"Tessel"_s
            << u"Não foi possível excluir o arquivo do cofre."_s
            << u"Falha ao excluir o arquivo."_s;
        QTest::newRow("move file")
            << u"Mover para pasta..."_s << u"a.txt"_s << u"Mover arquivo"_s << u"Mover"_s
            << u"Mover arquivo"_s
            << u"Não foi possível mover o arquivo. Feche o arquivo se ele estiver aberto e tente "
               u"novamente."_s
            << QString();
        QTest::newRow("new folder")
            << u"Nova pasta..."_s << QString() << u"Nova pasta"_s << QString() << u"Nova pasta"_s
            << u"Não foi possível criar a pasta."_s << QString();
        QTest::newRow("rename folder")
            << u"Renomear pasta..."_s << u"docs"_s << u"Renomear pasta"_s << QString()
            << u"Renomear pasta"_s
            << u"Não foi possível renomear a pasta. Feche arquivos abertos dentro dela e tente "
               u"novamente."_s
            << QString();
        QTest::newRow("delete folder")
            << u"Excluir pasta vazia"_s << u"Apoio"_s << u"Excluir pasta"_s << u"Sim"_s
            << u"Excluir pasta"_s << u"A pasta não está vazia ou não pode ser excluída."_s
            << QString();
        QTest::newRow("compact") << u"Compactar cofre..."_s << QString() << u"Compactar cofre"_s
                                 << u"Sim"_s << u"Compactar cofre"_s
                                 << u"Não foi possível compactar o cofre."_s
                                 << u"Falha ao compactar o cofre."_s;
    }
    void vanishedContainerFailsEveryCommand() {
        QFETCH(const QString, command);
        QFETCH(const QString, row);
        QFETCH(const QString, title);
        QFETCH(const QString, answer);
        QFETCH(const QString, failureTitle);
        QFETCH(const QString, message);
        QFETCH(const QString, statusText);
        QVERIFY(openSample());
        const QStringList before = m_driver->rowNames();
        dialogs().handle(title, [&](QDialog* dialog) {
            takeContainerAway();
            if (answer.isEmpty()) {
                qobject_cast<QInputDialog*>(dialog)->setTextValue(u"novo"_s);
                dialog->accept();
            } else {
                QVERIFY(pressButton(dialog, answer));
            }
        });
        dialogs().acceptWarning(failureTitle);
        VERIFY_RUN(command, row);
        QCOMPARE(lastText(), message);
        // The warning comes before the status bar says the same.
        QCOMPARE(dialogs().last().status, QString());
        QCOMPARE(status(), statusText);
        QCOMPARE(m_driver->rowNames(), before);
        QVERIFY(m_driver->vaultIsOpen());
    }

    // --- Compaction ------------------------------------------------------------------------------

    void compactionFreesTheSpace() {
        CraftedContainer crafted;
        QVERIFY(open(crafted.addFile(u"a.txt"_s, "aaa").leaveGap(MiB).addFile(u"b.txt"_s, "bb")));
        const qint64 before = QFileInfo(containerPath()).size();
        dialogs().press(u"Compactar cofre"_s, u"Sim"_s);
        dialogs().acceptInformation(u"Compactar cofre"_s);
        VERIFY_RUN(u"Compactar cofre..."_s, u"a.txt"_s);
        QCOMPARE(m_driver->table()->currentRow(), -1);
        QCOMPARE(lastText(), u"Cofre compactado com sucesso."_s);
        QCOMPARE(dialogs().last().status, u"Cofre compactado com sucesso."_s);
        QCOMPARE(status(), u"Cofre compactado com sucesso."_s);
        QCOMPARE(QFileInfo(containerPath()).size(), before - MiB);
    }

    void containerThatCannotBeReplacedIsTold() {
        NEEDS_PRIVATE_MOUNTS();
        QVERIFY(openSample());
        const PinnedFile pinned(containerPath());
        dialogs().press(u"Compactar cofre"_s, u"Sim"_s);
        dialogs().acceptWarning(u"Compactar cofre"_s);
        VERIFY_RUN(u"Compactar cofre..."_s);
        QCOMPARE(lastText(), u"Não foi possível compactar o cofre."_s);
        QCOMPARE(dialogs().last().status, QString());
        QCOMPARE(status(), u"Falha ao compactar o cofre."_s);
    }

    void preservedCopyIsNamed() {
        QVERIFY(openSample());
        std::unique_ptr<FileSizeLimit> limit;
        const ProgressProbe probe([&](const QProgressDialog* dialog, int) {
            // Writing back to the drive has begun: it takes no more than the header region.
            if (!limit && dialog->labelText().startsWith(u"Substituindo container no USB"_s)) {
                limit = std::make_unique<FileSizeLimit>(CraftedContainer::HeaderRegionBytes + 5);
            }
        });
        dialogs().press(u"Compactar cofre"_s, u"Sim"_s);
        dialogs().acceptWarning(u"Compactar cofre"_s);
        const bool asExpected = run(u"Compactar cofre..."_s);
        limit.reset();
        QVERIFY2(asExpected, qPrintable(problems()));
        const QString start = u"Não foi possível substituir o container no USB.\n\nUm container "
                              u"compactado criptografado foi preservado em:\n"_s;
        const QString text = lastText();
        QVERIFY2(text.startsWith(start), qPrintable(text));
        const QString preserved = text.mid(start.size());
        QVERIFY2(QFileInfo(preserved).isFile(), qPrintable(preserved));
        QCOMPARE(dialogs().last().status, QString());
        QCOMPARE(status(), u"Falha ao compactar o cofre."_s);
        QVERIFY(QDir(QFileInfo(preserved).absolutePath()).removeRecursively());
    }

    // --- Shortcuts -------------------------------------------------------------------------------

    void shortcutsTriggerTheirCommand_data() {
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<QString>("title");
        const int none = Qt::NoModifier;
        const int control = Qt::ControlModifier;
        QTest::newRow("new folder")
            << int(Qt::Key_N) << int(Qt::ControlModifier | Qt::ShiftModifier) << u"Nova pasta"_s;
        QTest::newRow("import") << int(Qt::Key_I) << control << OpenTitle;
        QTest::newRow("export") << int(Qt::Key_E) << control << u"Exportar arquivo"_s;
        QTest::newRow("delete") << int(Qt::Key_Delete) << none << u"Excluir arquivo"_s;
        QTest::newRow("compact") << int(Qt::Key_F6) << none << u"Compactar cofre"_s;
        QTest::newRow("open") << int(Qt::Key_Return) << none << QString();
    }
    void shortcutsTriggerTheirCommand() {
        QFETCH(const int, key);
        QFETCH(const int, modifiers);
        QFETCH(const QString, title);
        QVERIFY(openSample());
        QVERIFY(m_driver->activate());
        QVERIFY(m_driver->selectRow(u"a.txt"_s));
        const FakeDesktop desktop(u"file"_s);
        if (!title.isEmpty()) {
            dialogs().reject(title);
        }
        QTest::keyClick(m_driver->table(), static_cast<Qt::Key>(key),
                        Qt::KeyboardModifiers(modifiers));
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QCOMPARE(desktop.opened.size(), title.isEmpty() ? 1 : 0);
    }
};

namespace {

int run(int argc, char** argv) {
    static_cast<void>(enterPrivateMounts());
    const TemporaryFolderInMemory temporaryFolder;
    return runTest<QApplication, TestFileCommands>(argc, argv);
}

} // namespace

TESSEL_TEST_MAIN(run);

#include "test_file_commands.moc"
