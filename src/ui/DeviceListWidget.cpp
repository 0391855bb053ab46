// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/DeviceListWidget.h"

#include "platform/UsbDevice.h"
#include "ui/DisplayFormats.h"
#include "ui/ReadableColours.h"
#include "ui/WindowText.h"

#include <QDir>
#include <QFileInfo>
#include <QSignalBlocker>
#include <QStorageInfo>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

constexpr int RootPathRole = Qt::UserRole;
constexpr int NameRole = Qt::UserRole + 1;
constexpr int DeviceRole = Qt::UserRole + 2;

/// A directory in the one form in which two of them can be compared: slashes, one at the end.
QString normalizeDirectoryPath(const QString& path) {
    // A path this short may be a root or a drive, whose slash belongs to it.
    constexpr qsizetype ShortestTrimmed = 4;
    QString normalized = QDir::fromNativeSeparators(path.trimmed());
    while (normalized.endsWith(u'/') && normalized.size() >= ShortestTrimmed) {
        normalized.chop(1);
    }
    if (!normalized.endsWith(u'/')) {
        normalized.append(u'/');
    }
    return normalized;
}

QString location(const Platform::UsbDevice& volume) {
    if (volume.mounted) {
        return volume.rootPath;
    }
    return volume.devicePath.isEmpty() ? WindowText::tr("não montado") : volume.devicePath;
}

/// Free space, or that the volume is not mounted; follows its name and location.
QString remark(const Platform::UsbDevice& volume) {
    if (!volume.mounted) {
        return WindowText::tr(" | não montado");
    }
    const QStorageInfo storage(volume.rootPath);
    if (!storage.isValid() || !storage.isReady()) {
        return {};
    }
    const QString free = WindowText::tr("%1 livres").arg(formatFileSize(storage.bytesFree()));
    return u" | %1"_s.arg(free);
}

QString rootPathOf(const QListWidgetItem* item) {
    return item == nullptr ? QString() : item->data(RootPathRole).toString();
}

void clearMark(QListWidgetItem* item) {
    item->setData(Qt::BackgroundRole, QVariant());
    // The others are grey, marked or not.
    if (!rootPathOf(item).isEmpty()) {
        item->setData(Qt::ForegroundRole, QVariant());
    }
    item->setToolTip(QString());
    QFont font = item->font();
    font.setWeight(QFont::Normal);
    item->setFont(font);
}

void mark(QListWidgetItem* item) {
    QFont font = item->font();
    font.setWeight(QFont::Bold);
    item->setFont(font);
    item->setBackground(QColor(222, 237, 255));
    // The text of a dark theme is light, and so is the mark.
    item->setForeground(QColor(Qt::black));
    item->setToolTip(WindowText::tr("Dispositivo associado ao container selecionado."));
}

} // namespace

DeviceListWidget::DeviceListWidget() {
    setObjectName(u"deviceList"_s);
    setAccessibleName(WindowText::tr("Dispositivos USB"));
    constexpr int TextLines = 3;
    constexpr int Padding = 24;
    setFixedHeight(TextLines * fontMetrics().lineSpacing() + Padding + 2 * frameWidth());
    keepReadable(this);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);

    connect(this, &QListWidget::itemDoubleClicked, this,
            [this](const QListWidgetItem* item) { Q_EMIT volumeActivated(rootPathOf(item)); });
    connect(this, &QListWidget::currentItemChanged, this, &DeviceListWidget::currentVolumeChanged);
    // A press of the mouse selects the row only after it has made it current: the selection is
    // announced as well.
    connect(this, &QListWidget::itemSelectionChanged, this,
            &DeviceListWidget::currentVolumeChanged);
}

void DeviceListWidget::clearRows() {
    // Only the rows that come next are worth announcing.
    const QSignalBlocker blocker(this);
    clear();
}

void DeviceListWidget::showVolumes(const QList<Platform::UsbDevice>& volumes) {
    clearRows();
    for (const Platform::UsbDevice& volume : volumes) {
        addVolume(volume);
    }
}

