// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/WindowDriver.h"
#include "ui/ChangePasswordDialog.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGuiApplication>
#include <QKeySequence>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QVBoxLayout>

using Tessel::Tests::CraftedContainer;
using Tessel::Tests::DialogDriver;
using Tessel::Tests::pressButton;
using Tessel::Tests::readFile;
using Tessel::Tests::typeText;
using Tessel::Tests::WindowDriver;
using Tessel::UI::ChangePasswordDialog;

namespace {

const QString WarningTitle = QStringLiteral("Alterar senha");
const QString NoCurrentPassword = QStringLiteral("Informe a senha atual.");
const QString TooShort = QStringLiteral("Use uma nova senha com pelo menos 10 caracteres.");
const QString NotConfirmed = QStringLiteral("A confirmação não coincide com a nova senha.");

/// The dialog on the screen and the three fields in the order of their rows.
class Fields {
public:
    Fields() {
        dialog.show();
        const auto* form = dialog.findChild<QFormLayout*>();
        for (int row = 0; form != nullptr && row < form->rowCount(); ++row) {
            edits.append(
                qobject_cast<QLineEdit*>(form->itemAt(row, QFormLayout::FieldRole)->widget()));
        }
    }

    void type(const QString& current, const QString& fresh, const QString& confirmation) const {
        typeText(edits.at(0), current);
        typeText(edits.at(1), fresh);
        typeText(edits.at(2), confirmation);
    }

    ChangePasswordDialog dialog{nullptr};
    QList<QLineEdit*> edits;
};

const QString OldPassword = QStringLiteral("senha de teste");
const QString NewPassword = QStringLiteral("outra senha, bem mais longa");

/// The window with a locked container chosen, which OldPassword opens.
struct LockedVault {
    LockedVault() {
        CraftedContainer crafted;
        crafted.addFile(u"carta.txt"_qs, "conteúdo");
        ready = folder.isValid() && crafted.writeTo(path) && driver.chooseContainer(path);
    }

    /// Asks for the change of password and types into the dialog that opens.
    void changePassword(const QString& current, const QString& fresh) {
        driver.dialogs.handle(
            u"Alterar senha do cofre"_qs, [this, current, fresh](QDialog* dialog) {
                belongsToTheWindow = dialog->parentWidget() == &driver.window;
                const QList<QLineEdit*> edits = dialog->findChildren<QLineEdit*>();
                typeText(edits.at(0), current);
                typeText(edits.at(1), fresh);
                typeText(edits.at(2), fresh);
                QVERIFY(pressButton(dialog, u"Alterar"_qs));
            });
    }

    const QTemporaryDir folder;
    const QString path = folder.filePath(u"tessel.tvlt"_qs);
    WindowDriver driver;
    bool ready = false;
    /// Of the dialog that asks for the passwords.
    bool belongsToTheWindow = false;
};

} // namespace

class TestChangePasswordDialog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void showsThreeHiddenPasswordsAndTwoButtons();
    void eachFieldHasAnEyeOfItsOwn();
    void putsTheFormAboveTheButtons();
    void refusesInThisOrder_data();
    void refusesInThisOrder();
    void staysOpenAndKeepsWhatWasTypedAfterARefusal();
    void accepts_data();
    void accepts();
    void aPasteLosesOneLineBreakAtItsEnd_data();
    void aPasteLosesOneLineBreakAtItsEnd();
    void aPasteIntoWhatWasTypedLosesItsLineBreak();
    void lineBreaksThatWerePastedAreDeletedAsAnyCharacter();
    void cancelRejectsWithoutAnyCheck();
    void escapeRejects();
    void returnKeyPressesAlterar();

    void theWindowChangesThePassword();
    void theWindowSaysThatTheCurrentPasswordIsWrong();
    void cancellingLeavesTheContainerAlone();
};

