// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A container whose index opens and is hostile: somebody who knows the password made it so that
// opening it does harm. Every operation is run on it. Nothing may be written outside the vault's
// own files and folders, a finished export has the right bytes and no others, a refused operation
// changes nothing, and the index in memory is the one in the container.

#include "core/VaultManager.h"
#include "core/VaultPath.h"
#include "fuzz/FuzzTarget.h"
#include "fuzz/WriteGuard.h"
#include "support/CraftedContainer.h"
#include "support/Files.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QTemporaryDir>

#include <algorithm>
#include <array>
#include <csignal>
#include <optional>

#include <sys/resource.h>

using namespace Tessel::Core;
using namespace Tessel::Fuzz;
using Tessel::Tests::CraftedContainer;
using Tessel::Tests::noise;
using Tessel::Tests::readFile;
using Tessel::Tests::writeFile;
using namespace Qt::Literals::StringLiterals;

namespace {

// The operations that the first byte selects, run in this order.
enum Operation : std::uint8_t {
    Export = 1,
    OpenCopies = 2,
    MoveFile = 4,
    RenameFile = 8,
    Folders = 16,
    Import = 32,
    Compact = 64,
    ChangeCopies = 128
};

// More files would only repeat what the first ones show.
constexpr qsizetype MostFilesTried = 8;
// Hostile blocks may overlap, so that a rebuilt container is larger than the original.
constexpr rlim_t LargestFile = rlim_t(48) << 20U;

const QByteArray NewContents = "a tiny file"_ba;

// The valid blocks that an index can refer to: four sealed blocks, one after the other, each under
// a nonce of one repeated letter. The seeds and the dictionary know their offsets.
struct SealedBlock {
    qint64 offset = 0;
    QByteArray plain;
    QByteArray nonce;
};

const QList<SealedBlock>& sealedBlocks() {
    static const QList<SealedBlock> blocks = [] {
        QList<SealedBlock> list;
        qint64 offset = CraftedContainer().payloadOffset();
        for (const qsizetype size : {1, 100, 5000, 70000}) {
            const char letter = static_cast<char>('A' + list.size());
            list.append({offset, noise(size, static_cast<quint64>(size)), QByteArray(24, letter)});
            offset += size + CraftedContainer::TagBytes;
        }
        return list;
    }();
    return blocks;
}

const CraftedContainer& container() {
    static const CraftedContainer crafted = [] {
        CraftedContainer made;
        for (const SealedBlock& block : sealedBlocks()) {
            made.addPayload(made.sealBlock(block.plain, block.nonce));
        }
        return made.addPayload(QByteArray(64, 'x'));
    }();
    return crafted;
}

// The folders of a run: one for the container and a file to import, the other for the system's
// temporary folder.
class Places {
public:
    Places() : m_folder(QDir::tempPath() + u"/tessel-fuzz-XXXXXX"_s) {
        // Makes a write fail before it fills the machine's disk.
        const rlimit limit{LargestFile, LargestFile};
        expect(m_folder.isValid() && QDir(m_folder.path()).mkdir(u"tmp"_s) &&
                   QDir(m_folder.path()).mkdir(u"drive"_s) &&
                   ::setrlimit(RLIMIT_FSIZE, &limit) == 0 &&
                   std::signal(SIGXFSZ, SIG_IGN) != SIG_ERR &&
                   qputenv("TMPDIR", QFile::encodeName(temporary())),
               "the folders of the run can be made");
    }

    [[nodiscard]] QString root() const { return m_folder.path(); }
    [[nodiscard]] QString temporary() const { return m_folder.filePath(u"tmp"_s); }
    [[nodiscard]] QString workspaces() const { return temporary() + u"/Tessel"_s; }
    [[nodiscard]] QString drive(const QString& name) const {
        return m_folder.path() + u"/drive/"_s + name;
    }
    [[nodiscard]] QString containerPath() const { return drive(u"tessel.tvlt"_s); }

private:
    QTemporaryDir m_folder;
};

const Places& places() {
    static const Places made;
    return made;
}

QStringList namesIn(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                  QDir::NoDotAndDotDot);
}

std::optional<VaultFileEntry> storedFile(const SecureFileIndex& index, const QString& path) {
    const QList<VaultFileEntry> entries = index.entries();
    const auto found =
        std::find_if(entries.cbegin(), entries.cend(), [&path](const VaultFileEntry& entry) {
            return entry.vaultPath.compare(path, Qt::CaseInsensitive) == 0;
        });
    return found == entries.cend() ? std::nullopt : std::optional<VaultFileEntry>(*found);
}

