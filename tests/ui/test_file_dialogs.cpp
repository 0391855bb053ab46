// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/WindowTest.h"
#include "support/fake_machine_test.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QLineEdit>
#include <QListView>
#include <QListWidget>
#include <QSettings>
#include <QTest>
#include <QTimer>

#include <memory>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Password = u"senha de teste"_s;
const QString NewPassword = u"dez caracteres"_s;
const QString Pen = u"/media/ana/PEN"_s;
const QString ChooseTitle = u"Escolher container Tessel"_s;
const QString CreateTitle = u"Criar container Tessel"_s;
const QString BackupTitle = u"Fazer backup do container"_s;
const QString ImportTitle = u"Importar arquivos para o cofre"_s;
const QString ExportTitle = u"Exportar arquivo"_s;

QLineEdit* nameField(QDialog* dialog) {
    return dialog->findChild<QLineEdit*>(u"fileNameEdit"_s);
}

QAbstractButton* acceptButton(QDialog* dialog) {
    auto* box = dialog->findChild<QDialogButtonBox*>();
    for (QAbstractButton* button : box->buttons()) {
        if (box->buttonRole(button) == QDialogButtonBox::AcceptRole) {
            return button;
        }
    }
    return nullptr;
}

/// Names that Qt's dialog reads as something else.
void addOddNames() {
    QTest::addColumn<QString>("name");
    QTest::newRow("colon") << u":x.txt"_s;
    QTest::newRow("resource") << u":/icons/Tessel.ico"_s.replace(u'/', u'_');
    QTest::newRow("home folder") << u"~"_s;
    QTest::newRow("an account's folder") << u"~root"_s;
    QTest::newRow("in quotation marks") << u"\"a.txt\""_s;
    QTest::newRow("quotation marks within") << u"o \"outro\" lado.txt"_s;
    QTest::newRow("one quotation mark") << u"5\".txt"_s;
    QTest::newRow("variable") << u"$HOME"_s;
    QTest::newRow("pattern") << u"*.txt"_s;
    QTest::newRow("percent") << u"50%20.txt"_s;
    QTest::newRow("mark of an address") << u"a#b?c.txt"_s;
    QTest::newRow("blanks within") << u"a  b.txt"_s;
    QTest::newRow("line break") << u"a\nb.txt"_s;
    QTest::newRow("dots") << u"a..b"_s;
    QTest::newRow("markup") << u"<b>a.txt"_s;
}

} // namespace

/// The window's file dialogs: where they start, what they propose, and names of every kind.
class TestFileDialogs : public WindowTest {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void aNewVaultIsProposedOnTheSelectedDrive();
    void withoutADriveOnlyTheNameIsProposed();
    void choosingStartsOnTheSelectedDrive();
    void choosingStartsWhereTheLastContainerIs();
    void aLostFolderIsNoStart();
    void importAndExportStartWhereTheyLastWere();
    void mountedDrivesArePlaces_data();
    void mountedDrivesArePlaces();
    void drivesAreNotKeptAsPlaces();

    void newVaultsGetASuffix_data();
    void newVaultsGetASuffix();
    void backupsGetASuffix();
    void aFileWithTheSuffixIsNotReplacedUnasked();
    void anAcceptedDialogStillAsksAboutTheSuffix();
    void theNameTypedCountsMoreThanTheOneProposed();
    void aPathCountsMoreThanAFileOfItsNameHere();

    void everyNameIsProposedAndExported_data() { addOddNames(); }
    void everyNameIsProposedAndExported();
    void aFileOfAnOddNameIsNotReplacedUnasked();
    void aFolderOfTheProposedNameIsEntered();
    void everyNameCanBeImported_data() { addOddNames(); }
    void everyNameCanBeImported();
    void namesWithQuotationMarksCanBeImportedTogether();
    void quotedNamesAreReadAsQtReadsThem();

private:
    void addDrive(const QString& disk, const QString& directory);
    /// The window with the drives that there are now.
    void openWindow() { m_driver = std::make_unique<WindowDriver>(); }
    [[nodiscard]] bool openVaultWith(const QString& fileName);
    /// The folder in which the command's dialog starts; it is cancelled.
    [[nodiscard]] QString startOf(const QString& command, const QString& title);
    /// Types the name into the command's dialog, when it has one, and accepts it.
    void answerWithName(const QString& title, const QString& folder, const QString& name);
    void expectNewPassword();

