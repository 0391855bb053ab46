// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/ApplicationSetup.h"

#include "ui/ProductInfo.h"
#include "ui/QtTexts.h"

#include <QApplication>
#include <QIcon>
#include <QLibraryInfo>
#include <QSessionManager>
#include <QTranslator>
#include <QWidget>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

void setUpApplication(QApplication& application) {
    QApplication::setApplicationName(u"Tessel"_s);
    QApplication::setApplicationVersion(QLatin1StringView(ProductInfo::DefaultVersion));
    QApplication::setOrganizationName(u"Tessel"_s);
    QApplication::setDesktopFileName(u"example.tessel.Tessel"_s);
    QApplication::setWindowIcon(QIcon(ProductInfo::iconResource()));

    // Without Qt's catalogue its own texts stay English; ours are Portuguese literals.
    auto* translator = new QTranslator(&application);
    if (translator->load(u"qtbase_pt_BR"_s, QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
        QApplication::installTranslator(translator);
    }
    // Qt asks the translator that was installed last first.
    QApplication::installTranslator(new QtTexts(&application));
}

void closeAtLogOut(QApplication& application, QWidget& window) {
    QObject::connect(&application, &QApplication::commitDataRequest, &window,
                     [&window](QSessionManager& session) {
                         closeOrCancel(window, [&session] { session.cancel(); });
                     });
}

void closeOrCancel(QWidget& window, const std::function<void()>& cancelLogOut) {
    if (!window.close()) {
        cancelLogOut();
    }
}

} // namespace Tessel::UI
