// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/ApplicationSetup.h"
#include "ui/MainWindow.h"
#include "ui/ProcessPrivacy.h"
#include "ui/TerminationWatcher.h"

#include <QApplication>

int main(int argc, char* argv[]) {
    Tessel::UI::makeProcessPrivate();
    QApplication application(argc, argv);
    Tessel::UI::setUpApplication(application);

    Tessel::UI::MainWindow window(nullptr);
    const Tessel::UI::TerminationWatcher watcher;
    QObject::connect(&watcher, &Tessel::UI::TerminationWatcher::terminationRequested, &window,
                     &Tessel::UI::MainWindow::requestClose);
    Tessel::UI::closeAtLogOut(application, window);
    window.show();
    return QApplication::exec();
}