// The file's bytes, if all of its blocks are valid ones; otherwise nothing.
std::optional<QByteArray> rightBytes(const VaultFileEntry& entry) {
    QByteArray bytes;
    for (const VaultFileBlock& block : entry.blocks) {
        const QList<SealedBlock>& sealed = sealedBlocks();
        const auto found =
            std::find_if(sealed.cbegin(), sealed.cend(), [&block](const SealedBlock& good) {
                return good.offset == block.offset && good.nonce == block.nonce &&
                       good.plain.size() == block.plainSize &&
                       good.plain.size() + CraftedContainer::TagBytes == block.encryptedSize;
            });
        if (found == sealed.cend()) {
            return std::nullopt;
        }
        bytes += found->plain;
    }
    return bytes;
}

// A session on the hostile container.
class Session {
public:
    explicit Session(std::uint8_t selector) : m_selector(selector) {}

    [[nodiscard]] bool unlock() {
        if (!m_vault.unlockVault(places().containerPath(), container().keys.password)) {
            return false;
        }
        m_files = m_vault.fileIndex().entries().mid(0, MostFilesTried);
        return true;
    }

    void perform(std::uint8_t operations) {
        const std::array<std::pair<Operation, void (Session::*)()>, 7> steps{
            {{Export, &Session::exportFiles},
             {OpenCopies, &Session::openCopies},
             {MoveFile, &Session::moveFile},
             {RenameFile, &Session::renameFile},
             {Folders, &Session::changeFolders},
             {Import, &Session::importFile},
             {Compact, &Session::compact}}};
        for (const auto& [operation, step] : steps) {
            if ((operations & operation) != 0) {
                (this->*step)();
            }
        }
        checkContainer();
        lock((operations & ChangeCopies) != 0);
    }

private:
    [[nodiscard]] QString chosenPath() const {
        return m_files.isEmpty() ? u"a"_s : m_files.at(m_selector % m_files.size()).vaultPath;
    }

    [[nodiscard]] QString chosenFolder() const {
        const QList<VaultDirectoryEntry> folders = m_vault.fileIndex().directories();
        return folders.isEmpty() ? QString() : folders.at(m_selector % folders.size()).path;
    }

    // Runs an operation on the index, which either fails and changes nothing or keeps the number of
    // files.
    template <typename Change>
    void change(qsizetype filesAdded, Change operation) {
        const QByteArray before = m_vault.fileIndex().toJson();
        const qsizetype filesBefore = m_vault.fileIndex().entries().size();
        if (operation()) {
            expect(m_vault.fileIndex().entries().size() == filesBefore + filesAdded,
                   "no file is lost");
        } else {
            expect(m_vault.fileIndex().toJson() == before, "a refused operation changes nothing");
        }
    }

    void exportFiles() {
        for (const VaultFileEntry& entry : m_files) {
            const std::optional<VaultFileEntry> found =
                storedFile(m_vault.fileIndex(), entry.vaultPath);
            const std::optional<QByteArray> expected = rightBytes(*found);
            QBuffer plain;
            expect(plain.open(QIODevice::WriteOnly), "a buffer opens");
            const bool written = m_vault.writeVaultFileToDevice(entry.vaultPath, &plain);
            expect(written == expected.has_value(), "what can be exported is");
            expect(!written || plain.data() == *expected, "an export holds the right bytes");
        }
        const QString path = chosenPath();
        const QString destination = places().drive(u"exported"_s);
        const WriteGuard guard(QFile::encodeName(places().drive({}).chopped(1)));
        if (m_vault.exportFile(path, destination)) {
            const std::optional<VaultFileEntry> entry =
                storedFile(m_vault.fileIndex(), normalizedVaultPath(path));
            expect(entry && readFile(destination) == rightBytes(*entry).value(),
                   "an exported file holds the right bytes");
        }
        QFile::remove(destination);
    }

    void openCopies() {
        const WriteGuard guard(QFile::encodeName(places().workspaces()));
        for (const VaultFileEntry& entry : m_files) {
            const std::optional<VaultFileEntry> found =
                storedFile(m_vault.fileIndex(), normalizedVaultPath(entry.vaultPath));
            QString copy;
            if (!m_vault.prepareFileForEditing(entry.vaultPath, &copy)) {
                expect(copy.isEmpty(), "a copy that was not made has no path");
                continue;
            }
            expect(found && rightBytes(*found), "only what can be exported is opened");
            m_copies.insert(copy, *rightBytes(*found));
        }
        for (auto copy = m_copies.cbegin(); copy != m_copies.cend(); ++copy) {
            expect(readFile(copy.key()) == copy.value(), "a copy holds its own file's bytes");
        }
    }

    void moveFile() {
        change(0, [this] { return m_vault.moveFile(chosenPath(), chosenFolder()); });
        change(0, [this] { return m_vault.moveFile(chosenPath(), {}); });
    }

    void renameFile() {
        change(0, [this] { return m_vault.renameFile(chosenPath(), u"outro/não existe/x"_s); });
    }

