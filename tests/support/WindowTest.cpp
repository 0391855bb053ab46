// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/WindowTest.h"

#include "support/Files.h"

#include <QAction>
#include <QFile>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::Tests {

void WindowTest::init() {
    m_folder = std::make_unique<QTemporaryDir>();
    m_driver = std::make_unique<WindowDriver>();
}

void WindowTest::cleanup() {
    m_driver->window.close();
    m_driver.reset();
    m_folder.reset();
}

bool WindowTest::run(const QString& command, const QString& row) {
    if (!row.isEmpty() && !m_driver->selectRow(row)) {
        qWarning("no row \"%s\"", qPrintable(row));
        return false;
    }
    m_driver->action(command)->trigger();
    return m_driver->dialogs.finished();
}

QByteArray WindowTest::exported(const QString& row) {
    const QString title = u"Exportar arquivo"_s;
    const QString destination = path(u"exported"_s);
    m_driver->dialogs.press(title, u"Continuar"_s);
    m_driver->dialogs.answerFiles(title, {destination});
    const QByteArray contents = run(u"Exportar..."_s, row) ? readFile(destination) : QByteArray();
    return QFile::remove(destination) ? contents : QByteArray();
}

bool WindowTest::compact() {
    const QString title = u"Compactar cofre"_s;
    m_driver->dialogs.press(title, u"Sim"_s);
    m_driver->dialogs.acceptInformation(title);
    return run(u"Compactar cofre..."_s);
}

} // namespace Tessel::Tests
