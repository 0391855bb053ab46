// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Reports the contents of containers. Each line of its input is a request, with fields separated
// by tabs; each gets one line of JSON.
//
//     make   PATH                   writes the vault that the sweeps start from
//     look   PATH PASSWORD...       opens it with the first password that works: every folder, and
//                                   every file with the SHA-256 of its exported bytes, or null if
//                                   it cannot be exported
//     change PATH PASSWORD...       creates the folder "tambem" there, and looks again

#include "core/VaultManager.h"
#include "support/CraftedContainer.h"
#include "support/Files.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>
#include <QIODevice>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

/// Discards what is written to it and keeps its digest.
class DigestDevice : public QIODevice {
public:
    [[nodiscard]] QString hex() const { return QString::fromLatin1(m_hash.result().toHex()); }

protected:
    qint64 readData(char* /*data*/, qint64 /*size*/) override { return -1; }
    qint64 writeData(const char* data, qint64 size) override {
        m_hash.addData(QByteArrayView(data, size));
        return size;
    }

private:
    QCryptographicHash m_hash{QCryptographicHash::Sha256};
};

// So many folders that the header spans several sectors.
bool make(const QString& path) {
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
    return vault.writeTo(path);
}

QJsonObject contentsOf(const VaultManager& vault) {
    QJsonArray folders;
    const QList<VaultDirectoryEntry> directories = vault.fileIndex().directories();
    for (const VaultDirectoryEntry& folder : directories) {
        folders.append(folder.path);
    }
    QJsonObject files;
    const QList<VaultFileEntry> entries = vault.fileIndex().entries();
    for (const VaultFileEntry& entry : entries) {
        DigestDevice device;
        const bool given = device.open(QIODevice::WriteOnly) &&
                           vault.writeVaultFileToDevice(entry.vaultPath, &device) &&
                           device.hex() == QString::fromLatin1(entry.sha256.toHex());
        files.insert(entry.vaultPath, given ? QJsonValue(device.hex()) : QJsonValue());
    }
    return {{u"folders"_s, folders}, {u"files"_s, files}};
}

QJsonObject look(const QStringList& arguments, bool change) {
    const QString path = arguments.value(0);
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        VaultManager vault;
        if (!vault.unlockVault(path, arguments.at(i).toUtf8())) {
            continue;
        }
        const bool changed = !change || vault.createDirectory(u"tambem"_s);
        QJsonObject found = contentsOf(vault);
        found.insert(u"password", i - 1);
        found.insert(u"changed", changed);
        found.insert(u"locked", vault.lockVault());
        found.insert(u"bytes", QFile(path).size());
        return found;
    }
    return {};
}

QJsonObject answer(const QStringList& request) {
    const QString what = request.value(0);
    if (what == "make"_L1) {
        return {{u"made"_s, make(request.value(1))}};
    }
    return look(request.mid(1), what == "change"_L1);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QFile input;
    QFile output;
    if (!input.open(stdin, QIODevice::ReadOnly) || !output.open(stdout, QIODevice::WriteOnly)) {
        return 1;
    }
    while (true) {
        const QByteArray line = input.readLine();
        if (line.isEmpty()) {
            return 0;
        }
        const QStringList request = QString::fromUtf8(line.trimmed()).split(QLatin1Char('\t'));
        const QByteArray json = QJsonDocument(answer(request)).toJson(QJsonDocument::Compact);
        if (output.write(json + '\n') != json.size() + 1 || !output.flush()) {
            return 1;
        }
    }
}
