// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/DisplayFormats.h"

#include "ui/WindowText.h"

#include <QFileInfo>
#include <QLocale>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

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

} // namespace Tessel::UI
