// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/AuthManager.h"
#include "core/CryptoManager.h"
#include "core/FileDigest.h"
#include "support/Faults.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QSet>
#include <QTest>

#include <array>
#include <type_traits>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

// No key, no state: every call is independent.
static_assert(std::is_empty_v<CryptoManager>);
static_assert(requires {
    KeyDerivationParams{.algorithm = {}, .salt = {}, .iterations = {}, .keyLength = {}};
});

namespace {

const QByteArray Password = "correct horse battery"_ba;

/// The bytes 0, 1, 2, ... 250, 0, 1, ... : no two neighbouring blocks of a hash are alike.
QByteArray countingBytes(qsizetype size) {
    QByteArray bytes(size, '\0');
    for (qsizetype i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i % 251);
    }
    return bytes;
}

QByteArray sha256(const QByteArray& bytes) {
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
}

/// HMAC takes a key longer than its 64-byte block as the key's digest, and pads a shorter one with
/// zeros; either gives a key of 32 bytes that yields the same code.
QByteArray asHmacKey(const QByteArray& key) {
    return key.size() > 64 ? sha256(key) : key.leftJustified(32, '\0');
}

KeyDerivationParams pbkdf2(const QByteArray& salt, qint32 iterations, qint32 keyLength) {
    return {u"PBKDF2-HMAC-SHA256"_s, salt, iterations, keyLength};
}

KeyDerivationParams argon2(const QByteArray& salt, qint32 keyLength = 64) {
    return {u"Argon2id"_s, salt, 250000, keyLength};
}

/// A sealed message with all that is needed to open it.
struct Sealed {
    QByteArray bytes;
    QByteArray key;
    QByteArray nonce;
    QByteArray associatedData;
};

/// draft-irtf-cfrg-xchacha-03, appendix A.3.1; the tag is appended as the combined mode does.
const QByteArray DraftPlaintext =
    "Ladies and Gentlemen of the class of '99: If I could offer you only one tip "
    "for the future, sunscreen would be it."_ba;

Sealed draftVector() {
    return {QByteArray::fromHex("bd6d179d3e83d43b9576579493c0e939572a1700252bfaccbed2902c21396cbb"
                                "731c7f1b0b4aa6440bf3a82f4eda7e39ae64c6708c54c216cb96b72e1213b452"
                                "2f8c9ba40db5d945b11b69b982c1bb9e3f3fac2bc369488f76b2383565d3fff9"
                                "21f9664c97637da9768812f615c68b13b52e"
                                "c0875924c1c7987947deafd8780acf49"),
            QByteArray::fromHex("808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9f"),
            QByteArray::fromHex("404142434445464748494a4b4c4d4e4f5051525354555657"),
            QByteArray::fromHex("50515253c0c1c2c3c4c5c6c7")};
}

} // namespace

class TestCryptoManager : public QObject {
    Q_OBJECT

private:
    const CryptoManager m_crypto;

private Q_SLOTS:
    // --- Random bytes ----------------------------------------------------------------------

    void randomBytesHaveTheLengthAskedFor_data() {
        QTest::addColumn<int>("length");
        for (const int length : {1, 16, 24, 32, 64, 1000}) {
            QTest::addRow("%d", length) << length;
        }
    }
    void randomBytesHaveTheLengthAskedFor() {
        QFETCH(const int, length);
        QCOMPARE(m_crypto.generateSalt(length).size(), length);
        QCOMPARE(m_crypto.generateNonce(length).size(), length);
    }

    void noRandomBytesForALengthBelowOne() {
        QVERIFY(m_crypto.generateSalt(0).isEmpty());
        QVERIFY(m_crypto.generateSalt(-1).isEmpty());
        QVERIFY(m_crypto.generateNonce(0).isEmpty());
        QVERIFY(m_crypto.generateNonce(-1).isEmpty());
    }

    void randomBytesNeverRepeat() {
        QSet<QByteArray> seen;
        for (int i = 0; i < 1000; ++i) {
            seen.insert(m_crypto.generateNonce(24));
            seen.insert(m_crypto.generateSalt(16));
        }
        QCOMPARE(seen.size(), 2000);
    }

