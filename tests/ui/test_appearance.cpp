// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "platform/UsbDevice.h"
#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/ProgressProbe.h"
#include "support/TestProgram.h"
#include "support/WindowDriver.h"
#include "ui/ApplicationSetup.h"
#include "ui/DeviceListWidget.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QHeaderView>
#include <QLabel>
#include <QProgressBar>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextEdit>
#include <QTextTable>

#include <algorithm>
#include <cmath>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Password = u"senha de teste"_s;

QPalette darkPalette() {
    QPalette palette(QColor(0x31, 0x36, 0x3b), QColor(0x2a, 0x2e, 0x32));
    palette.setColor(QPalette::Base, QColor(0x1b, 0x1e, 0x20));
    palette.setColor(QPalette::AlternateBase, QColor(0x23, 0x26, 0x29));
    for (const QPalette::ColorRole role :
         {QPalette::Text, QPalette::WindowText, QPalette::ButtonText, QPalette::ToolTipText}) {
        palette.setColor(role, QColor(0xfc, 0xfc, 0xfc));
    }
    palette.setColor(QPalette::Link, QColor(0x1d, 0x99, 0xf3));
    return palette;
}

/// Relative luminance (WCAG 2.1).
double luminance(const QColor& colour) {
    const auto linear = [](double channel) {
        return channel <= 0.04045 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
           0.0722 * linear(colour.blueF());
}

double contrast(const QColor& a, const QColor& b) {
    const auto [dark, light] = std::minmax({luminance(a), luminance(b)});
    return (light + 0.05) / (dark + 0.05);
}

/// The part of the window's picture that shows the widget.
QImage imageOf(const QWidget* widget, const QImage& window) {
    const qreal ratio = window.devicePixelRatio();
    const QRect place(widget->mapTo(widget->window(), QPoint()), widget->size());
    return window.copy(QRectF(place.topLeft() * ratio, QSizeF(place.size()) * ratio).toRect());
}

/// The best contrast of any pixel with the most frequent colour: of a text with the ground it
/// stands on.
double contrastOfText(const QImage& image) {
    QHash<QRgb, int> counts;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            ++counts[image.pixel(x, y)];
        }
    }
    QRgb ground = 0;
    int most = 0;
    for (auto colour = counts.cbegin(); colour != counts.cend(); ++colour) {
        if (colour.value() > most) {
            most = colour.value();
            ground = colour.key();
        }
    }
    double best = 1.0;
    for (auto colour = counts.cbegin(); colour != counts.cend(); ++colour) {
        best = std::max(best, contrast(QColor(colour.key()), QColor(ground)));
    }
    return best;
}

/// A part of a widget's image.
QImage partOf(const QImage& image, const QRect& place) {
    const qreal ratio = image.devicePixelRatio();
    return image.copy(
        QRectF(QPointF(place.topLeft()) * ratio, QSizeF(place.size()) * ratio).toRect());
}

/// Of normal text (WCAG 2.1, level AA).
constexpr double Readable = 4.5;

/// The contrast that a row must have. Two are below the others, because their colours are fixed:
/// the grey of a drive that is not mounted is the same in every theme, and on a dark ground it
/// reaches that of large text only; the table's style sheet takes the highlight that the theme has
/// for all programs, and Fusion's has 3.7 : 1.
double wantedOf(const QAbstractItemView* view, const QModelIndex& index) {
    constexpr double ReadableWhenLarge = 3.0;
    const bool fixedGrey = !index.flags().testFlag(Qt::ItemIsSelectable);
    const bool themesHighlight = view->styleSheet().contains(u"palette(highlight)"_s) &&
                                 view->selectionModel()->isSelected(index);
    return fixedGrey || themesHighlight ? ReadableWhenLarge : Readable;
}

/// The rows that are hard to read, of a view in the picture of its window.
QStringList faintRowsOf(const QAbstractItemView* view, const QImage& picture) {
    QStringList faint;
    const QImage image = imageOf(view->viewport(), picture);
    const QAbstractItemModel* model = view->model();
    for (int row = 0; row < model->rowCount(); ++row) {
        for (int column = 0; column < model->columnCount(); ++column) {
            const QModelIndex index = model->index(row, column);
            // Without the line between rows, which can be told from any ground.
            const QRect place = view->visualRect(index).adjusted(0, 1, 0, -2);
            const QString text = index.data().toString();
            const double best = contrastOfText(partOf(image, place & view->viewport()->rect()));
            if (!text.isEmpty() && !place.isEmpty() && best < wantedOf(view, index)) {
                faint.append(u"%1 (%2 : 1)"_s.arg(text).arg(best, 0, 'f', 2));
            }
        }
    }
    return faint;
}

