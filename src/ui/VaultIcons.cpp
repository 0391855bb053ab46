// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/VaultIcons.h"

#include <QApplication>
#include <QFileInfo>
#include <QPainter>
#include <QPixmap>
#include <QStyle>

#include <algorithm>
#include <functional>
#include <iterator>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

constexpr int PadlockSide = 48;
constexpr int BadgeIconSide = 22;

struct Badge {
    /// Separated by spaces, in lower case.
    const char* suffixes;
    const char* text;
    QRgb colour = 0xff5c5c5c;
};

constexpr Badge Badges[] = {
    {"pem key", "KEY", 0xff1f735c},
    {"sig asc", "SIG", 0xff7050a0},
    {"crt cer csr", "CRT", 0xffb87118},
    {"encrypted", "ENC", 0xff455c7a},
    {"txt log", "TXT", 0xff5a5a5a},
    {"mp3 wav flac ogg m4a", "AUD", 0xff2563b4},
    {"jpg jpeg png gif bmp webp", "IMG", 0xff1f848d},
};

const Badge* findBadge(const QString& suffix) {
    const auto* badge = std::find_if(std::begin(Badges), std::end(Badges), [&](const Badge& row) {
        return QString::fromLatin1(row.suffixes).split(u' ').contains(suffix);
    });
    return badge == std::end(Badges) ? nullptr : badge;
}

/// Paints on a transparent square of @p side logical pixels, at the screen's own resolution.
QPixmap paintSquare(int side, const std::function<void(QPainter&)>& paint) {
    const qreal ratio = qApp->devicePixelRatio();
    QPixmap pixmap(QSize(side, side) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    paint(painter);
    return pixmap;
}

void paintShackle(QPainter& painter, bool unlocked) {
    constexpr int Degree = 16;
    painter.setBrush(Qt::NoBrush);
    if (unlocked) {
        painter.drawArc(14, 7, 20, 26, 25 * Degree, 245 * Degree);
        painter.drawLine(35, 19, 40, 15);
    } else {
        painter.drawArc(13, 7, 22, 26, 0, 180 * Degree);
    }
}

void paintPadlock(QPainter& painter, bool unlocked, bool enabled) {
    const QColor line = enabled ? QColor(70, 70, 70) : QColor(0xa5, 0xa5, 0xa5);
    const QColor fill = enabled ? QColor(0xee, 0xee, 0xee) : QColor(0xe2, 0xe2, 0xe2);
    painter.setPen(QPen(line, 3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    paintShackle(painter, unlocked);
    painter.setBrush(fill);
    painter.drawRoundedRect(10, 22, 28, 20, 4, 4);
    painter.setBrush(line);
    painter.drawEllipse(22, 30, 4, 4);
    painter.drawLine(24, 34, 24, 37);
}

void paintSheet(QPainter& painter) {
    painter.setPen(QPen(QColor(0xac, 0xac, 0xac), 1.0));
    painter.setBrush(Qt::white);
    painter.drawRoundedRect(QRectF(4.0, 1.5, 14.0, 18.5), 1.5, 1.5);

    const QPointF corner[] = {{14.0, 1.5}, {18.0, 5.5}, {14.0, 5.5}};
    painter.setPen(QPen(QColor(0xbe, 0xbe, 0xbe), 1.0));
    painter.setBrush(QColor(0xed, 0xed, 0xed));
    painter.drawPolygon(corner, 3);
}

void paintBadge(QPainter& painter, const Badge& badge) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(badge.colour));
    painter.drawRoundedRect(QRectF(2.5, 11.0, 17.0, 8.5), 1.8, 1.8);

    QFont font = QApplication::font();
    font.setWeight(QFont::Bold);
    font.setPixelSize(6);
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(QRectF(2.5, 10.6, 17.0, 8.8), Qt::AlignCenter,
                     QString::fromLatin1(badge.text));
}

} // namespace

QIcon padlockIcon(bool unlocked, bool enabled) {
    const QPixmap pixmap = paintSquare(
        PadlockSide, [=](QPainter& painter) { paintPadlock(painter, unlocked, enabled); });
    // A disabled button without a picture of its own would be greyed once more by the style.
    QIcon icon(pixmap);
    icon.addPixmap(pixmap, QIcon::Disabled);
    return icon;
}

QIcon VaultIcons::itemIcon(VaultTableItemKind kind, const QString& path) {
    if (kind == VaultTableItemKind::ParentDirectory) {
        return QApplication::style()->standardIcon(QStyle::SP_ArrowUp);
    }
    if (kind == VaultTableItemKind::Directory) {
        return m_provider.icon(QFileIconProvider::Folder);
    }
    const QString suffix = QFileInfo(path).suffix().toLower();
    auto known = m_fileIcons.constFind(suffix);
    if (known == m_fileIcons.constEnd()) {
        known = m_fileIcons.insert(suffix, makeFileIcon(suffix));
    }
    return *known;
}

QIcon VaultIcons::makeFileIcon(const QString& suffix) const {
    if (const Badge* badge = findBadge(suffix)) {
        return paintSquare(BadgeIconSide, [badge](QPainter& painter) {
            paintSheet(painter);
            paintBadge(painter, *badge);
        });
    }
    if (!suffix.isEmpty()) {
        // The provider looks at the name alone; the file need not exist.
        QIcon icon = m_provider.icon(QFileInfo(u"tessel-placeholder.%1"_s.arg(suffix)));
        if (!icon.isNull()) {
            return icon;
        }
    }
    return m_provider.icon(QFileIconProvider::File);
}

} // namespace Tessel::UI
