// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QLabel>

class QMessageBox;

namespace Tessel::UI {

// Names of files may be hundreds of letters long, without a blank at which Qt could break the line.
// What follows changes how a text is shown, not the text.

/// Shows one line, with its middle left out when it is too long; its tool tip has the whole text
/// then.
class ElidedLabel : public QLabel {
public:
    using QLabel::QLabel;

    [[nodiscard]] QSize minimumSizeHint() const override;

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    [[nodiscard]] QString shownText() const;
};

/// Breaks lines that are wider than @p widest pixels, within a word where it must. The text holds
/// names of files: it is never taken for markup.
class WrappedLabel : public QLabel {
public:
    WrappedLabel(const QString& text, int widest, QWidget* parent = nullptr);

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    int m_widest;
};

/// The widest text in a dialog of @p window that stays narrower than it and than the screen.
/// @param beside how much width something beside the text takes
[[nodiscard]] int widestTextFor(const QWidget* window, int beside = 0);

/// Breaks words of the box's text that would make it wider than usual.
void breakLongWords(QMessageBox* box);

/// The text for a tool tip, shown as it is, in lines that fit the screen.
[[nodiscard]] QString longToolTip(const QString& text);

} // namespace Tessel::UI
