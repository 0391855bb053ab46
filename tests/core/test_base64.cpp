// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/Base64.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QRandomGenerator>
#include <QTest>

using Tessel::Core::appendBase64;
using Tessel::Core::decodeBase64;

class TestBase64 : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void decodesTheVectorsOfRfc4648_data() {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("empty") << QByteArray() << QByteArray();
        QTest::newRow("f") << QByteArray("Zg==") << QByteArray("f");
        QTest::newRow("fo") << QByteArray("Zm8=") << QByteArray("fo");
        QTest::newRow("foo") << QByteArray("Zm9v") << QByteArray("foo");
        QTest::newRow("foob") << QByteArray("Zm9vYg==") << QByteArray("foob");
        QTest::newRow("fooba") << QByteArray("Zm9vYmE=") << QByteArray("fooba");
        QTest::newRow("foobar") << QByteArray("Zm9vYmFy") << QByteArray("foobar");
    }
    void decodesTheVectorsOfRfc4648() {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, bytes);
        QCOMPARE(decodeBase64(text), bytes);
    }

    void decodesEveryLengthThatWasEncoded() {
        QByteArray bytes;
        for (int length = 0; length < 300; ++length) {
            QCOMPARE(decodeBase64(bytes.toBase64()), bytes);
            bytes.append(static_cast<char>(length * 7));
        }
    }

    void encodesAsQtDoes() {
        QRandomGenerator random(20261122);
        QByteArray bytes;
        for (int length = 0; length < 3000; ++length) {
            QByteArray text("before");
            appendBase64(&text, bytes);
            QCOMPARE(text, "before" + bytes.toBase64());
            bytes.append(static_cast<char>(random.bounded(256)));
        }
    }

    void passesOverWhatQtPassesOver_data() {
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("line feed") << QByteArray("Zm9v\nYmFy");
        QTest::newRow("blanks to a multiple of four") << QByteArray("Zm9v    YmFy");
        QTest::newRow("no padding") << QByteArray("Zm9vYg");
        QTest::newRow("padding in the middle") << QByteArray("Zg==Zm9v");
        QTest::newRow("padding alone") << QByteArray("====");
        QTest::newRow("URL alphabet") << QByteArray("_-_-Zm9v");
        QTest::newRow("bytes above 127") << QByteArray("Zm9v\xc3\xa9\xff\x80YmFy");
        QTest::newRow("stray bits in the last group") << QByteArray("Zm9vZh==");
    }
    void passesOverWhatQtPassesOver() {
        QFETCH(QByteArray, text);
        QCOMPARE(decodeBase64(text), QByteArray::fromBase64(text));
    }

    void agreesWithQtOnNoise() {
        QRandomGenerator random(20261121);
        const QByteArray letters("ABCxyz019+/==\n -_\xff");
        for (int round = 0; round < 20000; ++round) {
            QByteArray text(random.bounded(24), Qt::Uninitialized);
            for (char& c : text) {
                c = letters.at(random.bounded(static_cast<int>(letters.size())));
            }
            QCOMPARE(decodeBase64(text), QByteArray::fromBase64(text));
        }
    }
};

TESSEL_TEST_MAIN(Tessel::Tests::runTest<QCoreApplication, TestBase64>);
#include "test_base64.moc"
