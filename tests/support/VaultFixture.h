// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/VaultManager.h"
#include "support/CraftedContainer.h"
#include "support/Faults.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace Tessel::Tests {

/// The password of a crafted container.
inline const QByteArray TestPassword = QByteArrayLiteral("senha de teste");

constexpr qint64 HeaderBytes = 8388608;
/// Where the payload of a container begins, and the length of one without files.
constexpr qint64 PayloadOffset = 8388636;

/// A vault on a drive of its own, a folder for ordinary files, and a system temporary folder that
/// nobody else uses. All of it goes with the object.
///
///     OpenVault vault(crafted);
///     QVERIFY(vault->renameFile(u"a"_s, u"b"_s));
///     QCOMPARE(vault.stored(u"b"_s), "contents"_ba);
///     VERIFY_REFUSED(vault, vault->deleteFile(u"a"_s));
class VaultFixture {
    /// TMPDIR has to point here before the vault below chooses its workspace.
    struct Folders {
        Folders();
        QTemporaryDir root;
        TemporaryFolderAt temporary{root.filePath(QStringLiteral("tmp"))};
    };
    Folders m_folders;
    QString m_container;

public:
    /// Puts the crafted container on the drive; the vault is locked.
    explicit VaultFixture(const CraftedContainer& crafted = CraftedContainer());

    [[nodiscard]] QString driveFolder() const;
    [[nodiscard]] QString container() const { return m_container; }
    /// Puts the container somewhere else; the vault must be locked.
    [[nodiscard]] bool moveContainerTo(const QString& path);
    /// A path in the folder for ordinary files.
    [[nodiscard]] QString file(const QString& name) const;
    [[nodiscard]] QString temporaryFolder() const;
    /// The names in the system's temporary folder, hidden files included.
    [[nodiscard]] QStringList temporaryNames() const;

    [[nodiscard]] bool unlock();
    /// Writes an ordinary file and returns its path.
    [[nodiscard]] QString write(const QString& name, const QByteArray& bytes) const;
    /// Imports these bytes under that path.
    [[nodiscard]] bool store(const QString& vaultPath, const QByteArray& bytes);
    /// Opens a file; the copy's path, empty when that fails.
    [[nodiscard]] QString opened(const QString& vaultPath);
    /// Opens a file and writes @p bytes into its copy, as an editor would a minute later. The
    /// copy's path; empty when that fails.
    [[nodiscard]] QString openAndEdit(const QString& vaultPath, const QByteArray& bytes);
    /// What the vault gives back for a path; "(refused)" when it gives nothing back.
    [[nodiscard]] QByteArray stored(const QString& vaultPath) const;
    [[nodiscard]] QStringList filePaths() const;
    [[nodiscard]] QStringList folderPaths() const;
    /// The entry with exactly this path; one without a path when there is none.
    [[nodiscard]] Core::VaultFileEntry entry(const QString& vaultPath) const;
    [[nodiscard]] Core::VaultDirectoryEntry folder(const QString& path) const;

    /// Locks the vault and unlocks it again.
    [[nodiscard]] bool reopen() { return vault.lockVault() && unlock(); }
    /// Compacts the vault; `kept` is then what that says of the rebuilt container.
    [[nodiscard]] bool compact(const Core::VaultManager::Progress& progress = {}) {
        return vault.compactVault(progress, &kept);
    }
    QString kept = QStringLiteral("to be emptied");
    /// Whether another session finds the index that is in memory.
    [[nodiscard]] bool isSaved(const QByteArray& password = TestPassword) const;
    [[nodiscard]] qint64 containerSize() const;
    /// The container's bytes.
    [[nodiscard]] QByteArray bytes() const;
    /// The container's bytes behind the header region.
    [[nodiscard]] QByteArray payload() const { return bytes().mid(PayloadOffset); }
    /// The document of the container; an empty one when it cannot be read.
    [[nodiscard]] Core::ContainerDocument document() const;

    Core::VaultManager vault;
    Core::VaultManager* operator->() { return &vault; }
    const Core::VaultManager* operator->() const { return &vault; }
};

/// The same, unlocked.
class OpenVault : public VaultFixture {
public:
    explicit OpenVault(const CraftedContainer& crafted = CraftedContainer());
    /// The container is at @p path, on another drive.
    OpenVault(const CraftedContainer& crafted, const QString& path);
};

/// The index that another session finds in a container, as JSON; empty when it cannot open it.
[[nodiscard]] QByteArray indexOnDrive(const QString& container, const QByteArray& password);

[[nodiscard]] inline QByteArray indexAsOpenedAnew(const QString& container,
                                                  const QByteArray& password) {
    return indexOnDrive(container, password);
}

/// One call of a VaultManager::Progress.
struct ProgressCall {
    qint64 done = 0;
    qint64 total = 0;
    QString name;

    bool operator==(const ProgressCall&) const = default;
};

/// A progress function that appends its calls.
[[nodiscard]] Core::VaultManager::Progress recordInto(QList<ProgressCall>* calls);

/// A picture of a vault, to be compared after an operation that must change nothing.
class VaultPicture {
public:
    explicit VaultPicture(const VaultFixture& fixture, const QByteArray& password = TestPassword);

    /// In words what is not as it was: the container's bytes, the index in memory, what another
    /// session finds in it. Empty when nothing changed.
    [[nodiscard]] QString changes() const;

private:
    const VaultFixture& m_fixture;
    QByteArray m_password;
    QByteArray m_container;
    QByteArray m_index;
    Core::VaultState m_state;
};

} // namespace Tessel::Tests

/// The vault is exactly as it was when the picture was taken.
#define COMPARE_UNCHANGED(picture) QCOMPARE((picture).changes(), QString())

/// The operation returns false and leaves the vault exactly as it was.
#define VERIFY_REFUSED(fixture, ...)                                                               \
    do {                                                                                           \
        const Tessel::Tests::VaultPicture pictureBefore(fixture);                                  \
        QVERIFY(!(__VA_ARGS__));                                                                   \
        COMPARE_UNCHANGED(pictureBefore);                                                          \
    } while (false)
