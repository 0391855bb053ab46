// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QToolButton>

namespace Tessel::UI {

/// The button that opens and locks the vault. It shows a padlock, open while the vault is.
class PadlockButton : public QToolButton {
    Q_OBJECT

public:
    /// @param side its width and height
    explicit PadlockButton(int side);

    /// Emits nothing. @p enabled says whether the vault can be unlocked, or locked.
    void showState(bool unlocked, bool enabled);
};

} // namespace Tessel::UI
