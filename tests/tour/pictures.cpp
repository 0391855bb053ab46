// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Makes the pictures of the help page and of the README from the real window, with a made-up USB
// drive. Usage: tessel_pictures FOLDER; run it with QT_SCALE_FACTOR=2, so that they are sharp.

#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/ProgressProbe.h"
#include "support/WindowDriver.h"
#include "support/fake_usb.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFontDatabase>
#include <QLocale>
#include <QTextStream>

using namespace Tessel::Tests;

namespace {

const QString Drive = QStringLiteral("/media/ana/VIAGEM");
const QString Password = QStringLiteral("senha de teste");

struct Sample {
    const char* path;
    int kibibytes;
    const char* date;
};

constexpr Sample Samples[] = {
    {"certidão.pdf", 412, "2026-03-02T13:05:00.000Z"},
    {"chave do servidor.pem", 4, "2026-05-19T09:41:00.000Z"},
    {"diário.txt", 38, "2026-11-18T22:12:00.000Z"},
    {"entrevista.mp3", 5120, "2026-08-30T16:20:00.000Z"},
    {"farol.jpg", 2890, "2026-01-14T11:02:00.000Z"},
    {"orçamento.ods", 57, "2026-10-07T18:33:00.000Z"},
    {"Fotos/praia.jpg", 3010, "2026-01-15T11:02:00.000Z"},
};

bool writeVault(const QString& path) {
    CraftedContainer crafted;
    crafted.addFolder(QStringLiteral("Documentos")).addFolder(QStringLiteral("Fotos"));
    qsizetype file = 0;
    for (const Sample& sample : Samples) {
        crafted.addFile(QString::fromUtf8(sample.path), noise(sample.kibibytes * 1024));
        crafted.setFileMember(file++, QStringLiteral("lastModifiedUtc"),
                              QString::fromLatin1(sample.date));
    }
    return crafted.writeTo(path);
}

bool savePicture(QWidget* widget, const QDir& folder, const QString& name) {
    return widget->grab()
        .toImage()
        .convertToFormat(QImage::Format_RGB32)
        .save(folder.filePath(name), "PNG", 0);
}

bool makePictures(const QDir& folder) {
    const QString container = Drive + QStringLiteral("/tessel.tvlt");
    const QString film = QDir::temp().filePath(QStringLiteral("festa.mp4"));
    if (!writeVault(container) || !writeFile(film, noise(96 * 1024 * 1024))) {
        return false;
    }
    WindowDriver driver;
    bool good = driver.chooseContainer(container);
    QApplication::processEvents();
    good = good && savePicture(&driver.window, folder, QStringLiteral("cofre-bloqueado.png"));
    good = good && driver.unlock(Password) && driver.selectRow(QStringLiteral("diário.txt"));
    good = good && savePicture(&driver.window, folder, QStringLiteral("cofre-aberto.png"));
    bool saved = false;
    const ProgressProbe probe([&](QProgressDialog* dialog, int value) {
        if (value > 450 && value < 1000 && !saved) {
            saved = savePicture(dialog, folder, QStringLiteral("importando.png"));
        }
    });
    driver.dialogs.answerFiles(QStringLiteral("Importar arquivos para o cofre"), {film});
    driver.action(QStringLiteral("Importar..."))->trigger();
    return QFile::remove(film) && good && saved && driver.window.close();
}

} // namespace

int main(int argc, char** argv) {
    if (const int refused = enterFakeMachine(); refused != 0) {
        return refused;
    }
    const QApplication application(argc, argv);
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
    FakeUsb machine;
    machine.addDisk(QStringLiteral("sdz"));
    machine.addPartition(QStringLiteral("sdz"), QStringLiteral("sdz1"));
    machine.addLabel(QStringLiteral("VIAGEM"), QStringLiteral("sdz1"));
    machine.mountVolume(QStringLiteral("sdz1"), Drive, qint64(14) << 30);
    const QDir folder(argc > 1 ? QString::fromLocal8Bit(argv[1]) : QDir::currentPath());
    if (!makePictures(folder)) {
        QTextStream(stderr) << "the pictures could not be made\n";
        return 1;
    }
    return 0;
}