    void randomBytesFillTheWholeArray() {
        // Each position must change within 100 draws; a constant one means it was never filled.
        const QByteArray first = m_crypto.generateSalt(64);
        QByteArray changed(64, '\0');
        for (int i = 0; i < 100; ++i) {
            const QByteArray next = m_crypto.generateSalt(64);
            for (qsizetype at = 0; at < next.size(); ++at) {
                changed[at] = changed.at(at) != 0 || next.at(at) != first.at(at) ? '\1' : '\0';
            }
        }
        QCOMPARE(changed, QByteArray(64, '\1'));
    }

    // --- XChaCha20-Poly1305 ----------------------------------------------------------------

    void encryptGivesTheDraftsCiphertextAndTag() {
        const Sealed draft = draftVector();
        QCOMPARE(m_crypto.encrypt(DraftPlaintext, draft.key, draft.nonce, draft.associatedData),
                 draft.bytes);
    }

    void decryptGivesTheDraftsPlaintext() {
        const Sealed draft = draftVector();
        QCOMPARE(m_crypto.decrypt(draft.bytes, draft.key, draft.nonce, draft.associatedData),
                 DraftPlaintext);
    }

    void sealedBytesOpenAgain_data() {
        QTest::addColumn<QByteArray>("plaintext");
        QTest::addColumn<QByteArray>("associatedData");
        for (const int size : {1, 15, 16, 17, 63, 64, 65, 1 << 20}) {
            QTest::addRow("%d bytes", size) << countingBytes(size) << "TESSEL|index|3"_ba;
            QTest::addRow("%d bytes, no associated data", size)
                << countingBytes(size) << QByteArray();
        }
    }
    void sealedBytesOpenAgain() {
        QFETCH(const QByteArray, plaintext);
        QFETCH(const QByteArray, associatedData);
        const QByteArray key = countingBytes(32);
        const QByteArray nonce = countingBytes(24);
        const QByteArray sealed = m_crypto.encrypt(plaintext, key, nonce, associatedData);
        QCOMPARE(sealed.size(), plaintext.size() + 16);
        QVERIFY(!sealed.startsWith(plaintext));
        QCOMPARE(m_crypto.decrypt(sealed, key, nonce, associatedData), plaintext);
    }

    void associatedDataIsAuthenticatedButNotStored() {
        const Sealed draft = draftVector();
        const QByteArray without = m_crypto.encrypt(DraftPlaintext, draft.key, draft.nonce, {});
        QCOMPARE(without.size(), draft.bytes.size());
        QCOMPARE(without.left(DraftPlaintext.size()), draft.bytes.left(DraftPlaintext.size()));
        QVERIFY(without.right(16) != draft.bytes.right(16));
    }

    void wrongKeyOrNonceLengthSealsAndOpensNothing_data() {
        QTest::addColumn<qsizetype>("keySize");
        QTest::addColumn<qsizetype>("nonceSize");
        QTest::newRow("no key") << qsizetype(0) << qsizetype(24);
        QTest::newRow("31-byte key") << qsizetype(31) << qsizetype(24);
        QTest::newRow("33-byte key") << qsizetype(33) << qsizetype(24);
        QTest::newRow("64-byte key") << qsizetype(64) << qsizetype(24);
        QTest::newRow("no nonce") << qsizetype(32) << qsizetype(0);
        QTest::newRow("12-byte nonce") << qsizetype(32) << qsizetype(12);
        QTest::newRow("23-byte nonce") << qsizetype(32) << qsizetype(23);
        QTest::newRow("25-byte nonce") << qsizetype(32) << qsizetype(25);
    }
    void wrongKeyOrNonceLengthSealsAndOpensNothing() {
        QFETCH(const qsizetype, keySize);
        QFETCH(const qsizetype, nonceSize);
        // The draft's own key and nonce, cut or lengthened: the right bytes at the wrong length.
        const Sealed draft = draftVector();
        const QByteArray key = draft.key.leftJustified(keySize, '\0', true);
        const QByteArray nonce = draft.nonce.leftJustified(nonceSize, '\0', true);
        QVERIFY(m_crypto.encrypt(DraftPlaintext, key, nonce, draft.associatedData).isEmpty());
        QVERIFY(m_crypto.decrypt(draft.bytes, key, nonce, draft.associatedData).isEmpty());
    }

