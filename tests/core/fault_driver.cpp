// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// One vault operation in a process of its own, for faults that strike a whole process: system
// calls that strace makes fail, a disk that is full from the start.
//
//     fault_driver CONTAINER PASSWORD OPERATION [ARGUMENT...]
//
// It prints what the operation returned and whether the index in memory is what it was.

#include "core/VaultManager.h"

#include <QCoreApplication>
#include <QMap>
#include <QTextStream>

#include <functional>

using namespace Tessel::Core;

namespace {

struct Session {
    VaultManager vault;
    QString container;
    QByteArray password;
    QStringList arguments;
    QString error;

    QString argument(qsizetype at) const { return arguments.value(at); }
};

using Operation = std::function<bool(Session&)>;

const QMap<QString, Operation>& operations() {
    static const QMap<QString, Operation> table{
        {QStringLiteral("unlock"),
         [](Session&) {
             return true;
         }},
        {QStringLiteral("lock"),
         [](Session& s) {
             return s.vault.lockVault();
         }},
        {QStringLiteral("save"),
         [](Session& s) {
             return s.vault.saveIndex(s.vault.fileIndex());
         }},
        {QStringLiteral("import"),
         [](Session& s) {
             return s.vault.importFile(s.argument(0), s.argument(1));
         }},
        {QStringLiteral("export"),
         [](Session& s) {
             return s.vault.exportFile(s.argument(0), s.argument(1));
         }},
        {QStringLiteral("delete"),
         [](Session& s) {
             return s.vault.deleteFile(s.argument(0));
         }},
        {QStringLiteral("rename"),
         [](Session& s) {
             return s.vault.renameFile(s.argument(0), s.argument(1));
         }},
        {QStringLiteral("move"),
         [](Session& s) {
             return s.vault.moveFile(s.argument(0), s.argument(1));
         }},
        {QStringLiteral("rename-folder"),
         [](Session& s) {
             return s.vault.renameDirectory(s.argument(0), s.argument(1));
         }},
        {QStringLiteral("delete-folder"),
         [](Session& s) {
             return s.vault.deleteDirectory(s.argument(0));
         }},
        {QStringLiteral("mkdir"),
         [](Session& s) {
             return s.vault.createDirectory(s.argument(0));
         }},
        {QStringLiteral("compact"),
         [](Session& s) {
             return s.vault.compactVault({}, &s.error);
         }},
        {QStringLiteral("open"),
         [](Session& s) {
             QString copy = QStringLiteral("untouched");
             const bool opened = s.vault.prepareFileForEditing(s.argument(0), &copy);
             s.error = copy;
             return opened;
         }},
    };
    return table;
}

/// These two work on a locked vault.
bool runLocked(Session& session, const QString& operation, bool* result) {
    if (operation == QLatin1String("create")) {
        *result = session.vault.createVault(session.container, session.password);
        return true;
    }
    if (operation == QLatin1String("password")) {
        *result = session.vault.changePassword(session.container, session.password,
                                               session.argument(0).toUtf8());
        return true;
    }
    return false;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QStringList arguments = application.arguments().mid(1);
    QTextStream out(stdout);
    if (arguments.size() < 3) {
        return 2;
    }
    Session session;
    session.container = arguments.takeFirst();
    session.password = arguments.takeFirst().toUtf8();
    const QString operation = arguments.takeFirst();
    session.arguments = arguments;

    bool result = false;
    if (!runLocked(session, operation, &result)) {
        if (!operations().contains(operation) ||
            !session.vault.unlockVault(session.container, session.password)) {
            out << "unlocked=no\n";
            return 3;
        }
        const QByteArray before = session.vault.fileIndex().toJson();
        result = operations().value(operation)(session);
        out << "index=" << (session.vault.fileIndex().toJson() == before ? "same" : "new") << '\n';
    }
    out << "result=" << (result ? "true" : "false") << '\n';
    out << "state=" << (session.vault.state() == VaultState::Unlocked ? "unlocked" : "locked")
        << '\n';
    out << "text=" << session.error << '\n';
    return 0;
}
