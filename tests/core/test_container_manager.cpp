// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ContainerManager.h"
#include "core/HeaderWriter.h"
#include "support/Faults.h"
#include "support/FileModes.h"
#include "support/Files.h"
#include "support/TestProgram.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

#include <array>
#include <memory>
#include <type_traits>

#include <sys/stat.h>
#include <unistd.h>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

// No key, no state: every call is independent.
static_assert(std::is_empty_v<ContainerManager>);
static_assert(requires {
    ContainerCryptoMetadata{.kdf = {},
                            .cipher = {},
                            .kdfIterations = {},
                            .salt = {},
                            .nonce = {},
                            .payloadNonce = {},
                            .authTag = {},
                            .encryptedMasterKey = {}};
});
static_assert(requires {
    ContainerDocument{.formatVersion = {},
                      .crypto = {},
                      .fileIndex = {},
                      .encryptedIndex = {},
                      .encryptedPayload = {},
                      .filePayloads = {},
                      .payloadOffset = {}};
});

namespace {

constexpr qint64 RegionBytes = 8388608;
constexpr qint64 HeaderAt = 28;
constexpr qint64 PayloadAt = 8388636;

/// A header that a reader accepts, for files that are wrong elsewhere.
const QByteArray SmallHeader = "{\"magic\":\"TESSEL\",\"formatVersion\":3}"_ba;

ContainerDocument sampleDocument() {
    ContainerDocument document;
    document.crypto.kdf = u"Argon2id"_s;
    document.crypto.cipher = u"XChaCha20-Poly1305"_s;
    document.crypto.kdfIterations = 0;
    document.crypto.salt = QByteArray(16, '\x01');
    document.crypto.nonce = QByteArray(24, '\x02');
    document.crypto.payloadNonce = QByteArray(24, '\x03');
    document.crypto.encryptedMasterKey = QByteArray(80, '\x04');
    document.encryptedIndex = QByteArray(61, '\xff');
    return document;
}

/// What the sample document looks like in a container, written out.
QByteArray sampleHeader() {
    return "{\"crypto\":{\"authTag\":\"\",\"cipher\":\"XChaCha20-Poly1305\","
           "\"encryptedMasterKey\":\"" +
           "BAQE"_ba.repeated(26) +
           "BAQ=\",\"kdf\":\"Argon2id\",\"kdfIterations\":0,"
           "\"nonce\":\"AgICAgICAgICAgICAgICAgICAgICAgIC\","
           "\"payloadNonce\":\"AwMDAwMDAwMDAwMDAwMDAwMDAwMDAwMD\","
           "\"salt\":\"AQEBAQEBAQEBAQEBAQEBAQ==\"},"
           "\"encryptedIndex\":\"" +
           "////"_ba.repeated(20) + "/w==\",\"formatVersion\":3,\"magic\":\"TESSEL\"}";
}

/// A document whose header takes exactly @p size bytes.
ContainerDocument documentWithHeaderOf(qint64 size) {
    const ContainerManager manager{};
    ContainerDocument document = sampleDocument();
    const qint64 missing = size - manager.buildHeader(document).size();
    // Base64 grows four characters at a time; the rest goes into a text that is written as it is.
    document.encryptedIndex += QByteArray(missing / 4 * 3, '\xff');
    document.crypto.kdf += QString(size - manager.buildHeader(document).size(), QLatin1Char('x'));
    return document;
}

/// A document whose header without the index, and the sealed index as it is, have this size: that
/// of a redo record's image without its length line.
ContainerDocument documentWithRecordOf(qint64 size) {
    ContainerDocument document = sampleDocument();
    document.encryptedIndex.clear();
    document.encryptedIndex.fill('\xff', size - ContainerManager().buildHeader(document).size());
    return document;
}

/// A length line as this program writes it.
QByteArray lengthLine(qint64 length) {
    return QByteArray::number(length).rightJustified(20, '0') + '\n';
}

/// The bytes of a container file with the given parts.
QByteArray containerBytes(const QByteArray& line, const QByteArray& header,
                          const QByteArray& payload = {}) {
    return "TESSEL3" + line + header.leftJustified(RegionBytes, '\0') + payload;
}

QByteArray containerWith(const QByteArray& header, const QByteArray& payload = {}) {
    return containerBytes(lengthLine(header.size()), header, payload);
}

QByteArray payloadOf(qsizetype size) {
    QByteArray payload(size, '\0');
    for (qsizetype i = 0; i < size; ++i) {
        payload[i] = static_cast<char>(i * 7 % 251 + 1);
    }
    return payload;
}

/// A header with the given members beside the ones that a reader insists on.
QByteArray headerWith(const QByteArray& members) {
    return "{" + members + ",\"magic\":\"TESSEL\",\"formatVersion\":3}";
}

/// A document no container gives, to see whether a failed read touched it.
ContainerDocument marked() {
    ContainerDocument document = sampleDocument();
    document.formatVersion = 77;
    document.payloadOffset = 99;
    document.encryptedPayload = "marked"_ba;
    document.filePayloads.insert(u"marked"_s, "marked"_ba);
    if (!document.fileIndex.addDirectory({u"marked"_s, {}, {}})) {
        qFatal("could not mark a document");
    }
    return document;
}

bool isMarked(const ContainerDocument& document) {
    const ContainerManager manager{};
    return manager.buildHeader(document) == manager.buildHeader(marked()) &&
           document.payloadOffset == 99 && document.encryptedPayload == "marked" &&
           document.filePayloads.size() == 1 && document.fileIndex.containsDirectory(u"marked"_s);
}

} // namespace

