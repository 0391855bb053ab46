// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ContainerLock.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using Tessel::Core::ContainerLock;

class TestContainerLock : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void refusesASecondHolder();
    void isFreeAfterRelease();
    void isFreeWhenTheHolderIsGone();
    void refusesAnotherProcess();
    void survivesAnotherDescriptorBeingClosed();
    void acquiringElsewhereGivesTheFormerUp();
    void refusesAMissingFile();

private:
    QTemporaryDir m_folder;
    QString m_path;
};

void TestContainerLock::init() {
    m_path = m_folder.filePath(QStringLiteral("tessel.tvlt"));
    QFile file(m_path);
    QVERIFY(file.open(QIODevice::WriteOnly));
}

void TestContainerLock::refusesASecondHolder() {
    ContainerLock first;
    ContainerLock second;
    QVERIFY(first.acquire(m_path));
    QVERIFY(!second.acquire(m_path));
    QVERIFY(!second.acquire(m_path));
}

void TestContainerLock::isFreeAfterRelease() {
    ContainerLock first;
    ContainerLock second;
    QVERIFY(first.acquire(m_path));
    first.release();
    QVERIFY(second.acquire(m_path));
}

void TestContainerLock::isFreeWhenTheHolderIsGone() {
    {
        ContainerLock first;
        QVERIFY(first.acquire(m_path));
    }
    ContainerLock second;
    QVERIFY(second.acquire(m_path));
}

void TestContainerLock::refusesAnotherProcess() {
    const QStringList tryLock{QStringLiteral("-n"), m_path, QStringLiteral("true")};
    QCOMPARE(QProcess::execute(QStringLiteral("flock"), tryLock), 0);
    ContainerLock lock;
    QVERIFY(lock.acquire(m_path));
    QVERIFY(QProcess::execute(QStringLiteral("flock"), tryLock) != 0);
}

void TestContainerLock::survivesAnotherDescriptorBeingClosed() {
    ContainerLock first;
    QVERIFY(first.acquire(m_path));
    {
        QFile other(m_path);
        QVERIFY(other.open(QIODevice::ReadOnly));
    }
    ContainerLock second;
    QVERIFY(!second.acquire(m_path));
}

void TestContainerLock::acquiringElsewhereGivesTheFormerUp() {
    const QString other = m_folder.filePath(QStringLiteral("other.tvlt"));
    QVERIFY(QFile::copy(m_path, other) || QFile::exists(other));
    ContainerLock first;
    QVERIFY(first.acquire(m_path));
    QVERIFY(first.acquire(other));
    ContainerLock second;
    QVERIFY(second.acquire(m_path));
}

void TestContainerLock::refusesAMissingFile() {
    ContainerLock lock;
    QVERIFY(!lock.acquire(m_folder.filePath(QStringLiteral("missing"))));
}

QTEST_GUILESS_MAIN(TestContainerLock)
#include "test_container_lock.moc"
