// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QString>

namespace Tessel::UI {

/// Whether the name can be one component of a vault path.
[[nodiscard]] inline bool isValidVaultName(const QString& name) {
    const QString trimmed = name.trimmed();
    return !trimmed.isEmpty() && !trimmed.contains(u'/') && !trimmed.contains(u'\\') &&
           trimmed != u"." && trimmed != u"..";
}

} // namespace Tessel::UI
