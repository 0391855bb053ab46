// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "support/WindowDriver.h"

#include <QObject>
#include <QTemporaryDir>

#include <memory>

namespace Tessel::Tests {

/// A test class in which each test function gets its own window and folder.
class WindowTest : public QObject {
    Q_OBJECT

protected:
    /// A file in the folder.
    [[nodiscard]] QString path(const QString& name) const { return m_folder->filePath(name); }
    /// Selects the row, if one is named, and chooses the command. @return whether there is such a
    /// row, and the dialogs that were shown are the ones that were to be answered.
    [[nodiscard]] bool run(const QString& command, const QString& row = QString());
    /// What the vault gives back of the file in this row.
    [[nodiscard]] QByteArray exported(const QString& row);
    /// Compacts the open vault. @return whether the dialogs were those of a success.
    [[nodiscard]] bool compact();
    [[nodiscard]] DialogDriver& dialogs() const { return m_driver->dialogs; }
    /// What went wrong with the dialogs, for the test's message.
    [[nodiscard]] QString problems() const { return m_driver->dialogs.problems(); }
    /// What the last dialog said.
    [[nodiscard]] QString lastText() const { return m_driver->dialogs.lastText(); }
    /// See WindowDriver::result().
    [[nodiscard]] QString status() const { return m_driver->result(); }

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<WindowDriver> m_driver;

protected Q_SLOTS:
    // Qt Test calls these two whatever their access, and would run private ones of a base as tests.
    void init();
    /// Closes the window, so that no open vault leaves its temporary folder behind.
    void cleanup();
};

} // namespace Tessel::Tests

/// Chooses a command, and on a row if one is named; exactly the dialogs that were to be answered
/// are shown.
#define VERIFY_RUN(...) QVERIFY2(run(__VA_ARGS__), qPrintable(problems()))
