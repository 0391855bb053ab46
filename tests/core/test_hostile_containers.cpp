// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/PeakMemory.h"
#include "support/TestProgram.h"
#include "support/VaultFixture.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

using Spoil = std::function<void(CraftedContainer&)>;

constexpr qint64 MebiByte = 1048576;
constexpr qint64 GibiByte = 1024 * MebiByte;

const QString EncryptedMasterKey = u"encryptedMasterKey"_s;
const QString KdfIterations = u"kdfIterations"_s;

QString base64(const QByteArray& bytes) {
    return QString::fromLatin1(bytes.toBase64());
}

void addRow(const char* name, const Spoil& spoil) {
    QTest::newRow(name) << spoil;
}

void setBytes(CraftedContainer& c, const char* key, const QByteArray& bytes) {
    c.setCryptoMember(QString::fromLatin1(key), base64(bytes));
}

void addLayoutFaults() {
    addRow("magic of an earlier format", [](auto& c) { c.setMagic("TESSEL2"); });
    addRow("magic one byte late", [](auto& c) { c.setMagic(" TESSEL3"); });
    addRow("magic alone", [](auto& c) { c.cutAt(7); });
    addRow("empty file", [](auto& c) { c.cutAt(0); });
    addRow("length line cut", [](auto& c) { c.cutAt(20); });
    addRow("length 0", [](auto& c) { c.setLengthLine(QByteArray(20, '0') + '\n'); });
    addRow("length of the region + 1", [](auto& c) { c.setLengthLine("8388609\n"); });
    addRow("length of 2^64 + 500", [](auto& c) { c.setLengthLine("18446744073709552116\n"); });
    addRow("length one too small",
           [](auto& c) { c.setLengthLine(QByteArray::number(c.headerJson().size() - 1) + '\n'); });
    addRow("length one too large",
           [](auto& c) { c.setLengthLine(QByteArray::number(c.headerJson().size() + 1) + '\n'); });
    addRow("length line without line feed", [](auto& c) { c.setLengthLine(QByteArray(21, '1')); });
    addRow("header cut", [](auto& c) { c.cutAt(28 + 100); });
    addRow("header region one byte short", [](auto& c) { c.cutAt(8388635); });
}

void addHeaderFaults() {
    addRow("header is nested too deeply", [](auto& c) {
        c.replaceInHeader("{\"crypto\"", "{\"x\":" + QByteArray(1025, '[') + QByteArray(1025, ']') +
                                             ",\"crypto\"");
    });
    addRow("header of opening brackets alone",
           [](auto& c) { c.setHeaderJson(QByteArray(8388608, '[')); });
    addRow("header is an array", [](auto& c) { c.setHeaderJson('[' + c.headerJson() + ']'); });
    addRow("header is invalid UTF-8",
           [](auto& c) { c.replaceInHeader("\"TESSEL\"", "\"TESSEL\",\"x\":\"\xff\xfe\""); });
    addRow("header holds a raw zero byte",
           [](auto& c) { c.replaceInHeader("{\"crypto\"", QByteArray("\0{\"crypto\"", 10)); });
    addRow("second magic counts", [](auto& c) {
        c.replaceInHeader("\"magic\":\"TESSEL\"", "\"magic\":\"TESSEL\",\"magic\":\"OTHER\"");
    });
    addRow("second version counts", [](auto& c) {
        c.replaceInHeader("\"formatVersion\":3", "\"formatVersion\":3,\"formatVersion\":4");
    });
    addRow("version is NaN",
           [](auto& c) { c.replaceInHeader("\"formatVersion\":3", "\"formatVersion\":NaN"); });
    addRow("version is 2^32 + 3",
           [](auto& c) { c.setHeaderMember(u"formatVersion"_s, qint64(4294967299)); });
    for (const QJsonValue& value :
         {QJsonValue(), QJsonValue(7), QJsonValue(true), QJsonValue(QJsonArray()),
          QJsonValue(u"text"_s), QJsonValue(QJsonValue::Undefined)}) {
        const QByteArray type = QByteArray::number(value.type());
        for (const char* key : {"magic", "formatVersion", "crypto", "encryptedIndex"}) {
            addRow((key + QByteArray(" of JSON type ") + type).constData(),
                   [=](auto& c) { c.setHeaderMember(QString::fromLatin1(key), value); });
        }
    }
}

