// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/SealedBlock.h"

#include "core/CryptoManager.h"

#include <QFile>

namespace Tessel::Core {

namespace {

constexpr qint64 LargestSealedBlock = LargestPlainBlock + CryptoManager::TagBytes;

} // namespace

bool readSealedBlock(QFile& container, const VaultFileBlock& block, QByteArray* sealed) {
    if (block.offset < 0 || block.encryptedSize <= CryptoManager::TagBytes ||
        block.encryptedSize > LargestSealedBlock ||
        block.encryptedSize > container.size() - block.offset || !container.seek(block.offset)) {
        return false;
    }
    sealed->resize(block.encryptedSize);
    return container.read(sealed->data(), sealed->size()) == sealed->size();
}

} // namespace Tessel::Core
