// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// One vault operation in a process of its own, for faults that strike a whole process: system
// calls that strace makes fail, a disk that is full from the start.
//
//     fault_driver CONTAINER PASSWORD OPERATION [ARGUMENT...]
//
// It prints what the operation returned and whether the index in memory is what it was. With
// TESSEL_TRY_AGAIN in the environment, an operation that failed is followed by a new folder
// "depois", and it prints what that returned. TESSEL_FILE_LIMIT is the size beyond which no file
// can be written, as on a drive that is full.

#include "core/VaultManager.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QTextStream>

#include <csignal>
#include <functional>

#include <sys/resource.h>
#include <sys/uio.h>
#include <unistd.h>

using namespace Tessel::Core;
using namespace Qt::Literals::StringLiterals;

namespace {

struct Session {
    VaultManager vault;
    QString container;
    QByteArray password;
    QStringList arguments;
    QString error;
    /// Whether the operation is not the first change of the session.
    bool isLater = false;

    QString argument(qsizetype at) const { return arguments.value(at); }
};

using Operation = std::function<bool(Session&)>;

const QMap<QString, Operation>& operations() {
    static const QMap<QString, Operation> table{
        {u"unlock"_s,
         [](Session&) {
             return true;
         }},
        {u"lock"_s,
         [](Session& s) {
             return s.vault.lockVault();
         }},
        {u"save"_s,
         [](Session& s) {
             return s.vault.saveIndex(s.vault.fileIndex());
         }},
        {u"import"_s,
         [](Session& s) {
             return s.vault.importFile(s.argument(0), s.argument(1));
         }},
        {u"export"_s,
         [](Session& s) {
             return s.vault.exportFile(s.argument(0), s.argument(1));
         }},
        {u"delete"_s,
         [](Session& s) {
             return s.vault.deleteFile(s.argument(0));
         }},
        {u"rename"_s,
         [](Session& s) {
             return s.vault.renameFile(s.argument(0), s.argument(1));
         }},
        {u"move"_s,
         [](Session& s) {
             return s.vault.moveFile(s.argument(0), s.argument(1));
         }},
        {u"rename-folder"_s,
         [](Session& s) {
             return s.vault.renameDirectory(s.argument(0), s.argument(1));
         }},
        {u"delete-folder"_s,
         [](Session& s) {
             return s.vault.deleteDirectory(s.argument(0));
         }},
        {u"mkdir"_s,
         [](Session& s) {
             return s.vault.createDirectory(s.argument(0));
         }},
        {u"compact"_s,
         [](Session& s) {
             return s.vault.compactVault({}, &s.error);
         }},
        {u"open"_s,
         [](Session& s) {
             QString copy = u"untouched"_s;
             const bool opened = s.vault.prepareFileForEditing(s.argument(0), &copy);
             s.error = copy;
             return opened;
         }},
    };
    return table;
}

// The operation lies between two calls that do nothing and that a tracer sees.
void mark(const char* path) {
    static_cast<void>(::rmdir(path));
}

// Opens a copy and changes it, so that locking has something to take back.
bool editCopy(Session& session) {
    QString path;
    if (!session.vault.prepareFileForEditing(session.argument(0), &path)) {
        return false;
    }
    QFile copy(path);
    return copy.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           copy.write(session.argument(1).toUtf8()) > 0 && copy.flush() &&
           copy.setFileTime(QFileInfo(path).lastModified().addSecs(10),
                            QFileDevice::FileModificationTime);
}

bool runUnlocked(Session& session, const QString& operation) {
    if (operation == "unlock"_L1) {
        return true;
    }
    if (session.isLater && !session.vault.saveIndex(session.vault.fileIndex())) {
        return false;
    }
    if (operation == "lock-edited"_L1 && !editCopy(session)) {
        return false;
    }
    mark("/tessel-begin");
    return operation == "lock-edited"_L1 ? session.vault.lockVault()
                                         : operations().value(operation)(session);
}

bool limitFileSize() {
    bool isLimited = false;
    const int bytes = qEnvironmentVariableIntValue("TESSEL_FILE_LIMIT", &isLimited);
    const rlimit limit{static_cast<rlim_t>(bytes), static_cast<rlim_t>(bytes)};
    // Without this the first write beyond the limit ends the process.
    std::signal(SIGXFSZ, SIG_IGN);
    return !isLimited || ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

/// These two work on a locked vault.
bool runLocked(Session& session, const QString& operation, bool* result) {
    if (operation == "create"_L1) {
        *result = session.vault.createVault(session.container, session.password);
        return true;
    }
    if (operation == "password"_L1) {
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
    QByteArray said;
    QTextStream out(&said);
    // Not through write(), which may be made to fail.
    const auto say = [&] {
        out.flush();
        const struct iovec piece { said.data(), static_cast<std::size_t>(said.size()) };
        return ::writev(STDOUT_FILENO, &piece, 1) == said.size();
    };
    if (arguments.size() < 3 || !limitFileSize()) {
        return 2;
    }
    Session session;
    session.container = arguments.takeFirst();
    session.password = arguments.takeFirst().toUtf8();
    QString operation = arguments.takeFirst();
    const QString later = u"later-"_s;
    session.isLater = operation.startsWith(later);
    operation.remove(0, session.isLater ? later.size() : 0);
    session.arguments = arguments;

    bool result = false;
    if (operation == "unlock"_L1 || operation == "create"_L1 || operation == "password"_L1) {
        mark("/tessel-begin");
    }
    if (!runLocked(session, operation, &result)) {
        const bool known = operations().contains(operation) || operation == "lock-edited"_L1;
        if (!known || !session.vault.unlockVault(session.container, session.password)) {
            mark("/tessel-end");
            out << "unlocked=no\n";
            return say() ? 3 : 4;
        }
        const QByteArray before = session.vault.fileIndex().toJson();
        result = runUnlocked(session, operation);
        out << "index=" << (session.vault.fileIndex().toJson() == before ? "same" : "new") << '\n';
    }
    mark("/tessel-end");
    out << "result=" << (result ? "true" : "false") << '\n';
    out << "state=" << (session.vault.state() == VaultState::Unlocked ? "unlocked" : "locked")
        << '\n';
    out << "text=" << session.error << '\n';
    if (!result && qEnvironmentVariableIsSet("TESSEL_TRY_AGAIN") &&
        session.vault.state() == VaultState::Unlocked) {
        const bool again = session.vault.createDirectory(u"depois"_s);
        out << "again=" << (again ? "true" : "false") << '\n';
    }
    return say() ? 0 : 4;
}
