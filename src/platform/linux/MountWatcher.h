// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArrayList>
#include <QFile>
#include <QObject>

namespace Tessel::Platform::Linux {

/// Tells when the file system of a device is mounted or unmounted. The kernel itself signals a
/// change of the mount table: there is no thread and no timer. If the table cannot be read, it
/// never tells anything.
class MountWatcher : public QObject {
    Q_OBJECT

public:
    explicit MountWatcher(QObject* parent = nullptr);

Q_SIGNALS:
    void changed();

private:
    void compareWithTable();
    /// The table's lines that have a device as their source.
    [[nodiscard]] QByteArrayList readDeviceMounts();

    QFile m_table;
    QByteArrayList m_mounts;
};

} // namespace Tessel::Platform::Linux
