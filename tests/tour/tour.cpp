// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A guided tour of the real window: create a vault, unlock it, make a folder, import a large file,
// lock, unlock, export, compare. Prints each step with its result and saves a picture of each.
// Usage: tessel_tour PICTURE-FOLDER; exits with 0 only when the bytes agree.

#include "support/DialogDriver.h"
#include "support/ProgressProbe.h"
#include "ui/MainWindow.h"

#include <QAction>
#include <QApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QStatusBar>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTextStream>
#include <QToolButton>

#include <functional>

using Tessel::Tests::DialogDriver;
using Tessel::Tests::ProgressProbe;
using Tessel::UI::MainWindow;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int FileMebibytes = 64;
const QString Password = u"não é segredo"_s;

bool writeNoise(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return false;
    }
    QRandomGenerator random(FileMebibytes);
    QList<quint32> piece(1024 * 1024 / sizeof(quint32));
    const qint64 bytes = piece.size() * static_cast<qint64>(sizeof(quint32));
    for (int i = 0; i < FileMebibytes; ++i) {
        random.fillRange(piece.data(), piece.size());
        if (file.write(reinterpret_cast<const char*>(piece.constData()), bytes) != bytes) {
            return false;
        }
    }
    return file.flush();
}

QByteArray digestOf(const QString& path) {
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result() : QByteArray();
}

class Tour {
public:
    Tour(MainWindow& window, const QDir& pictures) : m_window(window), m_pictures(pictures) {}

    /// Runs one step: its answers have been queued, @p action starts it, @p check judges it.
    void step(const QString& name, const std::function<void()>& action,
              const std::function<bool()>& check) {
        ++m_number;
        action();
        QApplication::processEvents();
        const bool good = dialogs.finished() && check();
        m_good = m_good && good;
        QTextStream(stdout) << u"%1. %2: %3%4\n"_s.arg(m_number).arg(
            name, good ? u"ok"_s : u"FAILED"_s,
            good ? QString() : u" (%1)"_s.arg(dialogs.problems()));
        m_good = m_window.grab().save(picture(m_number, name)) && m_good;
    }

    void trigger(const QString& text) {
        const QList<QAction*> actions = m_window.findChildren<QAction*>();
        for (QAction* action : actions) {
            if (action->text() == text) {
                action->trigger();
            }
        }
    }

    [[nodiscard]] QString status() const { return m_window.statusBar()->currentMessage(); }
    [[nodiscard]] QTableWidget* table() const { return m_window.findChild<QTableWidget*>(); }
    [[nodiscard]] bool good() const { return m_good; }
    /// Where a picture taken during the next step goes.
    [[nodiscard]] QString nextPicture(const QString& name) const {
        return picture(m_number + 1, name);
    }

    DialogDriver dialogs;

private:
    [[nodiscard]] QString picture(int number, const QString& name) const {
        QString fileName = u"%1-%2.png"_s.arg(number).arg(name);
        return m_pictures.filePath(fileName.replace(QLatin1Char(' '), QLatin1Char('-')));
    }

    MainWindow& m_window;
    QDir m_pictures;
    int m_number = 0;
    bool m_good = true;
};

/// Selects the row with this name as a click would, and tells whether there is one.
bool selectRow(QTableWidget* table, const QString& name) {
    const QList<QTableWidgetItem*> items = table->findItems(name, Qt::MatchExactly);
    if (!items.isEmpty()) {
        table->setCurrentItem(items.first());
    }
    return !items.isEmpty();
}

