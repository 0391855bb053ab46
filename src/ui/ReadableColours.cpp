// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/ReadableColours.h"

#include <QApplication>
#include <QColor>
#include <QEvent>
#include <QPalette>
#include <QWidget>

#include <algorithm>
#include <cmath>

namespace Tessel::UI {

namespace {

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

/// The ground, or one of its shades on which the text can be read.
QColor groundFor(const QColor& text, QColor ground) {
    // A little more than 4.5, because the edges of thin letters are mixed with the ground.
    constexpr double Readable = 4.6;
    constexpr int Step = 105;
    const bool darken = luminance(text) > luminance(ground);
    while (contrast(text, ground) < Readable) {
        const QColor next = darken ? ground.darker(Step) : ground.lighter(Step);
        if (next.rgb() == ground.rgb()) {
            break;
        }
        ground = next;
    }
    return ground;
}

QPalette readable(QPalette palette) {
    palette.setColor(QPalette::Active, QPalette::Highlight,
                     groundFor(palette.color(QPalette::Active, QPalette::HighlightedText),
                               palette.color(QPalette::Active, QPalette::Highlight)));
    for (int number = 0; number < QPalette::NColorRoles; ++number) {
        const auto role = static_cast<QPalette::ColorRole>(number);
        palette.setBrush(QPalette::Inactive, role, palette.brush(QPalette::Active, role));
    }
    return palette;
}

class ReadableColours : public QObject {
public:
    explicit ReadableColours(QWidget* widget) : QObject(widget), m_widget(widget) {
        apply();
        qApp->installEventFilter(this);
    }

    bool eventFilter(QObject* watched, QEvent* event) override {
        // Windows hear of it as well, but not what is in them.
        if (watched == qApp && event->type() == QEvent::ApplicationPaletteChange) {
            apply();
        }
        return false;
    }

private:
    void apply() {
        // With a style sheet Qt keeps the palette that the widget had when it was set, and brings
        // that back.
        const QString styleSheet = m_widget->styleSheet();
        m_widget->setStyleSheet(QString());
        m_widget->setPalette(readable(QApplication::palette(m_widget)));
        m_widget->setStyleSheet(styleSheet);
    }

    QWidget* m_widget;
};

} // namespace

void keepReadable(QWidget* widget) {
    new ReadableColours(widget);
}

} // namespace Tessel::UI
