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
using namespace Qt::Literals::StringLiterals;

namespace {

const QString WarningTitle = u"Alterar senha"_s;
const QString NoCurrentPassword = u"Informe a senha atual."_s;
const QString TooShort = u"Use uma nova senha com pelo menos 10 caracteres."_s;
const QString NotConfirmed = u"A confirmação não coincide com a nova senha."_s;

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

const QString OldPassword = u"senha de teste"_s;
const QString NewPassword = u"outra senha, bem mais longa"_s;

/// The window with a locked container chosen, which OldPassword opens.
struct LockedVault {
    LockedVault() {
        CraftedContainer crafted;
        crafted.addFile(u"carta.txt"_s, "conteúdo");
        ready = folder.isValid() && crafted.writeTo(path) && driver.chooseContainer(path);
    }

    /// Asks for the change of password and types into the dialog that opens.
    void changePassword(const QString& current, const QString& fresh) {
        driver.dialogs.handle(u"Alterar senha do cofre"_s, [this, current, fresh](QDialog* dialog) {
            belongsToTheWindow = dialog->parentWidget() == &driver.window;
            const QList<QLineEdit*> edits = dialog->findChildren<QLineEdit*>();
            typeText(edits.at(0), current);
            typeText(edits.at(1), fresh);
            typeText(edits.at(2), fresh);
            QVERIFY(pressButton(dialog, u"Alterar"_s));
        });
    }

    const QTemporaryDir folder;
    const QString path = folder.filePath(u"tessel.tvlt"_s);
    WindowDriver driver;
    bool ready = false;
    /// Of the dialog that asks for the passwords.
    bool belongsToTheWindow = false;
};

} // namespace

class TestChangePasswordDialog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void showsThreeHiddenPasswordsAndTwoButtons() {
        const Fields fields;
        QCOMPARE(fields.dialog.windowTitle(), u"Alterar senha do cofre"_s);
        QVERIFY(fields.dialog.isModal());

