// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QList>
#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <functional>

namespace Tessel::Tests {

/// Answers the modal dialogs that a command opens, in the order in which the answers were queued.
/// An unexpected dialog is recorded as a failure and rejected, so that the test ends instead of
/// hanging. Progress dialogs are left alone.
///
///     DialogDriver dialogs;
///     dialogs.answerText("Senha do cofre", "dez caracteres");
///     unlockAction->trigger();
///     QVERIFY2(dialogs.finished(), qPrintable(dialogs.problems()));
class DialogDriver : public QObject {
public:
    /// What a dialog showed when it opened.
    struct Seen {
        QString className;
        QString title;
        QString text;
        QStringList buttons;
        /// The button that Return would press.
        QString defaultButton;
        /// Of a message box; other dialogs have none.
        QMessageBox::Icon icon = QMessageBox::NoIcon;
        /// Whether it belongs to another window.
        bool hasParent = false;
        /// What the status bar of the window behind it said.
        QString status;
    };

    DialogDriver();
    ~DialogDriver() override;
    Q_DISABLE_COPY_MOVE(DialogDriver)

    /// Types into an input dialog, any characters, and accepts it.
    void answerText(const QString& title, const QString& text);
    /// Chooses files in a file dialog and accepts it.
    void answerFiles(const QString& title, const QStringList& paths);
    /// Presses the button with this text in a message box or dialog.
    void press(const QString& title, const QString& button);
    /// Acknowledges a warning box, whose only button is "OK".
    void acceptWarning(const QString& title) { acknowledge(QMessageBox::Warning, title); }
    /// Acknowledges an information box, whose only button is "OK".
    void acceptInformation(const QString& title) { acknowledge(QMessageBox::Information, title); }
    /// Rejects the dialog, as Escape and the close button do.
    void reject(const QString& title);
    /// Runs @p action with the dialog; it must end with the dialog closed.
    void handle(const QString& title, const std::function<void(QDialog*)>& action);

    /// Every dialog seen so far.
    [[nodiscard]] QList<Seen> seen() const { return m_seen; }
    /// The last dialog; an empty value before the first one.
    [[nodiscard]] Seen last() const { return m_seen.isEmpty() ? Seen() : m_seen.last(); }
    [[nodiscard]] QString lastText() const { return last().text; }
    /// Whether every answer was used and no unexpected dialog was shown.
    [[nodiscard]] bool finished() const { return m_answers.isEmpty() && m_problems.isEmpty(); }
    /// What went wrong, for the test's message.
    [[nodiscard]] QString problems() const;

    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    struct Answer {
        QString title;
        std::function<void(QDialog*)> action;
    };

    void acknowledge(QMessageBox::Icon icon, const QString& title);
    void answer(QDialog* dialog);

    QList<Answer> m_answers;
    QList<Seen> m_seen;
    QStringList m_problems;
    QList<QPointer<QDialog>> m_handled;
};

/// Sends the widget the key events of a keyboard for @p text, whether it has the focus or not.
/// Accents work, unlike with QTest::keyClicks.
void typeText(QWidget* widget, const QString& text);

/// Presses the button whose text is @p text, without its mnemonic mark; false when there is none.
[[nodiscard]] bool pressButton(QWidget* dialog, const QString& text);

} // namespace Tessel::Tests
