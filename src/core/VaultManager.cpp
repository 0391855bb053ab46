// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/VaultManager.h"

#include "core/EntryEncodings.h"
#include "core/VaultSession.h"

namespace Tessel::Core {

VaultManager::VaultManager() : m_session(std::make_unique<VaultSession>()) {}
VaultManager::~VaultManager() = default;
VaultManager::VaultManager(VaultManager&& other) noexcept = default;
VaultManager& VaultManager::operator=(VaultManager&& other) noexcept = default;

bool VaultManager::createVault(const QString& path, const QByteArray& password) {
    if (password.isEmpty()) {
        return false;
    }
    m_index.clear();
    const bool created = m_session->create(path, password);
    // A session that could not even seal its new key closes nothing.
    if (!m_session->hasKey()) {
        m_state = VaultState::Locked;
    }
    return created;
}

bool VaultManager::unlockVault(const QString& path, const QByteArray& password) {
    if (password.isEmpty() || !m_session->open(path, password, &m_index)) {
        return false;
    }
    m_state = VaultState::Unlocked;
    return m_workspace.prepare();
}

bool VaultManager::lockVault() {
    // Each copy that is taken back costs the drive its size. A lock that is tried again because one
    // of them fails leaves the others as they are in the vault.
    if (isUnlocked() && !syncForLock()) {
        return false;
    }
    m_takenBack.clear();
    m_fileSync.clear();
    const bool cleaned = m_workspace.cleanup();
    m_session->close();
    EntryEncodings::drop(&m_index);
    m_state = VaultState::Locked;
    return cleaned;
}

bool VaultManager::changePassword(const QString& path, const QByteArray& oldPassword,
                                  const QByteArray& newPassword) {
    return !isUnlocked() && !oldPassword.isEmpty() && !newPassword.isEmpty() &&
           m_session->rekey(path, oldPassword, newPassword);
}

bool VaultManager::saveIndex(const SecureFileIndex& index) {
    ContainerDocument document;
    return isUnlocked() && !m_session->path().isEmpty() && m_session->readForReplacing(&document) &&
           save(&document, index, WithoutRecord::Refuse);
}

bool VaultManager::beginChange(ContainerDocument* document) {
    return m_session->read(document, &m_index);
}

bool VaultManager::save(ContainerDocument* document, const SecureFileIndex& index,
                        WithoutRecord withoutRecord) {
    m_session->prepareForSave(document);
    if (!m_session->save(document, index, withoutRecord)) {
        return false;
    }
    m_index = index;
    return true;
}

} // namespace Tessel::Core
