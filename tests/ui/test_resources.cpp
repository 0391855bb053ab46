// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/TestProgram.h"
#include "ui/ApplicationSetup.h"
#include "ui/ProductInfo.h"

#include <QApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QIcon>
#include <QImage>
#include <QImageReader>
#include <QRegularExpression>
#include <QTest>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

QString helpPage() {
    QFile page(u":/help/pt_BR/index.html"_s);
    return page.open(QIODevice::ReadOnly) ? QString::fromUtf8(page.readAll()) : QString();
}

/// The first capture of every match in the help page, in the order of the page.
QStringList inHelpPage(const QString& pattern) {
    QStringList found;
    const QString page = helpPage();
    auto matches = QRegularExpression(pattern).globalMatch(page);
    while (matches.hasNext()) {
        found.append(matches.next().captured(1));
    }
    return found;
}

QStringList pathsBelow(const QString& folder) {
    QStringList paths;
    QDirIterator files(folder, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        paths.append(files.next());
    }
    paths.sort();
    return paths;
}

qsizetype pixelsWith(const QImage& image, bool (*wanted)(QRgb)) {
    qsizetype count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            count += wanted(image.pixel(x, y)) ? 1 : 0;
        }
    }
    return count;
}

} // namespace

class TestResources : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theProgramCarriesTheseFilesAndNoOthers() {
        QStringList carried =
            pathsBelow(u":/icons"_s) + pathsBelow(u":/help"_s) + pathsBelow(u":/backgrounds"_s);
        carried.sort();
        QCOMPARE(
            carried,
            QStringList({u":/backgrounds/Fundo01.png"_s, u":/backgrounds/Fundo02.png"_s,
                         u":/help/pt_BR/cofre-aberto.png"_s, u":/help/pt_BR/cofre-bloqueado.png"_s,
                         u":/help/pt_BR/importando.png"_s, u":/help/pt_BR/index.html"_s,
                         u":/icons/Tessel.ico"_s}));
    }

    void theIconHasEverySize() {
        QList<QSize> sizes = QIcon(u":/icons/Tessel.ico"_s).availableSizes();
        std::sort(sizes.begin(), sizes.end(),
                  [](QSize a, QSize b) { return a.width() < b.width(); });
        QCOMPARE(sizes,
                 QList<QSize>(
                     {{16, 16}, {24, 24}, {32, 32}, {48, 48}, {64, 64}, {128, 128}, {256, 256}}));
        QCOMPARE(Tessel::UI::ProductInfo::iconResource(), u":/icons/Tessel.ico"_s);
    }

    void everyPictureOfTheIconIsDrawn_data() {
        QTest::addColumn<int>("number");
        for (int number = 0; number < 7; ++number) {
            QTest::addRow("picture %d", number) << number;
        }
    }
    void everyPictureOfTheIconIsDrawn() {
        QFETCH(const int, number);
        QImageReader reader(u":/icons/Tessel.ico"_s);
        QVERIFY(reader.jumpToImage(number));
        const QImage picture = reader.read();
        QVERIFY2(!picture.isNull(), qPrintable(reader.errorString()));
        QVERIFY(picture.hasAlphaChannel());
        // The corners around the padlock are see-through, its body is not, and the keyhole is gold.
        QCOMPARE(qAlpha(picture.pixel(0, 0)), 0);
        QCOMPARE(qAlpha(picture.pixel(picture.width() / 2, picture.height() * 3 / 4)), 255);
        const auto isGold = [](QRgb pixel) {
            return qAlpha(pixel) == 255 && qRed(pixel) > 180 && qGreen(pixel) > 120 &&
                   qBlue(pixel) < 110;
        };
        QVERIFY(pixelsWith(picture, isGold) >= picture.width() * picture.height() / 100);
    }

    void theApplicationBearsNameAndIcon() {
        // What this program is called without it.
        QVERIFY(QApplication::applicationName() != u"Tessel");
        QVERIFY(QApplication::windowIcon().isNull());
        Tessel::UI::setUpApplication(*qApp);
        QCOMPARE(QApplication::applicationName(), u"Tessel"_s);
        QCOMPARE(QApplication::applicationVersion(), u"1.0.0"_s);
        QCOMPARE(QApplication::organizationName(), u"Tessel"_s);
        // The desktop finds the program's entry, and so its icon, by this name.
        const QString desktopFile = QGuiApplication::desktopFileName();
        QVERIFY2(
            QFile::exists(u"%1/%2.desktop"_s.arg(QStringLiteral(PACKAGING_FOLDER), desktopFile)),
            qPrintable(desktopFile));
        const QSize size(48, 48);
        QCOMPARE(QApplication::windowIcon().pixmap(size, 1.0).toImage(),
                 QIcon(u":/icons/Tessel.ico"_s).pixmap(size, 1.0).toImage());
        // Qt's own buttons are in the language of the others.
        QCOMPARE(QCoreApplication::translate("QPlatformTheme", "Cancel"), u"Cancelar"_s);
    }

    void theHelpPageIsUtf8() {
        const QString page = helpPage();
        QVERIFY(!page.isEmpty());
        QVERIFY(!page.contains(QChar::ReplacementCharacter));
        QVERIFY(page.contains(u"Ajuda do Tessel"_s));
        QCOMPARE(inHelpPage(u"<meta charset=\"([^\"]*)\">"_s), QStringList{u"utf-8"_s});
    }

    void theHelpPageShowsThePicturesAndNoOthers() {
        const QStringList shown = inHelpPage(u"<img src=\"([^\"]*)\""_s);
        QCOMPARE(shown, QStringList({u"cofre-bloqueado.png"_s, u"cofre-aberto.png"_s,
                                     u"importando.png"_s}));
        for (const QString& name : shown) {
            QVERIFY2(!QImage(u":/help/pt_BR/"_s + name).isNull(), qPrintable(name));
        }
    }

    void everyPictureSaysInWordsWhatItShows() {
        QCOMPARE(inHelpPage(u"<img [^>]*alt=\"([^\"]+)\""_s).size(), 3);
    }

    void thePicturesAreSharpAtTheSizeOfThePage() {
        const QStringList names = inHelpPage(u"<img src=\"([^\"]*)\""_s);
        const QStringList widths = inHelpPage(u"<img [^>]*width=\"([0-9]+)\""_s);
        QCOMPARE(names.size(), 3);
        QCOMPARE(widths.size(), names.size());
        for (qsizetype i = 0; i < names.size(); ++i) {
            const QImage picture(u":/help/pt_BR/"_s + names.at(i));
            QVERIFY2(picture.width() >= 2 * widths.at(i).toInt(), qPrintable(names.at(i)));
            // The page is 760 pixels wide, less its margins and the scroll bar.
            QVERIFY2(widths.at(i).toInt() <= 680, qPrintable(names.at(i)));
        }
    }

    void everyLinkInsideThePageHasItsPlace() {
        const QStringList targets = inHelpPage(u"<a name=\"([^\"]*)\">"_s);
        const QStringList links = inHelpPage(u"<a href=\"([^\"]*)\">"_s);
        QVERIFY(links.size() > 5);
        for (const QString& link : links) {
            QVERIFY2(link.startsWith(u'#'), qPrintable(link));
            QVERIFY2(targets.contains(link.mid(1)), qPrintable(link));
        }
    }

    void theHelpPageSaysWhatToDoWithADriveThatTurnedReadOnly() {
        const QString page = helpPage().simplified();
        const qsizetype chapter = page.indexOf(u"<a name=\"unidade\">"_s);
        const qsizetype readOnly = page.indexOf(u"somente leitura"_s, chapter);
        const qsizetype check =
            page.indexOf(u"conecte-a de novo e deixe o sistema verificá-la"_s, readOnly);
        QVERIFY(chapter > 0 && readOnly > chapter && check > readOnly);
        QVERIFY(check < page.indexOf(u"<h2>"_s, readOnly));
    }

    void theHelpPageNamesEveryCommand_data() {
        QTest::addColumn<QString>("command");
        const QStringList commands = {u"Atualizar lista"_s,
                                      u"Escolher container..."_s,
                                      u"Criar novo cofre..."_s,
                                      u"Fazer backup..."_s,
                                      u"Alterar senha..."_s,
                                      u"Desbloquear"_s,
                                      u"Bloquear"_s,
                                      u"Nova pasta..."_s,
                                      u"Importar..."_s,
                                      u"Exportar..."_s,
                                      u"Abrir"_s,
                                      u"Renomear pasta..."_s,
                                      u"Excluir pasta vazia"_s,
                                      u"Excluir..."_s,
                                      u"Compactar cofre..."_s,
                                      u"Mover para pasta..."_s,
                                      u"Renomear arquivo..."_s,
                                      u"Sair"_s,
                                      u"Ajuda"_s,
                                      u"Visitar a página oficial do Tessel"_s,
                                      u"Sobre o Tessel"_s};
        for (const QString& command : commands) {
            QTest::newRow(qPrintable(command)) << command;
        }
    }
    void theHelpPageNamesEveryCommand() {
        QFETCH(const QString, command);
        const QString row = u"<tr><td><b>%1</b>"_s.arg(command);
        QCOMPARE(helpPage().count(row), 1);
    }

    void backgroundsArePictures_data() {
        QTest::addColumn<QString>("path");
        QTest::newRow("Fundo01") << u":/backgrounds/Fundo01.png"_s;
        QTest::newRow("Fundo02") << u":/backgrounds/Fundo02.png"_s;
    }
    void backgroundsArePictures() {
        QFETCH(const QString, path);
        const QImage picture(path);
        QVERIFY(!picture.isNull());
        QVERIFY(picture.width() >= 320);
        QVERIFY(picture.height() >= 180);
    }

    void everythingStaysSmall() {
        constexpr qint64 KiB = 1024;
        QVERIFY(QFile(u":/icons/Tessel.ico"_s).size() < 64 * KiB);
        for (const QString& path : pathsBelow(u":/backgrounds"_s)) {
            QVERIFY2(QFile(path).size() < 16 * KiB, qPrintable(path));
        }
        for (const QString& path : pathsBelow(u":/help"_s)) {
            QVERIFY2(QFile(path).size() < 160 * KiB, qPrintable(path));
        }
    }
};

TESSEL_TEST_MAIN(Tessel::Tests::runTest<QApplication, TestResources>);
#include "test_resources.moc"