QStringList faintHeadingsOf(const QHeaderView* header, const QImage& picture) {
    QStringList faint;
    const QImage image = imageOf(header->viewport(), picture);
    for (int section = 0; section < header->count(); ++section) {
        const QString text = header->model()->headerData(section, header->orientation()).toString();
        // Without the lines around it.
        const QRect place = QRect(header->sectionViewportPosition(section), 0,
                                  header->sectionSize(section), header->height())
                                .adjusted(3, 3, -3, -3);
        if (!text.isEmpty() && contrastOfText(partOf(image, place)) < Readable) {
            faint.append(text);
        }
    }
    return faint;
}

QStringList faintViewsOf(const QWidget* window, const QImage& picture) {
    QStringList faint;
    const QList<QAbstractItemView*> views = window->findChildren<QAbstractItemView*>();
    for (const QAbstractItemView* view : views) {
        if (!view->isVisible()) {
            continue;
        }
        const auto* header = qobject_cast<const QHeaderView*>(view);
        faint += header == nullptr ? faintRowsOf(view, picture) : faintHeadingsOf(header, picture);
    }
    return faint;
}

bool isCutOff(const QWidget* widget) {
    const QSize wanted = widget->sizeHint();
    const auto* label = qobject_cast<const QLabel*>(widget);
    if (label != nullptr && label->wordWrap()) {
        return widget->height() < label->heightForWidth(widget->width());
    }
    return widget->width() < wanted.width() || widget->height() < wanted.height();
}

QString nameOf(const QWidget* widget) {
    const QVariant text = widget->property("text");
    return text.toString().left(40) + u' ' + widget->objectName();
}

/// Labels and buttons that are smaller than their text, and texts that cannot be told from the
/// ground.
QStringList flawsOf(QWidget* window) {
    QStringList flaws;
    const QImage picture = window->grab().toImage().convertToFormat(QImage::Format_RGB32);
    const QStringList faint = faintViewsOf(window, picture);
    for (const QString& text : faint) {
        flaws.append(u"hard to read: "_s + text);
    }
    const QList<QWidget*> widgets = window->findChildren<QWidget*>();
    for (const QWidget* widget : widgets) {
        const bool isText = qobject_cast<const QLabel*>(widget) != nullptr ||
                            qobject_cast<const QAbstractButton*>(widget) != nullptr ||
                            qobject_cast<const QProgressBar*>(widget) != nullptr;
        if (!isText || !widget->isVisible() || widget->property("text").toString().isEmpty()) {
            continue;
        }
        if (isCutOff(widget)) {
            flaws.append(u"cut off: "_s + nameOf(widget));
        }
        if (contrastOfText(imageOf(widget, picture)) < Readable) {
            flaws.append(u"hard to read: "_s + nameOf(widget));
        }
    }
    return flaws;
}

} // namespace

/// Everything in light and dark; CTest runs this program at several scales. Pictures are saved
/// below the folder in TESSEL_PICTURES, to be looked at.
class TestAppearance : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void flawsAreFound();
    void nothingIsCutOffOrUnreadable_data();
    void nothingIsCutOffOrUnreadable();
    void rowsStayReadableWhenTheThemeChanges_data();
    void rowsStayReadableWhenTheThemeChanges();
    void drivesAreReadable_data();
    void drivesAreReadable();
    void theGuidesHeadingsAndLinksAreReadable_data();
    void theGuidesHeadingsAndLinksAreReadable();

private:
    [[nodiscard]] bool openSample();
    void look(QWidget* window, const QString& name);

    QPalette m_light;
    QString m_shade;
    QStringList m_flaws;
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<WindowDriver> m_driver;
};

void TestAppearance::initTestCase() {
    Tessel::UI::setUpApplication(*qApp);
    m_light = QApplication::palette();
}

void TestAppearance::init() {
    m_flaws.clear();
    m_folder = std::make_unique<QTemporaryDir>();
}

