// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/StatusLabels.h"

#include "core/ContainerLayout.h"
#include "ui/DisplayFormats.h"
#include "ui/ProductInfo.h"
#include "ui/WindowText.h"

#include <QDate>
#include <QFileInfo>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QStatusBar>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

QLabel* buildLabel(const QString& text, int width, const QString& objectName) {
    auto* label = new QLabel(text);
    label->setObjectName(objectName);
    label->setTextFormat(Qt::PlainText);
    label->setFixedWidth(width);
    label->setAlignment(Qt::AlignCenter);
    return label;
}

QString paddedStyle() {
    return u"QLabel { font-size: 11px; padding-left: 4px; padding-right: 4px; }"_s;
}

QString vaultStateStyle(bool unlocked) {
    return unlocked ? u"QLabel { background-color: #7bd88f; color: #000000; "
                      "font-size: 11px; font-weight: 600; padding-left: 4px; "
                      "padding-right: 4px; }"_s
                    : u"QLabel { background-color: #f06a6a; color: #000000; "
                      "font-size: 11px; font-weight: 600; padding-left: 4px; "
                      "padding-right: 4px; }"_s;
}

/// A container of the usual name is shown by the product's name, any other one by its own.
QString containerDisplayName(const QString& containerPath) {
    const QString fileName = QFileInfo(containerPath).fileName();
    const bool usual =
        fileName.compare(Core::ContainerLayout::ContainerFileName, Qt::CaseInsensitive) == 0;
    return usual ? ProductInfo::name() : nameInSentence(fileName);
}

} // namespace

StatusLabels::StatusLabels(QStatusBar* bar) : QObject(bar) {
    auto* version =
        buildLabel(WindowText::tr("Versão %1").arg(QLatin1StringView(ProductInfo::DefaultVersion)),
                   180, u"versionLabel"_s);
    version->setStyleSheet(paddedStyle());
    auto* date = buildLabel(QDate::currentDate().toString(u"dd/MM/yyyy"_s), 78, u"dateLabel"_s);
    date->setStyleSheet(u"QLabel { font-size: 11px; }"_s);
    m_vaultState = buildLabel(WindowText::tr("COFRE"), 50, u"vaultStateLabel"_s);

    bar->setSizeGripEnabled(false);
    bar->addPermanentWidget(buildContainerBox());
    bar->addPermanentWidget(version);
    bar->addPermanentWidget(date);
    bar->addPermanentWidget(m_vaultState);
}

QWidget* StatusLabels::buildContainerBox() {
    constexpr int BoxWidth = 140;
    constexpr int LineWidth = 1;
    auto* line = new QFrame;
    line->setFixedWidth(LineWidth);
    line->setStyleSheet(u"QFrame { background-color: #c8c8c8; }"_s);
    // A fixed width, so that the text is elided to it even before the first layout.
    m_container =
        buildLabel(WindowText::tr("Container: nenhum"), BoxWidth - LineWidth, u"containerLabel"_s);
    m_container->setStyleSheet(paddedStyle());

    auto* box = new QWidget;
    box->setFixedWidth(BoxWidth);
    auto* layout = new QHBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(line);
    layout->addWidget(m_container);
    return box;
}

void StatusLabels::showContainer(const QString& containerPath) {
    constexpr int Padding = 8;
    const QString name =
        containerPath.isEmpty() ? WindowText::tr("nenhum") : containerDisplayName(containerPath);
    const QString text = WindowText::tr("Container: %1").arg(name);
    // The text is measured in the font of the style sheet.
    m_container->ensurePolished();
    m_container->setText(m_container->fontMetrics().elidedText(text, Qt::ElideMiddle,
                                                               m_container->width() - Padding));
    m_container->setAccessibleName(text);
    m_container->setToolTip(plainToolTip(text));
}

void StatusLabels::showVaultState(bool unlocked) {
    m_vaultState->setStyleSheet(vaultStateStyle(unlocked));
    // The colour says it to those who see it.
    m_vaultState->setAccessibleName(unlocked ? WindowText::tr("Cofre aberto")
                                             : WindowText::tr("Cofre bloqueado"));
}

} // namespace Tessel::UI
