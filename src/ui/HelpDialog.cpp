// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/HelpDialog.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QPushButton>
#include <QTextBrowser>
#include <QVBoxLayout>

namespace Tessel::UI {

namespace {

constexpr QSize InitialSize(760, 560);

QString helpFolder() {
    return QStringLiteral(":/help/pt_BR");
}

/// The guide's bytes; null when it cannot be read.
QByteArray readHelpPage() {
    QFile page(helpFolder() + QStringLiteral("/index.html"));
    return page.open(QIODevice::ReadOnly | QIODevice::Text) ? page.readAll() : QByteArray();
}

} // namespace

HelpDialog::HelpDialog(QWidget* parent) : QDialog(parent) {
    buildUi();
    loadHelpContent();
}

void HelpDialog::buildUi() {
    setWindowTitle(tr("Ajuda do Tessel"));
    setModal(true);
    resize(InitialSize);

    m_viewer = new QTextBrowser(this);
    m_viewer->setOpenExternalLinks(true);
    // The page names its pictures relative to itself, so that it can also be read in a browser.
    m_viewer->setSearchPaths({helpFolder()});

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    buttons->button(QDialogButtonBox::Close)->setText(tr("Fechar"));
    connect(buttons, &QDialogButtonBox::rejected, this, &HelpDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_viewer);
    layout->addWidget(buttons);
}

void HelpDialog::loadHelpContent() {
    const QByteArray page = readHelpPage();
    if (page.isNull()) {
        m_viewer->setHtml(tr("<h1>Ajuda indisponível</h1>"
                             "<p>Não foi possível carregar o arquivo de ajuda do Tessel.</p>"));
        return;
    }
    m_viewer->setHtml(QString::fromUtf8(page));
}

} // namespace Tessel::UI
