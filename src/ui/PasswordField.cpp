// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/PasswordField.h"

#include "ui/PasswordEye.h"

#include <QLineEdit>
#include <QObject>
#include <QStringView>

#include <algorithm>
#include <utility>

namespace Tessel::UI {

namespace {

/// Length of the line break at the end of the text; 0 without one.
qsizetype lengthOfLastLineBreak(QStringView text) {
    if (text.endsWith(u"\r\n")) {
        return 2;
    }
    return text.endsWith(u'\n') || text.endsWith(u'\r') ? 1 : 0;
}

/// Removes the line break at the end of each paste. Keyboard, menu, mouse and drop paste in
/// different ways, but each is announced as an edit. The lengths before the edit tell a paste from
/// a deletion, so that no copy of the password is kept.
class LineBreakRemover : public QObject {
public:
    explicit LineBreakRemover(QLineEdit* edit) : QObject(edit), m_edit(edit) {
        // Emitted before textChanged, and only for edits of the user.
        connect(edit, &QLineEdit::textEdited, this, [this] { m_isEdit = true; });
        connect(edit, &QLineEdit::textChanged, this, &LineBreakRemover::textChanged);
        // Emitted after the change that removes the selection.
        connect(edit, &QLineEdit::selectionChanged, this, &LineBreakRemover::noteLengths);
        noteLengths();
    }

private:
    void textChanged(const QString& text) {
        const qsizetype inserted = text.size() - (m_length - m_selected);
        noteLengths();
        if (!std::exchange(m_isEdit, false) || inserted <= 0) {
            return;
        }
        const int end = m_edit->cursorPosition();
        const qsizetype lineBreak = lengthOfLastLineBreak(QStringView(text).first(end));
        // The paste may complete a line break: remove only the part that it inserted.
        const int superfluous = static_cast<int>(std::min(lineBreak, inserted));
        if (superfluous > 0) {
            m_edit->setSelection(end - superfluous, superfluous);
            m_edit->del();
        }
    }

    void noteLengths() {
        m_length = m_edit->text().size();
        m_selected = m_edit->selectionLength();
    }

    QLineEdit* m_edit;
    bool m_isEdit = false;
    qsizetype m_length = 0;
    qsizetype m_selected = 0;
};

} // namespace

void makePasswordField(QLineEdit* edit) {
    addPasswordEye(edit);
    new LineBreakRemover(edit);
}

QByteArray passwordIn(const QLineEdit& edit) {
    return edit.text().toUtf8();
}

void wipePassword(QLineEdit* edit) {
    // A field that shows its text shares it with what it has painted, and offers what is selected
    // to other programs.
    edit->setEchoMode(QLineEdit::Password);
    // As many asterisks overwrite the text in its own memory.
    const QString others(edit->text().size(), u'*');
    edit->selectAll();
    edit->insert(others);
    edit->clear();
}

} // namespace Tessel::UI
