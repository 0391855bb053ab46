// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "platform/linux/LinuxDeviceManager.h"
#include "support/fake_machine_test.h"

#include <QCoreApplication>

namespace Tessel::Tests {

using namespace Qt::Literals::StringLiterals;

/// One line with every field of a volume, so that a failed comparison shows them all.
inline QString described(const Platform::UsbDevice& device) {
    return u"id=%1 device=%2 name=%3 root=%4 type=%5%6%7"_s.arg(
        device.id, device.devicePath, device.displayName, device.rootPath, device.fileSystemType,
        device.removable ? u" removable"_s : QString(), device.mounted ? u" mounted"_s : QString());
}

inline QList<Platform::UsbDevice> detect() {
    return Platform::Linux::LinuxDeviceManager().detectUsbDevices();
}

inline QStringList detectedVolumes() {
    QStringList lines;
    const QList<Platform::UsbDevice> devices = detect();
    for (const Platform::UsbDevice& device : devices) {
        lines.append(described(device));
    }
    return lines;
}

inline QStringList detectedIds() {
    QStringList ids;
    const QList<Platform::UsbDevice> devices = detect();
    for (const Platform::UsbDevice& device : devices) {
        ids.append(device.id);
    }
    return ids;
}

} // namespace Tessel::Tests
