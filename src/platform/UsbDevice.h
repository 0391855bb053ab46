// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QString>

namespace Tessel::Platform {

/// One USB storage volume.
struct UsbDevice {
    /// "device:mount directory" for a mounted volume; the device alone for one that only the scan
    /// of block devices has found.
    QString id;
    /// Device node, below "/dev/".
    QString devicePath;
    /// The name shown to the user; never empty.
    QString displayName;
    /// The directory where the volume is mounted; empty when it is not known.
    QString rootPath;
    /// Empty for a volume found by the scan of block devices.
    QString fileSystemType;
    /// The kernel's removable flag of the device or its disk. Volumes are listed either way.
    bool removable = true;
    /// Whether `rootPath` is known.
    bool mounted = true;
};

} // namespace Tessel::Platform