    void ciphertextsOfUpToATagOpenToNothing_data() {
        QTest::addColumn<int>("size");
        for (int size = 0; size <= 16; ++size) {
            QTest::addRow("%d bytes", size) << size;
        }
    }
    void ciphertextsOfUpToATagOpenToNothing() {
        QFETCH(const int, size);
        const Sealed draft = draftVector();
        QVERIFY(m_crypto.decrypt(draft.bytes.left(size), draft.key, draft.nonce, {}).isEmpty());
    }

    void aTagOverAnEmptyPlaintextOpensToNothing() {
        const Sealed draft = draftVector();
        const QByteArray tag = m_crypto.encrypt({}, draft.key, draft.nonce, draft.associatedData);
        QCOMPARE(tag.size(), 16);
        QVERIFY(m_crypto.decrypt(tag, draft.key, draft.nonce, draft.associatedData).isEmpty());
    }

    void anyFlippedBitIsDetected_data() {
        QTest::addColumn<int>("field");
        QTest::newRow("ciphertext and tag") << 0;
        QTest::newRow("key") << 1;
        QTest::newRow("nonce") << 2;
        QTest::newRow("associated data") << 3;
    }
    void anyFlippedBitIsDetected() {
        QFETCH(const int, field);
        Sealed sealed = draftVector();
        QByteArray* const target = std::array{&sealed.bytes, &sealed.key, &sealed.nonce,
                                              &sealed.associatedData}[static_cast<size_t>(field)];
        for (qsizetype bit = 0; bit < target->size() * 8; ++bit) {
            const QByteArray intact = *target;
            (*target)[bit / 8] = static_cast<char>(intact.at(bit / 8) ^ (1 << (bit % 8)));
            const QByteArray opened =
                m_crypto.decrypt(sealed.bytes, sealed.key, sealed.nonce, sealed.associatedData);
            QVERIFY2(opened.isEmpty(), qPrintable(u"bit %1"_s.arg(bit)));
            *target = intact;
        }
        QCOMPARE(m_crypto.decrypt(sealed.bytes, sealed.key, sealed.nonce, sealed.associatedData),
                 DraftPlaintext);
    }

    void aMissingOrAddedByteIsDetected() {
        const Sealed draft = draftVector();
        const auto open = [&](const QByteArray& bytes, const QByteArray& associatedData) {
            return m_crypto.decrypt(bytes, draft.key, draft.nonce, associatedData);
        };
        QVERIFY(open(draft.bytes.chopped(1), draft.associatedData).isEmpty());
        QVERIFY(open(draft.bytes.mid(1), draft.associatedData).isEmpty());
        QVERIFY(open(draft.bytes + '\0', draft.associatedData).isEmpty());
        QVERIFY(open(draft.bytes, draft.associatedData.chopped(1)).isEmpty());
        QVERIFY(open(draft.bytes, draft.associatedData + '\0').isEmpty());
        QVERIFY(open(draft.bytes, {}).isEmpty());
    }

    // --- HMAC-SHA256 -----------------------------------------------------------------------

