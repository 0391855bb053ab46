// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/DisplayFormats.h"

#include "ui/WindowText.h"

#include <QFileInfo>
#include <QLocale>
#include <QTextDocument>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

/// A mark that embeds, overrides or isolates a direction (Unicode Standard Annex #9).
bool turnsDirection(QChar character) {
    const char16_t code = character.unicode();
    return (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

/// A mark that is not seen, and has a direction.
bool hintsDirection(QChar character) {
    const char16_t code = character.unicode();
    return code == 0x061C || code == 0x200E || code == 0x200F;
}

} // namespace

QString formatFileSize(qint64 bytes) {
    return QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeTraditionalFormat);
}

QString formatFileDate(const QDateTime& dateTime) {
    if (!dateTime.isValid()) {
        return {};
    }
    return QLocale().toString(dateTime.toLocalTime(), u"dd/MM/yyyy HH:mm"_s);
}

QString fileTypeLabel(const QString& path) {
    const QString suffix = QFileInfo(path).suffix();
    if (suffix.isEmpty()) {
        return WindowText::tr("Arquivo");
    }
    return suffix.toUpper();
}

QString nameInSentence(const QString& name) {
    constexpr QChar FirstStrongIsolate(0x2068);
    constexpr QChar PopIsolate(0x2069);
    const bool marked = std::any_of(name.cbegin(), name.cend(), [](QChar character) {
        return turnsDirection(character) || hintsDirection(character);
    });
    if (!marked) {
        return name;
    }
    QString shown = name;
    std::replace_if(shown.begin(), shown.end(), turnsDirection, QChar(QChar::ReplacementCharacter));
    return FirstStrongIsolate + shown + PopIsolate;
}

QString plainToolTip(const QString& text) {
    return Qt::mightBeRichText(text) ? Qt::convertFromPlainText(text) : text;
}

} // namespace Tessel::UI