void addCryptoFaults() {
    for (const int size : {0, 15, 17}) {
        addRow(qPrintable(u"salt of %1 bytes"_s.arg(size)),
               [=](auto& c) { setBytes(c, "salt", QByteArray(size, 's')); });
    }
    addRow("Argon2id with a salt of 15 bytes", [](auto& c) {
        setBytes(c, "salt", QByteArray(15, 's'));
        c.setCryptoMember(u"kdf"_s, u"Argon2id"_s);
    });
    for (const int size : {0, 1, 23, 25, 4096}) {
        addRow(qPrintable(u"nonce of %1 bytes"_s.arg(size)),
               [=](auto& c) { setBytes(c, "nonce", QByteArray(size, 'n')); });
        addRow(qPrintable(u"index nonce of %1 bytes"_s.arg(size)),
               [=](auto& c) { setBytes(c, "payloadNonce", QByteArray(size, 'n')); });
    }
    for (const int size : {0, 1, 15, 16, 79, 81, 100000}) {
        addRow(qPrintable(u"sealed master key of %1 bytes"_s.arg(size)),
               [=](auto& c) { setBytes(c, "encryptedMasterKey", QByteArray(size, 'k')); });
        addRow(qPrintable(u"sealed index of %1 bytes"_s.arg(size)),
               [=](auto& c) { c.setEncryptedIndex(QByteArray(size, 'i')); });
    }
    for (const int size : {0, 31}) {
        addRow(qPrintable(u"master key of %1 bytes"_s.arg(size)), [=](auto& c) {
            setBytes(c, "encryptedMasterKey",
                     c.seal(c.keys.masterKey.left(size), c.passwordKey().left(32), c.keys.nonce,
                            c.masterKeyAssociatedData()));
        });
    }
    addRow("empty index", [](auto& c) { c.setIndexJson({}); });
    addRow("master key and index exchanged", [](auto& c) {
        c.setCryptoMember(EncryptedMasterKey, base64(c.encryptedIndex()));
        c.setEncryptedIndex(c.encryptedMasterKey());
    });
    addRow("iterations 0", [](auto& c) { c.keys.kdfIterations = 0; });
    addRow("iterations -1", [](auto& c) { c.setCryptoMember(KdfIterations, -1); });
    addRow("smallest iterations", [](auto& c) { c.setCryptoMember(KdfIterations, -2147483647); });
    addRow("iterations 2", [](auto& c) { c.setCryptoMember(KdfIterations, 2); });
    addRow("another name of the derivation",
           [](auto& c) { c.setCryptoMember(u"kdf"_s, u"PBKDF2-HMAC-SHA512"_s); });
    addRow("another cipher", [](auto& c) { c.setCryptoMember(u"cipher"_s, u"none"_s); });
    addRow("no cipher", [](auto& c) { c.setCryptoMember(u"cipher"_s, QJsonValue::Undefined); });
    addRow("sealed index is no Base64",
           [](auto& c) { c.setHeaderMember(u"encryptedIndex"_s, QString(40, QLatin1Char('*'))); });
}

} // namespace