class TestContainerManager : public QObject {
    Q_OBJECT

private:
    const ContainerManager m_manager{};
    std::unique_ptr<QTemporaryDir> m_folder;

    QString path(const QString& name = u"tessel.tvlt"_s) const { return m_folder->filePath(name); }
    QStringList namesInFolder() const {
        return QDir(m_folder->path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    /// The document at the path; the marked one when it cannot be read.
    ContainerDocument readBack() const {
        ContainerDocument document;
        return m_manager.readDocument(path(), &document) ? document : marked();
    }
    /// Whether the container is refused, and the out-document left alone.
    bool isRefused() const {
        ContainerDocument document = marked();
        return !m_manager.readDocument(path(), &document) && isMarked(document);
    }

private Q_SLOTS:
    void init() {
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
    }

    // --- Where the container is ----------------------------------------------------------

    void containerPathIsTesselTvltInTheFolder() {
        QCOMPARE(m_manager.containerPath(u"/media/ana/KINGSTON"_s),
                 u"/media/ana/KINGSTON/tessel.tvlt"_s);
        QCOMPARE(m_manager.containerPath(u"/media/ana/KINGSTON/"_s),
                 u"/media/ana/KINGSTON/tessel.tvlt"_s);
    }

    void containerExistsLooksForTheFile() {
        QVERIFY(!m_manager.containerExists(m_folder->path()));
        QVERIFY(writeFile(path(u"other.tvlt"_s), "x"));
        QVERIFY(!m_manager.containerExists(m_folder->path()));
        QVERIFY(writeFile(path(), {}));
        QVERIFY(m_manager.containerExists(m_folder->path()));
    }

    // --- The header's JSON -----------------------------------------------------------------

    void headerIsWrittenLiterallyLikeThis() {
        QCOMPARE(m_manager.buildHeader(sampleDocument()), sampleHeader());
    }

    void headerOfAFreshDocumentHasEveryKey() {
        QCOMPARE(m_manager.buildHeader(ContainerDocument()),
                 "{\"crypto\":{\"authTag\":\"\",\"cipher\":\"\","
                 "\"encryptedMasterKey\":\"\",\"kdf\":\"\",\"kdfIterations\":250000,"
                 "\"nonce\":\"\",\"payloadNonce\":\"\",\"salt\":\"\"},"
                 "\"encryptedIndex\":\"\",\"formatVersion\":3,\"magic\":\"TESSEL\"}"_ba);
    }

    void headerNeverHoldsWhatIsReadOnly() {
        ContainerDocument document = sampleDocument();
        document.encryptedPayload = "payload"_ba;
        document.filePayloads.insert(u"name"_s, "bytes"_ba);
        document.payloadOffset = 12345;
        QVERIFY(document.fileIndex.addDirectory({u"secret"_s, {}, {}}));
        QCOMPARE(m_manager.buildHeader(document), sampleHeader());
    }

    void headerTakesTheDocumentsVersionAndTag() {
        ContainerDocument document;
        document.formatVersion = 4;
        document.crypto.authTag = QByteArray(3, '\0');
        const QByteArray header = m_manager.buildHeader(document);
        QVERIFY(header.contains("\"formatVersion\":4,"));
        QVERIFY(header.contains("\"authTag\":\"AAAA\""));
    }

    void cryptoMetadataSurvivesJson() {
        ContainerCryptoMetadata metadata = sampleDocument().crypto;
        metadata.kdfIterations = 123456;
        metadata.authTag = QByteArray(16, '\x05');
        const QJsonObject object = m_manager.cryptoMetadataToJson(metadata);
        QCOMPARE(object.size(), 8);
        const ContainerCryptoMetadata read = m_manager.cryptoMetadataFromJson(object);
        QCOMPARE(read.kdf, metadata.kdf);
        QCOMPARE(read.cipher, metadata.cipher);
        QCOMPARE(read.kdfIterations, 123456);
        QCOMPARE(read.salt, metadata.salt);
        QCOMPARE(read.nonce, metadata.nonce);
        QCOMPARE(read.payloadNonce, metadata.payloadNonce);
        QCOMPARE(read.authTag, metadata.authTag);
        QCOMPARE(read.encryptedMasterKey, metadata.encryptedMasterKey);
    }

    void missingCryptoKeysTakeTheirDefaults() {
        const ContainerCryptoMetadata read = m_manager.cryptoMetadataFromJson({});
        QVERIFY(read.kdf.isEmpty() && read.cipher.isEmpty());
        QCOMPARE(read.kdfIterations, 250000);
        QVERIFY(read.salt.isEmpty() && read.nonce.isEmpty() && read.payloadNonce.isEmpty() &&
                read.authTag.isEmpty() && read.encryptedMasterKey.isEmpty());
    }

    void cryptoMetadataIsNotValidated() {
        const ContainerCryptoMetadata read = m_manager.cryptoMetadataFromJson(
            {{u"kdf"_s, u"none"_s},
             {u"kdfIterations"_s, -5},
             {u"salt"_s, u"AA=="_s},
             // Base64 is decoded leniently: what is no letter of it is passed over.
             {u"nonce"_s, u" A\nA*=-="_s}});
        QCOMPARE(read.kdf, u"none"_s);
        QCOMPARE(read.kdfIterations, -5);
        QCOMPARE(read.salt, QByteArray(1, '\0'));
        QCOMPARE(read.nonce, QByteArray(1, '\0'));
    }

    void iterationsThatAreNoIntegerAreTheDefault_data() {
        QTest::addColumn<QByteArray>("value");
        QTest::newRow("text") << "\"7\""_ba;
        QTest::newRow("fraction") << "7.5"_ba;
        QTest::newRow("too large") << "99999999999"_ba;
        QTest::newRow("null") << "null"_ba;
    }
    void iterationsThatAreNoIntegerAreTheDefault() {
        QFETCH(const QByteArray, value);
        const QJsonObject object =
            QJsonDocument::fromJson("{\"kdfIterations\":" + value + "}").object();
        QCOMPARE(object.size(), 1);
        QCOMPARE(m_manager.cryptoMetadataFromJson(object).kdfIterations, 250000);
    }

    // --- Writing a container ---------------------------------------------------------------

    void aContainerIsWrittenByteForByteLikeThis() {
        QVERIFY(m_manager.writeDocument(path(), sampleDocument()));
        const QByteArray bytes = readFile(path());
        QCOMPARE(bytes.size(), PayloadAt);
        QCOMPARE(bytes.left(7), "TESSEL3"_ba);
        QCOMPARE(bytes.mid(7, 20), "00000000000000000488"_ba);
        QCOMPARE(bytes.at(27), '\n');
        QCOMPARE(bytes.mid(HeaderAt, 488), sampleHeader());
        QVERIFY(bytes.mid(HeaderAt + 488) == QByteArray(RegionBytes - 488, '\0'));
        QCOMPARE(namesInFolder(), QStringList(u"tessel.tvlt"_s));
    }

    void thePayloadWriterBeginsAtThePayload() {
        qint64 position = -1;
        QVERIFY(m_manager.writeDocument(path(), sampleDocument(), [&](QIODevice* device) {
            position = device->pos();
            return device->write("first ") == 6 && device->pos() == PayloadAt + 6 &&
                   device->write("second") == 6;
        }));
        QCOMPARE(position, PayloadAt);
        QVERIFY(readFile(path()) == containerWith(sampleHeader(), "first second"));
    }

    void theHeaderIsBuiltAfterThePayloadWriter() {
        ContainerDocument document;
        QVERIFY(m_manager.writeDocument(path(), document, [&](QIODevice*) {
            document = sampleDocument();
            return true;
        }));
        QVERIFY(readFile(path()) == containerWith(sampleHeader()));
    }

    void aContainerReplacesTheFileBeforeIt() {
        QVERIFY(writeFile(path(), containerWith(SmallHeader, payloadOf(100000))));
        QVERIFY(m_manager.writeDocument(path(), sampleDocument()));
        QVERIFY(readFile(path()) == containerWith(sampleHeader()));
        QCOMPARE(namesInFolder(), QStringList(u"tessel.tvlt"_s));
    }

    void aPayloadWriterThatFailsLeavesTheOldFile() {
        const QByteArray before = containerWith(SmallHeader, payloadOf(5000));
        QVERIFY(writeFile(path(), before));
        QVERIFY(!m_manager.writeDocument(path(), sampleDocument(), [](QIODevice* device) {
            device->write("half a block");
            return false;
        }));
        QVERIFY(readFile(path()) == before);
        QCOMPARE(namesInFolder(), QStringList(u"tessel.tvlt"_s));
    }

    void aPayloadWriterThatFailsCreatesNothing() {
        QVERIFY(
            !m_manager.writeDocument(path(), sampleDocument(), [](QIODevice*) { return false; }));
        QVERIFY(namesInFolder().isEmpty());
    }

    void aHeaderThatFillsTheRegionIsWrittenWithoutPadding() {
        const ContainerDocument document = documentWithHeaderOf(RegionBytes);
        const QByteArray header = m_manager.buildHeader(document);
        QCOMPARE(header.size(), RegionBytes);
        const QByteArray payload = payloadOf(1000);
        QVERIFY(m_manager.writeDocument(path(), document, [&](QIODevice* device) {
            return device->write(payload) == payload.size();
        }));
        QVERIFY(readFile(path()) == "TESSEL300000000000008388608\n" + header + payload);

        const ContainerDocument read = readBack();
        QCOMPARE(read.payloadOffset, PayloadAt);
        QVERIFY(m_manager.buildHeader(read) == header);
    }

    void aHeaderOneByteTooLongIsRefused() {
        const ContainerDocument document = documentWithHeaderOf(RegionBytes + 1);
        QCOMPARE(m_manager.buildHeader(document).size(), RegionBytes + 1);
        QVERIFY(!m_manager.writeDocument(path(), document));
        QVERIFY(namesInFolder().isEmpty());

        const QByteArray before = containerWith(SmallHeader, payloadOf(5000));
        QVERIFY(writeFile(path(), before));
        QVERIFY(!m_manager.writeDocument(path(), document));
        QVERIFY(!m_manager.updateDocumentHeader(path(), document));
        QVERIFY(readFile(path()) == before);
    }

    // --- Reading a container ---------------------------------------------------------------

    void whatWasWrittenIsReadBack() {
        QVERIFY(m_manager.writeDocument(path(), sampleDocument()));
        ContainerDocument read = marked();
        QVERIFY(m_manager.readDocument(path(), &read));
        QCOMPARE(read.formatVersion, 3);
        QCOMPARE(m_manager.buildHeader(read), sampleHeader());
        QCOMPARE(read.encryptedIndex, sampleDocument().encryptedIndex);
        QCOMPARE(read.payloadOffset, PayloadAt);
        QVERIFY(read.encryptedPayload.isEmpty());
        QVERIFY(read.filePayloads.isEmpty());
        QVERIFY(read.fileIndex.entries().isEmpty() && read.fileIndex.directories().isEmpty());
    }

    void readingIntoNothingIsRefused() {
        QVERIFY(m_manager.writeDocument(path(), sampleDocument()));
        QVERIFY(!m_manager.readDocument(path(), nullptr));
    }

    void whatIsNoRegularFileIsRefused() {
        QVERIFY(isRefused());
        QVERIFY(QDir().mkdir(path()));
        QVERIFY(isRefused());
        QVERIFY(QDir().rmdir(path()));
        QVERIFY(QFile::link(path(u"nowhere"_s), path()));
        QVERIFY(isRefused());
        QVERIFY(QFile::remove(path()));
        // Nobody writes to this pipe: a reader that opened it would wait for ever.
        QCOMPARE(::mkfifo(QFile::encodeName(path()).constData(), 0600), 0);
        QVERIFY(isRefused());
    }

    void aFileThatBeginsOtherwiseIsRefused_data() {
        QTest::addColumn<QByteArray>("beginning");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("six bytes") << "TESSEL"_ba;
        QTest::newRow("magic alone") << "TESSEL3"_ba;
        QTest::newRow("magic and length") << "TESSEL300000000000000000036\n"_ba;
        const QByteArray rest = containerWith(SmallHeader).mid(7);
        QTest::newRow("earlier format") << QByteArray("TESSEL2" + rest);
        QTest::newRow("later format") << QByteArray("TESSEL4" + rest);
        QTest::newRow("lower case") << QByteArray("tessel3" + rest);
        QTest::newRow("one byte before it") << QByteArray(" TESSEL3" + rest);
    }
    void aFileThatBeginsOtherwiseIsRefused() {
        QFETCH(const QByteArray, beginning);
        QVERIFY(writeFile(path(), beginning));
        QVERIFY(isRefused());
    }

    void lengthLinesThatAreNumbersAreAccepted_data() {
        QTest::addColumn<QByteArray>("line");
        const QByteArray digits = QByteArray::number(SmallHeader.size());
        QTest::newRow("as written") << lengthLine(SmallHeader.size());
        QTest::newRow("no zeros") << QByteArray(digits + "\n");
        QTest::newRow("two blanks before") << QByteArray("  " + digits + "\n");
        QTest::newRow("blanks after") << QByteArray(digits + "   \n");
        QTest::newRow("carriage return") << QByteArray(digits + "\r\n");
        QTest::newRow("tabs") << QByteArray("\t" + digits + "\t\n");
        QTest::newRow("a hundred zeros") << QByteArray(QByteArray(100, '0') + digits + "\n");
        QTest::newRow("ten thousand blanks") << QByteArray(QByteArray(10000, ' ') + digits + "\n");
    }
    void lengthLinesThatAreNumbersAreAccepted() {
        QFETCH(const QByteArray, line);
        QVERIFY(writeFile(path(), containerBytes(line, SmallHeader)));
        QCOMPARE(readBack().payloadOffset, 7 + line.size() + RegionBytes);
    }

    void lengthLinesOutsideTheRegionOrNoNumbersAreRefused_data() {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("twenty zeros") << lengthLine(0);
        QTest::newRow("negative") << "-0000000000000000036\n"_ba;
        QTest::newRow("one too many") << lengthLine(RegionBytes + 1);
        QTest::newRow("largest of 63 bits") << "9223372036854775807\n"_ba;
        QTest::newRow("beyond 63 bits") << "9223372036854775808\n"_ba;
        QTest::newRow("wraps round to 36") << "18446744073709551652\n"_ba;
        QTest::newRow("empty") << "\n"_ba;
        QTest::newRow("blank") << "                    \n"_ba;
        QTest::newRow("words") << "thirty-six\n"_ba;
        QTest::newRow("hexadecimal") << "0x24\n"_ba;
        QTest::newRow("fraction") << "36.0\n"_ba;
        QTest::newRow("exponent") << "36e0\n"_ba;
        QTest::newRow("two numbers") << "3 6\n"_ba;
        QTest::newRow("digits, then words") << "36 bytes\n"_ba;
        QTest::newRow("sign alone") << "-\n"_ba;
        QTest::newRow("zero byte inside") << QByteArray("3\0006\n", 4);
    }
    void lengthLinesOutsideTheRegionOrNoNumbersAreRefused() {
        QFETCH(const QByteArray, line);
        // Blanks all the way, so that a length of any size would cut out a header that parses.
        const QByteArray header = SmallHeader.leftJustified(RegionBytes + 100, ' ');
        QVERIFY(writeFile(path(), containerBytes(line, header)));
        QVERIFY(isRefused());
    }

    void aLengthLineWithoutAnEndIsRefused() {
        QVERIFY(writeFile(path(), "TESSEL3" + QByteArray(9000000, '0')));
        QVERIFY(isRefused());
    }

    void aLengthOfTheWholeRegionIsAccepted() {
        const QByteArray header = SmallHeader.leftJustified(RegionBytes, ' ');
        QVERIFY(writeFile(path(), containerWith(header)));
        QCOMPARE(readBack().payloadOffset, PayloadAt);
    }

    void aRegionThatIsNotWholeIsRefused_data() {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("header alone") << HeaderAt + SmallHeader.size() << false;
        QTest::newRow("one byte short") << PayloadAt - 1 << false;
        QTest::newRow("whole") << PayloadAt << true;
        QTest::newRow("one byte of payload") << PayloadAt + 1 << true;
    }
    void aRegionThatIsNotWholeIsRefused() {
        QFETCH(const qint64, size);
        QFETCH(const bool, accepted);
        QVERIFY(writeFile(path(), containerWith(SmallHeader, "payload").left(size)));
        ContainerDocument document;
        QCOMPARE(m_manager.readDocument(path(), &document), accepted);
        QCOMPARE(isRefused(), !accepted);
    }

    void headersThatAreNoneAreRefused_data() {
        QTest::addColumn<QByteArray>("header");
        QTest::newRow("array") << QByteArray("[" + SmallHeader + "]");
        QTest::newRow("words") << "TESSEL"_ba;
        QTest::newRow("object cut short") << SmallHeader.chopped(1);
        QTest::newRow("garbage after the object") << QByteArray(SmallHeader + "}");
        QTest::newRow("zero after the object") << QByteArray(SmallHeader + '\0');
        QTest::newRow("empty object") << "{}"_ba;
        QTest::newRow("magic in lower case") << "{\"magic\":\"tessel\",\"formatVersion\":3}"_ba;
        QTest::newRow("magic of the file") << "{\"magic\":\"TESSEL3\",\"formatVersion\":3}"_ba;
        QTest::newRow("no magic") << "{\"formatVersion\":3}"_ba;
        QTest::newRow("magic is a number") << "{\"magic\":3,\"formatVersion\":3}"_ba;
        QTest::newRow("version 2") << "{\"magic\":\"TESSEL\",\"formatVersion\":2}"_ba;
        QTest::newRow("version 4") << "{\"magic\":\"TESSEL\",\"formatVersion\":4}"_ba;
        QTest::newRow("version 0") << "{\"magic\":\"TESSEL\",\"formatVersion\":0}"_ba;
        QTest::newRow("version 3.5") << "{\"magic\":\"TESSEL\",\"formatVersion\":3.5}"_ba;
        QTest::newRow("version in a string") << "{\"magic\":\"TESSEL\",\"formatVersion\":\"3\"}"_ba;
        QTest::newRow("no version") << "{\"magic\":\"TESSEL\"}"_ba;
    }
    void headersThatAreNoneAreRefused() {
        QFETCH(const QByteArray, header);
        QVERIFY(writeFile(path(), containerWith(header)));
        QVERIFY(isRefused());
    }

    void theSealedIndexIsReadAsQtReadsIt_data() {
        QTest::addColumn<QByteArray>("beforeEnd");
        QTest::newRow("as written") << "\"crypto\":{},\"encryptedIndex\":\"QUJD"_ba;
        QTest::newRow("empty") << "\"crypto\":{},\"encryptedIndex\":\""_ba;
        QTest::newRow("padded") << "\"crypto\":{},\"encryptedIndex\":\"QUI="_ba;
        QTest::newRow("not padded") << "\"crypto\":{},\"encryptedIndex\":\"QUI"_ba;
        QTest::newRow("escaped") << "\"crypto\":{},\"encryptedIndex\":\"A\\/\\u0042D"_ba;
        QTest::newRow("with what is no letter") << "\"crypto\":{},\"encryptedIndex\":\" QU*JD-"_ba;
        QTest::newRow("without crypto") << "\"encryptedIndex\":\"QUJD"_ba;
        QTest::newRow("in crypto too") << QByteArray(
            "\"crypto\":{\"a\":1,\"encryptedIndex\":\"QUJD\"},\"encryptedIndex\":\"REVG");
        QTest::newRow("twice") << QByteArray(
            "\"crypto\":{},\"encryptedIndex\":\"QUJD\",\"encryptedIndex\":\"REVG");
        QTest::newRow("twice, once with a space")
            << "\"crypto\":{},\"encryptedIndex\" :\"QUJD\",\"encryptedIndex\":\"REVG"_ba;
        QTest::newRow("in a text")
            << "\"a\":\",\\\"encryptedIndex\\\":\\\"QUJD\",\"encryptedIndex\":\"REVG"_ba;
        QTest::newRow("missing") << "\"crypto\":{},\"index\":\"REVG"_ba;
    }
    void theSealedIndexIsReadAsQtReadsIt() {
        QFETCH(const QByteArray, beforeEnd);
        const QByteArray header = '{' + beforeEnd + "\",\"formatVersion\":3,\"magic\":\"TESSEL\"}";
        const QJsonObject object = QJsonDocument::fromJson(header).object();
        QVERIFY(!object.isEmpty());
        QVERIFY(writeFile(path(), containerWith(header)));
        const ContainerDocument document = readBack();
        QCOMPARE(document.encryptedIndex,
                 QByteArray::fromBase64(object.value(u"encryptedIndex"_s).toString().toLatin1()));
    }

    void onlyTheHeadersOwnBytesAreParsed() {
        // What follows the header in its region is nobody's business.
        QVERIFY(writeFile(path(), containerBytes(lengthLine(SmallHeader.size()),
                                                 SmallHeader + "]]] left from before")));
        QCOMPARE(readBack().payloadOffset, PayloadAt);
    }

    void aHeaderWithoutCryptoHasTheDefaults() {
        QVERIFY(writeFile(path(), containerWith(SmallHeader)));
        ContainerDocument document = marked();
        QVERIFY(m_manager.readDocument(path(), &document));
        QCOMPARE(document.formatVersion, 3);
        QCOMPARE(m_manager.buildHeader(document), m_manager.buildHeader(ContainerDocument()));
        QVERIFY(document.filePayloads.isEmpty() && document.encryptedPayload.isEmpty());
        QVERIFY(document.fileIndex.directories().isEmpty());
    }

    void readersDoNotDependOnTheOrderOfKeys() {
        QVERIFY(writeFile(path(), containerWith("{\"magic\":\"TESSEL\",\"unknown\":[1,2],"
                                                "\"formatVersion\":3,\"encryptedIndex\":\"AAEC\","
                                                "\"crypto\":{\"salt\":\"AwQF\",\"kdf\":\"x\","
                                                "\"unknown\":null}}")));
        const ContainerDocument document = readBack();
        QCOMPARE(document.encryptedIndex, QByteArray::fromHex("000102"));
        QCOMPARE(document.crypto.salt, QByteArray::fromHex("030405"));
        QCOMPARE(document.crypto.kdf, u"x"_s);
        QCOMPARE(document.crypto.kdfIterations, 250000);
    }

    void keysOfOlderLayoutsAreRead() {
        QVERIFY(writeFile(
            path(), containerWith(headerWith(
                        "\"encryptedPayload\":\"AAEC\","
                        "\"filePayloads\":{\"a.txt\":\"AwQF\",\"b\":7,\"\":\"Bg==\"},"
                        "\"fileIndex\":{\"files\":[{\"vaultPath\":\"f\",\"sizeBytes\":\"42\"}],"
                        "\"directories\":[{\"path\":\"d\"}]}"))));
        const ContainerDocument document = readBack();
        QCOMPARE(document.encryptedPayload, QByteArray::fromHex("000102"));
        QCOMPARE(document.filePayloads.size(), 3);
        QCOMPARE(document.filePayloads.value(u"a.txt"_s), QByteArray::fromHex("030405"));
        QVERIFY(document.filePayloads.contains(u"b"_s));
        QVERIFY(document.filePayloads.value(u"b"_s).isEmpty());
        QCOMPARE(document.filePayloads.value(QString()), QByteArray::fromHex("06"));
        QCOMPARE(document.fileIndex.entries().size(), 1);
        QCOMPARE(document.fileIndex.entries().constFirst().sizeBytes, 42);
        QVERIFY(document.fileIndex.containsDirectory(u"d"_s));
    }

    void membersOfTheWrongTypeAreEmpty() {
        QVERIFY(writeFile(path(),
                          containerWith(headerWith("\"crypto\":[],\"encryptedIndex\":5,"
                                                   "\"filePayloads\":\"x\",\"fileIndex\":[]"))));
        const ContainerDocument document = readBack();
        QCOMPARE(m_manager.buildHeader(document), m_manager.buildHeader(ContainerDocument()));
        QVERIFY(document.filePayloads.isEmpty());
    }

    // --- Rewriting the header --------------------------------------------------------------

    void rewritingTheHeaderLeavesThePayload_data() {
        QTest::addColumn<qint64>("before");
        QTest::addColumn<qint64>("after");
        QTest::newRow("same length") << qint64(1000) << qint64(1000);
        QTest::newRow("one byte longer") << qint64(1000) << qint64(1001);
        QTest::newRow("one byte shorter") << qint64(1001) << qint64(1000);
        QTest::newRow("much longer") << qint64(1000) << qint64(3000000);
        QTest::newRow("much shorter") << qint64(3000000) << qint64(1000);
        QTest::newRow("to the whole region") << qint64(1000) << RegionBytes;
        QTest::newRow("from the whole region") << RegionBytes << qint64(1000);
        QTest::newRow("from the whole region, one byte") << RegionBytes << RegionBytes - 1;
    }
    void rewritingTheHeaderLeavesThePayload() {
        QFETCH(const qint64, before);
        QFETCH(const qint64, after);
        const QByteArray payload = payloadOf(100000);
        const ContainerDocument document = documentWithHeaderOf(after);
        for (const HeaderPadding padding : {HeaderPadding::Unknown, HeaderPadding::Zero}) {
            QVERIFY(m_manager.writeDocument(
                path(), documentWithHeaderOf(before),
                [&](QIODevice* device) { return device->write(payload) == payload.size(); }));
            HeaderWriter writer(path(), padding);
            QVERIFY(writer.rewrite(document, document, WithoutRecord::Refuse));
            QVERIFY(writer.padding() == HeaderPadding::Zero);
            // Exactly as if the new header had been written from the start: zeros behind it.
            QVERIFY(readFile(path()) == containerWith(m_manager.buildHeader(document), payload));
        }
    }

    void aRegionUnderALineOfAnotherLengthIsLookedThrough() {
        const QByteArray line = QByteArray(29, '0') + "2\n";
        QByteArray bytes = QByteArray("TESSEL3" + line + "{}").leftJustified(PayloadAt + 10, '\0');
        bytes[HeaderAt + 5000] = 'x';
        QVERIFY(writeFile(path(), bytes));
        const ContainerDocument document = sampleDocument();
        QVERIFY(HeaderWriter(path(), HeaderPadding::Zero)
                    .rewrite(document, document, WithoutRecord::Refuse));
        QVERIFY(readFile(path()) == containerWith(sampleHeader(), QByteArray(10, '\0')));
    }

    void aRecordLargerThanTheRegionIsRefused() {
        const QByteArray bytes = containerWith(SmallHeader, "payload");
        QVERIFY(writeFile(path(), bytes));
        for (const HeaderPadding padding : {HeaderPadding::Unknown, HeaderPadding::Zero}) {
            HeaderWriter writer(path(), padding);
            QVERIFY(!writer.rewrite(sampleDocument(), documentWithRecordOf(RegionBytes + 1),
                                    WithoutRecord::Refuse));
            QVERIFY(writer.padding() == HeaderPadding::Unknown);
            QVERIFY(readFile(path()) == bytes);
        }
        QVERIFY(HeaderWriter(path()).rewrite(sampleDocument(), documentWithRecordOf(RegionBytes),
                                             WithoutRecord::Refuse));
        QVERIFY(readFile(path()) == containerWith(sampleHeader(), "payload"));
    }

    void rewritingClearsWhateverWasInTheRegion() {
        QByteArray bytes = containerWith(SmallHeader, "payload");
        bytes[HeaderAt + 5000] = 'x';
        bytes[PayloadAt - 1] = 'y';
        QVERIFY(writeFile(path(), bytes));
        QVERIFY(m_manager.updateDocumentHeader(path(), sampleDocument()));
        QVERIFY(readFile(path()) == containerWith(sampleHeader(), "payload"));
    }

    void rewritingOftenIsLikeWritingOnce() {
        QVERIFY(writeFile(path(), containerWith(SmallHeader, "payload")));
        for (const qint64 size : {600, 262144, 262145, 500, 524288, 262116, 700000, 490}) {
            const ContainerDocument document = documentWithHeaderOf(size);
            QVERIFY(m_manager.updateDocumentHeader(path(), document));
            QVERIFY(readFile(path()) == containerWith(m_manager.buildHeader(document), "payload"));
        }
    }

    void rewritingNeedsAnExistingContainer_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("empty file") << QByteArray();
        QTest::newRow("six bytes") << "TESSEL"_ba;
        QTest::newRow("another kind of file") << QByteArray(100, 'x');
        QTest::newRow("earlier format") << QByteArray("TESSEL2" + lengthLine(1));
    }
    void rewritingNeedsAnExistingContainer() {
        QFETCH(const QByteArray, bytes);
        QVERIFY(writeFile(path(), bytes));
        QVERIFY(!m_manager.updateDocumentHeader(path(), sampleDocument()));
        QCOMPARE(readFile(path()), bytes);
    }

    void rewritingCreatesNoFile() {
        QVERIFY(!m_manager.updateDocumentHeader(path(), sampleDocument()));
        QVERIFY(namesInFolder().isEmpty());
        QVERIFY(!m_manager.updateDocumentHeader(m_folder->path(), sampleDocument()));
    }

    void aPayloadThatBeginsEarlyIsNotOverwritten_data() {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("shortest") << "36\n"_ba;
        QTest::newRow("ten digits") << "0000000036\n"_ba;
        QTest::newRow("one digit short") << "0000000000000000036\n"_ba;
        QTest::newRow("blanks") << "   36 \n"_ba;
    }
    void aPayloadThatBeginsEarlyIsNotOverwritten() {
        // After a shorter length line the payload begins before the place where ours would, and a
        // header region of the usual place would reach into it: the rewrite is refused.
        QFETCH(const QByteArray, line);
        for (const qsizetype payloadBytes : {1, 19, 20, 100000}) {
            const QByteArray bytes = containerBytes(line, SmallHeader, payloadOf(payloadBytes));
            QVERIFY(writeFile(path(), bytes));
            QVERIFY(!m_manager.updateDocumentHeader(path(), sampleDocument()));
            QVERIFY(readFile(path()) == bytes);
            ContainerDocument document;
            QVERIFY(m_manager.readDocument(path(), &document));
            QCOMPARE(document.payloadOffset, 7 + line.size() + RegionBytes);
        }
    }

    void aHeaderWithoutAPayloadIsRewrittenWhateverItsLineWas() {
        for (const QByteArray& line :
             {"36\n"_ba, "0000000000000000036\n"_ba, "00000000000000000000036\n"_ba}) {
            QVERIFY(writeFile(path(), containerBytes(line, SmallHeader)));
            QVERIFY(m_manager.updateDocumentHeader(path(), sampleDocument()));
            QVERIFY(readFile(path()).left(PayloadAt) == containerWith(sampleHeader()));
        }
    }

    void aNewContainerIsForItsUserAloneAndAReplacedOneKeepsItsMode_data() {
        QTest::addColumn<bool>("isRaw");
        QTest::newRow("document") << false;
        QTest::newRow("raw bytes") << true;
    }
    void aNewContainerIsForItsUserAloneAndAReplacedOneKeepsItsMode() {
        QFETCH(const bool, isRaw);
        const FileModeMask usual(0022);
        const auto write = [&] {
            return isRaw ? m_manager.writeContainer(path(), "bytes")
                         : m_manager.writeDocument(path(), ContainerDocument());
        };
        QVERIFY(write());
        QCOMPARE(modeOf(path()), mode_t{0600});
        QCOMPARE(::chmod(QFile::encodeName(path()).constData(), 0640), 0);
        QVERIFY(write());
        QCOMPARE(modeOf(path()), mode_t{0640});
    }

    // --- Raw helpers -----------------------------------------------------------------------

    void rawBytesAreWrittenAndReadWhole() {
        const QByteArray bytes = payloadOf(100000);
        QVERIFY(m_manager.writeContainer(path(), bytes));
        QCOMPARE(readFile(path()), bytes);
        QCOMPARE(m_manager.readContainer(path()), bytes);
        QVERIFY(m_manager.writeContainer(path(), "shorter"));
        QCOMPARE(m_manager.readContainer(path()), "shorter"_ba);
        QCOMPARE(namesInFolder(), QStringList(u"tessel.tvlt"_s));
    }

    void rawReadingOfNothingIsEmpty() {
        QVERIFY(m_manager.readContainer(path()).isEmpty());
        QVERIFY(m_manager.readContainer(m_folder->path()).isEmpty());
    }

    // --- Drives that fail ------------------------------------------------------------------

    void nothingIsWrittenIntoAFolderThatIsNotThere() {
        const QString missing = path(u"missing/tessel.tvlt"_s);
        QVERIFY(!m_manager.writeDocument(missing, sampleDocument()));
        QVERIFY(!m_manager.writeContainer(missing, "bytes"));
        QVERIFY(!QFileInfo::exists(path(u"missing"_s)));
    }

    void nothingIsWrittenIntoAFolderWithoutTheRight() {
        const QByteArray before = containerWith(SmallHeader);
        QVERIFY(writeFile(path(), before));
        {
            const UnwritableFolder folder(m_folder->path());
            QVERIFY(!m_manager.writeDocument(path(), sampleDocument()));
            QVERIFY(!m_manager.writeContainer(path(), "bytes"));
            QVERIFY(!m_manager.writeDocument(path(u"new"_s), sampleDocument()));
        }
        QVERIFY(readFile(path()) == before);
        QCOMPARE(namesInFolder(), QStringList(u"tessel.tvlt"_s));
    }

    void aDriveWithoutRoomKeepsTheOldFile_data() {
        QTest::addColumn<qint64>("room");
        QTest::newRow("none") << qint64(0);
        QTest::newRow("one page") << qint64(4096);
        QTest::newRow("half a header region") << RegionBytes / 2;
        QTest::newRow("a page short of the header region") << RegionBytes - 4096;
        QTest::newRow("the header region, not the payload") << RegionBytes + 16384;
    }
    void aDriveWithoutRoomKeepsTheOldFile() {
        QFETCH(const qint64, room);
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(24 * MiB);
        const QString target = disk.filePath(u"tessel.tvlt"_s);
        const QByteArray before = containerWith(SmallHeader, payloadOf(5000));
        QVERIFY(writeFile(target, before));
        QVERIFY(disk.fillUpTo(room));
        const QByteArray payload = payloadOf(1000000);
        QVERIFY(!m_manager.writeDocument(target, sampleDocument(), [&](QIODevice* device) {
            return device->write(payload) == payload.size();
        }));
        QVERIFY(!m_manager.writeContainer(target, payloadOf(9000000)));
        QVERIFY(readFile(target) == before);
        QCOMPARE(QDir(disk.path()).entryList(QDir::Files | QDir::Hidden),
                 QStringList({u"filler"_s, u"tessel.tvlt"_s}));
        QCOMPARE(disk.bytesFree(), room);
    }

    void aRewriteWithoutRoomLeavesTheFile() {
        NEEDS_PRIVATE_MOUNTS();
        // A sparse container takes room only when its header region is first written.
        const SmallDisk disk(MiB);
        const QString target = disk.filePath(u"tessel.tvlt"_s);
        QFile file(target);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.write("TESSEL3" + lengthLine(SmallHeader.size()) + SmallHeader) > 0);
        QVERIFY(file.resize(PayloadAt));
        file.close();
        QVERIFY(disk.fillUpTo(8192));
        const QByteArray before = readFile(target);
        QCOMPARE(before.size(), PayloadAt);

        QVERIFY(!m_manager.updateDocumentHeader(target, documentWithHeaderOf(3000000)));
        QVERIFY(readFile(target) == before);
        QVERIFY(m_manager.updateDocumentHeader(target, sampleDocument()));
        QVERIFY(readFile(target) == containerWith(sampleHeader()));
    }