    void hmacGivesTheCodesOfRfc4231_data() {
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<QByteArray>("code");
        QTest::newRow("case 1") << QByteArray(20, '\x0b') << "Hi There"_ba
                                << QByteArray::fromHex("b0344c61d8db38535ca8afceaf0bf12b"
                                                       "881dc200c9833da726e9376c2e32cff7");
        QTest::newRow("case 2") << "Jefe"_ba
                                << "what do ya want for nothing?"_ba
                                << QByteArray::fromHex("5bdcc146bf60754e6a042426089575c7"
                                                       "5a003f089d2739839dec58b964ec3843");
        QTest::newRow("case 3") << QByteArray(20, '\xaa') << QByteArray(50, '\xdd')
                                << QByteArray::fromHex("773ea91e36800e46854db8ebd09181a7"
                                                       "2959098b3ef8c122d9635514ced565fe");
        QTest::newRow("case 4") << countingBytes(26).mid(1) << QByteArray(50, '\xcd')
                                << QByteArray::fromHex("82558a389a443c0ea4cc819899f2083a"
                                                       "85f0faa3e578f8077a2e3ff46729665b");
        // Published cut to 128 bits.
        QTest::newRow("case 5") << QByteArray(20, '\x0c') << "Test With Truncation"_ba
                                << QByteArray::fromHex("a3b6167473100ee06e0c796c2955552b");
        QTest::newRow("case 6") << QByteArray(131, '\xaa')
                                << QByteArray(
                                       "Test Using Larger Than Block-Size Key - Hash Key First")
                                << QByteArray::fromHex("60e431591ee0b67f0d8a26aacbf5b77f"
                                                       "8e0bc6213728c5140546040f0ee37f54");
        QTest::newRow("case 7")
            << QByteArray(131, '\xaa')
            << "This is a test using a larger than block-size key and a larger than "
               "block-size data. The key needs to be hashed before being used by the "
               "HMAC algorithm."_ba
            << QByteArray::fromHex("9b09ffa71b942fcb27635fbcd5b0e944"
                                   "bfdc63644f0713938a7f51535c3a35e2");
    }
    void hmacGivesTheCodesOfRfc4231() {
        QFETCH(const QByteArray, key);
        QFETCH(const QByteArray, message);
        QFETCH(const QByteArray, code);
        const QByteArray result = m_crypto.hmacSha256(message, asHmacKey(key));
        QCOMPARE(result.size(), 32);
        QCOMPARE(result.left(code.size()), code);
    }

    void hmacRefusesKeysBelow32Bytes_data() {
        QTest::addColumn<int>("size");
        for (const int size : {0, 1, 16, 31}) {
            QTest::addRow("%d bytes", size) << size;
        }
    }
    void hmacRefusesKeysBelow32Bytes() {
        QFETCH(const int, size);
        QVERIFY(m_crypto.hmacSha256("message"_ba, countingBytes(size)).isEmpty());
    }

    void hmacUsesTheFirst32BytesOfALongerKey() {
        const QByteArray message = "message"_ba;
        const QByteArray expected = m_crypto.hmacSha256(message, countingBytes(32));
        QCOMPARE(expected.size(), 32);
        QCOMPARE(m_crypto.hmacSha256(message, countingBytes(33)), expected);
        QCOMPARE(m_crypto.hmacSha256(message, countingBytes(40)), expected);
        QCOMPARE(m_crypto.hmacSha256(message, countingBytes(131)), expected);
    }

    // --- Comparison ------------------------------------------------------------------------

    void constantTimeEqualsComparesLengthAndBytes_data() {
        QTest::addColumn<QByteArray>("a");
        QTest::addColumn<QByteArray>("b");
        QTest::addColumn<bool>("equal");
        QTest::newRow("both empty") << QByteArray() << QByteArray() << true;
        QTest::newRow("null and empty") << QByteArray() << ""_ba << true;
        QTest::newRow("empty and one byte") << QByteArray() << QByteArray(1, '\0') << false;
        QTest::newRow("same") << "abc"_ba
                              << "abc"_ba << true;
        QTest::newRow("prefix") << "a"_ba
                                << "ab"_ba << false;
        QTest::newRow("first byte") << "xbc"_ba
                                    << "abc"_ba << false;
        QTest::newRow("last byte") << "abc"_ba
                                   << "abd"_ba << false;
        QTest::newRow("sign bit") << "ab\x80"_ba << QByteArray(QByteArray("ab\0", 3)) << false;
        QTest::newRow("two differences that cancel") << "\x01\x01"_ba
                                                     << "\x02\x02"_ba << false;
        QTest::newRow("after a zero byte")
            << QByteArray("a\0b", 3) << QByteArray("a\0c", 3) << false;
    }
    void constantTimeEqualsComparesLengthAndBytes() {
        QFETCH(const QByteArray, a);
        QFETCH(const QByteArray, b);
        QFETCH(const bool, equal);
        QCOMPARE(m_crypto.constantTimeEquals(a, b), equal);
        QCOMPARE(m_crypto.constantTimeEquals(b, a), equal);
    }

    // --- Argon2id --------------------------------------------------------------------------

