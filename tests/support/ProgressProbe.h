// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QApplication>
#include <QEvent>
#include <QObject>
#include <QPointer>
#include <QProgressBar>
#include <QProgressDialog>

#include <functional>

namespace Tessel::Tests {

/// Runs a function whenever a progress dialog moves, inside the operation that it shows.
class ProgressProbe : public QObject {
public:
    using Moved = std::function<void(QProgressDialog* dialog, int value)>;

    explicit ProgressProbe(const Moved& moved) : m_moved(moved) { qApp->installEventFilter(this); }
    ~ProgressProbe() override { qApp->removeEventFilter(this); }
    Q_DISABLE_COPY_MOVE(ProgressProbe)

    bool eventFilter(QObject* watched, QEvent* event) override {
        auto* dialog = qobject_cast<QProgressDialog*>(watched);
        // The window system may show it again.
        if (dialog != nullptr && event->type() == QEvent::Show && dialog != m_watched) {
            m_watched = dialog;
            connect(dialog->findChild<QProgressBar*>(), &QProgressBar::valueChanged, this,
                    [this, dialog](int value) { m_moved(dialog, value); });
        }
        return QObject::eventFilter(watched, event);
    }

private:
    Moved m_moved;
    QPointer<QProgressDialog> m_watched;
};

} // namespace Tessel::Tests
