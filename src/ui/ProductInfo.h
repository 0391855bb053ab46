// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QString>
#include <QUrl>

/// What the interface says about the product. Address and owner come from the build: see
/// TESSEL_HOMEPAGE and TESSEL_OWNER in the top CMakeLists.txt.
namespace Tessel::UI::ProductInfo {

/// Shown when the application object has no version.
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

/// The owner that the About dialog names.
[[nodiscard]] inline QString ownerName() {
    return QString::fromUtf8(TESSEL_OWNER_NAME);
}

/// The multi-size icon of the program.
[[nodiscard]] inline QString iconResource() {
    using namespace Qt::Literals::StringLiterals;
    return u":/icons/Tessel.ico"_s;
}

} // namespace Tessel::UI::ProductInfo
