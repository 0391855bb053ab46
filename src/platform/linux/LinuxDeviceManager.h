// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "platform/DeviceManager.h"

namespace Tessel::Platform::Linux {

/// Finds USB volumes from the storage API, the kernel's mount table and sysfs, in this order.
/// It reads pseudo-files and the environment only, and keeps nothing between calls.
class LinuxDeviceManager : public DeviceManager {
public:
    LinuxDeviceManager() = default;
    ~LinuxDeviceManager() override = default;

    [[nodiscard]] QList<UsbDevice> detectUsbDevices() const override;
};

} // namespace Tessel::Platform::Linux
