// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/TypeAhead.h"

#include <QList>

#include <algorithm>

namespace Tessel::UI {

namespace {

/// The text without letter case and accents.
QString folded(const QString& text) {
    QString plain = text.normalized(QString::NormalizationForm_D);
    plain.removeIf([](QChar character) { return character.isMark(); });
    return plain.toCaseFolded();
}

bool isPrintable(const QString& text) {
    const QList<uint> characters = text.toUcs4();
    return std::all_of(characters.cbegin(), characters.cend(),
                       [](uint character) { return QChar::isPrint(character); });
}

} // namespace

bool TypeAhead::add(const QString& text) {
    const bool isLetter =
        !text.isEmpty() && isPrintable(text) && !(m_typed + text).trimmed().isEmpty();
    if (isLetter) {
        m_typed += text;
    }
    return isLetter;
}

std::optional<int> TypeAhead::find(int rows, int current, const NameOf& nameOf) const {
    QString beginning = folded(m_typed);
    if (rows <= 0 || beginning.isEmpty()) {
        return std::nullopt;
    }
    const bool sameLetter = beginning.count(beginning.front()) == beginning.size();
    if (sameLetter) {
        beginning.truncate(1);
    }
    // A further letter may still mean the current row; the first one and its repetitions do not.
    const int first = sameLetter ? current + 1 : std::max(current, 0);
    for (int step = 0; step < rows; ++step) {
        const int row = (first + step) % rows;
        if (folded(nameOf(row)).startsWith(beginning)) {
            return row;
        }
    }
    return std::nullopt;
}

} // namespace Tessel::UI