void TestAppearance::cleanup() {
    if (m_driver != nullptr) {
        m_driver->window.close();
    }
    m_driver.reset();
    m_folder.reset();
    QApplication::setPalette(m_light);
}

bool TestAppearance::openSample() {
    CraftedContainer crafted;
    crafted.addFolder(u"Fotos da praia"_s).addFolder(u"Documentos"_s);
    for (const QString& name : {u"contrato.pdf"_s, u"planilha.xlsx"_s, u"carta.docx"_s,
                                u"notas.txt"_s, u"foto.png"_s, u"tudo.zip"_s}) {
        crafted.addFile(name, noise(70000));
    }
    const QString path = m_folder->filePath(u"tessel.tvlt"_s);
    return crafted.writeTo(path) && m_driver->openVault(path, Password);
}

void TestAppearance::look(QWidget* window, const QString& name) {
    QCoreApplication::processEvents();
    const QString folder = qEnvironmentVariable("TESSEL_PICTURES");
    if (!folder.isEmpty()) {
        QVERIFY(QDir().mkpath(folder));
        QVERIFY(window->grab().save(u"%1/%2-%3.png"_s.arg(folder, name, m_shade)));
    }
    const QStringList flaws = flawsOf(window);
    for (const QString& flaw : flaws) {
        m_flaws.append(name + u' ' + flaw);
    }
}

void TestAppearance::flawsAreFound() {
    QWidget window;
    QLabel small(u"um texto que não cabe"_s, &window);
    small.setFixedWidth(30);
    QLabel faint(u"quase igual"_s, &window);
    faint.move(0, 60);
    faint.setAutoFillBackground(true);
    faint.setPalette(QPalette(QColor(100, 100, 100), QColor(110, 110, 110)));
    faint.setStyleSheet(u"color: #777777; background: #6e6e6e;"_s);
    window.show();
    const QString flaws = flawsOf(&window).join(u'\n');
    QVERIFY2(flaws.contains(u"cut off: um texto"), qPrintable(flaws));
    QVERIFY2(flaws.contains(u"hard to read: quase igual"), qPrintable(flaws));
}

void TestAppearance::nothingIsCutOffOrUnreadable_data() {
    QTest::addColumn<bool>("dark");
    QTest::newRow("light") << false;
    QTest::newRow("dark") << true;
}

void TestAppearance::nothingIsCutOffOrUnreadable() {
    QFETCH(const bool, dark);
    m_shade = dark ? u"dark"_s : u"light"_s;
    QApplication::setPalette(dark ? darkPalette() : m_light);
    m_driver = std::make_unique<WindowDriver>();
    look(&m_driver->window, u"locked"_s);
    QVERIFY(openSample() && m_driver->selectRow(u"carta.docx"_s));
    look(&m_driver->window, u"unlocked"_s);

    QVERIFY(writeFile(m_folder->filePath(u"um vídeo de férias.mp4"_s), noise(3000000)));
    const ProgressProbe probe([this](QProgressDialog* dialog, int value) {
        if (value == 1000) {
            look(dialog, u"progress"_s);
        }
    });
    m_driver->dialogs.answerFiles(u"Importar arquivos para o cofre"_s,
                                  {m_folder->filePath(u"um vídeo de férias.mp4"_s)});
    m_driver->action(u"Importar..."_s)->trigger();
    for (const QString& title : {u"Ajuda do Tessel"_s, u"Sobre o Tessel"_s}) {
        m_driver->dialogs.handle(title, [this, title](QDialog* dialog) {
            look(dialog, title.section(u' ', 0, 0).toLower());
            dialog->reject();
        });
        m_driver->action(title.section(u' ', 0, 0) == u"Ajuda" ? u"Ajuda"_s : title)->trigger();
    }
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QVERIFY2(m_flaws.isEmpty(), qPrintable(m_flaws.join(u'\n')));
}

namespace {

/// As themes do that grey out what has no focus.
QPalette greyWithoutFocus(QPalette palette) {
    const QColor grey(0x88, 0x88, 0x88);
    palette.setColor(QPalette::Inactive, QPalette::Text, grey);
    palette.setColor(QPalette::Inactive, QPalette::HighlightedText, grey);
    palette.setColor(QPalette::Inactive, QPalette::Highlight, grey.lighter());
    return palette;
}

} // namespace

