// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Carries out vault operations for tests that need them in another process or from another
// language.
//
//     vault_tool CONTAINER PASSWORD [OPERATION [ARGUMENT...] then] OPERATION [ARGUMENT...]
//
// unlocks the vault, runs the operations, and prints what became of the last one: result, state,
// text and, where the vault was unlocked for it, whether the index in memory is the "same" or
// "new". Only the last one is between the two calls that tracers see. TESSEL_TRY_AGAIN: if the
// operation failed, a new folder "depois" follows, and "again" is its result. TESSEL_FILE_LIMIT: no
// file can be written beyond this size, as on a full drive.
//
//     vault_tool
//
// runs the operations that it reads, one JSON array on each line, in one session, and answers each
// with a line of JSON: the "result" and whatever else the operation reports.
//
// TESSEL_CHEAP_DERIVATION: see deriveCheaply().

#include "core/VaultManager.h"
#include "support/CheapDerivation.h"
#include "support/CraftedContainer.h"
#include "support/Files.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <csignal>

#include <sys/resource.h>
#include <sys/uio.h>
#include <unistd.h>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

struct Session {
    VaultManager vault;
    /// What the last operation reported, besides its result.
    QJsonObject report;
};

using Arguments = QStringList;

struct Operation {
    bool (*run)(Session&, const Arguments&);
    /// It works on a locked vault; its first arguments are the container and the password.
    bool needsNoVault = false;
};

// --- What is reported ---------------------------------------------------------------------------

QString dateText(const QDateTime& date) {
    return date.isValid() ? date.toUTC().toString(Qt::ISODateWithMs) : QString();
}

QJsonObject describe(const VaultFileEntry& entry) {
    QJsonArray blocks;
    for (const VaultFileBlock& block : entry.blocks) {
        blocks.append(QJsonArray{block.offset, block.plainSize, block.encryptedSize,
                                 QString::fromLatin1(block.nonce.toHex())});
    }
    return {{u"path"_s, entry.vaultPath},
            {u"size"_s, entry.sizeBytes},
            {u"modified"_s, dateText(entry.lastModifiedUtc)},
            {u"sha256"_s, QString::fromLatin1(entry.sha256.toHex())},
            {u"id"_s, entry.id},
            {u"blocks"_s, blocks}};
}

/// Every entry of the index.
bool reportIndex(Session& session, const Arguments& /*none*/) {
    QJsonArray files;
    const QList<VaultFileEntry> entries = session.vault.fileIndex().entries();
    for (const VaultFileEntry& entry : entries) {
        files.append(describe(entry));
    }
    QJsonArray folders;
    const QList<VaultDirectoryEntry> directories = session.vault.fileIndex().directories();
    for (const VaultDirectoryEntry& folder : directories) {
        folders.append(QJsonObject{{u"path"_s, folder.path},
                                   {u"created"_s, dateText(folder.createdUtc)},
                                   {u"modified"_s, dateText(folder.modifiedUtc)}});
    }
    session.report = {{u"files"_s, files}, {u"folders"_s, folders}};
    return true;
}

/// Discards what is written to it and keeps its digest.
class DigestDevice : public QIODevice {
public:
    [[nodiscard]] QByteArray digest() const { return m_hash.result(); }

protected:
    qint64 readData(char* /*data*/, qint64 /*size*/) override { return -1; }
    qint64 writeData(const char* data, qint64 size) override {
        m_hash.addData(QByteArrayView(data, size));
        return size;
    }

private:
    QCryptographicHash m_hash{QCryptographicHash::Sha256};
};

bool isWhole(const VaultManager& vault, const VaultFileEntry& entry) {
    DigestDevice device;
    return device.open(QIODevice::WriteOnly) &&
           vault.writeVaultFileToDevice(entry.vaultPath, &device) &&
           device.digest() == entry.sha256;
}

/// Every folder, and every file with its digest, or null if it does not come out whole.
QJsonObject contentsOf(const VaultManager& vault) {
    QJsonArray folders;
    const QList<VaultDirectoryEntry> directories = vault.fileIndex().directories();
    for (const VaultDirectoryEntry& folder : directories) {
        folders.append(folder.path);
    }
    QJsonObject files;
    const QList<VaultFileEntry> entries = vault.fileIndex().entries();
    for (const VaultFileEntry& entry : entries) {
        files.insert(entry.vaultPath, isWhole(vault, entry)
                                          ? QJsonValue(QString::fromLatin1(entry.sha256.toHex()))
                                          : QJsonValue());
    }
    return {{u"folders"_s, folders}, {u"files"_s, files}};
}

