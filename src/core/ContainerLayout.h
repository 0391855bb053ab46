// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArrayView>
#include <QLatin1StringView>

namespace Tessel::Core::ContainerLayout {

// Offsets and sizes in a container, in bytes; docs/container-format.md describes them.
/// The name of a container, unless the user gives it another one.
inline constexpr QLatin1StringView ContainerFileName("tessel.tvlt");
inline constexpr QByteArrayView FileMagic("TESSEL3");
inline constexpr qint64 LengthDigits = 20;
inline constexpr qint64 LengthLineBytes = LengthDigits + 1;
inline constexpr qint64 HeaderRegionBytes = 8388608;
inline constexpr qint64 LengthLineOffset = FileMagic.size();
inline constexpr qint64 HeaderOffset = LengthLineOffset + LengthLineBytes;
inline constexpr qint64 PayloadOffset = HeaderOffset + HeaderRegionBytes;
inline constexpr qint32 FormatVersion = 3;

} // namespace Tessel::Core::ContainerLayout
