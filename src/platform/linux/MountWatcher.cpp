// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "platform/linux/MountWatcher.h"

#include <QSocketNotifier>

#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::Platform::Linux {

namespace {

bool isDeviceMount(const QByteArray& line) {
    const QByteArray separator(" - ");
    const qsizetype at = line.indexOf(separator);
    // The type of the file system, its source, its options.
    return at >= 0 && line.sliced(at + separator.size()).split(' ').value(1).startsWith("/dev/");
}

} // namespace

MountWatcher::MountWatcher(QObject* parent) : QObject(parent), m_table(u"/proc/self/mountinfo"_s) {
    if (!m_table.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return;
    }
    m_mounts = readDeviceMounts();
    // poll(2) reports a change of this file as an exceptional condition, see proc(5).
    auto* notifier = new QSocketNotifier(m_table.handle(), QSocketNotifier::Exception, this);
    connect(notifier, &QSocketNotifier::activated, this, &MountWatcher::compareWithTable);
}

void MountWatcher::compareWithTable() {
    QByteArrayList mounts = readDeviceMounts();
    // The table changes for much else: network folders, packages, containers of other programs.
    if (std::exchange(m_mounts, mounts) != mounts) {
        Q_EMIT changed();
    }
}

QByteArrayList MountWatcher::readDeviceMounts() {
    if (!m_table.seek(0)) {
        return {};
    }
    QByteArrayList mounts = m_table.readAll().split('\n');
    mounts.removeIf([](const QByteArray& line) { return !isDeviceMount(line); });
    return mounts;
}

} // namespace Tessel::Platform::Linux
