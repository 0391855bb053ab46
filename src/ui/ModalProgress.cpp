// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/ModalProgress.h"

#include "ui/LongText.h"
#include "ui/ReadableColours.h"
#include "ui/WindowText.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QProgressBar>
#include <QWindow>
#include <QtNumeric>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

constexpr int ProgressMaximum = 1000;

} // namespace

ModalProgress::ModalProgress(QWidget* parent, const QString& title, const QString& text)
    : QProgressDialog(parent) {
    auto* label = new WrappedLabel(QString(), widestTextFor(parent), this);
    label->setAlignment(Qt::AlignCenter);
    setLabel(label);
    auto* bar = findChild<QProgressBar*>();
    bar->setAccessibleName(title);
    keepReadable(bar);

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
    // A dialog that changes its size while the window manager places it ends up in a corner of the
    // screen, and stays there during the operation.
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

void ModalProgress::showPart(qsizetype number, qsizetype count) {
    if (count > 1) {
        findChild<QProgressBar*>()->setFormat(u"%p% | "_s +
                                              WindowText::tr("%1 de %2").arg(number).arg(count));
    }
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
    // Sizes come from an index, which may be damaged: the product may overflow.
    qint64 scaled = 0;
    if (qMulOverflow(done, qint64{ProgressMaximum}, &scaled)) {
        return done < 0 ? 0 : ProgressMaximum;
    }
    return static_cast<int>(std::clamp<qint64>(scaled / total, 0, ProgressMaximum));
}

} // namespace Tessel::UI
