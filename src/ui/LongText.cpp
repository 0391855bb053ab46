// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/LongText.h"

#include "ui/DisplayFormats.h"

#include <QApplication>
#include <QEvent>
#include <QHelpEvent>
#include <QMessageBox>
#include <QPainter>
#include <QScreen>
#include <QStyle>
#include <QTextDocument>
#include <QTextLayout>
#include <QToolTip>

#include <algorithm>
#include <cmath>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

/// The text's lines, none wider than @p width. @return their size
QSize breakLines(QTextLayout* layout, int width, Qt::Alignment alignment) {
    QTextOption option(alignment);
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout->setTextOption(option);
    qreal height = 0;
    qreal widest = 0;
    layout->beginLayout();
    for (QTextLine line = layout->createLine(); line.isValid(); line = layout->createLine()) {
        line.setLineWidth(width);
        line.setPosition(QPointF(0, height));
        height += line.height();
        widest = std::max(widest, line.naturalTextWidth());
    }
    layout->endLayout();
    return {static_cast<int>(std::ceil(widest)), static_cast<int>(std::ceil(height))};
}

/// A layout knows no line breaks but this one.
QString linesOf(const QString& text) {
    return QString(text).replace(u'\n', QChar::LineSeparator);
}

/// The selected part of the label's text, as it is to be painted.
QList<QTextLayout::FormatRange> selectionIn(const QLabel& label) {
    if (!label.hasSelectedText()) {
        return {};
    }
    QTextLayout::FormatRange range;
    range.start = label.selectionStart();
    range.length = static_cast<int>(label.selectedText().size());
    range.format.setBackground(label.palette().highlight());
    range.format.setForeground(label.palette().highlightedText());
    return {range};
}

void paintLines(QLabel* label) {
    QPainter painter(label);
    QTextLayout layout(linesOf(label->text()), label->font(), label);
    const QRect area = label->contentsRect();
    const QSize size = breakLines(&layout, area.width(), label->alignment());
    const int top = area.top() + std::max(0, (area.height() - size.height()) / 2);
    layout.draw(&painter, QPointF(area.left(), top), selectionIn(*label));
}

/// Paints the text of a label that Qt has made.
class LinePainter : public QObject {
public:
    using QObject::QObject;

    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::Paint) {
            return false;
        }
        paintLines(static_cast<QLabel*>(watched));
        return true;
    }
};

bool hasWordWiderThan(const QLabel& label, int width) {
    const QStringList words = label.text().simplified().split(u' ');
    return std::any_of(words.cbegin(), words.cend(), [&](const QString& word) {
        return label.fontMetrics().horizontalAdvance(word) > width;
    });
}

/// The window that the other one, perhaps a dialog of a dialog, belongs to in the end.
const QWidget* outermostOf(const QWidget* window) {
    while (window != nullptr && window->parentWidget() != nullptr) {
        window = window->parentWidget();
    }
    return window;
}

} // namespace

// --- One line --------------------------------------------------------------------------------

QSize ElidedLabel::minimumSizeHint() const {
    return {0, QLabel::minimumSizeHint().height()};
}

QString ElidedLabel::shownText() const {
    return fontMetrics().elidedText(text(), Qt::ElideMiddle, contentsRect().width());
}

bool ElidedLabel::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        const bool cut = shownText() != text();
        QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(),
                           cut ? longToolTip(text()) : QString(), this);
        return true;
    }
    return QLabel::event(event);
}

void ElidedLabel::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    style()->drawItemText(&painter, contentsRect(), Qt::AlignLeft | Qt::AlignVCenter, palette(),
                          isEnabled(), shownText(), foregroundRole());
}

// --- Several lines ---------------------------------------------------------------------------

WrappedLabel::WrappedLabel(const QString& text, int widest, QWidget* parent)
    : QLabel(text, parent), m_widest(widest) {
    setTextFormat(Qt::PlainText);
}

QSize WrappedLabel::sizeHint() const {
    const QSize natural = QLabel::sizeHint();
    if (natural.width() <= m_widest) {
        return natural;
    }
    QTextLayout layout(linesOf(text()), font(), this);
    return breakLines(&layout, m_widest, alignment());
}

void WrappedLabel::paintEvent(QPaintEvent* event) {
    if (QLabel::sizeHint().width() <= m_widest) {
        QLabel::paintEvent(event);
    } else {
        paintLines(this);
    }
}

int widestTextFor(const QWidget* window, int beside) {
    constexpr int Margins = 80;
    constexpr int Characters = 80;
    const int comfortable = QFontMetrics(QApplication::font()).averageCharWidth() * Characters;
    const QWidget* outermost = outermostOf(window);
    if (outermost == nullptr) {
        return comfortable;
    }
    const int available =
        std::min(outermost->width(), outermost->screen()->availableGeometry().width());
    return std::min(comfortable, available - Margins - beside);
}

void breakLongWords(QMessageBox* box) {
    auto* label = box->findChild<QLabel*>(u"qt_msgbox_label"_s);
    const int icon = box->style()->pixelMetric(QStyle::PM_MessageBoxIconSize, nullptr, box);
    const int widest = widestTextFor(box->parentWidget(), icon);
    if (label == nullptr || !hasWordWiderThan(*label, widest)) {
        return;
    }
    QTextLayout layout(linesOf(label->text()), label->font(), label);
    const QSize size = breakLines(&layout, widest, label->alignment());
    const QMargins margins = label->contentsMargins();
    label->setFixedSize(QSize(widest, size.height()).grownBy(margins));
    label->installEventFilter(new LinePainter(label));
}

QString longToolTip(const QString& text) {
    constexpr qsizetype Unbroken = 60;
    const QChar breakHere(0x200B);
    QString shown;
    qsizetype sinceBreak = 0;
    for (const QChar letter : text) {
        const bool breaks = letter.isSpace();
        if (sinceBreak >= Unbroken && !letter.isLowSurrogate() && !breaks) {
            shown.append(breakHere);
            sinceBreak = 0;
        }
        shown.append(letter);
        sinceBreak = breaks ? 0 : sinceBreak + 1;
    }
    // Only what Qt takes for rich text gets lines.
    return shown == text ? plainToolTip(text) : Qt::convertFromPlainText(shown);
}

} // namespace Tessel::UI