    void argon2idGivesTheReferenceProgramsKeyWhateverTheIterations_data() {
        QTest::addColumn<int>("iterations");
        QTest::addColumn<QByteArray>("password");
        QTest::addColumn<QByteArray>("salt");
        QTest::addColumn<int>("keyLength");
        QTest::addColumn<QByteArray>("key");
        // RFC 9106 publishes no vector with one lane, so these come from the reference
        // implementation's own program (Debian package argon2, 0~20171227-0.3):
        //   printf '%s' PASSWORD | argon2 SALT -id -t 3 -m 18 -p 1 -l LENGTH -r
        QTest::newRow("64 bytes") << 0 << Password << "0123456789abcdef"_ba << 64
                                  << QByteArray::fromHex("ed2415c876bb57fdda6f57d1164cfd1e"
                                                         "d8c97305c1888528fd3e4385da0960d4"
                                                         "3c2b092923aff8a5e25674b4b7da5206"
                                                         "590a2b256ea509f830415d2be9643b6b");
        QTest::newRow("32 bytes, UTF-8 password")
            << -1
            << "senha de a\xc3\xa7\xc3\xba"
               "car"_ba
            << "tessel-test-salt"_ba << 32
            << QByteArray::fromHex("8a34b0bcbc4ebfbdf8464909bcbd9cfa"
                                   "ce80e29291a6f96a8d91bbf363a952f3");
    }
    void argon2idGivesTheReferenceProgramsKeyWhateverTheIterations() {
        QFETCH(const int, iterations);
        QFETCH(const QByteArray, password);
        QFETCH(const QByteArray, salt);
        QFETCH(const int, keyLength);
        QFETCH(const QByteArray, key);
        KeyDerivationParams params = argon2(salt, keyLength);
        params.iterations = iterations;
        QCOMPARE(m_crypto.deriveKey(password, params), key);
    }

    void argon2idRefusesASaltOrAKeyBelow16Bytes() {
        QVERIFY(m_crypto.deriveKey(Password, argon2(QByteArray(15, 's'))).isEmpty());
        // libsodium's lower limit, well below anything a container asks for.
        QVERIFY(m_crypto.deriveKey(Password, argon2(QByteArray(16, 's'), 15)).isEmpty());
    }

    void argon2idWithoutItsMemoryGivesNoKey() {
        const MemoryLimit limit(100 * MiB);
        QVERIFY(m_crypto.deriveKey(Password, argon2(QByteArray(16, 's'))).isEmpty());
    }

    // --- PBKDF2 ----------------------------------------------------------------------------

    void pbkdf2GivesTheKeysOfRfc7914_data() {
        QTest::addColumn<QByteArray>("password");
        QTest::addColumn<QByteArray>("salt");
        QTest::addColumn<int>("iterations");
        QTest::addColumn<QByteArray>("key");
        QTest::newRow("section 11, first")
            << "passwd"_ba
            << "salt"_ba << 1
            << QByteArray::fromHex("55ac046e56e3089fec1691c22544b605"
                                   "f94185216dde0465e68b9d57c20dacbc"
                                   "49ca9cccf179b645991664b39d77ef31"
                                   "7c71b845b1e30bd509112041d3a19783");
        QTest::newRow("section 11, second")
            << "Password"_ba
            << "NaCl"_ba << 80000
            << QByteArray::fromHex("4ddcd8f60b98be21830cee5ef22701f9"
                                   "641a4418d04c0414aeff08876b34ab56"
                                   "a1d425a1225833549adb841b51c9b317"
                                   "6a272bdebba1d078478f62b397f33c8d");
    }
    void pbkdf2GivesTheKeysOfRfc7914() {
        QFETCH(const QByteArray, password);
        QFETCH(const QByteArray, salt);
        QFETCH(const int, iterations);
        QFETCH(const QByteArray, key);
        QCOMPARE(m_crypto.deriveKey(password, pbkdf2(salt, iterations, 64)), key);
    }

    void pbkdf2CutsTheOutputAtTheKeyLength_data() {
        QTest::addColumn<int>("keyLength");
        for (const int length : {1, 31, 32, 33, 63, 64}) {
            QTest::addRow("%d", length) << length;
        }
    }
    void pbkdf2CutsTheOutputAtTheKeyLength() {
        QFETCH(const int, keyLength);
        // Each block is independent, so a shorter key is the beginning of a longer one.
        const QByteArray whole = QByteArray::fromHex("55ac046e56e3089fec1691c22544b605"
                                                     "f94185216dde0465e68b9d57c20dacbc"
                                                     "49ca9cccf179b645991664b39d77ef31"
                                                     "7c71b845b1e30bd509112041d3a19783");
        QCOMPARE(m_crypto.deriveKey("passwd"_ba, pbkdf2("salt"_ba, 1, keyLength)),
                 whole.left(keyLength));
    }