void TestChangePasswordDialog::showsThreeHiddenPasswordsAndTwoButtons() {
    const Fields fields;
    QCOMPARE(fields.dialog.windowTitle(), u"Alterar senha do cofre"_qs);
    QVERIFY(fields.dialog.isModal());

    const auto* form = fields.dialog.findChild<QFormLayout*>();
    QCOMPARE(fields.edits.size(), 3);
    const QStringList labels = {u"Senha atual:"_qs, u"Nova senha:"_qs, u"Confirmar nova senha:"_qs};
    for (int row = 0; row < 3; ++row) {
        const auto* label =
            qobject_cast<QLabel*>(form->itemAt(row, QFormLayout::LabelRole)->widget());
        QVERIFY(label);
        QCOMPARE(label->text(), labels.at(row));
        QVERIFY(fields.edits.at(row));
        QCOMPARE(fields.edits.at(row)->echoMode(), QLineEdit::Password);
        QVERIFY(fields.edits.at(row)->text().isEmpty());
    }

    const auto* box = fields.dialog.findChild<QDialogButtonBox*>();
    QCOMPARE(box->standardButtons(), QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    QCOMPARE(box->button(QDialogButtonBox::Ok)->text(), u"Alterar"_qs);
    QCOMPARE(box->button(QDialogButtonBox::Cancel)->text(), u"Cancelar"_qs);
}

void TestChangePasswordDialog::eachFieldHasAnEyeOfItsOwn() {
    const Fields fields;
    fields.type(u"antiga"_qs, u"dez letras"_qs, u"dez letras"_qs);
    QVERIFY(pressButton(fields.edits.at(1), u"Mostrar senha"_qs));
    QCOMPARE(fields.edits.at(0)->echoMode(), QLineEdit::Password);
    QCOMPARE(fields.edits.at(1)->displayText(), u"dez letras"_qs);
    QCOMPARE(fields.edits.at(2)->echoMode(), QLineEdit::Password);
    QVERIFY(pressButton(fields.edits.at(1), u"Ocultar senha"_qs));
    QCOMPARE(fields.edits.at(1)->echoMode(), QLineEdit::Password);
    QCOMPARE(fields.dialog.newPassword(), "dez letras");
}

void TestChangePasswordDialog::putsTheFormAboveTheButtons() {
    const Fields fields;
    const auto* layout = qobject_cast<QVBoxLayout*>(fields.dialog.layout());
    QVERIFY(layout);
    QCOMPARE(layout->count(), 2);
    QVERIFY(qobject_cast<QFormLayout*>(layout->itemAt(0)->layout()));
    QVERIFY(qobject_cast<QDialogButtonBox*>(layout->itemAt(1)->widget()));
}

void TestChangePasswordDialog::refusesInThisOrder_data() {
    QTest::addColumn<QString>("current");
    QTest::addColumn<QString>("fresh");
    QTest::addColumn<QString>("confirmation");
    QTest::addColumn<QString>("text");

    QTest::newRow("everything wrong")
        << QString() << u"curta"_qs << u"outra"_qs << NoCurrentPassword;
    QTest::newRow("everything empty") << QString() << QString() << QString() << NoCurrentPassword;
    QTest::newRow("only the current one missing")
        << QString() << u"dez letras"_qs << u"dez letras"_qs << NoCurrentPassword;
    QTest::newRow("new one empty") << u"antiga"_qs << QString() << QString() << TooShort;
    QTest::newRow("nine characters")
        << u"antiga"_qs << u"123456789"_qs << u"123456789"_qs << TooShort;
    QTest::newRow("short and not confirmed")
        << u"antiga"_qs << u"123456789"_qs << u"1234567890"_qs << TooShort;
    QTest::newRow("ten bytes but five characters")
        << u"antiga"_qs << u"ééééé"_qs << u"ééééé"_qs << TooShort;
    QTest::newRow("confirmation empty")
        << u"antiga"_qs << u"1234567890"_qs << QString() << NotConfirmed;
    QTest::newRow("confirmation in other letter case")
        << u"antiga"_qs << u"Dez letras"_qs << u"dez letras"_qs << NotConfirmed;
    QTest::newRow("confirmation with a space more")
        << u"antiga"_qs << u"1234567890"_qs << u"1234567890 "_qs << NotConfirmed;
}

void TestChangePasswordDialog::refusesInThisOrder() {
    QFETCH(const QString, current);
    QFETCH(const QString, fresh);
    QFETCH(const QString, confirmation);
    QFETCH(const QString, text);

    const Fields fields;
    fields.type(current, fresh, confirmation);
    DialogDriver warnings;
    warnings.acceptWarning(WarningTitle);
    QVERIFY(pressButton(fields.dialog.findChild<QDialogButtonBox*>(), u"Alterar"_qs));

    QVERIFY2(warnings.finished(), qPrintable(warnings.problems()));
    QCOMPARE(warnings.lastText(), text);
    QCOMPARE(warnings.seen().size(), 1);
    QVERIFY(warnings.last().hasParent);
    QVERIFY(fields.dialog.isVisible());
    QCOMPARE(fields.dialog.result(), static_cast<int>(QDialog::Rejected));
}

void TestChangePasswordDialog::staysOpenAndKeepsWhatWasTypedAfterARefusal() {
    const Fields fields;
    fields.type(u"antiga"_qs, u"dez letras"_qs, u"dez letra"_qs);
    DialogDriver warnings;
    warnings.acceptWarning(WarningTitle);
    QVERIFY(pressButton(fields.dialog.findChild<QDialogButtonBox*>(), u"Alterar"_qs));
    QVERIFY2(warnings.finished(), qPrintable(warnings.problems()));

    typeText(fields.edits.at(2), u"s"_qs);
    QVERIFY(pressButton(fields.dialog.findChild<QDialogButtonBox*>(), u"Alterar"_qs));
    QVERIFY2(warnings.finished(), qPrintable(warnings.problems()));
    QCOMPARE(fields.dialog.result(), static_cast<int>(QDialog::Accepted));
    QVERIFY(!fields.dialog.isVisible());
}

void TestChangePasswordDialog::accepts_data() {
    QTest::addColumn<QString>("current");
    QTest::addColumn<QString>("fresh");

    QTest::newRow("ten characters") << u"a"_qs << u"1234567890"_qs;
    QTest::newRow("ten characters of two bytes") << u"á"_qs << u"éééééééééé"_qs;
    QTest::newRow("ten spaces") << u" "_qs << u"          "_qs;
    QTest::newRow("same as the current one") << u"senha de sempre"_qs << u"senha de sempre"_qs;
    QTest::newRow("signs and quotes") << u"<&\"'%1"_qs << u"%1 <b>\"'\\ ç"_qs;
}

void TestChangePasswordDialog::accepts() {
    QFETCH(const QString, current);
    QFETCH(const QString, fresh);

    const Fields fields;
    fields.type(current, fresh, fresh);
    const DialogDriver warnings;
    QVERIFY(pressButton(fields.dialog.findChild<QDialogButtonBox*>(), u"Alterar"_qs));

    QVERIFY2(warnings.finished(), qPrintable(warnings.problems()));
    QCOMPARE(fields.dialog.result(), static_cast<int>(QDialog::Accepted));
    QVERIFY(!fields.dialog.isVisible());
    QCOMPARE(fields.dialog.currentPassword(), current.toUtf8());
    QCOMPARE(fields.dialog.newPassword(), fresh.toUtf8());
}

void TestChangePasswordDialog::aPasteLosesOneLineBreakAtItsEnd_data() {
    QTest::addColumn<QString>("pasted");
    QTest::addColumn<QString>("password");

    QTest::newRow("none") << u"dez letras"_qs << u"dez letras"_qs;
    QTest::newRow("line feed") << u"dez letras\n"_qs << u"dez letras"_qs;
    QTest::newRow("carriage return") << u"dez letras\r"_qs << u"dez letras"_qs;
    QTest::newRow("both") << u"dez letras\r\n"_qs << u"dez letras"_qs;
    QTest::newRow("two line feeds") << u"dez letras\n\n"_qs << u"dez letras\n"_qs;
    QTest::newRow("both, twice") << u"dez letras\r\n\r\n"_qs << u"dez letras\r\n"_qs;
    QTest::newRow("in the middle") << u"dez\nletras"_qs << u"dez\nletras"_qs;
    QTest::newRow("at the beginning") << u"\ndez letras"_qs << u"\ndez letras"_qs;
    QTest::newRow("blanks before it") << u" dez letras \t\n"_qs << u" dez letras \t"_qs;
    QTest::newRow("blanks behind it") << u"dez letras\n "_qs << u"dez letras\n "_qs;
    QTest::newRow("accents") << u"açúcar à moda\n"_qs << u"açúcar à moda"_qs;
}

void TestChangePasswordDialog::aPasteLosesOneLineBreakAtItsEnd() {
    QFETCH(const QString, pasted);
    QFETCH(const QString, password);

    const Fields fields;
    QGuiApplication::clipboard()->setText(pasted);
    // By key, and as the context menu does it.
    QTest::keySequence(fields.edits.at(0), QKeySequence::Paste);
    fields.edits.at(1)->paste();
    fields.edits.at(2)->paste();
    const DialogDriver warnings;
    QVERIFY(pressButton(fields.dialog.findChild<QDialogButtonBox*>(), u"Alterar"_qs));
    QVERIFY2(warnings.finished(), qPrintable(warnings.problems()));
    QCOMPARE(fields.dialog.currentPassword(), password.toUtf8());
    QCOMPARE(fields.dialog.newPassword(), password.toUtf8());
}

void TestChangePasswordDialog::aPasteIntoWhatWasTypedLosesItsLineBreak() {
    const Fields fields;
    QLineEdit* edit = fields.edits.at(0);
    QGuiApplication::clipboard()->setText(u"meio\n"_qs);
    typeText(edit, u"antesdepois"_qs);
    edit->setCursorPosition(5);
    edit->paste();
    QCOMPARE(edit->text(), u"antesmeiodepois"_qs);
    // What is typed next stands behind the paste.
    QCOMPARE(edit->cursorPosition(), 9);

    // In the place of a selection, longer and shorter than the paste, and with a break of its own.
    edit->selectAll();
    edit->paste();
    QCOMPARE(edit->text(), u"meio"_qs);
    edit->setSelection(1, 2);
    edit->paste();
    QCOMPARE(edit->text(), u"mmeioo"_qs);
    QGuiApplication::clipboard()->setText(u"um\n\n"_qs);
    edit->selectAll();
    edit->paste();
    QCOMPARE(edit->text(), u"um\n"_qs);
    edit->selectAll();
    edit->paste();
    QCOMPARE(edit->text(), u"um\n"_qs);
}

void TestChangePasswordDialog::lineBreaksThatWerePastedAreDeletedAsAnyCharacter() {
    const Fields fields;
    QLineEdit* edit = fields.edits.at(0);
    QGuiApplication::clipboard()->setText(u"a\nb\nc"_qs);
    edit->paste();
    QCOMPARE(edit->text(), u"a\nb\nc"_qs);
    // The cursor comes to stand behind a line break, and that one stays.
    edit->backspace();
    QCOMPARE(edit->text(), u"a\nb\n"_qs);
    edit->setSelection(2, 1);
    edit->del();
    QCOMPARE(edit->text(), u"a\n\n"_qs);
    edit->backspace();
    QCOMPARE(edit->text(), u"a\n"_qs);
    typeText(edit, u"d"_qs);
    QCOMPARE(edit->text(), u"ad\n"_qs);
}

void TestChangePasswordDialog::cancelRejectsWithoutAnyCheck() {
    const Fields fields;
    const DialogDriver warnings;
    const QSignalSpy rejected(&fields.dialog, &QDialog::rejected);
    QVERIFY(pressButton(fields.dialog.findChild<QDialogButtonBox*>(), u"Cancelar"_qs));
    QVERIFY2(warnings.finished(), qPrintable(warnings.problems()));
    QCOMPARE(rejected.size(), 1);
    QVERIFY(!fields.dialog.isVisible());
}

void TestChangePasswordDialog::escapeRejects() {
    Fields fields;
    const QSignalSpy rejected(&fields.dialog, &QDialog::rejected);
    QTest::keyClick(&fields.dialog, Qt::Key_Escape);
    QCOMPARE(rejected.size(), 1);
    QVERIFY(!fields.dialog.isVisible());
}

void TestChangePasswordDialog::returnKeyPressesAlterar() {
    const Fields fields;
    fields.type(u"antiga"_qs, u"dez letras"_qs, u"dez letras"_qs);
    QTest::keyClick(fields.edits.at(2), Qt::Key_Return);
    QCOMPARE(fields.dialog.result(), static_cast<int>(QDialog::Accepted));
}

void TestChangePasswordDialog::theWindowChangesThePassword() {
    LockedVault vault;
    QVERIFY(vault.ready);
    vault.changePassword(OldPassword, NewPassword);
    vault.driver.dialogs.acceptInformation(u"Tessel"_qs);
    vault.driver.action(u"Alterar senha..."_qs)->trigger();

    QVERIFY2(vault.driver.dialogs.finished(), qPrintable(vault.driver.dialogs.problems()));
    QVERIFY(vault.belongsToTheWindow);
    QCOMPARE(vault.driver.dialogs.lastText(), u"Senha alterada com sucesso."_qs);
    QCOMPARE(vault.driver.dialogs.last().status, u"Senha alterada com sucesso."_qs);
    QCOMPARE(vault.driver.result(), u"Senha alterada com sucesso."_qs);
    QVERIFY(!vault.driver.vaultIsOpen());
    QVERIFY(vault.driver.unlock(NewPassword));
    QCOMPARE(vault.driver.rowNames(), QStringList{u"carta.txt"_qs});
}

void TestChangePasswordDialog::theWindowSaysThatTheCurrentPasswordIsWrong() {
    LockedVault vault;
    QVERIFY(vault.ready);
    const QByteArray before = readFile(vault.path);
    vault.changePassword(OldPassword.toUpper(), NewPassword);
    vault.driver.dialogs.acceptWarning(u"Tessel"_qs);
    vault.driver.action(u"Alterar senha..."_qs)->trigger();

    QVERIFY2(vault.driver.dialogs.finished(), qPrintable(vault.driver.dialogs.problems()));
    QCOMPARE(vault.driver.dialogs.lastText(),
             u"Não foi possível alterar a senha. Verifique a senha atual e tente novamente."_qs);
    QCOMPARE(vault.driver.dialogs.last().status, u"Container selecionado."_qs);
    QCOMPARE(vault.driver.result(), u"Falha ao alterar a senha."_qs);
    QVERIFY(readFile(vault.path) == before);
}

void TestChangePasswordDialog::cancellingLeavesTheContainerAlone() {
    LockedVault vault;
    QVERIFY(vault.ready);
    const QByteArray before = readFile(vault.path);
    const QString status = vault.driver.statusMessage();
    vault.driver.dialogs.press(u"Alterar senha do cofre"_qs, u"Cancelar"_qs);
    vault.driver.action(u"Alterar senha..."_qs)->trigger();

    QVERIFY2(vault.driver.dialogs.finished(), qPrintable(vault.driver.dialogs.problems()));
    QCOMPARE(vault.driver.statusMessage(), status);
    QVERIFY(readFile(vault.path) == before);
    QVERIFY(vault.driver.unlock(OldPassword));
}

TESSEL_TEST_MAIN(Tessel::Tests::runTest<QApplication, TestChangePasswordDialog>);
#include "test_change_password_dialog.moc"