    void aFileSizeLimitStopsTheWriteAndKeepsTheOldFile_data() {
        QTest::addColumn<qint64>("limit");
        QTest::newRow("nothing") << qint64(0);
        QTest::newRow("inside the length line") << qint64(20);
        QTest::newRow("inside the region") << RegionBytes / 2;
        QTest::newRow("one byte short of the region") << PayloadAt - 1;
        QTest::newRow("inside the payload") << PayloadAt + 500;
    }
    void aFileSizeLimitStopsTheWriteAndKeepsTheOldFile() {
        QFETCH(const qint64, limit);
        const QByteArray before = containerWith(SmallHeader, payloadOf(5000));
        const QByteArray payload = payloadOf(1000);
        QVERIFY(writeFile(path(), before));
        {
            const FileSizeLimit sizeLimit(limit);
            QVERIFY(!m_manager.writeDocument(path(), sampleDocument(), [&](QIODevice* device) {
                return device->write(payload) == payload.size();
            }));
            QVERIFY(!m_manager.writeContainer(path(), before));
        }
        QVERIFY(readFile(path()) == before);
        QCOMPARE(namesInFolder(), QStringList(u"tessel.tvlt"_s));
    }

    void aFileSizeLimitStopsTheRewriteAndKeepsTheOldHeader_data() {
        QTest::addColumn<qint64>("limit");
        QTest::newRow("before the length line") << qint64(7);
        QTest::newRow("inside the length line") << qint64(20);
        QTest::newRow("inside the header") << HeaderAt + 100;
        QTest::newRow("far inside the header") << qint64(1000000);
    }
    void aFileSizeLimitStopsTheRewriteAndKeepsTheOldHeader() {
        QFETCH(const qint64, limit);
        const QByteArray before = containerWith(sampleHeader(), payloadOf(5000));
        QVERIFY(writeFile(path(), before));
        {
            const FileSizeLimit sizeLimit(limit);
            QVERIFY(!m_manager.updateDocumentHeader(path(), documentWithHeaderOf(3000000)));
        }
        QVERIFY(readFile(path()) == before);
        QCOMPARE(readBack().payloadOffset, PayloadAt);
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestContainerManager>);
#include "test_container_manager.moc"