    std::unique_ptr<FakeUsb> m_usb;
};

void TestFileDialogs::init() {
    m_usb = std::make_unique<FakeUsb>();
    WindowTest::init();
}

void TestFileDialogs::cleanup() {
    WindowTest::cleanup();
    m_usb.reset();
}

void TestFileDialogs::addDrive(const QString& disk, const QString& directory) {
    constexpr qint64 Bytes = 32 << 20;
    m_usb->addDisk(disk);
    m_usb->setAttribute(disk, u"removable"_s, "1\n");
    m_usb->mountVolume(disk, directory, Bytes);
}

bool TestFileDialogs::openVaultWith(const QString& fileName) {
    CraftedContainer crafted;
    crafted.addFile(fileName, "contents");
    return crafted.writeTo(path(u"tessel.tvlt"_s)) &&
           m_driver->openVault(path(u"tessel.tvlt"_s), Password);
}

QString TestFileDialogs::startOf(const QString& command, const QString& title) {
    QString start;
    m_driver->dialogs.handle(title, [&start](QDialog* dialog) {
        start = qobject_cast<QFileDialog*>(dialog)->directory().absolutePath();
        dialog->reject();
    });
    m_driver->action(command)->trigger();
    return start;
}

void TestFileDialogs::answerWithName(const QString& title, const QString& folder,
                                     const QString& name) {
    m_driver->dialogs.handle(title, [folder, name](QDialog* dialog) {
        qobject_cast<QFileDialog*>(dialog)->setDirectory(folder);
        if (!name.isEmpty()) {
            nameField(dialog)->setText(name);
        }
        QVERIFY(acceptButton(dialog)->isEnabled());
        acceptButton(dialog)->click();
    });
}

void TestFileDialogs::expectNewPassword() {
    m_driver->dialogs.answerText(u"Definir senha do cofre"_s, NewPassword);
    m_driver->dialogs.answerText(u"Confirmar senha do cofre"_s, NewPassword);
}

// --- Where they start ------------------------------------------------------------------------