void TestAppearance::rowsStayReadableWhenTheThemeChanges_data() {
    QTest::addColumn<QList<bool>>("darkOnes");
    QTest::newRow("light") << QList<bool>{false};
    QTest::newRow("dark") << QList<bool>{true};
    QTest::newRow("light, then dark") << QList<bool>{false, true};
    QTest::newRow("dark, then light") << QList<bool>{true, false};
}

void TestAppearance::rowsStayReadableWhenTheThemeChanges() {
    QFETCH(const QList<bool>, darkOnes);
    const auto theme = [this](bool dark) {
        return greyWithoutFocus(dark ? darkPalette() : m_light);
    };
    QApplication::setPalette(theme(darkOnes.first()));
    m_driver = std::make_unique<WindowDriver>();
    QVERIFY(openSample() && m_driver->selectRow(u"carta.docx"_s));
    for (const bool dark : darkOnes) {
        QApplication::setPalette(theme(dark));
        QCoreApplication::processEvents();
    }
    const QTableWidget* table = m_driver->table();
    const QImage picture = m_driver->window.grab().toImage().convertToFormat(QImage::Format_RGB32);
    const QStringList faint = faintRowsOf(table, picture);
    QVERIFY2(faint.isEmpty(), qPrintable(faint.join(u'\n')));
    const QImage rows = imageOf(table->viewport(), picture);
    QCOMPARE(QColor(rows.pixel(rows.width() / 2, rows.height() - 2)),
             theme(darkOnes.last()).color(QPalette::Base));
}

void TestAppearance::drivesAreReadable_data() {
    nothingIsCutOffOrUnreadable_data();
}

void TestAppearance::drivesAreReadable() {
    QFETCH(const bool, dark);
    QApplication::setPalette(greyWithoutFocus(dark ? darkPalette() : m_light));
    Tessel::Platform::UsbDevice container;
    container.displayName = u"COFRE"_s;
    container.rootPath = u"/media/ana/COFRE"_s;
    container.devicePath = u"/dev/sdx1"_s;
    container.mounted = true;
    Tessel::Platform::UsbDevice unmounted;
    unmounted.displayName = u"FOTOS"_s;
    unmounted.devicePath = u"/dev/sdy1"_s;
    unmounted.mounted = false;
    QWidget window;
    auto* list = new Tessel::UI::DeviceListWidget;
    list->setParent(&window);
    list->resize(500, list->height());
    list->showVolumes({container, unmounted});
    list->selectForContainer(container.rootPath + u"/tessel.tvlt"_s);
    window.show();
    for (const bool selected : {true, false}) {
        list->item(0)->setSelected(selected);
        const QImage picture = window.grab().toImage().convertToFormat(QImage::Format_RGB32);
        const QStringList faint = faintRowsOf(list, picture);
        QVERIFY2(faint.isEmpty(), qPrintable(faint.join(u'\n')));
    }
}

void TestAppearance::theGuidesHeadingsAndLinksAreReadable_data() {
    nothingIsCutOffOrUnreadable_data();
}

void TestAppearance::theGuidesHeadingsAndLinksAreReadable() {
    QFETCH(const bool, dark);
    QApplication::setPalette(dark ? darkPalette() : m_light);
    m_driver = std::make_unique<WindowDriver>();
    QStringList faint;
    m_driver->dialogs.handle(u"Ajuda do Tessel"_s, [&faint](QDialog* dialog) {
        const auto* viewer = dialog->findChild<QTextEdit*>();
        const QColor ground = viewer->palette().color(QPalette::Base);
        for (QTextBlock block = viewer->document()->begin(); block.isValid();
             block = block.next()) {
            for (auto piece = block.begin(); !piece.atEnd(); ++piece) {
                const QTextCharFormat format = piece.fragment().charFormat();
                const bool coloured = format.hasProperty(QTextFormat::ForegroundBrush);
                // Table headings have a ground of their own.
                const bool inTable = QTextCursor(block).currentTable() != nullptr;
                if (coloured && !inTable && contrast(format.foreground().color(), ground) < 4.5) {
                    faint.append(piece.fragment().text());
                }
            }
        }
        dialog->reject();
    });
    m_driver->action(u"Ajuda"_s)->trigger();
    QVERIFY2(faint.isEmpty(), qPrintable(faint.join(u'\n')));
}

TESSEL_TEST_MAIN(runTest<QApplication, TestAppearance>);

#include "test_appearance.moc"
