// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/PadlockButton.h"

#include "ui/VaultIcons.h"
#include "ui/WindowText.h"

#include <QSignalBlocker>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

PadlockButton::PadlockButton(int side) {
    setObjectName(u"vaultToggleButton"_s);
    setCheckable(true);
    setAutoRaise(false);
    setFocusPolicy(Qt::NoFocus);
    setIconSize({48, 48});
    setFixedSize(side, side);
    setStyleSheet(
        u"QToolButton { border: 1px solid #d0d0d0; border-radius: 4px; background: #f7f7f7; }"
        "QToolButton:hover:enabled { background: #eeeeee; border-color: #b8b8b8; }"
        "QToolButton:pressed:enabled { background: #e2e2e2; }"
        "QToolButton:disabled { background: #f1f1f1; border-color: #dedede; }"_s);
}

void PadlockButton::showState(bool unlocked, bool enabled) {
    const QSignalBlocker blocker(this);
    setEnabled(enabled);
    setChecked(unlocked);
    setIcon(padlockIcon(unlocked, enabled));
    if (unlocked) {
        setToolTip(WindowText::tr("Bloquear cofre"));
    } else if (enabled) {
        setToolTip(WindowText::tr("Desbloquear cofre"));
    } else {
        setToolTip(WindowText::tr("Selecione um container para desbloquear o cofre."));
    }
    setAccessibleName(toolTip());
}

} // namespace Tessel::UI