void TestFileDialogs::aNewVaultIsProposedOnTheSelectedDrive() {
    addDrive(u"sdy"_s, u"/media/ana/OUTRO"_s);
    addDrive(u"sdz"_s, Pen);
    openWindow();
    m_driver->deviceList()->setCurrentRow(
        m_driver->deviceList()->item(0)->data(Qt::UserRole).toString() == Pen ? 0 : 1);
    QString proposed;
    m_driver->dialogs.handle(CreateTitle, [&proposed](QDialog* dialog) {
        proposed = nameField(dialog)->text();
        acceptButton(dialog)->click();
    });
    expectNewPassword();
    m_driver->action(u"Criar novo cofre..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(proposed, u"tessel.tvlt"_s);
    QVERIFY(QFile::exists(Pen + u"/tessel.tvlt"_s));
}

void TestFileDialogs::withoutADriveOnlyTheNameIsProposed() {
    openWindow();
    const QString start = startOf(u"Escolher container..."_s, ChooseTitle);
    QCOMPARE(startOf(u"Criar novo cofre..."_s, CreateTitle), start);
    QVERIFY(QFileInfo(start).isDir());
}

void TestFileDialogs::choosingStartsOnTheSelectedDrive() {
    addDrive(u"sdz"_s, Pen);
    openWindow();
    QCOMPARE(m_driver->window.selectedUsbRootPath(), Pen);
    QCOMPARE(startOf(u"Escolher container..."_s, ChooseTitle), Pen);
}

void TestFileDialogs::choosingStartsWhereTheLastContainerIs() {
    QVERIFY(QDir().mkpath(path(u"cofres"_s)) && QDir().mkpath(path(u"longe"_s)));
    QVERIFY(CraftedContainer().writeTo(path(u"cofres/a.tvlt"_s)));
    QVERIFY(m_driver->chooseContainer(path(u"cofres/a.tvlt"_s)));
    m_driver->dialogs.answerFiles(BackupTitle, {path(u"longe/b.tvlt"_s)});
    m_driver->dialogs.acceptInformation(u"Fazer backup"_s);
    m_driver->action(u"Fazer backup..."_s)->trigger();
    QCOMPARE(startOf(u"Escolher container..."_s, ChooseTitle), path(u"cofres"_s));
}

void TestFileDialogs::aLostFolderIsNoStart() {
    QVERIFY(QDir().mkpath(path(u"cofres"_s)));
    QVERIFY(CraftedContainer().writeTo(path(u"cofres/a.tvlt"_s)));
    QVERIFY(m_driver->chooseContainer(path(u"cofres/a.tvlt"_s)));
    QVERIFY(QDir(path(u"cofres"_s)).removeRecursively());
    QVERIFY(startOf(u"Escolher container..."_s, ChooseTitle) != path(u"cofres"_s));
}

void TestFileDialogs::importAndExportStartWhereTheyLastWere() {
    QVERIFY(openVaultWith(u"a.txt"_s));
    QVERIFY(QDir().mkpath(path(u"origem"_s)) && QDir().mkpath(path(u"destino"_s)));
    QVERIFY(writeFile(path(u"origem/n.txt"_s), "n"));
    // Not where the container was chosen.
    QCOMPARE(startOf(u"Importar..."_s, ImportTitle), QDir::currentPath());
    m_driver->dialogs.answerFiles(ImportTitle, {path(u"origem/n.txt"_s)});
    m_driver->action(u"Importar..."_s)->trigger();
    QVERIFY(m_driver->selectRow(u"a.txt"_s));
    m_driver->dialogs.press(ExportTitle, u"Continuar"_s);
    QCOMPARE(startOf(u"Exportar..."_s, ExportTitle), path(u"origem"_s));
    m_driver->dialogs.press(ExportTitle, u"Continuar"_s);
    m_driver->dialogs.answerFiles(ExportTitle, {path(u"destino/a.txt"_s)});
    m_driver->action(u"Exportar..."_s)->trigger();
    QCOMPARE(startOf(u"Importar..."_s, ImportTitle), path(u"origem"_s));
    m_driver->dialogs.press(ExportTitle, u"Continuar"_s);
    QCOMPARE(startOf(u"Exportar..."_s, ExportTitle), path(u"destino"_s));
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
}

void TestFileDialogs::mountedDrivesArePlaces_data() {
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("title");
    QTest::addColumn<bool>("unlocked");
    QTest::newRow("choose") << u"Escolher container..."_s << ChooseTitle << false;
    QTest::newRow("create") << u"Criar novo cofre..."_s << CreateTitle << false;
    QTest::newRow("backup") << u"Fazer backup..."_s << BackupTitle << false;
    QTest::newRow("import") << u"Importar..."_s << ImportTitle << true;
    QTest::newRow("export") << u"Exportar..."_s << ExportTitle << true;
}

void TestFileDialogs::mountedDrivesArePlaces() {
    QFETCH(const QString, command);
    QFETCH(const QString, title);
    QFETCH(const bool, unlocked);
    addDrive(u"sdz"_s, Pen);
    openWindow();
    QVERIFY(openVaultWith(u"a.txt"_s));
    // Mounted while the vault is open, when the list does not change.
    addDrive(u"sdy"_s, u"/media/ana/OUTRO"_s);
    if (!unlocked) {
        m_driver->action(u"Bloquear"_s)->trigger();
    }
    if (title == ExportTitle) {
        QVERIFY(m_driver->selectRow(u"a.txt"_s));
        m_driver->dialogs.press(title, u"Continuar"_s);
    }
    QList<QUrl> places;
    m_driver->dialogs.handle(title, [&places](QDialog* dialog) {
        places = qobject_cast<QFileDialog*>(dialog)->sidebarUrls();
        dialog->reject();
    });
    m_driver->action(command)->trigger();
    QCOMPARE(places.count(QUrl::fromLocalFile(Pen)), 1);
    QCOMPARE(places.count(QUrl::fromLocalFile(u"/media/ana/OUTRO"_s)), 1);
    QVERIFY(places.contains(QUrl::fromLocalFile(QDir::homePath())));
}

/// Qt writes what its dialogs show as places into a file of all programs.
void TestFileDialogs::drivesAreNotKeptAsPlaces() {
    addDrive(u"sdz"_s, Pen);
    openWindow();
    static_cast<void>(startOf(u"Escolher container..."_s, ChooseTitle));
    const QSettings kept(QSettings::UserScope, u"QtProject"_s);
    const QStringList places = kept.value(u"FileDialog/shortcuts"_s).toStringList();
    QVERIFY(!places.isEmpty());
    QVERIFY2(!places.join(u' ').contains(u"PEN"), qPrintable(places.join(u' ')));
}

// --- Suffixes --------------------------------------------------------------------------------

void TestFileDialogs::newVaultsGetASuffix_data() {
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("made");
    QTest::newRow("none") << u"cofre"_s << u"cofre.tvlt"_s;
    QTest::newRow("the usual one") << u"cofre.tvlt"_s << u"cofre.tvlt"_s;
    QTest::newRow("another one") << u"cofre.bak"_s << u"cofre.bak"_s;
    QTest::newRow("a dot at the end") << u"cofre."_s << u"cofre.tvlt"_s;
    QTest::newRow("a folder with a dot") << u"a.b/cofre"_s << u"a.b/cofre.tvlt"_s;
    QTest::newRow("in quotation marks") << u"\"cofre\""_s << u"cofre.tvlt"_s;
    QTest::newRow("colon") << u":cofre"_s << u":cofre.tvlt"_s;
}

void TestFileDialogs::newVaultsGetASuffix() {
    QFETCH(const QString, typed);
    QFETCH(const QString, made);
    QVERIFY(QDir().mkpath(path(u"a.b"_s)));
    answerWithName(CreateTitle, m_folder->path(), typed);
    expectNewPassword();
    m_driver->action(u"Criar novo cofre..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->statusMessage(), u"Cofre criado com sucesso."_s);
    QVERIFY(QFile::exists(m_folder->path() + u'/' + made));
}

void TestFileDialogs::backupsGetASuffix() {
    QVERIFY(CraftedContainer().writeTo(path(u"a.tvlt"_s)));
    QVERIFY(m_driver->chooseContainer(path(u"a.tvlt"_s)));
    answerWithName(BackupTitle, m_folder->path(), u"copia"_s);
    m_driver->dialogs.acceptInformation(u"Fazer backup"_s);
    m_driver->action(u"Fazer backup..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(readFile(path(u"copia.tvlt"_s)), readFile(path(u"a.tvlt"_s)));
    QVERIFY(!QFile::exists(path(u"copia"_s)));
}

void TestFileDialogs::aFileWithTheSuffixIsNotReplacedUnasked() {
    QVERIFY(writeFile(path(u"cofre.tvlt"_s), "the only copy"));
    answerWithName(CreateTitle, m_folder->path(), u"cofre"_s);
    m_driver->dialogs.handle(CreateTitle, [](QDialog* question) {
        QVERIFY(pressButton(question, u"Não"_s));
        // Back in the file dialog.
        QTimer::singleShot(
            0, qApp, [] { qobject_cast<QDialog*>(QApplication::activeModalWidget())->reject(); });
    });
    m_driver->action(u"Criar novo cofre..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->dialogs.lastText(), u"cofre.tvlt já existe.\nDeseja substituí-lo?"_s);
    QCOMPARE(readFile(path(u"cofre.tvlt"_s)), QByteArray("the only copy"));
    QVERIFY(!QFile::exists(path(u"cofre"_s)));
}

/// As a dialog of the desktop's ends, which asks about the name as it was typed.
void TestFileDialogs::anAcceptedDialogStillAsksAboutTheSuffix() {
    QVERIFY(writeFile(path(u"cofre.tvlt"_s), "the only copy"));
    m_driver->dialogs.handle(CreateTitle, [this](QDialog* dialog) {
        nameField(dialog)->setText(path(u"cofre"_s));
        dialog->done(QDialog::Accepted);
    });
    m_driver->dialogs.handle(CreateTitle, [](QDialog* question) {
        QVERIFY(pressButton(question, u"Não"_s));
        QTimer::singleShot(
            0, qApp, [] { qobject_cast<QDialog*>(QApplication::activeModalWidget())->reject(); });
    });
    m_driver->action(u"Criar novo cofre..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->dialogs.lastText(), u"cofre.tvlt já existe.\nDeseja substituí-lo?"_s);
    QCOMPARE(readFile(path(u"cofre.tvlt"_s)), QByteArray("the only copy"));
}

/// With the focus elsewhere, Qt would take the row of the file that has the proposed name.
void TestFileDialogs::theNameTypedCountsMoreThanTheOneProposed() {
    addDrive(u"sdz"_s, Pen);
    QVERIFY(writeFile(Pen + u"/tessel.tvlt"_s, "the only copy"));
    openWindow();
    m_driver->dialogs.handle(CreateTitle, [this](QDialog* dialog) {
        dialog->findChild<QListView*>(u"listView"_s)->setFocus();
        nameField(dialog)->setText(path(u"novo.tvlt"_s));
        acceptButton(dialog)->click();
    });
    expectNewPassword();
    m_driver->action(u"Criar novo cofre..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QVERIFY(QFile::exists(path(u"novo.tvlt"_s)));
    QCOMPARE(readFile(Pen + u"/tessel.tvlt"_s), QByteArray("the only copy"));
}

/// With the focus elsewhere, Qt would take the file of that name in the folder that is shown.
void TestFileDialogs::aPathCountsMoreThanAFileOfItsNameHere() {
    QVERIFY(openVaultWith(u"outro.bin"_s));
    for (const QString& folder : {u"um"_s, u"dois"_s}) {
        QVERIFY(QDir().mkpath(path(folder)));
        for (const QString& name : {u"/a.txt"_s, u"/b.txt"_s}) {
            QVERIFY(writeFile(path(folder) + name, (folder + name).toUtf8()));
        }
    }
    m_driver->dialogs.answerFiles(ImportTitle, {path(u"um/a.txt"_s)});
    m_driver->action(u"Importar..."_s)->trigger();
    m_driver->dialogs.answerFiles(ImportTitle, {path(u"dois/a.txt"_s)});
    m_driver->dialogs.press(u"Substituir arquivo"_s, u"Sim"_s);
    m_driver->action(u"Importar..."_s)->trigger();
    m_driver->dialogs.answerFiles(ImportTitle, {path(u"um/b.txt"_s), path(u"um/a.txt"_s)});
    m_driver->dialogs.press(u"Substituir arquivo"_s, u"Não"_s);
    m_driver->action(u"Importar..."_s)->trigger();
    for (const QString& name : {u"a.txt"_s, u"b.txt"_s}) {
        QVERIFY(m_driver->selectRow(name));
        m_driver->dialogs.press(ExportTitle, u"Continuar"_s);
        m_driver->dialogs.answerFiles(ExportTitle, {path(u"x-"_s + name)});
        m_driver->action(u"Exportar..."_s)->trigger();
    }
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(readFile(path(u"x-a.txt"_s)), QByteArray("dois/a.txt"));
    QCOMPARE(readFile(path(u"x-b.txt"_s)), QByteArray("um/b.txt"));
}

// --- Names of every kind ---------------------------------------------------------------------

void TestFileDialogs::everyNameIsProposedAndExported() {
    QFETCH(const QString, name);
    QVERIFY(openVaultWith(name));
    QVERIFY(QDir().mkpath(path(u"destino"_s)));
    m_driver->table()->setCurrentCell(0, 1);
    m_driver->dialogs.press(ExportTitle, u"Continuar"_s);
    answerWithName(ExportTitle, path(u"destino"_s), {});
    m_driver->action(u"Exportar..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->statusMessage(), u"Arquivo exportado com sucesso."_s);
    QCOMPARE(readFile(path(u"destino"_s) + u'/' + name), QByteArray("contents"));
}

void TestFileDialogs::aFileOfAnOddNameIsNotReplacedUnasked() {
    QVERIFY(openVaultWith(u"~"_s));
    QVERIFY(writeFile(path(u"~"_s), "other"));
    m_driver->table()->setCurrentCell(0, 1);
    m_driver->dialogs.press(ExportTitle, u"Continuar"_s);
    answerWithName(ExportTitle, m_folder->path(), {});
    m_driver->dialogs.press(ExportTitle, u"Sim"_s);
    m_driver->action(u"Exportar..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->dialogs.lastText(), u"~ já existe.\nDeseja substituí-lo?"_s);
    QCOMPARE(readFile(path(u"~"_s)), QByteArray("contents"));
}

void TestFileDialogs::aFolderOfTheProposedNameIsEntered() {
    QVERIFY(openVaultWith(u"~"_s));
    QVERIFY(QDir().mkpath(path(u"~"_s)));
    m_driver->table()->setCurrentCell(0, 1);
    QString entered;
    m_driver->dialogs.press(ExportTitle, u"Continuar"_s);
    m_driver->dialogs.handle(ExportTitle, [&](QDialog* dialog) {
        auto* files = qobject_cast<QFileDialog*>(dialog);
        files->setDirectory(m_folder->path());
        acceptButton(dialog)->click();
        entered = files->directory().absolutePath();
        dialog->reject();
    });
    m_driver->action(u"Exportar..."_s)->trigger();
    QCOMPARE(entered, path(u"~"_s));
}

void TestFileDialogs::everyNameCanBeImported() {
    QFETCH(const QString, name);
    QVERIFY(openVaultWith(u"outro.bin"_s));
    QVERIFY(QDir().mkpath(path(u"origem"_s)));
    const QString source = path(u"origem"_s) + u'/' + name;
    QVERIFY(writeFile(source, "imported"));
    m_driver->dialogs.handle(ImportTitle, [&](QDialog* dialog) {
        // As a click on the file's row does.
        auto* files = qobject_cast<QFileDialog*>(dialog);
        files->setDirectory(path(u"origem"_s));
        auto* view = dialog->findChild<QListView*>(u"listView"_s);
        view->setFocus();
        QTRY_COMPARE(view->model()->rowCount(view->rootIndex()), 1);
        view->setCurrentIndex(view->model()->index(0, 0, view->rootIndex()));
        QVERIFY(acceptButton(dialog)->isEnabled());
        acceptButton(dialog)->click();
    });
    m_driver->action(u"Importar..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->statusMessage(), u"Arquivo importado com sucesso."_s);
    QCOMPARE(m_driver->rowNames().size(), 2);
}

void TestFileDialogs::namesWithQuotationMarksCanBeImportedTogether() {
    QVERIFY(openVaultWith(u"outro.bin"_s));
    QVERIFY(QDir().mkpath(path(u"origem"_s)));
    const QStringList names{u"5\".txt"_s, u"\"a.txt\""_s, u"b.txt"_s, u"~"_s};
    for (const QString& name : names) {
        QVERIFY(writeFile(path(u"origem"_s) + u'/' + name, "imported"));
    }
    // Qt reads it as a list with this name, too.
    QVERIFY(writeFile(path(u"origem/a.txt"_s), "not chosen"));
    m_driver->dialogs.handle(ImportTitle, [&](QDialog* dialog) {
        qobject_cast<QFileDialog*>(dialog)->setDirectory(path(u"origem"_s));
        nameField(dialog)->setText(u"\"5\".txt\" \"\"a.txt\"\" \"b.txt\" \"~\""_s);
        acceptButton(dialog)->click();
    });
    m_driver->action(u"Importar..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->statusMessage(), u"4 arquivos importados com sucesso."_s);
}

void TestFileDialogs::quotedNamesAreReadAsQtReadsThem() {
    QVERIFY(openVaultWith(u"outro.bin"_s));
    QVERIFY(writeFile(path(u"a.txt"_s), "a") && writeFile(path(u"b.txt"_s), "b"));
    m_driver->dialogs.answerFiles(ImportTitle, {path(u"a.txt"_s), path(u"b.txt"_s)});
    m_driver->action(u"Importar..."_s)->trigger();
    QVERIFY(m_driver->selectRow(u"a.txt"_s));
    m_driver->dialogs.press(ExportTitle, u"Continuar"_s);
    answerWithName(ExportTitle, m_folder->path(), u"\"c.txt\""_s);
    m_driver->action(u"Exportar..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(readFile(path(u"c.txt"_s)), QByteArray("a"));
}

TESSEL_TEST_MAIN(Tessel::Tests::runOnFakeMachine<QApplication, TestFileDialogs>);

#include "test_file_dialogs.moc"
