// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ContainerLock.h"
#include "support/Files.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using Tessel::Core::ContainerLock;
using Tessel::Tests::writeFile;
using namespace Qt::Literals::StringLiterals;

class TestContainerLock : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_folder;
    QString m_path;

    /// Puts another file at the path.
    [[nodiscard]] bool replaceFile() const {
        const QString next = m_folder.filePath(u"next"_s);
        return writeFile(next, {}) && QFile::remove(m_path) && QFile::rename(next, m_path);
    }

private Q_SLOTS:
    void init() {
        m_path = m_folder.filePath(u"tessel.tvlt"_s);
        QVERIFY(writeFile(m_path, {}));
    }

    void refusesASecondHolder() {
        ContainerLock first;
        ContainerLock second;
        QVERIFY(first.acquire(m_path));
        QVERIFY(!second.acquire(m_path));
        QVERIFY(!second.acquire(m_path));
    }

    void isFreeAfterRelease() {
        ContainerLock first;
        ContainerLock second;
        QVERIFY(first.acquire(m_path));
        first.release();
        QVERIFY(second.acquire(m_path));
    }

    void isFreeWhenTheHolderIsGone() {
        {
            ContainerLock first;
            QVERIFY(first.acquire(m_path));
        }
        ContainerLock second;
        QVERIFY(second.acquire(m_path));
    }

    void refusesAnotherProcess() {
        const QStringList tryLock{u"-n"_s, m_path, u"true"_s};
        QCOMPARE(QProcess::execute(u"flock"_s, tryLock), 0);
        ContainerLock lock;
        QVERIFY(lock.acquire(m_path));
        QVERIFY(QProcess::execute(u"flock"_s, tryLock) != 0);
    }

    void survivesAnotherDescriptorBeingClosed() {
        ContainerLock first;
        QVERIFY(first.acquire(m_path));
        {
            QFile other(m_path);
            QVERIFY(other.open(QIODevice::ReadOnly));
        }
        ContainerLock second;
        QVERIFY(!second.acquire(m_path));
    }

    void acquiringElsewhereGivesTheFormerUp() {
        const QString other = m_folder.filePath(u"other.tvlt"_s);
        QVERIFY(QFile::copy(m_path, other) || QFile::exists(other));
        ContainerLock first;
        QVERIFY(first.acquire(m_path));
        QVERIFY(first.acquire(other));
        ContainerLock second;
        QVERIFY(second.acquire(m_path));
    }

    void refusesAMissingFile() {
        ContainerLock lock;
        QVERIFY(!lock.acquire(m_folder.filePath(u"missing"_s)));
    }

    void refusesAPipeAtOnce() {
        const QString pipe = m_folder.filePath(u"pipe"_s);
        QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        ContainerLock lock;
        QVERIFY(!lock.acquire(pipe));
    }

    void followsAReplacedFile() {
        ContainerLock first;
        QVERIFY(first.acquire(m_path));
        QVERIFY(replaceFile());
        QVERIFY(first.follow());
        ContainerLock second;
        QVERIFY(!second.acquire(m_path));
        first.release();
        QVERIFY(second.acquire(m_path));
    }

    void followsNothingAnotherWindowHolds() {
        ContainerLock first;
        ContainerLock second;
        QVERIFY(first.acquire(m_path));
        QVERIFY(replaceFile());
        QVERIFY(second.acquire(m_path));
        QVERIFY(!first.follow());
        second.release();
        QVERIFY(first.follow());
    }

    void keepsTheOldFileWhileThereIsNoNewOne() {
        const QString elsewhere = m_folder.filePath(u"elsewhere"_s);
        ContainerLock first;
        QVERIFY(first.acquire(m_path));
        QVERIFY(QFile::remove(elsewhere) || !QFile::exists(elsewhere));
        QVERIFY(QFile::rename(m_path, elsewhere));
        QVERIFY(first.follow());
        ContainerLock second;
        QVERIFY(!second.acquire(elsewhere));
    }

    void followsNothingWithoutALock() {
        ContainerLock lock;
        QVERIFY(!lock.follow());
        QVERIFY(lock.acquire(m_path));
        lock.release();
        QVERIFY(!lock.follow());
    }
};

TESSEL_TEST_MAIN(Tessel::Tests::runTest<QCoreApplication, TestContainerLock>);
#include "test_container_lock.moc"