    void anyNameButArgon2idTakesPbkdf2_data() {
        QTest::addColumn<QString>("name");
        for (const char* name : {"", "argon2id", "ARGON2ID", "Argon2i", "Argon2id ", "PBKDF2"}) {
            QTest::addRow("'%s'", name) << QString::fromLatin1(name);
        }
    }
    void anyNameButArgon2idTakesPbkdf2() {
        QFETCH(const QString, name);
        KeyDerivationParams params = pbkdf2("salt"_ba, 1, 8);
        params.algorithm = name;
        QCOMPARE(m_crypto.deriveKey("passwd"_ba, params), QByteArray::fromHex("55ac046e56e3089f"));
    }

    void noKeyFromUnusableParameters_data() {
        QTest::addColumn<QByteArray>("password");
        QTest::addColumn<QByteArray>("salt");
        QTest::addColumn<int>("iterations");
        QTest::addColumn<int>("keyLength");
        QTest::addColumn<bool>("withArgon2id");
        const QByteArray salt(16, 's');
        QTest::newRow("empty password") << QByteArray() << salt << 1 << 64 << true;
        QTest::newRow("empty salt") << Password << QByteArray() << 1 << 64 << true;
        QTest::newRow("key length 0") << Password << salt << 1 << 0 << true;
        QTest::newRow("negative key length") << Password << salt << 1 << -1 << true;
        // Argon2id has no iterations to refuse.
        QTest::newRow("0 iterations") << Password << salt << 0 << 64 << false;
        QTest::newRow("negative iterations") << Password << salt << -1 << 64 << false;
    }
    void noKeyFromUnusableParameters() {
        QFETCH(const QByteArray, password);
        QFETCH(const QByteArray, salt);
        QFETCH(const int, iterations);
        QFETCH(const int, keyLength);
        QFETCH(const bool, withArgon2id);
        KeyDerivationParams params = pbkdf2(salt, iterations, keyLength);
        QVERIFY(m_crypto.deriveKey(password, params).isEmpty());
        params.algorithm = u"Argon2id"_s;
        if (withArgon2id) {
            QVERIFY(m_crypto.deriveKey(password, params).isEmpty());
        }
    }

    void freshParametersCarryTheDefaults() {
        const KeyDerivationParams params;
        QVERIFY(params.algorithm.isEmpty());
        QVERIFY(params.salt.isEmpty());
        QCOMPARE(params.iterations, 250000);
        QCOMPARE(params.keyLength, 64);
    }

    // --- Verifier --------------------------------------------------------------------------

    void authenticateAcceptsTheDigestOfTheDerivedKey() {
        const AuthManager auth(m_crypto);
        const KeyDerivationParams params = pbkdf2("salt"_ba, 1, 64);
        // SHA-256 of RFC 7914's first key.
        const QByteArray verifier = sha256(QByteArray::fromHex("55ac046e56e3089fec1691c22544b605"
                                                               "f94185216dde0465e68b9d57c20dacbc"
                                                               "49ca9cccf179b645991664b39d77ef31"
                                                               "7c71b845b1e30bd509112041d3a19783"));
        QVERIFY(auth.authenticate("passwd"_ba, verifier, params));
        QVERIFY(!auth.authenticate("Passwd"_ba, verifier, params));
        QVERIFY(!auth.authenticate("passwd"_ba, verifier.chopped(1), params));
        QVERIFY(!auth.authenticate("passwd"_ba, verifier + '\0', params));
        QVERIFY(!auth.authenticate("passwd"_ba, sha256(verifier), params));
    }

