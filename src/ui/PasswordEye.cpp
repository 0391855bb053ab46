// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/PasswordEye.h"

#include "ui/WindowText.h"

#include <QAction>
#include <QGuiApplication>
#include <QIcon>
#include <QIconEngine>
#include <QKeySequence>
#include <QLineEdit>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

/// In a square of this side.
constexpr int EyeSide = 16;

void paintEye(QPainter& painter, const QColor& colour, bool crossedOut) {
    QPainterPath lids(QPointF(1.0, 8.0));
    lids.quadTo(QPointF(8.0, 0.0), QPointF(15.0, 8.0));
    lids.quadTo(QPointF(8.0, 16.0), QPointF(1.0, 8.0));
    painter.setPen(QPen(colour, 1.3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.drawPath(lids);
    if (crossedOut) {
        painter.drawLine(QPointF(3.0, 14.0), QPointF(13.0, 2.0));
    }
    painter.setBrush(colour);
    painter.drawEllipse(QPointF(8.0, 8.0), 2.0, 2.0);
}

/// Painted in the text colour of the theme in use, also after the theme has changed.
class EyeIconEngine : public QIconEngine {
public:
    explicit EyeIconEngine(bool crossedOut) : m_crossedOut(crossedOut) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode /*mode*/,
               QIcon::State /*state*/) override {
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        painter->translate(rect.topLeft());
        painter->scale(rect.width() / qreal{EyeSide}, rect.height() / qreal{EyeSide});
        paintEye(*painter, QGuiApplication::palette().color(QPalette::Text), m_crossedOut);
        painter->restore();
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap pixmap(size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        paint(&painter, QRect(QPoint(), size), mode, state);
        return pixmap;
    }

    [[nodiscard]] QIconEngine* clone() const override { return new EyeIconEngine(*this); }

private:
    bool m_crossedOut;
};

void setShown(QLineEdit* edit, QAction* eye, bool shown) {
    edit->setEchoMode(shown ? QLineEdit::Normal : QLineEdit::Password);
    // Keys write the same whether they are seen or not, and no keyboard learns the words.
    edit->setAttribute(Qt::WA_InputMethodEnabled, false);
    edit->setInputMethodHints(edit->inputMethodHints() | Qt::ImhSensitiveData |
                              Qt::ImhNoPredictiveText | Qt::ImhNoAutoUppercase);
    eye->setIcon(QIcon(new EyeIconEngine(shown)));
    eye->setText(shown ? WindowText::tr("Ocultar senha") : WindowText::tr("Mostrar senha"));
    eye->setToolTip(
        u"%1 (%2)"_s.arg(eye->text(), eye->shortcut().toString(QKeySequence::NativeText)));
}

} // namespace

void addPasswordEye(QLineEdit* edit) {
    auto* eye = new QAction(edit);
    eye->setShortcut(QKeySequence(u"Ctrl+M"_s));
    // A dialog may have several fields.
    eye->setShortcutContext(Qt::WidgetShortcut);
    setShown(edit, eye, false);
    edit->addAction(eye, QLineEdit::TrailingPosition);
    QObject::connect(eye, &QAction::triggered, edit,
                     [edit, eye] { setShown(edit, eye, edit->echoMode() == QLineEdit::Password); });
}

} // namespace Tessel::UI
