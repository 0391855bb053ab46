// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QListWidget>

namespace Tessel::UI {

/// A list whose current row is only ever what the user or the program made it. Qt's own makes the
/// first row current as soon as the keyboard reaches the list, which would choose one of several
/// drives for the user.
class DeviceListWidget : public QListWidget {
protected:
    void focusInEvent(QFocusEvent* event) override {
        const bool noneIsCurrent = currentItem() == nullptr;
        QListWidget::focusInEvent(event);
        if (noneIsCurrent) {
            setCurrentItem(nullptr);
        }
    }
};

} // namespace Tessel::UI
