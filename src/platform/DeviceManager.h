// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "platform/UsbDevice.h"

#include <QList>

namespace Tessel::Platform {

/// Finds the USB storage volumes of this machine; one implementation for each platform.
class DeviceManager {
public:
    DeviceManager() = default;
    virtual ~DeviceManager() = default;
    Q_DISABLE_COPY_MOVE(DeviceManager)

    /// The present volumes, in the order of discovery. Never fails: what cannot be read is not
    /// listed.
    [[nodiscard]] virtual QList<UsbDevice> detectUsbDevices() const = 0;
};

} // namespace Tessel::Platform
