// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/VaultFixture.h"

#include "core/ContainerManager.h"
#include "support/Files.h"

#include <QBuffer>
#include <QDir>
#include <QFileInfo>

#include <algorithm>

using namespace Tessel::Core;
using namespace Qt::Literals::StringLiterals;

namespace Tessel::Tests {

VaultFixture::Folders::Folders() {
    for (const QString& name : {u"drive"_s, u"files"_s, u"tmp"_s}) {
        if (!QDir(root.path()).mkdir(name)) {
            qFatal("cannot make a folder for the test");
        }
    }
}

VaultFixture::VaultFixture(const CraftedContainer& crafted)
    : m_container(driveFolder() + u"/tessel.tvlt"_s) {
    if (!crafted.writeTo(m_container)) {
        qFatal("cannot write the container for the test");
    }
}

QString VaultFixture::driveFolder() const {
    return m_folders.root.filePath(u"drive"_s);
}

bool VaultFixture::moveContainerTo(const QString& path) {
    const bool moved = QFile::copy(m_container, path) && QFile::remove(m_container);
    m_container = path;
    return moved;
}

QString VaultFixture::file(const QString& name) const {
    return m_folders.root.filePath(u"files/"_s + name);
}

QString VaultFixture::temporaryFolder() const {
    return m_folders.root.filePath(u"tmp"_s);
}

QStringList VaultFixture::temporaryNames() const {
    return QDir(temporaryFolder())
        .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

bool VaultFixture::unlock() {
    return vault.unlockVault(m_container, TestPassword);
}

QString VaultFixture::write(const QString& name, const QByteArray& bytes) const {
    if (!writeFile(file(name), bytes)) {
        qFatal("cannot write a file for the test");
    }
    return file(name);
}

bool VaultFixture::store(const QString& vaultPath, const QByteArray& bytes) {
    return vault.importFile(write(u"stored"_s, bytes), vaultPath);
}

QString VaultFixture::opened(const QString& vaultPath) {
    QString path;
    return vault.prepareFileForEditing(vaultPath, &path) ? path : QString();
}

QString VaultFixture::openAndEdit(const QString& vaultPath, const QByteArray& bytes) {
    const QString path = opened(vaultPath);
    return !path.isEmpty() && writeFile(path, bytes) && makeLater(path, 60000) ? path : QString();
}

QByteArray VaultFixture::stored(const QString& vaultPath) const {
    QBuffer buffer;
    const bool given =
        buffer.open(QIODevice::WriteOnly) && vault.writeVaultFileToDevice(vaultPath, &buffer);
    return given ? buffer.data() : "(refused)"_ba;
}

QStringList VaultFixture::filePaths() const {
    QStringList paths;
    const QList<VaultFileEntry> entries = vault.fileIndex().entries();
    for (const VaultFileEntry& entry : entries) {
        paths.append(entry.vaultPath);
    }
    return paths;
}

QStringList VaultFixture::folderPaths() const {
    QStringList paths;
    const QList<VaultDirectoryEntry> folders = vault.fileIndex().directories();
    for (const VaultDirectoryEntry& folder : folders) {
        paths.append(folder.path);
    }
    return paths;
}

VaultFileEntry VaultFixture::entry(const QString& vaultPath) const {
    const QList<VaultFileEntry> entries = vault.fileIndex().entries();
    const auto found =
        std::find_if(entries.cbegin(), entries.cend(),
                     [&](const VaultFileEntry& other) { return other.vaultPath == vaultPath; });
    return found == entries.cend() ? VaultFileEntry() : *found;
}

VaultDirectoryEntry VaultFixture::folder(const QString& path) const {
    const QList<VaultDirectoryEntry> folders = vault.fileIndex().directories();
    const auto found =
        std::find_if(folders.cbegin(), folders.cend(),
                     [&](const VaultDirectoryEntry& other) { return other.path == path; });
    return found == folders.cend() ? VaultDirectoryEntry() : *found;
}

bool VaultFixture::isSaved(const QByteArray& password) const {
    return indexOnDrive(m_container, password) == vault.fileIndex().toJson();
}

qint64 VaultFixture::containerSize() const {
    return QFileInfo(m_container).size();
}

QByteArray VaultFixture::bytes() const {
    return readFile(m_container);
}

ContainerDocument VaultFixture::document() const {
    ContainerDocument document;
    return ContainerManager().readDocument(m_container, &document) ? document : ContainerDocument();
}

OpenVault::OpenVault(const CraftedContainer& crafted) : VaultFixture(crafted) {
    if (!unlock()) {
        qFatal("cannot unlock the vault for the test");
    }
}

OpenVault::OpenVault(const CraftedContainer& crafted, const QString& path) : VaultFixture(crafted) {
    if (!moveContainerTo(path) || !unlock()) {
        qFatal("cannot unlock the vault for the test");
    }
}

QByteArray indexOnDrive(const QString& container, const QByteArray& password) {
    VaultManager other;
    const QByteArray index =
        other.unlockVault(container, password) ? other.fileIndex().toJson() : QByteArray();
    return other.lockVault() ? index : QByteArray();
}

VaultManager::Progress recordInto(QList<ProgressCall>* calls) {
    return [calls](qint64 done, qint64 total, const QString& name) {
        calls->append({done, total, name});
    };
}

VaultPicture::VaultPicture(const VaultFixture& fixture, const QByteArray& password)
    : m_fixture(fixture), m_password(password), m_container(readFile(fixture.container())),
      m_index(fixture.vault.fileIndex().toJson()), m_state(fixture.vault.state()) {}

QString VaultPicture::changes() const {
    const QByteArray container = readFile(m_fixture.container());
    if (container.size() != m_container.size()) {
        return u"the container had %1 bytes and has %2"_s.arg(m_container.size())
            .arg(container.size());
    }
    if (container != m_container) {
        const auto at =
            std::mismatch(container.cbegin(), container.cend(), m_container.cbegin()).first;
        return u"the container differs from byte %1 on"_s.arg(at - container.cbegin());
    }
    if (m_fixture.vault.state() != m_state) {
        return u"the state changed"_s;
    }
    if (m_fixture.vault.fileIndex().toJson() != m_index) {
        return u"the index in memory changed"_s;
    }
    const QByteArray opened = indexOnDrive(m_fixture.container(), m_password);
    if (opened.isEmpty()) {
        return u"another session cannot open the container"_s;
    }
    if (m_state == VaultState::Unlocked && opened != m_index) {
        return u"another session finds another index"_s;
    }
    return {};
}

} // namespace Tessel::Tests
