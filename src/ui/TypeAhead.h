// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QString>

#include <functional>
#include <optional>

namespace Tessel::UI {

/// Letters typed one after the other to find a row by the beginning of its name. Letter case and
/// accents do not count. The same letter several times means that letter alone, each time the next
/// row that begins with it.
class TypeAhead {
public:
    /// The name in a row, from the top.
    using NameOf = std::function<QString(int row)>;

    /// Adds what a key types. @return whether that was a letter: anything that can be seen, and a
    /// blank that follows one.
    [[nodiscard]] bool add(const QString& text);
    void forget() { m_typed.clear(); }
    /// As typed.
    [[nodiscard]] QString typed() const { return m_typed; }

    /// The row that the letters mean, looked for downwards and then from the top.
    /// @param current the current row; -1 when none is
    [[nodiscard]] std::optional<int> find(int rows, int current, const NameOf& nameOf) const;

private:
    QString m_typed;
};

} // namespace Tessel::UI
