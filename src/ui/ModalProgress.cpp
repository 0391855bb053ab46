// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/ModalProgress.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QLabel>
#include <QProgressBar>
#include <QWindow>
#include <QtNumeric>

#include <algorithm>

namespace Tessel::UI {

namespace {

constexpr int ProgressMaximum = 1000;

} // namespace

ModalProgress::ModalProgress(QWidget* parent, const QString& title, const QString& text)
    : QProgressDialog(parent) {
    // The text holds names of files: it must never be taken for markup.
    auto* label = new QLabel(this);
    label->setTextFormat(Qt::PlainText);
    label->setAlignment(Qt::AlignCenter);
    setLabel(label);
    findChild<QProgressBar*>()->setAccessibleName(title);

    setLabelText(text);
    setRange(0, ProgressMaximum);
    setWindowTitle(title);
    setWindowFlag(Qt::WindowCloseButtonHint, false);
    setWindowModality(Qt::ApplicationModal);
    setCancelButton(nullptr);
    setAutoClose(false);
    setAutoReset(false);
    setMinimumDuration(0);
    show();
    waitUntilOnScreen();
}

void ModalProgress::waitUntilOnScreen() {
    // A dialog that changes its size while the window manager is still placing it ends up in a
    // corner of the screen, and the operation that follows leaves no time to put that right.
    constexpr int PatienceMs = 500;
    const QDeadlineTimer deadline(PatienceMs);
    do {
        QCoreApplication::processEvents();
    } while (!windowHandle()->isExposed() && !deadline.hasExpired());
    QCoreApplication::processEvents();
}

ModalProgress::~ModalProgress() {
    hide();
}

void ModalProgress::report(int value, const QString& text) {
    setLabelText(text);
    setValue(value);
    QCoreApplication::processEvents();
}

void ModalProgress::finish() {
    setValue(maximum());
    hide();
}

void ModalProgress::closeEvent(QCloseEvent* event) {
    event->ignore();
}

int progressValue(qint64 done, qint64 total, int whenEmpty) {
    if (total <= 0) {
        return whenEmpty;
    }
    // The sizes that an index claims need not add up.
    qint64 scaled = 0;
    if (qMulOverflow(done, qint64{ProgressMaximum}, &scaled)) {
        return done < 0 ? 0 : ProgressMaximum;
    }
    return static_cast<int>(std::clamp<qint64>(scaled / total, 0, ProgressMaximum));
}

} // namespace Tessel::UI
