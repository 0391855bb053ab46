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

namespace {

constexpr int FileMebibytes = 64;
const QString Password = QStringLiteral("não é segredo");

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
        QTextStream(stdout) << QStringLiteral("%1. %2: %3%4\n")
                                   .arg(m_number)
                                   .arg(name,
                                        good ? QStringLiteral("ok") : QStringLiteral("FAILED"),
                                        good ? QString()
                                             : QStringLiteral(" (%1)").arg(dialogs.problems()));
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
        QString fileName = QStringLiteral("%1-%2.png").arg(number).arg(name);
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
    dialogs.answerFiles(QStringLiteral("Criar container Tessel"), {container});
    dialogs.answerText(QStringLiteral("Definir senha do cofre"), Password);
    dialogs.answerText(QStringLiteral("Confirmar senha do cofre"), Password);
    tour.step(
        QStringLiteral("create a vault"),
        [&] { tour.trigger(QStringLiteral("Criar novo cofre...")); },
        [&] {
            return tour.status() == QStringLiteral("Cofre criado com sucesso.") &&
                   QFile::exists(container);
        });
    dialogs.answerText(QStringLiteral("Senha do cofre"), Password);
    tour.step(
        QStringLiteral("unlock it"), [&] { tour.trigger(QStringLiteral("Desbloquear")); },
        [&] { return tour.status() == QStringLiteral("Cofre desbloqueado."); });
    dialogs.answerText(QStringLiteral("Nova pasta"), QStringLiteral("Férias"));
    tour.step(
        QStringLiteral("make a folder"), [&] { tour.trigger(QStringLiteral("Nova pasta...")); },
        [&] { return tour.status() == QStringLiteral("Pasta criada."); });
    const QString picture = tour.nextPicture(QStringLiteral("import in progress"));
    int moves = 0;
    const ProgressProbe probe([&](QProgressDialog* dialog, int value) {
        moves += value > 0 ? 1 : 0;
        if (value == 500) {
            static_cast<void>(dialog->grab().save(picture));
        }
    });
    dialogs.answerFiles(QStringLiteral("Importar arquivos para o cofre"), {source});
    tour.step(
        QStringLiteral("import a file"), [&] { tour.trigger(QStringLiteral("Importar...")); },
        [&] {
            return tour.status() == QStringLiteral("Arquivo importado com sucesso.") &&
                   moves >= 4 && QFile::exists(picture);
        });
}

void reopenAndExport(Tour& tour, MainWindow& window, const QString& source, const QString& target) {
    DialogDriver& dialogs = tour.dialogs;
    auto* padlock = window.findChild<QToolButton*>();
    tour.step(
        QStringLiteral("lock it"), [&] { padlock->click(); },
        [&] {
            return tour.status() == QStringLiteral("Cofre bloqueado.") &&
                   tour.table()->rowCount() == 0;
        });
    dialogs.answerText(QStringLiteral("Senha do cofre"), Password);
    tour.step(
        QStringLiteral("unlock it again"), [&] { padlock->click(); },
        [&] { return tour.table()->rowCount() == 2; });
    dialogs.press(QStringLiteral("Exportar arquivo"), QStringLiteral("Continuar"));
    dialogs.answerFiles(QStringLiteral("Exportar arquivo"), {target});
    tour.step(
        QStringLiteral("export the file"),
        [&] {
            if (selectRow(tour.table(), QFileInfo(source).fileName())) {
                tour.trigger(QStringLiteral("Exportar..."));
            }
        },
        [&] { return tour.status() == QStringLiteral("Arquivo exportado com sucesso."); });
    tour.step(
        QStringLiteral("compare the bytes"), [] {},
        [&] {
            const QByteArray digest = digestOf(source);
            return !digest.isEmpty() && digest == digestOf(target);
        });
}

/// The offscreen platform remarks on every dialog that it has no window manager.
void passOnMessages(QtMsgType /*type*/, const QMessageLogContext& /*context*/,
                    const QString& message) {
    if (!message.contains(QLatin1String("does not support propagateSizeHints"))) {
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
    const QString source = folder.filePath(QStringLiteral("video de férias.mp4"));
    if (!QDir().mkpath(pictures.path()) || !writeNoise(source)) {
        QTextStream(stderr) << "the tour could not make its files\n";
        return 1;
    }
    MainWindow window(nullptr);
    window.show();
    Tour tour(window, pictures);
    createAndFill(tour, folder.filePath(QStringLiteral("tessel.tvlt")), source);
    reopenAndExport(tour, window, source, folder.filePath(QStringLiteral("cópia.mp4")));
    const bool closed = window.close();
    QTextStream(stdout) << (tour.good() && closed ? "The bytes agree." : "The tour FAILED.")
                        << " Pictures: " << pictures.absolutePath() << '\n';
    return tour.good() && closed ? 0 : 1;
}
