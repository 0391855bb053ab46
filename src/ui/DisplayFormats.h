// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QDateTime>
#include <QString>

namespace Tessel::UI {

/// A byte count in the system's locale: one decimal, units of 1024 with their traditional names.
[[nodiscard]] QString formatFileSize(qint64 bytes);

/// Local time as "dd/MM/yyyy HH:mm"; empty for an invalid date-time.
[[nodiscard]] QString formatFileDate(const QDateTime& dateTime);

/// The path's suffix in upper case; "Arquivo" without one.
[[nodiscard]] QString fileTypeLabel(const QString& path);

/// A name or path as it is shown within a sentence. Marks that turn the direction of writing are
/// replaced, and the name is isolated from the words around it: it can neither look like another
/// name nor turn the sentence round. Other names stay as they are.
[[nodiscard]] QString nameInSentence(const QString& name);

/// The text of a tool tip, in which names are never taken for markup.
[[nodiscard]] QString plainToolTip(const QString& text);

} // namespace Tessel::UI
