// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/TestProgram.h"
#include "support/WindowDriver.h"
#include "ui/AboutDialog.h"
#include "ui/HelpDialog.h"
#include "ui/ProductInfo.h"

#include <QAbstractItemDelegate>
#include <QAction>
#include <QApplication>
#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QFile>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QLibraryInfo>
#include <QListWidget>
#include <QPushButton>
#include <QScopeGuard>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStyleOptionViewItem>
#include <QStyledItemDelegate>
#include <QSysInfo>
#include <QTest>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextDocument>
#include <QTextEdit>
#include <QUrl>
#include <QVBoxLayout>

#include <sodium.h>

using Tessel::Tests::pressButton;
using Tessel::Tests::WindowDriver;
using Tessel::UI::AboutDialog;
using Tessel::UI::HelpDialog;

using namespace Qt::Literals::StringLiterals;

namespace {

const QString CompilerName = u"Microsoft Visual C++ Runtime"_s;
const QString WindowsName = u"Microsoft Windows APIs"_s;

QString qtName() {
    return u"Qt 6 Core/Widgets - "_s + QString::fromLatin1(qVersion());
}

QString sodiumName() {
    return u"libsodium - "_s + QString::fromLatin1(sodium_version_string());
}

/// Takes the place of the desktop's browser and notes what it was asked to open.
class BrowserStandIn : public QObject {
    Q_OBJECT

public:
    BrowserStandIn() { QDesktopServices::setUrlHandler(u"https"_s, this, "open"); }
    ~BrowserStandIn() override { QDesktopServices::unsetUrlHandler(u"https"_s); }
    Q_DISABLE_COPY_MOVE(BrowserStandIn)

    QList<QUrl> opened;

public Q_SLOTS:
    void open(const QUrl& url) { opened.append(url); }
};

QLabel* labelWith(const QWidget& dialog, const QString& start) {
    const QList<QLabel*> labels = dialog.findChildren<QLabel*>();
    for (QLabel* label : labels) {
        if (label->text().startsWith(start)) {
            return label;
        }
    }
    return nullptr;
}

QLabel* versionLabel(const QWidget& dialog) {
    return labelWith(dialog, u"Tessel<br>"_s);
}

QLabel* iconLabel(const QWidget& dialog) {
    const QList<QLabel*> labels = dialog.findChildren<QLabel*>();
    for (QLabel* label : labels) {
        if (!label->pixmap(Qt::ReturnByValue).isNull()) {
            return label;
        }
    }
    return nullptr;
}

QString detailsOf(const QWidget& dialog) {
    return dialog.findChild<QTextEdit*>()->toPlainText();
}

QStringList namesIn(const QListWidget* list) {
    QStringList names;
    for (int row = 0; row < list->count(); ++row) {
        names.append(list->item(row)->text());
    }
    return names;
}

} // namespace

/// What Q_CLEANUP_RESOURCE and Q_INIT_RESOURCE declare has to stand outside of every namespace.
static void takeResourcesAway() {
    Q_CLEANUP_RESOURCE(tessel);
}

static void bringResourcesBack() {
    Q_INIT_RESOURCE(tessel);
}

class TestHelpAbout : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void helpIsAModalDialogOfItsSize() {
        const HelpDialog dialog(nullptr);
        QCOMPARE(dialog.windowTitle(), u"Ajuda do Tessel"_s);
        QVERIFY(dialog.isModal());
        QCOMPARE(dialog.size(), QSize(760, 560));