    void changeFolders() {
        change(0, [this] { return m_vault.createDirectory(chosenPath() + u"/b"_s); });
        const QByteArray before = m_vault.fileIndex().toJson();
        // Folders that differ only in letter case become one, and so do their files.
        if (!m_vault.renameDirectory(chosenFolder(), u"nova/pasta"_s)) {
            expect(m_vault.fileIndex().toJson() == before, "a refused operation changes nothing");
        }
        change(0, [this] { return m_vault.deleteDirectory(chosenFolder()); });
        change(-1, [this] { return m_vault.deleteFile(chosenPath()); });
    }

    void importFile() {
        const QString source = places().drive(u"source"_s);
        expect(writeFile(source, NewContents), "a file to import is written");
        const QByteArray before = m_vault.fileIndex().toJson();
        const QString path = chosenPath();
        if (!m_vault.importFile(source, path)) {
            expect(m_vault.fileIndex().toJson() == before, "a refused import changes nothing");
            return;
        }
        QBuffer plain;
        expect(plain.open(QIODevice::WriteOnly) &&
                   m_vault.writeVaultFileToDevice(normalizedVaultPath(path), &plain) &&
                   plain.data() == NewContents,
               "an imported file can be exported");
    }

    [[nodiscard]] QHash<QString, QByteArray> exportedFiles() const {
        QHash<QString, QByteArray> contents;
        for (const VaultFileEntry& entry : m_files) {
            QBuffer plain;
            expect(plain.open(QIODevice::WriteOnly), "a buffer opens");
            if (m_vault.writeVaultFileToDevice(entry.vaultPath, &plain)) {
                contents.insert(entry.vaultPath, plain.data());
            }
        }
        return contents;
    }

    void compact() {
        const QHash<QString, QByteArray> before = exportedFiles();
        const auto progress = [](qint64 done, qint64 total, const QString& /*name*/) {
            static_cast<void>(done);
            static_cast<void>(total);
        };
        QString error;
        change(0, [&] { return m_vault.compactVault(progress, &error); });
        expect(error.isEmpty(), "the container is still on the drive");
        expect(exportedFiles() == before, "every file is as before compaction");
    }

    // Another session finds the index that this one has in memory.
    void checkContainer() const {
        VaultManager other;
        expect(other.unlockVault(places().containerPath(), container().keys.password),
               "the container opens again");
        expect(other.fileIndex().toJson() == m_vault.fileIndex().toJson(),
               "the container holds what the session believes");
        expect(other.lockVault(), "the other session ends");
    }

    void lock(bool afterChanges) {
        if (afterChanges) {
            for (auto copy = m_copies.cbegin(); copy != m_copies.cend(); ++copy) {
                QFile file(copy.key());
                expect(file.open(QIODevice::ReadWrite | QIODevice::Append) &&
                           file.write("+") == 1 &&
                           file.setFileTime(QDateTime::currentDateTime().addSecs(60),
                                            QFileDevice::FileModificationTime),
                       "a copy can be changed");
            }
        }
        if (!m_vault.lockVault()) {
            expect(m_vault.state() == VaultState::Unlocked, "only a lost copy keeps a vault open");
            QDir(places().workspaces()).removeRecursively();
            return;
        }
        expect(namesIn(places().workspaces()).isEmpty(), "no decrypted copy is left");
    }

    std::uint8_t m_selector;
    VaultManager m_vault;
    QList<VaultFileEntry> m_files;
    QHash<QString, QByteArray> m_copies;
};

// A JSON array becomes the rows of a record after a torn header, bytes after PackedMark its packed
// index; everything else becomes an index.
CraftedContainer containerWith(const QByteArray& text) {
    constexpr char PackedMark = '\xfe';
    CraftedContainer crafted = container();
    const auto torn = [&](const QByteArray& record) {
        return crafted.addPayload(record).setHeaderJson("torn");
    };
    if (text.startsWith('[')) {
        return torn(container().withRows(text).earlierRedoRecord());
    }
    if (text.startsWith(PackedMark)) {
        return torn(container().withPacked(text.sliced(1)).redoRecord());
    }
    return crafted.setIndexJson(text);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const WriteGuard guard(QFile::encodeName(places().root()));
    Input input(data, size);
    const std::uint8_t operations = input.takeByte();
    const std::uint8_t selector = input.takeByte();
    expect(containerWith(input.takeRest()).writeTo(places().containerPath()),
           "the container is written");

    Session session(selector);
    if (session.unlock()) {
        session.perform(operations);
    }
    const QStringList left = namesIn(places().temporary());
    expect(left.isEmpty() || left == QStringList(u"Tessel"_s),
           "nothing is left in the temporary location");
    return 0;
}
