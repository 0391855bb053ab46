// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QDialog>

class QTextBrowser;

namespace Tessel::UI {

/// Shows the user guide that is compiled into the program, or a page that says it is missing.
class HelpDialog : public QDialog {
    Q_OBJECT

public:
    explicit HelpDialog(QWidget* parent);

private:
    void buildUi();
    void loadHelpContent();
    /// Shrinks the pictures of the guide to the width that it gives them, on this screen.
    void smoothPictures();

    QTextBrowser* m_viewer = nullptr;
};

} // namespace Tessel::UI
