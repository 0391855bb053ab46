// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QList>
#include <QListWidget>
#include <QString>

namespace Tessel::Platform {
struct UsbDevice;
}

namespace Tessel::UI {

/// The list of USB volumes: what each row says and carries, which row is current, and the mark on
/// the volume that holds the chosen container.
///
/// A row carries the directory where its volume is mounted in Qt::UserRole, empty when there is
/// none, the volume's name in Qt::UserRole + 1 and its device node in Qt::UserRole + 2.
class DeviceListWidget : public QListWidget {
    Q_OBJECT

public:
    DeviceListWidget();

    /// Replaces the rows, in the order given. Follow it by one of the two select functions.
    void showVolumes(const QList<Platform::UsbDevice>& volumes);
    /// Replaces the rows by one that holds a message and no volume.
    void showMessage(const QString& text);

    /// Makes the only mounted volume current. With several the user must choose: none is current.
    void selectOnlyMounted();
    /// Marks the volume that holds the file and makes it current, the last one when several do.
    /// Without such a volume, or with an empty path, none is marked or current. Emits nothing.
    void selectForContainer(const QString& containerPath);

    /// Makes the row of a device current, the one with this mount directory when it has several.
    /// Without such a row nothing changes.
    void selectDevice(const QString& devicePath, const QString& rootPath);

    [[nodiscard]] int mountedCount() const;
    /// Of the current row; empty without one and for an unmounted volume.
    [[nodiscard]] QString currentRootPath() const;
    /// Of the current row; empty without one.
    [[nodiscard]] QString currentName() const;
    /// The device node of the current row; empty without one.
    [[nodiscard]] QString currentDevicePath() const;

    /// Emits volumeActivated() for the current row. @return whether there is one.
    bool activateCurrent();

Q_SIGNALS:
    /// The user asks for the container of a volume. @p rootPath is empty for an unmounted one.
    void volumeActivated(const QString& rootPath);
    /// The current row or the selection has changed.
    void currentVolumeChanged();

protected:
    void focusInEvent(QFocusEvent* event) override;

private:
    void addVolume(const Platform::UsbDevice& volume);
    void clearRows();
};

} // namespace Tessel::UI
