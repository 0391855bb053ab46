// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

namespace Tessel::Tests {

/// From now on this process runs Argon2id with its smallest parameters, whatever is asked for.
/// Containers then open only in processes that do the same.
void deriveCheaply();

} // namespace Tessel::Tests
