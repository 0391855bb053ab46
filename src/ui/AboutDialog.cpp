// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/AboutDialog.h"

#include "ui/ProductInfo.h"
#include "ui/ReadableColours.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QFontMetrics>
#include <QGraphicsDropShadowEffect>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QLibraryInfo>
#include <QListWidget>
#include <QStyledItemDelegate>
#include <QSysInfo>
#include <QTextDocument>
#include <QTextEdit>
#include <QVBoxLayout>

#include <sodium.h>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

constexpr QSize AboutSize(760, 520);
constexpr int TitleEnlargementPoints = 16;
constexpr int RowPaddingPixels = 3;
constexpr int ListMinimumHeight = 82;
constexpr int DetailsMinimumHeight = 104;
constexpr qreal DetailsMargin = 4.0;

/// Rows of the component list, only as high as their text needs.
class CompactListItemDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option,
                                 const QModelIndex& index) const override {
        QSize hint = QStyledItemDelegate::sizeHint(option, index);
        hint.setHeight(option.fontMetrics.height() + RowPaddingPixels);
        return hint;
    }
};

/// The caption above a widget; also its name for a screen reader.
QLabel* buildCaption(const QString& text, QWidget* widget) {
    auto* caption = new QLabel(text);
    widget->setAccessibleName(text);
    return caption;
}

/// Adds a light edge in dark themes, where the product's blue is hard to read.
void liftFromDarkGround(QLabel* label) {
    if (label->palette().color(QPalette::Window).lightnessF() > 0.5F) {
        return;
    }
    auto* edge = new QGraphicsDropShadowEffect(label);
    edge->setOffset(0, 0);
    edge->setBlurRadius(6);
    edge->setColor(Qt::white);
    label->setGraphicsEffect(edge);
}

QString applicationVersion() {
    const QString version = QCoreApplication::applicationVersion();
    return version.isEmpty() ? QLatin1StringView(ProductInfo::DefaultVersion) : version;
}

} // namespace

AboutDialog::AboutDialog(QWidget* parent) : QDialog(parent) {
    buildUi();
    populateComponents();
}

void AboutDialog::buildUi() {
    setWindowTitle(tr("Sobre o Tessel"));
    setModal(true);
    resize(AboutSize);

    m_versionLabel = buildVersionLabel();
    m_components = buildComponentList();
    m_details = buildDetailsView();

    auto* summary = new QGridLayout;
    summary->addLayout(buildHeader(), 0, 0);
    summary->addWidget(m_versionLabel, 1, 0, Qt::AlignTop);
    summary->addWidget(buildRuntimeLabel(), 1, 1, Qt::AlignTop);
    summary->setColumnStretch(0, 1);
    summary->setColumnStretch(1, 1);

    auto* buttons = new QDialogButtonBox(this);
    buttons->addButton(tr("Fechar"), QDialogButtonBox::AcceptRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &AboutDialog::accept);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(summary);
    layout->addSpacing(10);
    layout->addWidget(buildCaption(tr("Componentes e bibliotecas relevantes:"), m_components));
    layout->addWidget(m_components);
    layout->addSpacing(8);
    layout->addWidget(buildCaption(tr("Detalhes do componente:"), m_details));
    layout->addWidget(m_details);
    layout->addWidget(buildLegalNotice());
    layout->addWidget(buttons);
}

QLayout* AboutDialog::buildHeader() {
    auto* title = new QLabel(u"Tessel"_s, this);
    QFont titleFont = font();
    titleFont.setPointSize(titleFont.pointSize() + TitleEnlargementPoints);
    titleFont.setWeight(QFont::DemiBold);
    title->setFont(titleFont);
    title->setStyleSheet(u"color: #0B4F8A;"_s);
    liftFromDarkGround(title);

    const int side = QFontMetrics(titleFont).height();
    auto* icon = new QLabel(this);
    icon->setFixedSize(side, side);
    icon->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    icon->setAccessibleName(title->text());
    icon->setPixmap(QIcon(ProductInfo::iconResource()).pixmap(side, side));

    auto* header = new QHBoxLayout;
    header->setContentsMargins(0, 0, 0, 0);
    header->addWidget(icon);
    header->addWidget(title);
    header->addStretch();
    return header;
}

