// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "platform/DeviceManager.h"

namespace Tessel::Platform::Linux {

/// Finds USB volumes through QStorageInfo, the kernel's mount table and sysfs, in this order. Reads
/// pseudo-files and the environment only, and keeps no state between calls.
class LinuxDeviceManager : public DeviceManager {
public:
    LinuxDeviceManager() = default;
    ~LinuxDeviceManager() override = default;

    [[nodiscard]] QList<UsbDevice> detectUsbDevices() const override;
};

} // namespace Tessel::Platform::Linux
