// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the pointer looks like while the window derives a key, seals or opens a file.

#include "support/CraftedContainer.h"
#include "support/FakeDesktop.h"
#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/WindowTest.h"

#include <QApplication>
#include <QCursor>
#include <QDialog>
#include <QLineEdit>
#include <QList>
#include <QTest>

#include <utility>

#include <dlfcn.h>
#include <sodium.h>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Password = u"senha de teste"_s;

Qt::CursorShape shownCursor() {
    const QCursor* cursor = QGuiApplication::overrideCursor();
    return cursor == nullptr ? Qt::ArrowCursor : cursor->shape();
}

/// The pointer at each key derivation, sealing and opening since they were last taken.
QList<Qt::CursorShape> g_cursors;

/// Whether there was any work since the last call, and the pointer was the wait cursor in all of
/// it.
bool allWaited() {
    const QList<Qt::CursorShape> cursors = std::exchange(g_cursors, {});
    return !cursors.isEmpty() && cursors.count(Qt::WaitCursor) == cursors.size();
}

template <typename Function>
Function* nextOf(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

} // namespace

// These come before libsodium's, which do the work.
extern "C" int crypto_pwhash(unsigned char* key, unsigned long long keyBytes, const char* password,
                             unsigned long long passwordBytes, const unsigned char* salt,
                             unsigned long long passes, std::size_t memory, int algorithm) {
    static auto* const next = nextOf<decltype(crypto_pwhash)>("crypto_pwhash");
    g_cursors.append(shownCursor());
    return next(key, keyBytes, password, passwordBytes, salt, passes, memory, algorithm);
}

extern "C" int crypto_aead_xchacha20poly1305_ietf_encrypt(
    unsigned char* sealed, unsigned long long* sealedBytes, const unsigned char* plain,
    unsigned long long plainBytes, const unsigned char* data, unsigned long long dataBytes,
    const unsigned char* secretNonce, const unsigned char* nonce, const unsigned char* key) {
    static auto* const next = nextOf<decltype(crypto_aead_xchacha20poly1305_ietf_encrypt)>(
        "crypto_aead_xchacha20poly1305_ietf_encrypt");
    g_cursors.append(shownCursor());
    return next(sealed, sealedBytes, plain, plainBytes, data, dataBytes, secretNonce, nonce, key);
}

extern "C" int crypto_aead_xchacha20poly1305_ietf_decrypt(
    unsigned char* plain, unsigned long long* plainBytes, unsigned char* secretNonce,
    const unsigned char* sealed, unsigned long long sealedBytes, const unsigned char* data,
    unsigned long long dataBytes, const unsigned char* nonce, const unsigned char* key) {
    static auto* const next = nextOf<decltype(crypto_aead_xchacha20poly1305_ietf_decrypt)>(
        "crypto_aead_xchacha20poly1305_ietf_decrypt");
    g_cursors.append(shownCursor());
    return next(plain, plainBytes, secretNonce, sealed, sealedBytes, data, dataBytes, nonce, key);
}

class TestWaitCursor : public WindowTest {
    Q_OBJECT

private Q_SLOTS:
    void keyDerivationsWait() {
        const QString container = path(u"t.tvlt"_s);
        dialogs().answerFiles(u"Criar container Tessel"_s, {container});
        dialogs().answerText(u"Definir senha do cofre"_s, Password);
        dialogs().answerText(u"Confirmar senha do cofre"_s, Password);
        g_cursors.clear();
        VERIFY_RUN(u"Criar novo cofre..."_s);
        QVERIFY(allWaited());
        QCOMPARE(shownCursor(), Qt::ArrowCursor);

        dialogs().answerText(u"Senha do cofre"_s, Password);
        VERIFY_RUN(u"Desbloquear"_s);
        QVERIFY(allWaited());
        QCOMPARE(shownCursor(), Qt::ArrowCursor);

        VERIFY_RUN(u"Bloquear"_s);
        g_cursors.clear();
        dialogs().handle(u"Alterar senha do cofre"_s, [](QDialog* dialog) {
            const QList<QLineEdit*> fields = dialog->findChildren<QLineEdit*>();
            typeText(fields.at(0), Password);
            typeText(fields.at(1), u"outra senha longa"_s);
            typeText(fields.at(2), u"outra senha longa"_s);
            dialog->accept();
        });
        dialogs().handle(u"Tessel"_s, [](QDialog* box) {
            box->accept();
            QCOMPARE(shownCursor(), Qt::ArrowCursor);
        });
        VERIFY_RUN(u"Alterar senha..."_s);
        QVERIFY(allWaited());
        QCOMPARE(shownCursor(), Qt::ArrowCursor);
    }

    void filesWaitOnTheirWayOutAndBack() {
        const QString container = path(u"t.tvlt"_s);
        QVERIFY(CraftedContainer().addFile(u"a.txt"_s, "contents"_ba).writeTo(container));
        QVERIFY(m_driver->openVault(container, Password));

        g_cursors.clear();
        QCOMPARE(exported(u"a.txt"_s), "contents"_ba);
        QVERIFY(allWaited());
        QCOMPARE(shownCursor(), Qt::ArrowCursor);

        const FakeDesktop desktop(u"file"_s);
        VERIFY_RUN(u"Abrir"_s, u"a.txt"_s);
        QVERIFY(allWaited());
        QCOMPARE(desktop.opened.size(), 1);
        const QString copy = desktop.opened.first().toLocalFile();
        QVERIFY(writeFile(copy, "an edit"_ba) && makeLater(copy));
        VERIFY_RUN(u"Bloquear"_s);
        QVERIFY(allWaited());
        QCOMPARE(shownCursor(), Qt::ArrowCursor);
    }

    void refusalsAreShownWithTheUsualCursor() {
        const QString container = path(u"t.tvlt"_s);
        QVERIFY(CraftedContainer().writeTo(container));
        QVERIFY(m_driver->chooseContainer(container));
        dialogs().answerText(u"Senha do cofre"_s, u"outra senha longa"_s);
        dialogs().handle(u"Tessel"_s, [](QDialog* box) {
            box->accept();
            QCOMPARE(shownCursor(), Qt::ArrowCursor);
        });
        g_cursors.clear();
        VERIFY_RUN(u"Desbloquear"_s);
        QVERIFY(allWaited());
        QCOMPARE(shownCursor(), Qt::ArrowCursor);
    }
};

TESSEL_TEST_MAIN(runTest<QApplication, TestWaitCursor>);

#include "test_wait_cursor.moc"
