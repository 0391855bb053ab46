// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/HelpDialog.h"

#include <QColor>
#include <QDialogButtonBox>
#include <QFile>
#include <QImage>
#include <QPushButton>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextDocument>
#include <QTextImageFormat>
#include <QUrl>
#include <QVBoxLayout>

#include <cmath>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

constexpr QSize HelpSize(760, 560);

QString helpFolder() {
    return u":/help/pt_BR"_s;
}

/// The guide's bytes; null when it cannot be read.
QByteArray readHelpPage() {
    QFile page(helpFolder() + u"/index.html"_s);
    return page.open(QIODevice::ReadOnly | QIODevice::Text) ? page.readAll() : QByteArray();
}

/// The page with headings and links that can be read on this ground.
QString readableOn(const QColor& ground, QString page) {
    constexpr float Middle = 0.5F;
    if (ground.lightnessF() < Middle) {
        page.replace(u"#1f6fb5"_s, u"#6db3f2"_s);
    }
    return page;
}

/// The format of every picture in the document, with its name and width.
QList<QTextImageFormat> picturesOf(const QTextDocument& document) {
    QList<QTextImageFormat> pictures;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        for (auto piece = block.begin(); !piece.atEnd(); ++piece) {
            const QTextImageFormat format = piece.fragment().charFormat().toImageFormat();
            if (format.isValid()) {
                pictures.append(format);
            }
        }
    }
    return pictures;
}

} // namespace

HelpDialog::HelpDialog(QWidget* parent) : QDialog(parent) {
    buildUi();
    loadHelpContent();
}

void HelpDialog::buildUi() {
    setWindowTitle(tr("Ajuda do Tessel"));
    setModal(true);
    resize(HelpSize);

    m_viewer = new QTextBrowser(this);
    m_viewer->setAccessibleName(windowTitle());
    m_viewer->setOpenExternalLinks(true);
    // The page names its pictures relative to itself, so that a browser can show it as well.
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
    m_viewer->setHtml(readableOn(palette().color(QPalette::Base), QString::fromUtf8(page)));
    smoothPictures();
}

void HelpDialog::smoothPictures() {
    // The viewer skips pixels when it shrinks a picture, which makes its texts hard to read.
    for (const QTextImageFormat& format : picturesOf(*m_viewer->document())) {
        const QUrl name(format.name());
        QImage picture = QImage::fromData(
            m_viewer->loadResource(QTextDocument::ImageResource, name).toByteArray());
        const int width = static_cast<int>(std::lround(format.width() * devicePixelRatioF()));
        if (picture.isNull() || width <= 0) {
            continue;
        }
        picture = picture.scaledToWidth(width, Qt::SmoothTransformation);
        picture.setDevicePixelRatio(devicePixelRatioF());
        m_viewer->document()->addResource(QTextDocument::ImageResource, name, picture);
    }
}

} // namespace Tessel::UI
