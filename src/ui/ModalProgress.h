// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QProgressDialog>

namespace Tessel::UI {

/// The progress of a long operation that cannot be cancelled. From construction to finish() or
/// destruction it blocks the rest of the program: it is application-modal, and neither Escape nor
/// the window manager closes it.
class ModalProgress : public QProgressDialog {
    Q_OBJECT

public:
    /// Shows the dialog at once, at 0 of 1000, and lets it paint.
    ModalProgress(QWidget* parent, const QString& title, const QString& text);
    ~ModalProgress() override;
    Q_DISABLE_COPY_MOVE(ModalProgress)

    /// @param value in thousandths. Processes pending events, so that the dialog paints.
    void report(int value, const QString& text);
    /// Lets the bar say which of several parts its value belongs to: "3 de 30".
    void showPart(qsizetype number, qsizetype count);
    /// Fills the bar and hides the dialog.
    void finish();

    void reject() override {}

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void waitUntilOnScreen();
};

/// @p done of @p total in thousandths; @p whenEmpty for a total of 0 or less.
[[nodiscard]] int progressValue(qint64 done, qint64 total, int whenEmpty);

} // namespace Tessel::UI
