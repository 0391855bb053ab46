// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QTranslator>

namespace Tessel::UI {

/// Texts of Qt that its Brazilian Portuguese catalogue lacks or leaves in English: types of files
/// in the file dialogs, the name of the Enter key, entries of context menus. Install it after the
/// catalogue, so that it is asked first.
class QtTexts : public QTranslator {
public:
    using QTranslator::QTranslator;

    [[nodiscard]] QString translate(const char* context, const char* sourceText,
                                    const char* disambiguation, int n) const override;
    [[nodiscard]] bool isEmpty() const override { return false; }
};

} // namespace Tessel::UI