void DeviceListWidget::showMessage(const QString& text) {
    clearRows();
    addItem(text);
}

void DeviceListWidget::addVolume(const Platform::UsbDevice& volume) {
    const QString where = location(volume);
    const QString name = volume.displayName.isEmpty() ? where : volume.displayName;
    auto* item = new QListWidgetItem(u"%1 (%2)"_s.arg(name, where) + remark(volume), this);
    item->setData(RootPathRole, volume.mounted ? volume.rootPath : QString());
    item->setData(NameRole, name);
    item->setData(DeviceRole, volume.devicePath);
    if (!volume.mounted) {
        item->setFlags(item->flags() & ~Qt::ItemIsSelectable);
        item->setForeground(QColor(110, 110, 110));
        item->setToolTip(
            WindowText::tr("Monte a unidade USB no gerenciador de arquivos e atualize a lista."));
    }
}

void DeviceListWidget::selectOnlyMounted() {
    QListWidgetItem* onlyMounted = nullptr;
    if (mountedCount() == 1) {
        for (int row = 0; row < count(); ++row) {
            if (!rootPathOf(item(row)).isEmpty()) {
                onlyMounted = item(row);
            }
        }
    } else {
        clearSelection();
    }
    setCurrentItem(onlyMounted);
}

void DeviceListWidget::selectForContainer(const QString& containerPath) {
    // A change of the current row is answered with this very call.
    const QSignalBlocker blocker(this);
    QString containerFolder;
    if (!containerPath.isEmpty()) {
        containerFolder = normalizeDirectoryPath(QFileInfo(containerPath).absolutePath());
    }
    QListWidgetItem* match = nullptr;
    for (int row = 0; row < count(); ++row) {
        clearMark(item(row));
        const QString root = rootPathOf(item(row));
        if (!root.isEmpty() && containerFolder.startsWith(normalizeDirectoryPath(root))) {
            match = item(row);
        }
    }
    if (match == nullptr) {
        clearSelection();
        setCurrentItem(nullptr);
        return;
    }
    mark(match);
    setCurrentItem(match);
    scrollToItem(match);
}

void DeviceListWidget::selectDevice(const QString& devicePath, const QString& rootPath) {
    QListWidgetItem* match = nullptr;
    for (int row = 0; row < count(); ++row) {
        const bool sameDevice = item(row)->data(DeviceRole).toString() == devicePath;
        if (sameDevice && (match == nullptr || rootPathOf(item(row)) == rootPath)) {
            match = item(row);
        }
    }
    if (match != nullptr) {
        setCurrentItem(match);
        scrollToItem(match);
    }
}

int DeviceListWidget::mountedCount() const {
    int mounted = 0;
    for (int row = 0; row < count(); ++row) {
        if (!rootPathOf(item(row)).isEmpty()) {
            ++mounted;
        }
    }
    return mounted;
}

QString DeviceListWidget::currentRootPath() const {
    return rootPathOf(currentItem());
}

QString DeviceListWidget::currentName() const {
    return currentItem() == nullptr ? QString() : currentItem()->data(NameRole).toString();
}

QString DeviceListWidget::currentDevicePath() const {
    return currentItem() == nullptr ? QString() : currentItem()->data(DeviceRole).toString();
}

bool DeviceListWidget::activateCurrent() {
    if (currentItem() == nullptr) {
        return false;
    }
    Q_EMIT volumeActivated(currentRootPath());
    return true;
}

void DeviceListWidget::focusInEvent(QFocusEvent* event) {
    // Qt makes the first row current when the keyboard reaches the list, which would choose one
    // of several drives for the user.
    const bool noneIsCurrent = currentItem() == nullptr;
    QListWidget::focusInEvent(event);
    if (noneIsCurrent) {
        setCurrentItem(nullptr);
    }
}

} // namespace Tessel::UI
