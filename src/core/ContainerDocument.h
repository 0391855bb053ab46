// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/SecureFileIndex.h"

#include <QByteArray>
#include <QHash>
#include <QString>

namespace Tessel::Core {

/// The "crypto" object of a container's header.
struct ContainerCryptoMetadata {
    QString kdf;
    QString cipher;
    qint32 kdfIterations = 250000;
    QByteArray salt;
    /// Nonce under which the master key is sealed.
    QByteArray nonce;
    /// Nonce under which the index is sealed; new with every save.
    QByteArray payloadNonce;
    /// Always empty in containers written by this program.
    QByteArray authTag;
    QByteArray encryptedMasterKey;
};

/// A container's header in memory.
struct ContainerDocument {
    qint32 formatVersion = 3;
    ContainerCryptoMetadata crypto;
    /// Working copy of the index; never written in plain.
    SecureFileIndex fileIndex;
    QByteArray encryptedIndex;
    /// Read from older layouts, never written.
    QByteArray encryptedPayload;
    /// Read from older layouts, never written.
    QHash<QString, QByteArray> filePayloads;
    /// Where the payload region begins in the file; set by reading, never stored.
    qint64 payloadOffset = 0;
};

} // namespace Tessel::Core
