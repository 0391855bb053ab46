// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QString>
#include <QUrl>

/// What the interface says of the product itself. The build gives the values: see
/// TESSEL_HOMEPAGE and TESSEL_OWNER in the top CMakeLists.txt.
namespace Tessel::UI::ProductInfo {

/// Shown where the application object carries no version of its own.
inline constexpr char DefaultVersion[] = "1.0.0";

/// The title of the window and of its message boxes.
[[nodiscard]] inline QString name() {
    using namespace Qt::Literals::StringLiterals;
    return u"Tessel"_s;
}

/// The official page, opened from the "Sobre" menu and from the About dialog.
[[nodiscard]] inline QUrl homepage() {
    return QUrl(QString::fromUtf8(TESSEL_HOMEPAGE_URL));
}

/// Whom the About dialog names as owner.
[[nodiscard]] inline QString ownerName() {
    return QString::fromUtf8(TESSEL_OWNER_NAME);
}

/// The multi-size icon of the program.
[[nodiscard]] inline QString iconResource() {
    using namespace Qt::Literals::StringLiterals;
    return u":/icons/Tessel.ico"_s;
}

} // namespace Tessel::UI::ProductInfo