QLabel* AboutDialog::buildVersionLabel() {
    const QString address = ProductInfo::homepage().toString().toHtmlEscaped();
    auto* label = new QLabel(this);
    label->setTextFormat(Qt::RichText);
    label->setText(tr("Tessel<br>Versão %1<br>"
                      "© 2026 %2 – <a href=\"%3\">%3</a><br>"
                      "Direitos reservados nos termos da licença GPL-3.0-or-later.")
                       .arg(applicationVersion().toHtmlEscaped(),
                            ProductInfo::ownerName().toHtmlEscaped(), address));
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::LinksAccessibleByMouse |
                                   Qt::LinksAccessibleByKeyboard);
    label->setOpenExternalLinks(false);
    // Without a browser nothing happens; the label shows the address to be copied.
    connect(label, &QLabel::linkActivated, this,
            [](const QString& link) { QDesktopServices::openUrl(QUrl(link)); });
    return label;
}

QLabel* AboutDialog::buildRuntimeLabel() {
    auto* label = new QLabel(this);
    label->setTextFormat(Qt::PlainText);
    label->setText(tr("Ambiente de execução\n%1\nQt %2\n%3")
                       .arg(QSysInfo::prettyProductName(), QString::fromLatin1(qVersion()),
                            QSysInfo::currentCpuArchitecture()));
    return label;
}

QListWidget* AboutDialog::buildComponentList() {
    auto* list = new QListWidget(this);
    list->setMinimumHeight(ListMinimumHeight);
    list->setSpacing(0);
    list->setUniformItemSizes(false);
    list->setItemDelegate(new CompactListItemDelegate(list));
    list->setStyleSheet(u"QListWidget::item { padding: 0px; margin: 0px; }"_s);
    keepReadable(list);
    return list;
}

QTextEdit* AboutDialog::buildDetailsView() {
    auto* view = new QTextEdit(this);
    view->setReadOnly(true);
    view->setMinimumHeight(DetailsMinimumHeight);
    view->document()->setDocumentMargin(DetailsMargin);
    view->setStyleSheet(u"QTextEdit { padding: 0px; }"_s);
    return view;
}

QLabel* AboutDialog::buildLegalNotice() {
    auto* notice = new QLabel(
        tr("O Tessel é software livre: você pode redistribuí-lo e modificá-lo nos termos da GNU "
           "General Public License, versão 3 ou, a seu critério, qualquer versão posterior. É "
           "distribuído SEM NENHUMA GARANTIA, na extensão permitida pela lei. O Tessel também usa "
           "a biblioteca libcrypto do OpenSSL (Apache License 2.0) para calcular o resumo dos "
           "arquivos. As marcas citadas pertencem aos respectivos titulares."),
        this);
    notice->setWordWrap(true);
    return notice;
}

void AboutDialog::populateComponents() {
    m_componentDetails = {
        {tr("Qt 6 Core/Widgets - %1").arg(QString::fromLatin1(qVersion())),
         tr("Qt Framework\nMódulos usados pelo Tessel: Qt Core e Qt Widgets.\n%1\n"
            "Prefixo de instalação do Qt detectado em tempo de execução:\n%2")
             .arg(tr("O Qt é usado sob a GNU Lesser General Public License, versão 3 (LGPLv3), "
                     "com vinculação dinâmica. © The Qt Company Ltd. e outros colaboradores. Qt "
                     "é marca registrada da The Qt Company Ltd. e de suas subsidiárias."),
                  QLibraryInfo::path(QLibraryInfo::PrefixPath))},
        {tr("libsodium - %1").arg(QString::fromLatin1(sodium_version_string())),
         tr("libsodium\n"
            "Biblioteca criptográfica usada para Argon2id e XChaCha20-Poly1305.\n"
            "Licença: ISC License. © 2013-2017 Frank Denis.\n"
            "Ao distribuir binários da libsodium, mantenha o aviso de direitos autorais e o "
            "texto da licença ISC.")},
        {tr("Microsoft Visual C++ Runtime"),
         tr("Microsoft Visual C++ Runtime\n"
            "Compilações do Tessel feitas com o compilador Microsoft Visual C++ precisam das "
            "bibliotecas de execução desse compilador, distribuídas segundo os termos de "
            "redistribuição da Microsoft.")},
        {tr("Microsoft Windows APIs"),
         tr("Microsoft Windows APIs\n"
            "No Windows, o Tessel usa as APIs do Windows para detectar unidades removíveis e "
            "integrar-se à área de trabalho. Elas fazem parte da plataforma do sistema "
            "operacional.")},
    };

    m_components->addItems(m_componentDetails.keys());
    connect(m_components, &QListWidget::currentTextChanged, this, &AboutDialog::updateDetails);
    if (m_components->count() > 0) {
        m_components->setCurrentRow(0);
    }
}

void AboutDialog::updateDetails(const QString& name) {
    m_details->setPlainText(m_componentDetails.value(name));
}

} // namespace Tessel::UI
