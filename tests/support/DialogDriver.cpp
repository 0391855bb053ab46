// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/DialogDriver.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QFileDialog>
#include <QInputDialog>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QProgressDialog>
#include <QPushButton>
#include <QStatusBar>
#include <QTimer>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::Tests {

namespace {

QString plainButtonText(const QAbstractButton* button) {
    return button->text().remove(QLatin1Char('&'));
}

QString textOf(const QDialog* dialog) {
    if (const auto* box = qobject_cast<const QMessageBox*>(dialog)) {
        return box->text();
    }
    if (const auto* input = qobject_cast<const QInputDialog*>(dialog)) {
        return input->labelText();
    }
    const auto* label = dialog->findChild<QLabel*>();
    return label ? label->text() : QString();
}

/// Of the window that has a status bar; dialogs have none.
QString statusOfTheWindow() {
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (const QWidget* window : windows) {
        const auto* bar = window->findChild<QStatusBar*>(QString(), Qt::FindDirectChildrenOnly);
        if (bar != nullptr) {
            return bar->currentMessage();
        }
    }
    return {};
}

DialogDriver::Seen describe(const QDialog* dialog) {
    DialogDriver::Seen seen;
    seen.className = QString::fromLatin1(dialog->metaObject()->className());
    seen.title = dialog->windowTitle();
    seen.text = textOf(dialog);
    seen.hasParent = dialog->parentWidget() != nullptr;
    seen.status = statusOfTheWindow();
    if (const auto* box = qobject_cast<const QMessageBox*>(dialog)) {
        seen.icon = box->icon();
    }
    const QList<QPushButton*> buttons = dialog->findChildren<QPushButton*>();
    for (const QPushButton* button : buttons) {
        if (button->isVisibleTo(dialog)) {
            seen.buttons.append(plainButtonText(button));
            if (button->isDefault()) {
                seen.defaultButton = plainButtonText(button);
            }
        }
    }
    return seen;
}

void chooseFiles(QFileDialog* dialog, const QStringList& paths) {
    auto* edit = dialog->findChild<QLineEdit*>(u"fileNameEdit"_s);
    QString text = paths.value(0);
    if (paths.size() > 1) {
        text = QLatin1Char('"') + paths.join("\" \""_L1) + QLatin1Char('"');
    }
    edit->setText(text);
    QMetaObject::invokeMethod(dialog, "accept");
}

} // namespace

DialogDriver::DialogDriver() {
    qApp->installEventFilter(this);
}

DialogDriver::~DialogDriver() {
    qApp->removeEventFilter(this);
}

void DialogDriver::answerText(const QString& title, const QString& text) {
    handle(title, [text](QDialog* dialog) {
        auto* edit = dialog->findChild<QLineEdit*>();
        edit->clear();
        typeText(edit, text);
        dialog->accept();
    });
}

void DialogDriver::answerFiles(const QString& title, const QStringList& paths) {
    handle(title,
           [paths](QDialog* dialog) { chooseFiles(qobject_cast<QFileDialog*>(dialog), paths); });
}

void DialogDriver::press(const QString& title, const QString& button) {
    handle(title, [this, button](QDialog* dialog) {
        if (!pressButton(dialog, button)) {
            m_problems.append(u"no button \"%1\" in \"%2\""_s.arg(button, dialog->windowTitle()));
            dialog->reject();
        }
    });
}

void DialogDriver::acknowledge(QMessageBox::Icon icon, const QString& title) {
    handle(title, [this, icon](QDialog* dialog) {
        const Seen& box = m_seen.last();
        if (box.icon != icon || box.buttons != QStringList(u"OK"_s)) {
            m_problems.append(
                u"\"%1\": \"%2\" has the icon %3 and the buttons %4"_s.arg(box.title, box.text)
                    .arg(box.icon)
                    .arg(box.buttons.join(", "_L1)));
        }
        if (!pressButton(dialog, u"OK"_s)) {
            dialog->reject();
        }
    });
}

void DialogDriver::reject(const QString& title) {
    handle(title, [](QDialog* dialog) { dialog->reject(); });
}

void DialogDriver::handle(const QString& title, const std::function<void(QDialog*)>& action) {
    m_answers.append({title, action});
}

QString DialogDriver::problems() const {
    QStringList all = m_problems;
    for (const Answer& answer : m_answers) {
        all.append(u"\"%1\" never opened"_s.arg(answer.title));
    }
    return all.join("; "_L1);
}

bool DialogDriver::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Show) {
        auto* dialog = qobject_cast<QDialog*>(watched);
        if (dialog && dialog->isModal() && !qobject_cast<QProgressDialog*>(dialog) &&
            !m_handled.contains(dialog)) {
            m_handled.append(dialog);
            // Answered from the dialog's own event loop, once it has been laid out.
            QTimer::singleShot(0, dialog, [this, dialog] { answer(dialog); });
        }
    }
    return QObject::eventFilter(watched, event);
}

void DialogDriver::answer(QDialog* dialog) {
    m_seen.append(describe(dialog));
    if (m_answers.isEmpty() || m_answers.first().title != dialog->windowTitle()) {
        m_problems.append(
            u"unexpected dialog \"%1\": %2"_s.arg(m_seen.last().title, m_seen.last().text));
        dialog->reject();
        return;
    }
    m_answers.takeFirst().action(dialog);
}

void typeText(QWidget* widget, const QString& text) {
    for (const QChar character : text) {
        QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, QString(character));
        QApplication::sendEvent(widget, &press);
        QKeyEvent release(QEvent::KeyRelease, 0, Qt::NoModifier, QString(character));
        QApplication::sendEvent(widget, &release);
    }
}

bool pressButton(QWidget* dialog, const QString& text) {
    const QList<QAbstractButton*> buttons = dialog->findChildren<QAbstractButton*>();
    for (QAbstractButton* button : buttons) {
        if (plainButtonText(button) == text) {
            button->click();
            return true;
        }
    }
    return false;
}

} // namespace Tessel::Tests
