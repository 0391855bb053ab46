// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What remains of a password in the memory of the program once the vault is locked.

#include "core/SecretBytes.h"
#include "support/ProcessMemory.h"
#include "support/TestProgram.h"
#include "support/WindowTest.h"

#include <QAction>
#include <QApplication>
#include <QCoreApplication>
#include <QDialog>
#include <QLineEdit>
#include <QTest>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

// As UTF-16 only: a text in UTF-8 is what the test looks for.
const QString OldPassword = u"primeira senha que se reconhece"_s;
const QString NewPassword = u"segunda senha que se reconhece"_s;

/// How often the text's UTF-8 form, which is ASCII here, is in this program's memory. It is
/// compared character by character, so that looking leaves no copy.
qsizetype occurrencesOf(const QString& text) {
    qsizetype count = 0;
    const bool read =
        forEachMemoryRegion(QCoreApplication::applicationPid(), [&](const QByteArray& region) {
            const char first = text.at(0).toLatin1();
            for (qsizetype at = region.indexOf(first); at >= 0 && at + text.size() <= region.size();
                 at = region.indexOf(first, at + 1)) {
                qsizetype same = 1;
                while (same < text.size() && text.at(same) == QLatin1Char(region.at(at + same))) {
                    ++same;
                }
                count += same == text.size() ? 1 : 0;
            }
        });
    return read ? count : -1;
}

} // namespace

class TestPasswordMemory : public WindowTest {
    Q_OBJECT

private Q_SLOTS:
    void noPasswordRemainsInTheWindow() {
        const QString container = path(u"t.tvlt"_s);
        dialogs().answerFiles(u"Criar container Tessel"_s, {container});
        dialogs().answerText(u"Definir senha do cofre"_s, OldPassword);
        dialogs().answerText(u"Confirmar senha do cofre"_s, OldPassword);
        VERIFY_RUN(u"Criar novo cofre..."_s);
        QCOMPARE(occurrencesOf(OldPassword), 0);

        dialogs().handle(u"Alterar senha do cofre"_s, [](QDialog* dialog) {
            const QList<QLineEdit*> fields = dialog->findChildren<QLineEdit*>();
            typeText(fields.at(0), OldPassword);
            typeText(fields.at(1), NewPassword);
            typeText(fields.at(2), NewPassword);
            QVERIFY(pressButton(dialog, u"Alterar"_s));
        });
        // The box may be left open for hours.
        qsizetype whileTold = 0;
        dialogs().handle(u"Tessel"_s, [&whileTold](QDialog* dialog) {
            whileTold = occurrencesOf(OldPassword) + occurrencesOf(NewPassword);
            dialog->accept();
        });
        VERIFY_RUN(u"Alterar senha..."_s);
        QCOMPARE(whileTold, 0);

        QVERIFY(m_driver->unlock(NewPassword));
        QCOMPARE(occurrencesOf(NewPassword), 0);
        VERIFY_RUN(u"Bloquear"_s);
        QCOMPARE(occurrencesOf(OldPassword), 0);
        QCOMPARE(occurrencesOf(NewPassword), 0);
    }

    void aPasswordThatIsKeptIsFound() {
        QByteArray kept = NewPassword.toUtf8();
        QVERIFY(occurrencesOf(NewPassword) > 0);
        Tessel::Core::wipe(&kept);
        QCOMPARE(occurrencesOf(NewPassword), 0);
    }
};

TESSEL_TEST_MAIN(runTest<QApplication, TestPasswordMemory>);
#include "test_password_memory.moc"