// Opens the container with the first of the passwords that works, in a session of its own.
bool look(Session& session, const Arguments& arguments, bool change) {
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        VaultManager vault;
        if (vault.unlockVault(arguments.first(), arguments.at(i).toUtf8())) {
            const bool changed = !change || vault.createDirectory(u"tambem"_s);
            session.report = contentsOf(vault);
            session.report.insert(u"password", i - 1);
            return changed && vault.lockVault();
        }
    }
    return false;
}

// --- Operations ---------------------------------------------------------------------------------

/// Writes the vault that the fault sweeps start from, with so many folders that its header spans
/// several sectors.
bool craft(Session& /*session*/, const Arguments& arguments) {
    constexpr int Folders = 16;
    CraftedContainer vault(11);
    vault.addFile(u"docs/a.bin"_s, noise(70000, 1), 16384);
    vault.addFile(u"b.txt"_s, "conteudo de b"_ba);
    vault.leaveGap(30000);
    vault.addFile(u"c.bin"_s, noise(9000, 2));
    vault.addFile(u"vazio"_s, {});
    vault.addFolder(u"docs"_s);
    for (int i = 0; i < Folders; ++i) {
        vault.addFolder(u"pasta %1"_s.arg(i));
    }
    return vault.writeTo(arguments.value(0));
}

/// Opens a copy and changes it, so that locking has something to take back.
bool edit(Session& session, const Arguments& arguments) {
    QString path;
    if (!session.vault.prepareFileForEditing(arguments.value(0), &path)) {
        return false;
    }
    QFile copy(path);
    return copy.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           copy.write(arguments.value(1).toUtf8()) > 0 && copy.flush() &&
           copy.setFileTime(QFileInfo(path).lastModified().addSecs(10),
                            QFileDevice::FileModificationTime);
}

bool openCopy(Session& session, const Arguments& arguments) {
    QString path = u"untouched"_s;
    const bool opened = session.vault.prepareFileForEditing(arguments.value(0), &path);
    session.report.insert(u"text", path);
    return opened;
}

bool compact(Session& session, const Arguments& /*none*/) {
    QString error;
    const bool compacted = session.vault.compactVault({}, &error);
    session.report.insert(u"text", error);
    return compacted;
}

QByteArray utf8(const Arguments& arguments, qsizetype at) {
    return arguments.value(at).toUtf8();
}

using S = Session&;
using A = const Arguments&;

const QHash<QString, Operation>& operations() {
    // clang-format off
    static const QHash<QString, Operation> table{
        {u"craft"_s, {craft, true}},
        {u"look"_s, {[](S s, A a) { return look(s, a, false); }, true}},
        {u"change"_s, {[](S s, A a) { return look(s, a, true); }, true}},
        {u"create"_s, {[](S s, A a) { return s.vault.createVault(a.value(0), utf8(a, 1)); }, true}},
        {u"unlock"_s, {[](S s, A a) { return s.vault.unlockVault(a.value(0), utf8(a, 1)); }, true}},
        {u"password"_s,
         {[](S s, A a) { return s.vault.changePassword(a.value(0), utf8(a, 1), utf8(a, 2)); }, true}},
        {u"lock"_s, {[](S s, A) { return s.vault.lockVault(); }}},
        {u"save"_s, {[](S s, A) { return s.vault.saveIndex(s.vault.fileIndex()); }}},
        {u"import"_s, {[](S s, A a) { return s.vault.importFile(a.value(0), a.value(1)); }}},
        {u"export"_s, {[](S s, A a) { return s.vault.exportFile(a.value(0), a.value(1)); }}},
        {u"delete"_s, {[](S s, A a) { return s.vault.deleteFile(a.value(0)); }}},
        {u"rename"_s, {[](S s, A a) { return s.vault.renameFile(a.value(0), a.value(1)); }}},
        {u"move"_s, {[](S s, A a) { return s.vault.moveFile(a.value(0), a.value(1)); }}},
        {u"mkdir"_s, {[](S s, A a) { return s.vault.createDirectory(a.value(0)); }}},
        {u"rename-folder"_s,
         {[](S s, A a) { return s.vault.renameDirectory(a.value(0), a.value(1)); }}},
        {u"delete-folder"_s, {[](S s, A a) { return s.vault.deleteDirectory(a.value(0)); }}},
        {u"compact"_s, {compact}},
        {u"open"_s, {openCopy}},
        {u"edit"_s, {edit}},
        {u"index"_s, {reportIndex}},
    };
    // clang-format on
    return table;
}

// --- One operation ------------------------------------------------------------------------------

enum ExitCode { Done = 0, Misused = 2, NotUnlocked = 3, Silent = 4 };

// A call that does nothing and that a tracer sees.
void mark(const char* path) {
    static_cast<void>(::rmdir(path));
}

