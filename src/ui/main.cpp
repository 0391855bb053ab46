// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/MainWindow.h"
#include "ui/ProductInfo.h"

#include <QApplication>
#include <QIcon>

int main(int argc, char* argv[]) {
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tessel"));
    QApplication::setApplicationVersion(QLatin1StringView(Tessel::UI::ProductInfo::DefaultVersion));
    QApplication::setOrganizationName(QStringLiteral("Tessel"));
    QApplication::setWindowIcon(QIcon(Tessel::UI::ProductInfo::iconResource()));

    Tessel::UI::MainWindow window(nullptr);
    window.show();
    return QApplication::exec();
}
