// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/LongText.h"

#include "ui/DisplayFormats.h"

#include <QApplication>
#include <QEvent>
#include <QHelpEvent>
#include <QMessageBox>
#include <QPainter>
#include <QStyle>
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

void paintLines(QLabel* label) {
    QPainter painter(label);
    QTextLayout layout(linesOf(label->text()), label->font(), label);
    const QRect area = label->contentsRect();
    const QSize size = breakLines(&layout, area.width(), label->alignment());
    const int top = area.top() + std::max(0, (area.height() - size.height()) / 2);
    layout.draw(&painter, QPointF(area.left(), top));
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
                           cut ? plainToolTip(text()) : QString(), this);
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

int widestTextFor(const QWidget* window) {
    constexpr int Margins = 80;
    constexpr int Characters = 80;
    const int comfortable = QFontMetrics(QApplication::font()).averageCharWidth() * Characters;
    return window == nullptr ? comfortable : std::min(comfortable, window->width() - Margins);
}

void breakLongWords(QMessageBox* box) {
    auto* label = box->findChild<QLabel*>(u"qt_msgbox_label"_s);
    const int widest = widestTextFor(nullptr);
    if (label == nullptr || !hasWordWiderThan(*label, widest)) {
        return;
    }
    QTextLayout layout(linesOf(label->text()), label->font(), label);
    const QSize size = breakLines(&layout, widest, label->alignment());
    const QMargins margins = label->contentsMargins();
    label->setFixedSize(QSize(widest, size.height()).grownBy(margins));
    label->installEventFilter(new LinePainter(label));
}

} // namespace Tessel::UI