bool limitFileSize() {
    bool isLimited = false;
    const int bytes = qEnvironmentVariableIntValue("TESSEL_FILE_LIMIT", &isLimited);
    const rlimit limit{static_cast<rlim_t>(bytes), static_cast<rlim_t>(bytes)};
    // Without this the first write beyond the limit ends the process.
    std::signal(SIGXFSZ, SIG_IGN);
    return !isLimited || ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

// Not through write(), which may be made to fail.
bool say(const QByteArray& text) {
    auto* bytes = const_cast<char*>(text.data());
    const struct iovec piece = {bytes, static_cast<std::size_t>(text.size())};
    return ::writev(STDOUT_FILENO, &piece, 1) == text.size();
}

QByteArray line(const char* key, const char* value) {
    return QByteArray(key) + '=' + value + '\n';
}

const char* word(bool value) {
    return value ? "true" : "false";
}

/// Runs all but the last of the operations that "then" separates, and leaves that one in the list.
bool prepare(Session& session, Arguments* arguments) {
    for (qsizetype then = 0; (then = arguments->indexOf(u"then"_s)) >= 0;) {
        const auto operation = operations().constFind(arguments->first());
        if (operation == operations().constEnd() ||
            !operation->run(session, arguments->mid(1, then - 1))) {
            return false;
        }
        arguments->remove(0, then + 1);
    }
    return true;
}

bool runBetweenMarks(Session& session, const Operation& operation, const Arguments& arguments) {
    session.report = {};
    mark("/tessel-begin");
    const bool result = operation.run(session, arguments);
    mark("/tessel-end");
    return result;
}

QByteArray outcome(Session& session, bool result) {
    const bool isUnlocked = session.vault.state() == VaultState::Unlocked;
    QByteArray said = line("result", word(result)) +
                      line("state", isUnlocked ? "unlocked" : "locked") +
                      line("text", session.report.value(u"text").toString().toUtf8());
    if (!result && isUnlocked && qEnvironmentVariableIsSet("TESSEL_TRY_AGAIN")) {
        said += line("again", word(session.vault.createDirectory(u"depois"_s)));
    }
    return said;
}

int runOne(const QString& container, const QString& password, Arguments arguments) {
    Session session;
    const auto operation =
        operations().constFind(arguments.value(arguments.lastIndexOf(u"then"_s) + 1));
    if (operation == operations().constEnd() || !limitFileSize()) {
        return Misused;
    }
    if (operation->needsNoVault) {
        const bool result =
            runBetweenMarks(session, *operation, Arguments{container, password} + arguments.mid(1));
        return say(outcome(session, result)) ? Done : Silent;
    }
    if (!session.vault.unlockVault(container, password.toUtf8()) || !prepare(session, &arguments)) {
        return say("unlocked=no\n") ? NotUnlocked : Silent;
    }
    const QByteArray before = session.vault.fileIndex().toJson();
    const bool result = runBetweenMarks(session, *operation, arguments.mid(1));
    const bool isSame = session.vault.fileIndex().toJson() == before;
    return say(line("index", isSame ? "same" : "new") + outcome(session, result)) ? Done : Silent;
}

// --- Many operations ----------------------------------------------------------------------------

QJsonObject answerTo(Session& session, const QByteArray& command) {
    Arguments texts;
    const QJsonArray array = QJsonDocument::fromJson(command).array();
    for (const QJsonValue& value : array) {
        texts.append(value.toString());
    }
    const auto operation = operations().constFind(texts.value(0));
    if (operation == operations().constEnd()) {
        return {{u"error"_s, u"no operation %1"_s.arg(texts.value(0))}};
    }
    session.report = {};
    const bool result = operation->run(session, texts.mid(1));
    session.report.insert(u"result", result);
    return session.report;
}

int runMany() {
    QFile input;
    QFile output;
    if (!input.open(stdin, QIODevice::ReadOnly) || !output.open(stdout, QIODevice::WriteOnly)) {
        return Silent;
    }
    Session session;
    while (true) {
        const QByteArray command = input.readLine();
        if (command.isEmpty()) {
            return Done;
        }
        const QByteArray json =
            QJsonDocument(answerTo(session, command)).toJson(QJsonDocument::Compact) + '\n';
        if (output.write(json) != json.size() || !output.flush()) {
            return Silent;
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    const Arguments arguments = QCoreApplication::arguments().mid(1);
    if (qEnvironmentVariableIsSet("TESSEL_CHEAP_DERIVATION")) {
        deriveCheaply();
    }
    if (arguments.isEmpty()) {
        return runMany();
    }
    return arguments.size() < 3 ? Misused
                                : runOne(arguments.at(0), arguments.at(1), arguments.mid(2));
}