void createAndFill(Tour& tour, const QString& container, const QString& source) {
    DialogDriver& dialogs = tour.dialogs;
    dialogs.answerFiles(u"Criar container Tessel"_s, {container});
    dialogs.answerText(u"Definir senha do cofre"_s, Password);
    dialogs.answerText(u"Confirmar senha do cofre"_s, Password);
    tour.step(
        u"create a vault"_s, [&] { tour.trigger(u"Criar novo cofre..."_s); },
        [&] {
            return tour.status() == u"Cofre criado com sucesso."_s && QFile::exists(container);
        });
    dialogs.answerText(u"Senha do cofre"_s, Password);
    tour.step(
        u"unlock it"_s, [&] { tour.trigger(u"Desbloquear"_s); },
        [&] { return tour.status() == u"Cofre desbloqueado."_s; });
    dialogs.answerText(u"Nova pasta"_s, u"Férias"_s);
    tour.step(
        u"make a folder"_s, [&] { tour.trigger(u"Nova pasta..."_s); },
        [&] { return tour.status() == u"Pasta criada."_s; });
    const QString picture = tour.nextPicture(u"import in progress"_s);
    int moves = 0;
    const ProgressProbe probe([&](QProgressDialog* dialog, int value) {
        moves += value > 0 ? 1 : 0;
        if (value == 500) {
            static_cast<void>(dialog->grab().save(picture));
        }
    });
    dialogs.answerFiles(u"Importar arquivos para o cofre"_s, {source});
    tour.step(
        u"import a file"_s, [&] { tour.trigger(u"Importar..."_s); },
        [&] {
            return tour.status() == u"Arquivo importado com sucesso."_s && moves >= 4 &&
                   QFile::exists(picture);
        });
}

void reopenAndExport(Tour& tour, MainWindow& window, const QString& source, const QString& target) {
    DialogDriver& dialogs = tour.dialogs;
    auto* padlock = window.findChild<QToolButton*>();
    tour.step(
        u"lock it"_s, [&] { padlock->click(); },
        [&] { return tour.status() == u"Cofre bloqueado."_s && tour.table()->rowCount() == 0; });
    dialogs.answerText(u"Senha do cofre"_s, Password);
    tour.step(
        u"unlock it again"_s, [&] { padlock->click(); },
        [&] { return tour.table()->rowCount() == 2; });
    dialogs.press(u"Exportar arquivo"_s, u"Continuar"_s);
    dialogs.answerFiles(u"Exportar arquivo"_s, {target});
    tour.step(
        u"export the file"_s,
        [&] {
            if (selectRow(tour.table(), QFileInfo(source).fileName())) {
                tour.trigger(u"Exportar..."_s);
            }
        },
        [&] { return tour.status() == u"Arquivo exportado com sucesso."_s; });
    tour.step(
        u"compare the bytes"_s, [] {},
        [&] {
            const QByteArray digest = digestOf(source);
            return !digest.isEmpty() && digest == digestOf(target);
        });
}

/// The offscreen platform remarks on every dialog that it has no window manager.
void passOnMessages(QtMsgType /*type*/, const QMessageLogContext& /*context*/,
                    const QString& message) {
    if (!message.contains("does not support propagateSizeHints"_L1)) {
        QTextStream(stderr) << message << '\n';
    }
}

} // namespace

int main(int argc, char** argv) {
    qInstallMessageHandler(passOnMessages);
    QApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    const QApplication application(argc, argv);
    const QDir pictures(argc > 1 ? QString::fromLocal8Bit(argv[1]) : QDir::currentPath());
    const QTemporaryDir folder;
    const QString source = folder.filePath(u"video de férias.mp4"_s);
    if (!QDir().mkpath(pictures.path()) || !writeNoise(source)) {
        QTextStream(stderr) << "the tour could not make its files\n";
        return 1;
    }
    MainWindow window(nullptr);
    window.show();
    Tour tour(window, pictures);
    createAndFill(tour, folder.filePath(u"tessel.tvlt"_s), source);
    reopenAndExport(tour, window, source, folder.filePath(u"cópia.mp4"_s));
    const bool closed = window.close();
    QTextStream(stdout) << (tour.good() && closed ? "The bytes agree." : "The tour FAILED.")
                        << " Pictures: " << pictures.absolutePath() << '\n';
    return tour.good() && closed ? 0 : 1;
}