        const auto* layout = qobject_cast<QVBoxLayout*>(dialog.layout());
        QVERIFY(layout);
        QCOMPARE(layout->count(), 2);
        QVERIFY(qobject_cast<QTextBrowser*>(layout->itemAt(0)->widget()));
        QVERIFY(qobject_cast<QDialogButtonBox*>(layout->itemAt(1)->widget()));
        QVERIFY(dialog.findChild<QTextBrowser*>()->openExternalLinks());
    }

    void helpShowsTheGuideOfTheProgram() {
        QFile page(u":/help/pt_BR/index.html"_s);
        QVERIFY(page.open(QIODevice::ReadOnly));
        QTextDocument expected;
        expected.setHtml(QString::fromUtf8(page.readAll()));

        const HelpDialog dialog(nullptr);
        const QString shown = dialog.findChild<QTextBrowser*>()->toPlainText();
        QCOMPARE(shown, expected.toPlainText());
        QVERIFY(shown.contains(u"Sem a senha não há nada a fazer."_s));
    }

    void helpShowsThePicturesAtTheirWidthOnThePage() {
        const HelpDialog dialog(nullptr);
        auto* viewer = dialog.findChild<QTextBrowser*>();
        int pictures = 0;
        for (QTextBlock block = viewer->document()->begin(); block.isValid();
             block = block.next()) {
            for (auto piece = block.begin(); !piece.atEnd(); ++piece) {
                const QTextImageFormat format = piece.fragment().charFormat().toImageFormat();
                if (format.isValid()) {
                    const auto picture =
                        viewer->document()
                            ->resource(QTextDocument::ImageResource, QUrl(format.name()))
                            .value<QImage>();
                    QVERIFY2(!picture.isNull(), qPrintable(format.name()));
                    // Shrunk beforehand: the viewer would skip pixels.
                    QCOMPARE(picture.devicePixelRatio(), dialog.devicePixelRatioF());
                    QCOMPARE(picture.deviceIndependentSize().width(), format.width());
                    ++pictures;
                }
            }
        }
        QCOMPARE(pictures, 3);
    }

    void helpFollowsLinksInsideTheGuide() {
        HelpDialog dialog(nullptr);
        dialog.show();
        auto* viewer = dialog.findChild<QTextBrowser*>();
        const QString before = viewer->toPlainText();
        QCOMPARE(viewer->verticalScrollBar()->value(), 0);
        viewer->setSource(QUrl(u"#senha"_s));
        QVERIFY(viewer->verticalScrollBar()->value() > 0);
        QCOMPARE(viewer->toPlainText(), before);
    }

    /// The message is the same whether the vault is open or locked, and the right answer is not.
    void theGuideKeepsTheOnlyCopyOfAnEdit() {
        const HelpDialog dialog(nullptr);
        const QString guide = dialog.findChild<QTextBrowser*>()->toPlainText();
        const qsizetype message = guide.indexOf(u"Não foi possível limpar a área temporária."_s);
        const qsizetype green = guide.indexOf(u"Verde:"_s, message);
        const qsizetype red = guide.indexOf(u"Vermelho:"_s, green);
        const qsizetype end = guide.indexOf(u"O Tessel foi encerrado sem bloquear o cofre."_s, red);
        QVERIFY(message >= 0 && message < green && green < red && red < end);
        QVERIFY(!guide.mid(message, green - message).contains(u"apague"_s));
        QVERIFY(guide.mid(green, red - green).contains(u"não a apague"_s));
        QVERIFY(guide.mid(red, end - red).contains(u"apague"_s));
    }

    /// Where a password is chosen, and in the chapter about it.
    void theGuideSaysThatALostPasswordCannotBeRecovered() {
        const HelpDialog dialog(nullptr);
        const QString guide = dialog.findChild<QTextBrowser*>()->toPlainText().toLower();
        const QString warning = u"uma senha perdida não pode ser recuperada"_s;
        const qsizetype creating = guide.indexOf(u"crie o cofre."_s);
        const qsizetype unlocking = guide.indexOf(u"desbloqueie."_s, creating);
        QVERIFY(creating >= 0 && unlocking > creating);
        QVERIFY(guide.mid(creating, unlocking - creating).contains(warning));
        const qsizetype chapter = guide.indexOf(u"a senha, e o que fazer se ela se perder"_s);
        const qsizetype nextChapter = guide.indexOf(u"\nretirar a unidade\n"_s, chapter);
        QVERIFY(chapter >= 0 && nextChapter > chapter);
        QVERIFY(guide.mid(chapter, nextChapter - chapter).contains(warning));
    }

    void helpHasOnlyTheCloseButton() {
        HelpDialog dialog(nullptr);
        dialog.show();
        auto* box = dialog.findChild<QDialogButtonBox*>();
        QCOMPARE(box->standardButtons(), QDialogButtonBox::Close);
        QCOMPARE(box->buttons().size(), 1);
        QCOMPARE(box->button(QDialogButtonBox::Close)->text(), u"Fechar"_s);
        QVERIFY(pressButton(box, u"Fechar"_s));
        QVERIFY(!dialog.isVisible());
    }

    void helpSaysWhenTheGuideIsMissing() {
        takeResourcesAway();
        const auto restore = qScopeGuard(bringResourcesBack);
        QVERIFY(!QFile::exists(u":/help/pt_BR/index.html"_s));

        QTextDocument expected;
        expected.setHtml(u"<h1>Ajuda indisponível</h1>"
                         u"<p>Não foi possível carregar o arquivo de ajuda do Tessel.</p>"_s);
        const HelpDialog dialog(nullptr);
        const auto* viewer = dialog.findChild<QTextBrowser*>();
        QCOMPARE(viewer->toPlainText(),
                 u"Ajuda indisponível\nNão foi possível carregar o arquivo de ajuda do Tessel."_s);
        QCOMPARE(viewer->toHtml(), expected.toHtml());
    }

    void aboutIsAModalDialogOfItsSize() {
        const AboutDialog dialog(nullptr);
        QCOMPARE(dialog.windowTitle(), u"Sobre o Tessel"_s);
        QVERIFY(dialog.isModal());
        QCOMPARE(dialog.size(), QSize(760, 520));
    }

    void aboutShowsIconAndTitle() {
        const AboutDialog dialog(nullptr);
        const auto* header = qobject_cast<QHBoxLayout*>(
            dialog.findChild<QGridLayout*>()->itemAtPosition(0, 0)->layout());
        QVERIFY(header);
        QCOMPARE(header->contentsMargins(), QMargins());
        QCOMPARE(header->count(), 3);
        QVERIFY(header->itemAt(2)->spacerItem());

        const auto* title = qobject_cast<QLabel*>(header->itemAt(1)->widget());
        QVERIFY(title);
        QCOMPARE(title->text(), u"Tessel"_s);
        QCOMPARE(title->styleSheet(), u"color: #0B4F8A;"_s);
        QCOMPARE(title->font().pointSize(), dialog.font().pointSize() + 16);
        QCOMPARE(static_cast<int>(title->font().weight()), 600);

        const auto* icon = qobject_cast<QLabel*>(header->itemAt(0)->widget());
        QVERIFY(icon);
        QCOMPARE(icon, iconLabel(dialog));
        const int side = QFontMetrics(title->font()).height();
        QCOMPARE(icon->minimumSize(), QSize(side, side));
        QCOMPARE(icon->maximumSize(), QSize(side, side));
        QCOMPARE(icon->alignment(), Qt::AlignLeft | Qt::AlignVCenter);
        QCOMPARE(icon->pixmap(Qt::ReturnByValue).toImage(),
                 QIcon(u":/icons/Tessel.ico"_s).pixmap(side, side).toImage());
        QCOMPARE(icon->pixmap(Qt::ReturnByValue).deviceIndependentSize(), QSizeF(side, side));
    }

    void aboutIsAGridWithTwoEqualColumns() {
        const AboutDialog dialog(nullptr);
        const auto* grid = dialog.findChild<QGridLayout*>();
        QCOMPARE(grid->columnCount(), 2);
        QCOMPARE(grid->rowCount(), 2);
        QVERIFY(!grid->itemAtPosition(0, 1));
        QVERIFY(grid->columnStretch(0) > 0);
        QCOMPARE(grid->columnStretch(0), grid->columnStretch(1));
        QCOMPARE(grid->itemAtPosition(1, 0)->widget(), versionLabel(dialog));
        QCOMPARE(grid->itemAtPosition(1, 0)->alignment(), Qt::AlignTop);
        QCOMPARE(grid->itemAtPosition(1, 1)->widget(),
                 labelWith(dialog, u"Ambiente de execução"_s));
        QCOMPARE(grid->itemAtPosition(1, 1)->alignment(), Qt::AlignTop);
    }

    void aboutIsLaidOutFromTopToBottom() {
        const AboutDialog dialog(nullptr);
        const auto* layout = qobject_cast<QVBoxLayout*>(dialog.layout());
        QVERIFY(layout);
        QCOMPARE(layout->count(), 9);
        QVERIFY(qobject_cast<QGridLayout*>(layout->itemAt(0)->layout()));
        QCOMPARE(layout->itemAt(1)->sizeHint().height(), 10);
        QCOMPARE(layout->itemAt(2)->widget(),
                 labelWith(dialog, u"Componentes e bibliotecas relevantes:"_s));
        QCOMPARE(layout->itemAt(3)->widget(), dialog.findChild<QListWidget*>());
        QCOMPARE(layout->itemAt(4)->sizeHint().height(), 8);
        QCOMPARE(layout->itemAt(5)->widget(), labelWith(dialog, u"Detalhes do componente:"_s));
        QCOMPARE(layout->itemAt(6)->widget(), dialog.findChild<QTextEdit*>());
        QCOMPARE(layout->itemAt(7)->widget(), labelWith(dialog, u"O Tessel é software livre"_s));
        QCOMPARE(layout->itemAt(8)->widget(), dialog.findChild<QDialogButtonBox*>());
    }

    void aboutNamesTheVersion_data() {
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("line");
        QTest::newRow("of the application") << u"2.7.1"_s << u"Tessel<br>Versão 2.7.1<br>"_s;
        QTest::newRow("none") << QString() << u"Tessel<br>Versão 1.0.0<br>"_s;
        QTest::newRow("with mark-up") << u"<b>&"_s << u"Tessel<br>Versão &lt;b&gt;&amp;<br>"_s;
    }
    void aboutNamesTheVersion() {
        QFETCH(const QString, version);
        QFETCH(const QString, line);
        const auto restore = qScopeGuard([before = QCoreApplication::applicationVersion()] {
            QCoreApplication::setApplicationVersion(before);
        });
        QCoreApplication::setApplicationVersion(version);
        const AboutDialog dialog(nullptr);
        QVERIFY(versionLabel(dialog));
        QVERIFY2(versionLabel(dialog)->text().startsWith(line),
                 qPrintable(versionLabel(dialog)->text()));
    }

    void aboutNamesTheOwner() {
        const AboutDialog dialog(nullptr);
        const QLabel* label = versionLabel(dialog);
        QCOMPARE(label->textFormat(), Qt::RichText);
        QCOMPARE(label->textInteractionFlags(), Qt::TextSelectableByMouse |
                                                    Qt::LinksAccessibleByMouse |
                                                    Qt::LinksAccessibleByKeyboard);
        QVERIFY(!label->openExternalLinks());

        const QString address = QStringLiteral(TESSEL_HOMEPAGE_URL);
        const QStringList lines = label->text().split(u"<br>"_s);
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines.at(2), u"© 2026 %1 – <a href=\"%2\">%2</a>"_s.arg(
                                  QStringLiteral(TESSEL_OWNER_NAME).toHtmlEscaped(), address));
        QCOMPARE(lines.at(3), u"Direitos reservados nos termos da licença GPL-3.0-or-later."_s);
    }

    void aboutNamesWhatItRunsOn() {
        const AboutDialog dialog(nullptr);
        const QLabel* label = labelWith(dialog, u"Ambiente"_s);
        QVERIFY(label);
        QCOMPARE(label->text(), u"Ambiente de execução\n"_s + QSysInfo::prettyProductName() +
                                    u"\nQt "_s + QString::fromLatin1(qVersion()) + u"\n"_s +
                                    QSysInfo::currentCpuArchitecture());
    }

    void aboutOpensTheOfficialPage() {
        const BrowserStandIn browser;
        AboutDialog dialog(nullptr);
        dialog.show();
        QLabel* label = versionLabel(dialog);
        const QSignalSpy activated(label, &QLabel::linkActivated);
        // As someone without a mouse does: to the link, then Return.
        label->setFocus(Qt::TabFocusReason);
        QTest::keyClick(label, Qt::Key_Tab);
        QTest::keyClick(label, Qt::Key_Return);
        QCOMPARE(activated.size(), 1);
        QCOMPARE(browser.opened, QList<QUrl>{Tessel::UI::ProductInfo::homepage()});
    }

    void aboutListsTheComponentsInKeyOrder() {
        const AboutDialog dialog(nullptr);
        QCOMPARE(namesIn(dialog.findChild<QListWidget*>()),
                 QStringList({CompilerName, WindowsName, qtName(), sodiumName()}));
    }

    void aboutStartsWithTheFirstComponent() {
        const AboutDialog dialog(nullptr);
        QCOMPARE(dialog.findChild<QListWidget*>()->currentRow(), 0);
        QVERIFY(detailsOf(dialog).startsWith(CompilerName + u'\n'));
    }

    void aboutShowsTheDetails_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("details");
        QTest::newRow("Qt")
            << qtName()
            << u"Qt Framework\n"
               u"Módulos usados pelo Tessel: Qt Core e Qt Widgets.\n"
               u"O Qt é usado sob a GNU Lesser General Public License, versão 3 (LGPLv3), com "
               u"vinculação dinâmica. © The Qt Company Ltd. e outros colaboradores. Qt é marca "
               u"registrada da The Qt Company Ltd. e de suas subsidiárias.\n"
               u"Prefixo de instalação do Qt detectado em tempo de execução:\n"_s +
                   QLibraryInfo::path(QLibraryInfo::PrefixPath);
        QTest::newRow("libsodium")
            << sodiumName()
            << u"libsodium\n"
               u"Biblioteca criptográfica usada para Argon2id e XChaCha20-Poly1305.\n"
               u"Licença: ISC License. © 2013-2017 Frank Denis.\n"
               u"Ao distribuir binários da libsodium, mantenha o aviso de direitos autorais e o "
               u"texto "
               u"da licença ISC."_s;
        QTest::newRow("compiler runtime")
            << CompilerName
            << u"Microsoft Visual C++ Runtime\n"
               u"Compilações do Tessel feitas com o compilador Microsoft Visual C++ precisam das "
               u"bibliotecas de execução desse compilador, distribuídas segundo os termos de "
               u"redistribuição da Microsoft."_s;
        QTest::newRow("Windows")
            << WindowsName
            << u"Microsoft Windows APIs\n"
               u"No Windows, o Tessel usa as APIs do Windows para detectar unidades removíveis e "
               u"integrar-se à área de trabalho. Elas fazem parte da plataforma do sistema "
               u"operacional."_s;
    }
    void aboutShowsTheDetails() {
        QFETCH(const QString, name);
        QFETCH(const QString, details);
        const AboutDialog dialog(nullptr);
        auto* list = dialog.findChild<QListWidget*>();
        const QList<QListWidgetItem*> found = list->findItems(name, Qt::MatchExactly);
        QCOMPARE(found.size(), 1);
        list->setCurrentItem(nullptr);
        list->setCurrentItem(found.constFirst());
        QCOMPARE(detailsOf(dialog), details);
    }

    void aboutShowsNothingForWhatIsNotListed_data() {
        QTest::addColumn<QString>("name");
        QTest::newRow("unknown") << u"libfoo"_s;
        QTest::newRow("empty") << QString();
        QTest::newRow("other letter case") << WindowsName.toUpper();
        QTest::newRow("only the beginning") << u"libsodium"_s;
    }
    void aboutShowsNothingForWhatIsNotListed() {
        QFETCH(const QString, name);
        AboutDialog dialog(nullptr);
        QVERIFY(!detailsOf(dialog).isEmpty());
        dialog.updateDetails(name);
        QCOMPARE(detailsOf(dialog), QString());
        dialog.updateDetails(WindowsName);
        QVERIFY(detailsOf(dialog).startsWith(WindowsName));
    }

    void aboutListIsTight() {
        AboutDialog dialog(nullptr);
        const auto* list = dialog.findChild<QListWidget*>();
        QCOMPARE(list->minimumHeight(), 82);
        QCOMPARE(list->spacing(), 0);
        QVERIFY(!list->uniformItemSizes());
        QCOMPARE(list->styleSheet(), u"QListWidget::item { padding: 0px; margin: 0px; }"_s);

        QFont large = list->font();
        large.setPointSize(31);
        QStyleOptionViewItem option;
        option.fontMetrics = QFontMetrics(large);
        option.font = large;
        const QModelIndex first = list->model()->index(0, 0);
        const QSize hint = list->itemDelegate()->sizeHint(option, first);
        QCOMPARE(hint.height(), QFontMetrics(large).height() + 3);
        QCOMPARE(hint.width(), QStyledItemDelegate().sizeHint(option, first).width());
    }

    void aboutDetailsCannotBeChanged() {
        const AboutDialog dialog(nullptr);
        const auto* details = dialog.findChild<QTextEdit*>();
        QVERIFY(details->isReadOnly());
        QCOMPARE(details->minimumHeight(), 104);
        QCOMPARE(details->document()->documentMargin(), 4.0);
        QCOMPARE(details->styleSheet(), u"QTextEdit { padding: 0px; }"_s);
    }

    void aboutGivesTheLegalNotice() {
        const AboutDialog dialog(nullptr);
        const QLabel* notice = labelWith(dialog, u"O Tessel é software livre"_s);
        QVERIFY(notice);
        QVERIFY(notice->wordWrap());
        QCOMPARE(
            notice->text(),
            u"O Tessel é software livre: você pode redistribuí-lo e modificá-lo nos termos da GNU "
            u"General Public License, versão 3 ou, a seu critério, qualquer versão posterior. É "
            u"distribuído SEM NENHUMA GARANTIA, na extensão permitida pela lei. O Tessel também "
            u"usa a biblioteca libcrypto do OpenSSL (Apache License 2.0) para calcular o resumo "
            u"dos arquivos. As marcas citadas pertencem aos respectivos titulares."_s);
    }

    void aboutNeedsNoScrollingAtItsSize() {
        AboutDialog dialog(nullptr);
        dialog.show();
        QCOMPARE(dialog.size(), QSize(760, 520));
        const auto* list = dialog.findChild<QListWidget*>();
        for (int row = 0; row < list->count(); ++row) {
            dialog.updateDetails(list->item(row)->text());
            QCOMPARE(dialog.findChild<QTextEdit*>()->verticalScrollBar()->maximum(), 0);
        }
        QCOMPARE(list->verticalScrollBar()->maximum(), 0);
    }

    void aboutHasOnlyTheCloseButton() {
        AboutDialog dialog(nullptr);
        dialog.show();
        auto* box = dialog.findChild<QDialogButtonBox*>();
        QCOMPARE(box->buttons().size(), 1);
        QCOMPARE(box->buttons().constFirst()->text(), u"Fechar"_s);
        QCOMPARE(box->buttonRole(box->buttons().constFirst()), QDialogButtonBox::AcceptRole);
        const QSignalSpy accepted(&dialog, &QDialog::accepted);
        QVERIFY(pressButton(box, u"Fechar"_s));
        QCOMPARE(accepted.size(), 1);
        QVERIFY(!dialog.isVisible());
    }

    void theMenuOpensTheDialog_data() {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("className");
        QTest::newRow("help") << u"Ajuda"_s << u"Ajuda do Tessel"_s << u"Tessel::UI::HelpDialog"_s;
        QTest::newRow("about") << u"Sobre o Tessel"_s << u"Sobre o Tessel"_s
                               << u"Tessel::UI::AboutDialog"_s;
    }
    void theMenuOpensTheDialog() {
        QFETCH(const QString, command);
        QFETCH(const QString, title);
        QFETCH(const QString, className);
        WindowDriver driver;
        driver.dialogs.handle(title, [&driver](QDialog* dialog) {
            QCOMPARE(dialog->parentWidget(), &driver.window);
            QVERIFY(pressButton(dialog, u"Fechar"_s));
        });
        driver.action(command)->trigger();
        QVERIFY2(driver.dialogs.finished(), qPrintable(driver.dialogs.problems()));
        QCOMPARE(driver.dialogs.seen().size(), 1);
        QCOMPARE(driver.dialogs.seen().constFirst().className, className);
        QCOMPARE(driver.dialogs.seen().constFirst().buttons, QStringList{u"Fechar"_s});
        QVERIFY(driver.window.findChildren<QDialog*>().isEmpty());
    }

    void theMenuOpensTheOfficialPage() {
        const BrowserStandIn browser;
        const WindowDriver driver;
        driver.action(u"Visitar a página oficial do Tessel"_s)->trigger();
        QCOMPARE(browser.opened, QList<QUrl>{QUrl(QStringLiteral(TESSEL_HOMEPAGE_URL))});
    }
};

TESSEL_TEST_MAIN(Tessel::Tests::runTest<QApplication, TestHelpAbout>);
#include "test_help_about.moc"
