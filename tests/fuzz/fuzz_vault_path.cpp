// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Hostile vault paths: the canonical form is compared with a second, literal implementation, and
// the functions that split paths with each other.

#include "core/SecureFileIndex.h"
#include "core/VaultPath.h"
#include "fuzz/FuzzTarget.h"

#include <QStringList>

using namespace Tessel::Core;
using namespace Tessel::Fuzz;
using namespace Qt::Literals::StringLiterals;

namespace {

// Plain 16-bit units include halves of surrogate pairs and every control character; UTF-8 is what
// files and dialogs give.
QString textFrom(Input input) {
    const bool isUtf8 = input.takeByte() % 2 == 0;
    const QByteArray bytes = input.takeRest();
    if (isUtf8) {
        return QString::fromUtf8(bytes);
    }
    QString text;
    for (qsizetype i = 0; i + 1 < bytes.size(); i += 2) {
        text += QChar(static_cast<uchar>(bytes.at(i)), static_cast<uchar>(bytes.at(i + 1)));
    }
    return text;
}

QString secondNormalization(QString path) {
    path = path.trimmed();
    path.replace(QChar(u'\\'), QChar(u'/'));
    while (path.startsWith(u'/')) {
        path.remove(0, 1);
    }
    while (path.endsWith(u'/')) {
        path.chop(1);
    }
    QString result;
    QString piece;
    for (const QChar c : path + u'/') {
        if (c != u'/') {
            piece += c;
            continue;
        }
        if (piece.isEmpty()) {
            continue;
        }
        piece = piece.trimmed();
        if (piece.isEmpty() || piece == "."_L1 || piece == ".."_L1) {
            return {};
        }
        result += result.isEmpty() ? piece : u'/' + piece;
        piece.clear();
    }
    return result;
}

void checkCanonical(const QString& path) {
    expect(normalizedVaultPath(path) == path, "the canonical form is its own canonical form");
    expect(!path.startsWith(u'/') && !path.endsWith(u'/') && !path.contains(u'\\'),
           "a canonical path has no separator at its ends and no backslash");
    const QStringList components = path.split(u'/');
    for (const QString& component : components) {
        expect(!component.isEmpty() && component != "."_L1 && component != ".."_L1,
               "a canonical path has no empty component, no dot and no two dots");
        expect(component.trimmed() == component, "components have no blanks at their ends");
    }
}

void checkParts(const QString& path) {
    const QString parent = parentVaultPath(path);
    const QString name = vaultBaseName(path);
    expect(!name.isEmpty() && !name.contains(u'/'), "a path ends in a name");
    expect((parent.isEmpty() ? name : parent + u'/' + name) == path,
           "a path is its parent and its name");
    expect(!pathIsInsideDirectory(path, path), "a folder is not inside itself");
    if (!parent.isEmpty()) {
        checkCanonical(parent);
        expect(pathIsInsideDirectory(path, parent), "a path lies in its parent");
        expect(!pathIsInsideDirectory(parent, path), "a parent does not lie in its child");
    }
}

void checkParents(const QString& path) {
    SecureFileIndex index;
    ensureParentDirectories(&index, path);
    expect(index.directories().size() == path.count(u'/'), "each ancestor is added once");
    for (QString folder = parentVaultPath(path); !folder.isEmpty();
         folder = parentVaultPath(folder)) {
        expect(indexContainsDirectoryPath(index, folder), "an ancestor is found");
    }
    const QByteArray json = index.toJson();
    ensureParentDirectories(&index, path);
    expect(index.toJson() == json, "nothing is added twice");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString text = textFrom(Input(data, size));
    const QString path = normalizedVaultPath(text);
    expect(path == secondNormalization(text), "both implementations agree");
    // These take the paths of a hostile index unchanged.
    static_cast<void>(parentVaultPath(text));
    static_cast<void>(vaultBaseName(text));
    expect(sameVaultPath(text, text), "a path equals itself");
    if (path.isEmpty()) {
        return 0;
    }
    checkCanonical(path);
    checkParts(path);
    checkParents(path);
    return 0;
}
