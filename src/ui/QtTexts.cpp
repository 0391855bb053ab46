// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/QtTexts.h"

#include <QString>

#include <string_view>

namespace Tessel::UI {

namespace {

struct Text {
    std::string_view context;
    std::string_view source;
    const char* portuguese;
};

constexpr Text Texts[] = {
    {"QAbstractFileIconProvider", "Alias", "Atalho"},
    {"QAbstractFileIconProvider", "Drive", "Unidade"},
    {"QAbstractFileIconProvider", "File", "Arquivo"},
    {"QAbstractFileIconProvider", "File Folder", "Pasta"},
    {"QAbstractFileIconProvider", "Folder", "Pasta"},
    {"QAbstractFileIconProvider", "Shortcut", "Atalho"},
    {"QAbstractFileIconProvider", "Unknown", "Desconhecido"},
    // What Brazilian keyboards have on the key.
    {"QShortcut", "Return", "Enter"},
    {"QSidebar", "Remove", "Remover"},
    {"QWidgetTextControl", "Insert Unicode control character",
     "Inserir caractere de controle Unicode"},
};

} // namespace

QString QtTexts::translate(const char* context, const char* sourceText,
                           const char* /*disambiguation*/, int /*n*/) const {
    for (const Text& text : Texts) {
        if (text.context == context && text.source == sourceText) {
            return QString::fromUtf8(text.portuguese);
        }
    }
    return {};
}

} // namespace Tessel::UI
