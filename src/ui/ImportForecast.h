// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/ByteCounts.h"

#include <QtGlobal>

namespace Tessel::UI {

enum class ImportFit {
    /// With enough space left.
    Fits,
    /// It fits, but so little is left that the user should agree.
    LittleSpaceLeft,
    TooLarge
};

struct ImportForecast {
    /// Estimate of what the import takes: the files, 5 % more and 16 MiB.
    qint64 requiredBytes = 0;
    /// What is left then; negative when it does not fit.
    qint64 remainingBytes = 0;
    ImportFit fit = ImportFit::TooLarge;
};

using Core::addByteCounts;

/// Whether files of @p selectedBytes in total fit where @p availableBytes are free.
[[nodiscard]] ImportForecast forecastImport(qint64 selectedBytes, qint64 availableBytes);

} // namespace Tessel::UI
