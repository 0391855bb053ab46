// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/ContainerDocument.h"
#include "core/CryptoManager.h"
#include "core/SecretBytes.h"
#include "core/SecureFileIndex.h"

#include <QByteArray>

namespace Tessel::Core {

/// Which key seals what: the password's key seals the master key, the master key seals the index
/// and every block of a file. docs/container-format.md gives the associated data. It holds no
/// state; every failure is an empty value or false.
class KeyHierarchy {
public:
    /// 64 random bytes.
    [[nodiscard]] SecretBytes newMasterKey() const;
    /// Names this program's algorithms and draws a salt and a nonce, for a new vault or password.
    void renewKeySlot(ContainerCryptoMetadata* crypto) const;
    /// Draws a nonce for the index. One nonce never seals two states of the index.
    void renewPayloadNonce(ContainerDocument* document) const;

    /// Everything that a password opens the master key with, and the sealed master key. Two
    /// headers with the same key slot belong to the same vault.
    [[nodiscard]] QByteArray keySlotOf(const ContainerDocument& document) const;
    [[nodiscard]] QByteArray encryptMasterKey(const ContainerDocument& document,
                                              const QByteArray& password,
                                              const SecretBytes& masterKey) const;
    [[nodiscard]] SecretBytes decryptMasterKey(const ContainerDocument& document,
                                               const QByteArray& password) const;

    [[nodiscard]] QByteArray encryptIndex(const ContainerDocument& document,
                                          const SecureFileIndex& index,
                                          const SecretBytes& masterKey) const;
    /// The same, in the memory that @p sealed has already. On failure it is empty.
    [[nodiscard]] bool sealIndex(const ContainerDocument& document, const SecureFileIndex& index,
                                 const SecretBytes& masterKey, QByteArray* sealed) const;
    /// @return false, with @p index untouched, when the index does not open.
    [[nodiscard]] bool decryptIndex(const ContainerDocument& document, const SecretBytes& masterKey,
                                    SecureFileIndex* index) const;

    /// The document for the redo record of a rewrite with @p document: the same key slot, and the
    /// packed index, sealed under a nonce of its own in the memory that @p record has already.
    [[nodiscard]] bool sealForRecord(const ContainerDocument& document,
                                     const SecureFileIndex& index, const SecretBytes& masterKey,
                                     ContainerDocument* record) const;
    /// Opens the index of a document that a redo record holds, in any of its encodings, and seals
    /// it in the document as a header has it.
    [[nodiscard]] bool decryptRecordedIndex(ContainerDocument* document,
                                            const SecretBytes& masterKey,
                                            SecureFileIndex* index) const;

    /// Seals one block of a file in place, under a new nonce, and notes the nonce and both sizes.
    [[nodiscard]] bool encryptBlock(QByteArray* buffer, VaultFileBlock* block,
                                    const SecretBytes& masterKey) const;
    /// Opens the sealed bytes of a block in place.
    /// @return false, with the buffer's content undefined, for another size as well.
    [[nodiscard]] bool decryptBlock(QByteArray* buffer, const VaultFileBlock& block,
                                    const SecretBytes& masterKey) const;

private:
    [[nodiscard]] SecretBytes deriveSessionKey(const QByteArray& password,
                                               const ContainerCryptoMetadata& crypto) const;

    CryptoManager m_cryptoManager;
};

} // namespace Tessel::Core
