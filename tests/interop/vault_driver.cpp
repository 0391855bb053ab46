// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/VaultManager.h"

#include <QCoreApplication>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <cstdio>
#include <functional>

using namespace Tessel::Core;
using namespace Qt::Literals::StringLiterals;

// Runs the engine's operations from a script, so that tests in another language can use it. The
// script is a JSON array of commands, each an array of an operation and its arguments; an operation
// with a "!" before its name must fail. The program exits with 1 at the first command with an
// unexpected result.

namespace {

using Arguments = QStringList;
using Operation = std::function<bool(const Arguments&)>;

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

bool writeIndex(const SecureFileIndex& index, const QString& path) {
    QJsonArray files;
    const QList<VaultFileEntry> entries = index.entries();
    for (const VaultFileEntry& entry : entries) {
        files.append(describe(entry));
    }
    QJsonArray folders;
    const QList<VaultDirectoryEntry> directories = index.directories();
    for (const VaultDirectoryEntry& folder : directories) {
        folders.append(QJsonObject{{u"path"_s, folder.path},
                                   {u"created"_s, dateText(folder.createdUtc)},
                                   {u"modified"_s, dateText(folder.modifiedUtc)}});
    }
    const QByteArray json =
        QJsonDocument(QJsonObject{{u"files"_s, files}, {u"folders"_s, folders}}).toJson();
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(json) == json.size();
}

QHash<QString, Operation> operationsOf(VaultManager& vault) {
    return {
        {u"create"_s,
         [&](const Arguments& a) {
             return vault.createVault(a.at(0), a.at(1).toUtf8());
         }},
        {u"unlock"_s,
         [&](const Arguments& a) {
             return vault.unlockVault(a.at(0), a.at(1).toUtf8());
         }},
        {u"lock"_s,
         [&](const Arguments&) {
             return vault.lockVault();
         }},
        {u"password"_s,
         [&](const Arguments& a) {
             return vault.changePassword(a.at(0), a.at(1).toUtf8(), a.at(2).toUtf8());
         }},
        {u"import"_s,
         [&](const Arguments& a) {
             return vault.importFile(a.at(0), a.at(1));
         }},
        {u"export"_s,
         [&](const Arguments& a) {
             return vault.exportFile(a.at(0), a.at(1));
         }},
        {u"move"_s,
         [&](const Arguments& a) {
             return vault.moveFile(a.at(0), a.at(1));
         }},
        {u"rename"_s,
         [&](const Arguments& a) {
             return vault.renameFile(a.at(0), a.at(1));
         }},
        {u"delete"_s,
         [&](const Arguments& a) {
             return vault.deleteFile(a.at(0));
         }},
        {u"mkdir"_s,
         [&](const Arguments& a) {
             return vault.createDirectory(a.at(0));
         }},
        {u"mvdir"_s,
         [&](const Arguments& a) {
             return vault.renameDirectory(a.at(0), a.at(1));
         }},
        {u"rmdir"_s,
         [&](const Arguments& a) {
             return vault.deleteDirectory(a.at(0));
         }},
        {u"compact"_s,
         [&](const Arguments&) {
             return vault.compactVault({}, nullptr);
         }},
        {u"index"_s,
         [&](const Arguments& a) {
             return writeIndex(vault.fileIndex(), a.at(0));
         }},
    };
}

Arguments textsOf(const QJsonArray& array) {
    Arguments texts;
    for (const QJsonValue& value : array) {
        texts.append(value.toString());
    }
    return texts;
}

bool runCommand(const QHash<QString, Operation>& operations, Arguments command) {
    QString name = command.takeFirst();
    const bool mustFail = name.startsWith(QLatin1Char('!'));
    name = name.mid(mustFail ? 1 : 0);
    const auto operation = operations.constFind(name);
    if (operation != operations.constEnd() && (*operation)(command) != mustFail) {
        return true;
    }
    std::fprintf(stderr, "%s (%s) did not end as it should\n", qPrintable(name),
                 qPrintable(command.join(u", "_s)));
    return false;
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    QFile script(QCoreApplication::arguments().value(1));
    if (!script.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "usage: vault_driver SCRIPT\n");
        return 2;
    }
    VaultManager vault;
    const QHash<QString, Operation> operations = operationsOf(vault);
    const QJsonArray commands = QJsonDocument::fromJson(script.readAll()).array();
    for (const QJsonValue& command : commands) {
        if (!runCommand(operations, textsOf(command.toArray()))) {
            return 1;
        }
    }
    return commands.isEmpty() ? 2 : 0;
}