        const auto* form = fields.dialog.findChild<QFormLayout*>();
        QCOMPARE(fields.edits.size(), 3);
        const QStringList labels = {u"Senha atual:"_s, u"Nova senha:"_s,
                                    u"Confirmar nova senha:"_s};
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
        QCOMPARE(box->button(QDialogButtonBox::Ok)->text(), u"Alterar"_s);
        QCOMPARE(box->button(QDialogButtonBox::Cancel)->text(), u"Cancelar"_s);
    }

    void eachFieldHasAnEyeOfItsOwn() {
        const Fields fields;
        fields.type(u"antiga"_s, u"dez letras"_s, u"dez letras"_s);
        QVERIFY(pressButton(fields.edits.at(1), u"Mostrar senha"_s));
        QCOMPARE(fields.edits.at(0)->echoMode(), QLineEdit::Password);
        QCOMPARE(fields.edits.at(1)->displayText(), u"dez letras"_s);
        QCOMPARE(fields.edits.at(2)->echoMode(), QLineEdit::Password);
        QVERIFY(pressButton(fields.edits.at(1), u"Ocultar senha"_s));
        QCOMPARE(fields.edits.at(1)->echoMode(), QLineEdit::Password);
        QCOMPARE(fields.dialog.newPassword(), "dez letras");
    }

    void putsTheFormAboveTheButtons() {
        const Fields fields;
        const auto* layout = qobject_cast<QVBoxLayout*>(fields.dialog.layout());
        QVERIFY(layout);
        QCOMPARE(layout->count(), 2);
        QVERIFY(qobject_cast<QFormLayout*>(layout->itemAt(0)->layout()));
        QVERIFY(qobject_cast<QDialogButtonBox*>(layout->itemAt(1)->widget()));
    }

    void refusesInThisOrder_data() {
        QTest::addColumn<QString>("current");
        QTest::addColumn<QString>("fresh");
        QTest::addColumn<QString>("confirmation");
        QTest::addColumn<QString>("text");

        QTest::newRow("everything wrong")
            << QString() << u"curta"_s << u"outra"_s << NoCurrentPassword;
        QTest::newRow("everything empty")
            << QString() << QString() << QString() << NoCurrentPassword;
        QTest::newRow("only the current one missing")
            << QString() << u"dez letras"_s << u"dez letras"_s << NoCurrentPassword;
        QTest::newRow("new one empty") << u"antiga"_s << QString() << QString() << TooShort;
        QTest::newRow("nine characters")
            << u"antiga"_s << u"123456789"_s << u"123456789"_s << TooShort;
        QTest::newRow("short and not confirmed")
            << u"antiga"_s << u"123456789"_s << u"1234567890"_s << TooShort;
        QTest::newRow("ten bytes but five characters")
            << u"antiga"_s << u"ééééé"_s << u"ééééé"_s << TooShort;
        QTest::newRow("confirmation empty")
            << u"antiga"_s << u"1234567890"_s << QString() << NotConfirmed;
        QTest::newRow("confirmation in other letter case")
            << u"antiga"_s << u"Dez letras"_s << u"dez letras"_s << NotConfirmed;
        QTest::newRow("confirmation with a space more")
            << u"antiga"_s << u"1234567890"_s << u"1234567890 "_s << NotConfirmed;
    }
    void refusesInThisOrder() {
        QFETCH(const QString, current);
        QFETCH(const QString, fresh);
        QFETCH(const QString, confirmation);
        QFETCH(const QString, text);

        const Fields fields;
        fields.type(current, fresh, confirmation);
        DialogDriver warnings;
        warnings.acceptWarning(WarningTitle);
        QVERIFY(pressButton(fields.dialog.findChild<QDialogButtonBox*>(), u"Alterar"_s));

        QVERIFY2(warnings.finished(), qPrintable(warnings.problems()));
        QCOMPARE(warnings.lastText(), text);
        QCOMPARE(warnings.seen().size(), 1);
        QVERIFY(warnings.last().hasParent);
        QVERIFY(fields.dialog.isVisible());
        QCOMPARE(fields.dialog.result(), static_cast<int>(QDialog::Rejected));
    }

    void staysOpenAndKeepsWhatWasTypedAfterARefusal() {
        const Fields fields;
        fields.type(u"antiga"_s, u"dez letras"_s, u"dez letra"_s);
        DialogDriver warnings;
        warnings.acceptWarning(WarningTitle);
        QVERIFY(pressButton(fields.dialog.findChild<QDialogButtonBox*>(), u"Alterar"_s));
        QVERIFY2(warnings.finished(), qPrintable(warnings.problems()));

        typeText(fields.edits.at(2), u"s"_s);
        QVERIFY(pressButton(fields.dialog.findChild<QDialogButtonBox*>(), u"Alterar"_s));
        QVERIFY2(warnings.finished(), qPrintable(warnings.problems()));
        QCOMPARE(fields.dialog.result(), static_cast<int>(QDialog::Accepted));
        QVERIFY(!fields.dialog.isVisible());
    }

    void accepts_data() {
        QTest::addColumn<QString>("current");
        QTest::addColumn<QString>("fresh");

        QTest::newRow("ten characters") << u"a"_s << u"1234567890"_s;
        QTest::newRow("ten characters of two bytes") << u"á"_s << u"éééééééééé"_s;
        QTest::newRow("ten spaces") << u" "_s << u"          "_s;
        QTest::newRow("same as the current one") << u"senha de sempre"_s << u"senha de sempre"_s;
        QTest::newRow("signs and quotes") << u"<&\"'%1"_s << u"%1 <b>\"'\\ ç"_s;
    }
    void accepts() {
        QFETCH(const QString, current);
        QFETCH(const QString, fresh);

        const Fields fields;
        fields.type(current, fresh, fresh);
        const DialogDriver warnings;
        QVERIFY(pressButton(fields.dialog.findChild<QDialogButtonBox*>(), u"Alterar"_s));

        QVERIFY2(warnings.finished(), qPrintable(warnings.problems()));
        QCOMPARE(fields.dialog.result(), static_cast<int>(QDialog::Accepted));
        QVERIFY(!fields.dialog.isVisible());
        QCOMPARE(fields.dialog.currentPassword(), current.toUtf8());
        QCOMPARE(fields.dialog.newPassword(), fresh.toUtf8());
    }

    void aPasteLosesOneLineBreakAtItsEnd_data() {
        QTest::addColumn<QString>("pasted");
        QTest::addColumn<QString>("password");

        QTest::newRow("none") << u"dez letras"_s << u"dez letras"_s;
        QTest::newRow("line feed") << u"dez letras\n"_s << u"dez letras"_s;
        QTest::newRow("carriage return") << u"dez letras\r"_s << u"dez letras"_s;
        QTest::newRow("both") << u"dez letras\r\n"_s << u"dez letras"_s;
        QTest::newRow("two line feeds") << u"dez letras\n\n"_s << u"dez letras\n"_s;
        QTest::newRow("both, twice") << u"dez letras\r\n\r\n"_s << u"dez letras\r\n"_s;
        QTest::newRow("in the middle") << u"dez\nletras"_s << u"dez\nletras"_s;
        QTest::newRow("at the beginning") << u"\ndez letras"_s << u"\ndez letras"_s;
        QTest::newRow("blanks before it") << u" dez letras \t\n"_s << u" dez letras \t"_s;
        QTest::newRow("blanks behind it") << u"dez letras\n "_s << u"dez letras\n "_s;
        QTest::newRow("accents") << u"açúcar à moda\n"_s << u"açúcar à moda"_s;
    }
    void aPasteLosesOneLineBreakAtItsEnd() {
        QFETCH(const QString, pasted);
        QFETCH(const QString, password);

        const Fields fields;
        QGuiApplication::clipboard()->setText(pasted);
        // By key, and as the context menu does it.
        QTest::keySequence(fields.edits.at(0), QKeySequence::Paste);
        fields.edits.at(1)->paste();
        fields.edits.at(2)->paste();
        const DialogDriver warnings;
        QVERIFY(pressButton(fields.dialog.findChild<QDialogButtonBox*>(), u"Alterar"_s));
        QVERIFY2(warnings.finished(), qPrintable(warnings.problems()));
        QCOMPARE(fields.dialog.currentPassword(), password.toUtf8());
        QCOMPARE(fields.dialog.newPassword(), password.toUtf8());
    }

    void aPasteIntoWhatWasTypedLosesItsLineBreak() {
        const Fields fields;
        QLineEdit* edit = fields.edits.at(0);
        QGuiApplication::clipboard()->setText(u"meio\n"_s);
        typeText(edit, u"antesdepois"_s);
        edit->setCursorPosition(5);
        edit->paste();
        QCOMPARE(edit->text(), u"antesmeiodepois"_s);
        // What is typed next stands behind the paste.
        QCOMPARE(edit->cursorPosition(), 9);

        // In the place of a selection, longer and shorter than the paste, and with a break of its
        // own.
        edit->selectAll();
        edit->paste();
        QCOMPARE(edit->text(), u"meio"_s);
        edit->setSelection(1, 2);
        edit->paste();
        QCOMPARE(edit->text(), u"mmeioo"_s);
        QGuiApplication::clipboard()->setText(u"um\n\n"_s);
        edit->selectAll();
        edit->paste();
        QCOMPARE(edit->text(), u"um\n"_s);
        edit->selectAll();
        edit->paste();
        QCOMPARE(edit->text(), u"um\n"_s);
    }

    void lineBreaksThatWerePastedAreDeletedAsAnyCharacter() {
        const Fields fields;
        QLineEdit* edit = fields.edits.at(0);
        QGuiApplication::clipboard()->setText(u"a\nb\nc"_s);
        edit->paste();
        QCOMPARE(edit->text(), u"a\nb\nc"_s);
        // The cursor comes to stand behind a line break, and that one stays.
        edit->backspace();
        QCOMPARE(edit->text(), u"a\nb\n"_s);
        edit->setSelection(2, 1);
        edit->del();
        QCOMPARE(edit->text(), u"a\n\n"_s);
        edit->backspace();
        QCOMPARE(edit->text(), u"a\n"_s);
        typeText(edit, u"d"_s);
        QCOMPARE(edit->text(), u"ad\n"_s);
    }

    void cancelRejectsWithoutAnyCheck() {
        const Fields fields;
        const DialogDriver warnings;
        const QSignalSpy rejected(&fields.dialog, &QDialog::rejected);
        QVERIFY(pressButton(fields.dialog.findChild<QDialogButtonBox*>(), u"Cancelar"_s));
        QVERIFY2(warnings.finished(), qPrintable(warnings.problems()));
        QCOMPARE(rejected.size(), 1);
        QVERIFY(!fields.dialog.isVisible());
    }

    void escapeRejects() {
        Fields fields;
        const QSignalSpy rejected(&fields.dialog, &QDialog::rejected);
        QTest::keyClick(&fields.dialog, Qt::Key_Escape);
        QCOMPARE(rejected.size(), 1);
        QVERIFY(!fields.dialog.isVisible());
    }

    void returnKeyPressesAlterar() {
        const Fields fields;
        fields.type(u"antiga"_s, u"dez letras"_s, u"dez letras"_s);
        QTest::keyClick(fields.edits.at(2), Qt::Key_Return);
        QCOMPARE(fields.dialog.result(), static_cast<int>(QDialog::Accepted));
    }

    void theWindowChangesThePassword() {
        LockedVault vault;
        QVERIFY(vault.ready);
        vault.changePassword(OldPassword, NewPassword);
        vault.driver.dialogs.acceptInformation(u"Tessel"_s);
        vault.driver.action(u"Alterar senha..."_s)->trigger();

        QVERIFY2(vault.driver.dialogs.finished(), qPrintable(vault.driver.dialogs.problems()));
        QVERIFY(vault.belongsToTheWindow);
        QCOMPARE(vault.driver.dialogs.lastText(), u"Senha alterada com sucesso."_s);
        QCOMPARE(vault.driver.dialogs.last().status, u"Senha alterada com sucesso."_s);
        QCOMPARE(vault.driver.result(), u"Senha alterada com sucesso."_s);
        QVERIFY(!vault.driver.vaultIsOpen());
        QVERIFY(vault.driver.unlock(NewPassword));
        QCOMPARE(vault.driver.rowNames(), QStringList{u"carta.txt"_s});
    }

    void theWindowSaysThatTheCurrentPasswordIsWrong() {
        LockedVault vault;
        QVERIFY(vault.ready);
        const QByteArray before = readFile(vault.path);
        vault.changePassword(OldPassword.toUpper(), NewPassword);
        vault.driver.dialogs.acceptWarning(u"Tessel"_s);
        vault.driver.action(u"Alterar senha..."_s)->trigger();

        QVERIFY2(vault.driver.dialogs.finished(), qPrintable(vault.driver.dialogs.problems()));
        QCOMPARE(vault.driver.dialogs.lastText(),
                 u"Não foi possível alterar a senha. Verifique a senha atual e tente novamente."_s);
        QCOMPARE(vault.driver.dialogs.last().status, u"Container selecionado."_s);
        QCOMPARE(vault.driver.result(), u"Falha ao alterar a senha."_s);
        QVERIFY(readFile(vault.path) == before);
    }

    void cancellingLeavesTheContainerAlone() {
        LockedVault vault;
        QVERIFY(vault.ready);
        const QByteArray before = readFile(vault.path);
        const QString status = vault.driver.statusMessage();
        vault.driver.dialogs.press(u"Alterar senha do cofre"_s, u"Cancelar"_s);
        vault.driver.action(u"Alterar senha..."_s)->trigger();

        QVERIFY2(vault.driver.dialogs.finished(), qPrintable(vault.driver.dialogs.problems()));
        QCOMPARE(vault.driver.statusMessage(), status);
        QVERIFY(readFile(vault.path) == before);
        QVERIFY(vault.driver.unlock(OldPassword));
    }
};

TESSEL_TEST_MAIN(Tessel::Tests::runTest<QApplication, TestChangePasswordDialog>);
#include "test_change_password_dialog.moc"
