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

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<WindowDriver> m_driver;

protected Q_SLOTS:
    // Qt Test calls these two whatever their access, and would run private ones of a base as tests.
    void init();
    /// Closes the window, so that no open vault leaves its temporary folder behind.
    void cleanup();
};

} // namespace Tessel::Tests