/// Containers that somebody made to do harm, or that a drive made of good ones.
class TestHostileContainers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { keepTemporaryFilesInMemory(); }

    void unlockingRefuses_data() {
        QTest::addColumn<Spoil>("spoil");
        addLayoutFaults();
        addHeaderFaults();
        addCryptoFaults();
    }
    void unlockingRefuses() {
        QFETCH(const Spoil, spoil);
        CraftedContainer crafted;
        crafted.addFile(u"a"_s, "abc");
        spoil(crafted);
        VaultFixture fixture(crafted);
        const QByteArray before = readFile(fixture.container());

        QVERIFY(!fixture.vault.unlockVault(fixture.container(), crafted.keys.password));
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
        QVERIFY(fixture.vault.fileIndex().entries().isEmpty());
        QVERIFY(!fixture.vault.importFile(fixture.container(), u"b"_s));
        QVERIFY(readFile(fixture.container()) == before);
    }

    void oddContainersOpenAllTheSame_data() {
        QTest::addColumn<Spoil>("spoil");
        addRow("as it should be", [](auto&) {});
        addRow("garbage behind the header", [](auto& c) { c.setPadding('\xff'); });
        addRow("length line with blanks and a sign", [](auto& c) {
            c.setLengthLine("  +" + QByteArray::number(c.headerJson().size()) + "\t\r\n");
        });
        addRow("length line of a mebibyte", [](auto& c) {
            c.setLengthLine(QByteArray(MebiByte, ' ') + QByteArray::number(c.headerJson().size()) +
                            '\n');
        });
        addRow("header nested as deeply as it may", [](auto& c) {
            c.replaceInHeader("{\"crypto\"", "{\"x\":" + QByteArray(1023, '[') +
                                                 QByteArray(1023, ']') + ",\"crypto\"");
        });
        addRow("unknown members", [](auto& c) {
            const QJsonObject value{{u"a"_s, 1}};
            c.setHeaderMember(u"unknown"_s, value);
        });
        addRow("version 3.0",
               [](auto& c) { c.replaceInHeader("\"formatVersion\":3", "\"formatVersion\":3.0"); });
        addRow("first of two magics does not count", [](auto& c) {
            c.replaceInHeader("\"magic\":\"TESSEL\"", "\"magic\":\"OTHER\",\"magic\":\"TESSEL\"");
        });
        addRow("master key of 32 bytes", [](auto& c) { c.keys.masterKey.truncate(32); });
        addRow("authTag with bytes", [](auto& c) { setBytes(c, "authTag", QByteArray(99, 't')); });
        addRow("no authTag",
               [](auto& c) { c.setCryptoMember(u"authTag"_s, QJsonValue::Undefined); });
        addRow("plain index of something else", [](auto& c) {
            c.setHeaderMember(
                u"fileIndex"_s,
                QJsonObject{{u"files"_s,
                             QJsonArray{QJsonObject{{u"vaultPath"_s, u"not in the vault"_s}}}}});
        });
    }
    void oddContainersOpenAllTheSame() {
        QFETCH(const Spoil, spoil);
        CraftedContainer crafted;
        crafted.addFile(u"a"_s, "abc");
        spoil(crafted);
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.filePaths(), QStringList{u"a"_s});
        QCOMPARE(fixture.stored(u"a"_s), QByteArray("abc"));
    }

    void anEndlessLengthLineTakesNoMemory_data() {
        QTest::addColumn<char>("byte");
        QTest::addRow("a hole in the file") << '\0';
        QTest::addRow("blanks") << ' ';
        QTest::addRow("zeros") << '0';
    }
    void anEndlessLengthLineTakesNoMemory() {
        QFETCH(const char, byte);
        const QTemporaryDir folder;
        const QString path = folder.filePath(u"tessel.tvlt"_s);
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        QCOMPARE(file.write("TESSEL3"), 7);
        const QByteArray line(byte == '\0' ? 0 : 64 * MebiByte, byte);
        QCOMPARE(file.write(line), line.size());
        QVERIFY(byte != '\0' || file.resize(7 + GibiByte));
        file.close();

        const PeakMemory memory;
        VaultManager vault;
        QVERIFY(!vault.unlockVault(path, TestPassword));
        QVERIFY(memory.canMeasure());
        QVERIFY2(memory.growth() < 4 * MebiByte, qPrintable(QString::number(memory.growth())));
    }

    void aFullHeaderRegionTakesBoundedMemory_data() {
        QTest::addColumn<QByteArray>("start");
        QTest::addColumn<QByteArray>("element");
        QTest::addColumn<QByteArray>("end");
        const QByteArray rest(",\"formatVersion\":3,\"magic\":\"TESSEL\"}");
        QTest::addRow("an array of digits")
            << QByteArray("{\"x\":[0") << QByteArray(",0") << QByteArray("]" + rest);
        QTest::addRow("an array of empty objects")
            << QByteArray("{\"x\":[0") << QByteArray(",{}") << QByteArray("]" + rest);
        QTest::addRow("a plain index of empty entries")
            << QByteArray("{\"fileIndex\":{\"files\":[0") << QByteArray(",{}")
            << QByteArray("]}" + rest);
        QTest::addRow("a plain index of one entry again and again")
            << QByteArray("{\"fileIndex\":{\"files\":[0") << QByteArray(",{\"vaultPath\":\"a\"}")
            << QByteArray("]}" + rest);
        QTest::addRow("a plain index of one entry with empty blocks")
            << QByteArray("{\"fileIndex\":{\"files\":[{\"vaultPath\":\"a\",\"blocks\":[0")
            << QByteArray(",0") << QByteArray("]}]}" + rest);
    }
    void aFullHeaderRegionTakesBoundedMemory() {
        QFETCH(const QByteArray, start);
        QFETCH(const QByteArray, element);
        QFETCH(const QByteArray, end);
        const qsizetype count =
            (CraftedContainer::HeaderRegionBytes - start.size() - end.size()) / element.size();
        CraftedContainer crafted;
        crafted.setHeaderJson(start + element.repeated(count) + end);
        VaultFixture fixture(crafted);

        const PeakMemory memory;
        QVERIFY(!fixture.vault.unlockVault(fixture.container(), TestPassword));
        QVERIFY(memory.canMeasure());
        // What the engine's Argon2id takes for every password, good or bad, and as much again.
        QVERIFY2(memory.growth() < 512 * MebiByte, qPrintable(QString::number(memory.growth())));
    }
};

TESSEL_TEST_MAIN(runTest<QCoreApplication, TestHostileContainers>);
#include "test_hostile_containers.moc"