    void authenticateRefusesAnEmptyVerifierOrKey() {
        const AuthManager auth(m_crypto);
        const KeyDerivationParams params = pbkdf2("salt"_ba, 1, 64);
        QVERIFY(!auth.authenticate("passwd"_ba, {}, params));
        // A failed derivation is no key, not even one whose digest somebody could store.
        QVERIFY(!auth.authenticate({}, sha256({}), params));
        QVERIFY(!auth.authenticate({}, {}, params));
        QVERIFY(!auth.authenticate("passwd"_ba, sha256({}), pbkdf2({}, 1, 64)));
    }

    void authenticateWorksWithArgon2id() {
        const AuthManager auth(m_crypto);
        const QByteArray key = QByteArray::fromHex("8a34b0bcbc4ebfbdf8464909bcbd9cfa"
                                                   "ce80e29291a6f96a8d91bbf363a952f3");
        QVERIFY(auth.authenticate(u"senha de a\u00e7\u00facar"_s.toUtf8(), sha256(key),
                                  argon2("tessel-test-salt"_ba, 32)));
    }

    // --- SHA-256 ---------------------------------------------------------------------------

    void digestGivesTheValuesOfFips180_data() {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<QByteArray>("digest");
        QTest::newRow("no bytes") << QByteArray()
                                  << "e3b0c44298fc1c149afbf4c8996fb924"
                                     "27ae41e4649b934ca495991b7852b855"_ba;
        QTest::newRow("one block") << "abc"_ba
                                   << "ba7816bf8f01cfea414140de5dae2223"
                                      "b00361a396177a9cb410ff61f20015ad"_ba;
        QTest::newRow("two blocks")
            << "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"_ba
            << "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"_ba;
        QTest::newRow("three blocks")
            << "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
               "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu"_ba
            << "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1"_ba;
        QTest::newRow("a million bytes")
            << QByteArray(1000000, 'a')
            << "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"_ba;
    }
    void digestGivesTheValuesOfFips180() {
        QFETCH(const QByteArray, message);
        QFETCH(const QByteArray, digest);
        FileDigest whole;
        QVERIFY(whole.addData(message));
        QCOMPARE(whole.result().toHex(), digest);
    }

    void digestDoesNotDependOnThePieces_data() {
        QTest::addColumn<QByteArray>("digest");
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("piece");
        // Digests of 0, 1, 2, ... as sha256sum prints them, around the padding's limits.
        const QList<std::pair<int, const char*>> digests = {
            {55, "463eb28e72f82e0a96c0a4cc53690c571281131f672aa229e0d45ae59b598b59"},
            {56, "da2ae4d6b36748f2a318f23e7ab1dfdf45acdc9d049bd80e59de82a60895f562"},
            {63, "29af2686fd53374a36b0846694cc342177e428d1647515f078784d69cdb9e488"},
            {64, "fdeab9acf3710362bd2658cdc9a29e8f9c757fcf9811603a8c447cd1d9151108"},
            {65, "4bfd2c8b6f1eec7a2afeb48b934ee4b2694182027e6d0fc075074f2fabb31781"},
            {120, "f52b23db1fbb6ded89ef42a23ce0c8922c45f25c50b568a93bf1c075420bbb7c"},
            {128, "471fb943aa23c511f6f72f8d1652d9c880cfa392ad80503120547703e56a2be5"}};
        for (const auto& [size, digest] : digests) {
            for (const int piece : {1, 7, 63, 64, 65, 1000}) {
                QTest::addRow("%d bytes in pieces of %d", size, piece)
                    << QByteArray(digest) << size << piece;
            }
        }
    }
    void digestDoesNotDependOnThePieces() {
        QFETCH(const QByteArray, digest);
        QFETCH(const int, size);
        QFETCH(const int, piece);
        const QByteArray message = countingBytes(size);
        FileDigest fed;
        for (qsizetype at = 0; at < message.size(); at += piece) {
            QVERIFY(fed.addData(message.mid(at, piece)));
        }
        QVERIFY(fed.addData({}));
        QCOMPARE(fed.result().toHex(), digest);
    }

    void digestGivesItsResultOnce() {
        FileDigest digest;
        QVERIFY(digest.addData("abc"));
        QCOMPARE(digest.result().size(), 32);
        QVERIFY(digest.result().isEmpty());
        QVERIFY(!digest.addData("more"));
    }
};

TESSEL_TEST_MAIN(runTest<QCoreApplication, TestCryptoManager>);
#include "test_crypto_manager.moc"
