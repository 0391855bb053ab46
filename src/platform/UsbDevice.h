// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QString>

namespace Tessel::Platform {

/// One USB storage volume.
struct UsbDevice {
    /// "device:mount directory" for a mounted volume, the device alone for one found by the scan of
    /// block devices.
    QString id;
    /// Device node, below "/dev/".
    QString devicePath;
    /// What the user sees; never empty.
    QString displayName;
    /// Where the volume is mounted; empty when that is not known.
    QString rootPath;
    /// Empty for a volume found by the scan of block devices.
    QString fileSystemType;
    /// The kernel's removable flag of the device or its disk. It does not decide what is listed.
    bool removable = true;
    /// Whether `rootPath` is known.
    bool mounted = true;
};

} // namespace Tessel::Platform
