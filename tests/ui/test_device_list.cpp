// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The window's list of drives: what its rows say, which one is chosen, which one belongs to the
// container, and what a double click does.

#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/WindowDriver.h"
#include "support/fake_machine_test.h"
#include "ui/DisplayFormats.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QItemSelectionModel>
#include <QLabel>
#include <QListWidget>
#include <QStorageInfo>
#include <QTest>

#include <memory>

using Tessel::Tests::CraftedContainer;
using Tessel::Tests::DialogDriver;
using Tessel::Tests::FakeUsb;
using Tessel::Tests::WindowDriver;
using Tessel::Tests::writeFile;
using Tessel::UI::formatFileSize;

using namespace Qt::Literals::StringLiterals;

namespace {

const QString Title = u"Tessel"_s;
const QString Password = u"senha de teste"_s;
const QString MountHint = u"Monte a unidade USB no gerenciador de arquivos e atualize a lista."_s;

/// How a row is drawn: in grey or not, and whether it is marked as the container's.
QString look(const QListWidgetItem* item) {
    QStringList words;
    if (item->foreground().style() != Qt::NoBrush) {
        words.append(u"text "_s + item->foreground().color().name());
    }
    if (item->background().style() != Qt::NoBrush) {
        words.append(u"background "_s + item->background().color().name());
    }
    words.append(QString::number(item->font().weight()));
    if (!item->toolTip().isEmpty()) {
        words.append(item->toolTip());
    }
    return words.join(u", "_s);
}

const QString Plain = u"400"_s;
const QString Marked =
    u"text #000000, background #deedff, 700, Dispositivo associado ao container selecionado."_s;
const QString Unmounted = u"text #6e6e6e, 400, "_s + MountHint;
const QString UnmountedWithoutHint = u"text #6e6e6e, 400"_s;

} // namespace

class TestDeviceList : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<FakeUsb> m_usb;
    std::unique_ptr<WindowDriver> m_driver;

    void plugIn(const QString& device, const QString& label = QString()) {
        m_usb->addDisk(device);
        if (!label.isEmpty()) {
            m_usb->addLabel(label, device);
        }
    }

    void plugInMounted(const QString& device, const QString& directory,
                       const QString& label = QString()) {
        plugIn(device, label);
        m_usb->mountVolume(device, directory);
    }

    void openWindow() { m_driver = std::make_unique<WindowDriver>(); }

    void refresh() { m_driver->action(u"Atualizar lista"_s)->trigger(); }

    [[nodiscard]] QListWidget* list() const { return m_driver->deviceList(); }

    [[nodiscard]] QStringList texts() const {
        QStringList texts;
        for (int row = 0; row < list()->count(); ++row) {
            texts.append(list()->item(row)->text());
        }
        return texts;
    }

    [[nodiscard]] QStringList looks() const {
        QStringList looks;
        for (int row = 0; row < list()->count(); ++row) {
            looks.append(look(list()->item(row)));
        }
        return looks;
    }

    /// The row that is current and alone selected; -1 when there is no such row.
    [[nodiscard]] int chosenRow() const {
        const QList<QListWidgetItem*> selected = list()->selectedItems();
        const bool same = selected.size() == 1 && selected.first() == list()->currentItem();
        return same ? list()->currentRow() : -1;
    }

    [[nodiscard]] QPoint middleOf(int row) const {
        return list()->visualItemRect(list()->item(row)).center();
    }

    void click(int row) {
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, {}, middleOf(row));
    }

    void doubleClick(int row) {
        click(row);
        QTest::mouseDClick(list()->viewport(), Qt::LeftButton, {}, middleOf(row));
    }

    [[nodiscard]] QString containerText() const {
        return m_driver->label(u"containerLabel"_s)->toolTip();
    }

    /// Opens the container as the vault of the only drive, which has room.
    [[nodiscard]] bool openVaultOnDrive(const CraftedContainer& crafted) {
        plugIn(u"sdz"_s, u"PEN"_s);
        m_usb->mountVolume(u"sdz"_s, u"/media/ana/PEN"_s, 256 << 20);
        const QString path = u"/media/ana/PEN/x.tvlt"_s;
        const bool written = crafted.writeTo(path);
        openWindow();
        return written && m_driver->openVault(path, Password);
    }

    /// The row of the only drive as it has to read now.
    [[nodiscard]] static QString rowOfTheDriveNow() {
        const qint64 free = QStorageInfo(u"/media/ana/PEN"_s).bytesFree();
        return u"PEN (/media/ana/PEN) | %1 livres"_s.arg(formatFileSize(free));
    }

private Q_SLOTS:
    void init() {
        qputenv("USER", "ana");
        qunsetenv("LOGNAME");
        m_usb = std::make_unique<FakeUsb>();
        // An open vault's workspace goes with the machine, and meets nobody else's.
        m_usb->makeDirectory(u"/media/tmp"_s);
        qputenv("TMPDIR", "/media/tmp");
    }

    void cleanup() {
        m_driver.reset();
        m_usb.reset();
    }

    // --- What the rows say -----------------------------------------------------------------------

    void withoutDrivesAPlainRowSaysSo() {
        openWindow();
        QCOMPARE(texts(), QStringList{u"Nenhum dispositivo USB detectado."_s});
        QCOMPARE(looks(), QStringList{Plain});
        QCOMPARE(m_driver->window.mountedUsbDeviceCount(), 0);
        QVERIFY(list()->currentItem() == nullptr);
        QVERIFY(list()->selectedItems().isEmpty());
    }

    void plainRowCanBeClickedWithoutEffect() {
        openWindow();
        doubleClick(0);
        QCOMPARE(m_driver->window.selectedUsbRootPath(), QString());
        QCOMPARE(m_driver->window.selectedUsbDisplayName(), QString());
        QVERIFY(m_driver->dialogs.seen().isEmpty());
        QCOMPARE(containerText(), u"Container: nenhum"_s);
    }

    void mountedRowTellsNamePlaceAndFreeSpace() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s, u"MINHA\\x20PEN"_s);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        openWindow();
        // A drive without a label is called by its directory.
        QCOMPARE(texts(), (QStringList{u"MINHA PEN (/media/ana/PEN) | 8.0 MB livres"_s,
                                       u"/media/ana/OUTRA (/media/ana/OUTRA) | 8.0 MB livres"_s}));
        QCOMPARE(looks(), (QStringList{Plain, Plain}));
        QCOMPARE(list()->item(0)->data(Qt::UserRole).toString(), u"/media/ana/PEN"_s);
        QCOMPARE(list()->item(0)->data(Qt::UserRole + 1).toString(), u"MINHA PEN"_s);
        QCOMPARE(m_driver->window.mountedUsbDeviceCount(), 2);
    }

    void freeSpaceIsReadAgainOnRefresh() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s, u"PEN"_s);
        openWindow();
        QVERIFY(writeFile(u"/media/ana/PEN/half"_s, QByteArray(4608 * 1024, 'x')));
        QCOMPARE(texts(), QStringList{u"PEN (/media/ana/PEN) | 8.0 MB livres"_s});
        refresh();
        QCOMPARE(texts(), QStringList{u"PEN (/media/ana/PEN) | 3.5 MB livres"_s});
        QVERIFY(writeFile(u"/media/ana/PEN/rest"_s, QByteArray(3584 * 1024, 'x')));
        refresh();
        QCOMPARE(texts(), QStringList{u"PEN (/media/ana/PEN) | 0 bytes livres"_s});
    }

    void driveWhoseStorageCannotBeReadShowsNoFreeSpace() {
        plugInMounted(u"sdz"_s, u"/media/ana/OUTER/PEN"_s);
        // What is mounted over the directory above makes the drive's own unreachable.
        m_usb->mountOther(u"cover"_s, u"/media/ana/OUTER"_s);
        openWindow();
        QCOMPARE(texts(), QStringList{u"PEN (/media/ana/OUTER/PEN)"_s});
        QCOMPARE(m_driver->window.mountedUsbDeviceCount(), 1);
    }

    void unmountedRowIsGreyAndTellsWhatToDo() {
        plugIn(u"sdz"_s, u"PEN"_s);
        openWindow();
        QCOMPARE(texts(), QStringList{u"PEN (/dev/sdz) | não montado"_s});
        QCOMPARE(looks(), QStringList{Unmounted});
        QCOMPARE(list()->item(0)->data(Qt::UserRole).toString(), QString());
        QCOMPARE(list()->item(0)->data(Qt::UserRole + 1).toString(), u"PEN"_s);
        QCOMPARE(m_driver->window.mountedUsbDeviceCount(), 0);
        QCOMPARE(list()->currentRow(), -1);
    }

    void unmountedRowCannotBeSelected() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugIn(u"sdy"_s);
        openWindow();
        QVERIFY(list()->item(0)->flags() & Qt::ItemIsSelectable);
        QVERIFY(!(list()->item(1)->flags() & Qt::ItemIsSelectable));
        click(1);
        QVERIFY(!list()->item(1)->isSelected());
        QCOMPARE(m_driver->window.selectedUsbRootPath(),
                 list()->currentRow() == 0 ? u"/media/ana/PEN"_s : QString());
    }

    void driveMountedOnlyByItsDirectoryCountsAsMounted() {
        plugIn(u"sdz"_s, u"PEN"_s);
        m_usb->makeDirectory(u"/media/ana/PEN"_s);
        openWindow();
        // The space is that of whatever holds the directory.
        QVERIFY2(texts().first().startsWith(u"PEN (/media/ana/PEN) | "),
                 qPrintable(texts().first()));
        QVERIFY2(texts().first().endsWith(u" livres"), qPrintable(texts().first()));
        QCOMPARE(looks(), QStringList{Plain});
        QCOMPARE(chosenRow(), 0);
    }

    void rowsComeInTheOrderOfDetection() {
        plugIn(u"sda"_s);
        plugInMounted(u"sdz"_s, u"/media/ana/Z"_s, u"Z"_s);
        plugInMounted(u"sdb"_s, u"/media/ana/B"_s, u"B"_s);
        openWindow();
        QCOMPARE(texts(), (QStringList{u"Z (/media/ana/Z) | 8.0 MB livres"_s,
                                       u"B (/media/ana/B) | 8.0 MB livres"_s,
                                       u"sda (/dev/sda) | não montado"_s}));
    }

    // --- Which row is chosen ---------------------------------------------------------------------

    void onlyMountedDriveIsChosen_data() {
        QTest::addColumn<int>("mounted");
        QTest::addColumn<int>("unmounted");
        QTest::addColumn<int>("chosen");
        QTest::newRow("one mounted") << 1 << 0 << 0;
        QTest::newRow("one mounted, one not") << 1 << 1 << 0;
        QTest::newRow("one mounted, two not") << 1 << 2 << 0;
        QTest::newRow("two mounted") << 2 << 0 << -1;
        QTest::newRow("two mounted, one not") << 2 << 1 << -1;
        QTest::newRow("three mounted") << 3 << 0 << -1;
        QTest::newRow("one not mounted") << 0 << 1 << -1;
        QTest::newRow("two not mounted") << 0 << 2 << -1;
    }
    void onlyMountedDriveIsChosen() {
        QFETCH(const int, mounted);
        QFETCH(const int, unmounted);
        QFETCH(const int, chosen);
        for (int i = 0; i < unmounted; ++i) {
            plugIn(u"sda%1"_s.arg(i));
        }
        for (int i = 0; i < mounted; ++i) {
            plugInMounted(u"sdz%1"_s.arg(i), u"/media/ana/PEN%1"_s.arg(i), u"PEN%1"_s.arg(i));
        }
        openWindow();
        QCOMPARE(list()->count(), mounted + unmounted);
        QCOMPARE(m_driver->window.mountedUsbDeviceCount(), mounted);
        QCOMPARE(list()->currentRow(), chosen);
        QCOMPARE(list()->selectedItems().size(), chosen < 0 ? 0 : 1);
        QCOMPARE(chosenRow(), chosen);
        QCOMPARE(m_driver->window.selectedUsbRootPath(),
                 chosen < 0 ? QString() : u"/media/ana/PEN0"_s);
        QCOMPARE(m_driver->window.selectedUsbDisplayName(), chosen < 0 ? QString() : u"PEN0"_s);
    }

    void reachingTheListByKeyboardChoosesNoDrive() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        openWindow();
        list()->clearFocus();
        list()->setFocus(Qt::TabFocusReason);
        QVERIFY(list()->hasFocus());
        QCOMPARE(list()->currentRow(), -1);
        QTest::keyClick(list(), Qt::Key_Down);
        QCOMPARE(chosenRow(), 0);
        QTest::keyClick(list(), Qt::Key_Down);
        QCOMPARE(chosenRow(), 1);
        list()->clearFocus();
        list()->setFocus(Qt::TabFocusReason);
        QCOMPARE(chosenRow(), 1);
    }

    void refreshFollowsTheDrives() {
        openWindow();
        plugIn(u"sdz"_s);
        QTest::keyClick(&m_driver->window, Qt::Key_F5, Qt::ControlModifier);
        QCOMPARE(texts(), QStringList{u"sdz (/dev/sdz) | não montado"_s});
        QCOMPARE(chosenRow(), -1);
        m_usb->mountVolume(u"sdz"_s, u"/media/ana/PEN"_s);
        refresh();
        QCOMPARE(texts(), QStringList{u"/media/ana/PEN (/media/ana/PEN) | 8.0 MB livres"_s});
        QCOMPARE(chosenRow(), 0);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        refresh();
        QCOMPARE(list()->count(), 2);
        QCOMPARE(chosenRow(), -1);
    }

    void refreshForgetsTheChosenRow() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        openWindow();
        click(1);
        QCOMPARE(chosenRow(), 1);
        QCOMPARE(m_driver->window.selectedUsbRootPath(), u"/media/ana/OUTRA"_s);
        refresh();
        QCOMPARE(list()->currentRow(), -1);
        QVERIFY(list()->selectedItems().isEmpty());
    }

    // --- Drives that come and go by themselves ---------------------------------------------------

    void mountedDriveShowsByItself() {
        const QStringList unmounted{u"sdz (/dev/sdz) | não montado"_s};
        const QStringList mounted{u"/media/ana/PEN (/media/ana/PEN) | 8.0 MB livres"_s};
        plugIn(u"sdz"_s);
        openWindow();
        QCOMPARE(texts(), unmounted);
        for (int time = 0; time < 2; ++time) {
            m_usb->mountVolume(u"sdz"_s, u"/media/ana/PEN"_s);
            QTRY_COMPARE(texts(), mounted);
            QCOMPARE(chosenRow(), 0);
            m_usb->unmount(u"/media/ana/PEN"_s);
            QTRY_COMPARE(texts(), unmounted);
            QCOMPARE(chosenRow(), -1);
        }
    }

    void chosenDriveStaysWhenAnotherIsMounted() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        openWindow();
        QCOMPARE(chosenRow(), 0);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        QTRY_COMPARE(list()->count(), 2);
        QCOMPARE(m_driver->window.selectedUsbRootPath(), u"/media/ana/PEN"_s);
        QCOMPARE(chosenRow(), 0);
        click(1);
        m_usb->unmount(u"/media/ana/PEN"_s);
        QTRY_COMPARE(m_driver->window.mountedUsbDeviceCount(), 1);
        QCOMPARE(m_driver->window.selectedUsbRootPath(), u"/media/ana/OUTRA"_s);
        QCOMPARE(chosenRow(), 0);
    }

    void containerStaysWhenAnotherDriveIsMounted() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        QVERIFY(writeFile(u"/media/ana/PEN/meu.tvlt"_s, "x"));
        openWindow();
        QVERIFY(m_driver->chooseContainer(u"/media/ana/PEN/meu.tvlt"_s));
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        QTRY_COMPARE(looks(), (QStringList{Marked, Plain}));
        QCOMPARE(chosenRow(), 0);
        QCOMPARE(containerText(), u"Container: meu.tvlt"_s);
        QCOMPARE(m_driver->result(), u"Container selecionado."_s);
    }

    void openDialogDelaysTheNewDrive() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        openWindow();
        m_driver->dialogs.handle(u"Escolher container Tessel"_s, [this](QDialog* dialog) {
            plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
            QCoreApplication::processEvents();
            QCOMPARE(list()->count(), 1);
            dialog->reject();
        });
        m_driver->action(u"Escolher container..."_s)->trigger();
        QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
        QTRY_COMPARE(list()->count(), 2);
    }

    void openVaultDelaysTheNewDrive() {
        QVERIFY(openVaultOnDrive(CraftedContainer()));
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        QCoreApplication::processEvents();
        QCOMPARE(list()->count(), 1);
        m_driver->action(u"Bloquear"_s)->trigger();
        QTRY_COMPARE(looks(), (QStringList{Marked, Plain}));
    }

    void mountsOfOtherThingsChangeNothing() {
        plugIn(u"sdz"_s);
        openWindow();
        list()->item(0)->setText(u"not refreshed"_s);
        m_usb->mountOther(u"other"_s, u"/media/ana/other"_s);
        QCoreApplication::processEvents();
        QCOMPARE(texts(), QStringList{u"not refreshed"_s});
        m_usb->mountVolume(u"sdz"_s, u"/media/ana/PEN"_s);
        QTRY_COMPARE(m_driver->window.mountedUsbDeviceCount(), 1);
    }

    // --- The drive of the container --------------------------------------------------------------

    void driveOfTheContainerIsMarked() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        QVERIFY(writeFile(u"/media/ana/OUTRA/meu.tvlt"_s, "x"));
        openWindow();
        QVERIFY(m_driver->chooseContainer(u"/media/ana/OUTRA/meu.tvlt"_s));
        QCOMPARE(looks(), (QStringList{Plain, Marked}));
        QCOMPARE(chosenRow(), 1);
        QCOMPARE(m_driver->result(), u"Container selecionado."_s);
    }

    void markMovesWithTheContainer() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        QVERIFY(writeFile(u"/media/ana/PEN/a.tvlt"_s, "x"));
        QVERIFY(writeFile(u"/media/ana/OUTRA/b.tvlt"_s, "x"));
        openWindow();
        QVERIFY(m_driver->chooseContainer(u"/media/ana/PEN/a.tvlt"_s));
        QCOMPARE(looks(), (QStringList{Marked, Plain}));
        QVERIFY(m_driver->chooseContainer(u"/media/ana/OUTRA/b.tvlt"_s));
        QCOMPARE(looks(), (QStringList{Plain, Marked}));
        QCOMPARE(chosenRow(), 1);
    }

    void unmountedRowsLoseTheirHintOnceAContainerIsChosen() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugIn(u"sdy"_s);
        QVERIFY(writeFile(u"/media/ana/PEN/a.tvlt"_s, "x"));
        openWindow();
        QCOMPARE(looks(), (QStringList{Plain, Unmounted}));
        QVERIFY(m_driver->chooseContainer(u"/media/ana/PEN/a.tvlt"_s));
        QCOMPARE(looks(), (QStringList{Marked, UnmountedWithoutHint}));
    }

    void containerFolderIsComparedWithTheDrive_data() {
        QTest::addColumn<QString>("root");
        QTest::addColumn<QString>("container");
        QTest::addColumn<bool>("matches");
        const QString pen = u"/media/ana/PEN"_s;
        QTest::newRow("at the root") << pen << u"/media/ana/PEN/x.tvlt"_s << true;
        QTest::newRow("in a folder") << pen << u"/media/ana/PEN/cofres/x.tvlt"_s << true;
        QTest::newRow("deep") << pen << u"/media/ana/PEN/a/b/c/x.tvlt"_s << true;
        QTest::newRow("name that goes on") << pen << u"/media/ana/PEN2/x.tvlt"_s << false;
        QTest::newRow("name that stops short") << pen << u"/media/ana/PE/x.tvlt"_s << false;
        QTest::newRow("folder above") << pen << u"/media/ana/x.tvlt"_s << false;
        QTest::newRow("other letter case") << pen << u"/media/ana/pen/x.tvlt"_s << false;
        QTest::newRow("short root") << u"/mnt"_s << u"/mnt/x.tvlt"_s << true;
        QTest::newRow("root with a space inside")
            << u"/media/ana/MINHA PEN"_s << u"/media/ana/MINHA PEN/x.tvlt"_s << true;
        QTest::newRow("root with a space at the end")
            << u"/media/ana/PEN "_s << u"/media/ana/PEN /x.tvlt"_s << true;
        QTest::newRow("blanks around a root do not count")
            << u"/media/ana/PEN "_s << u"/media/ana/PEN/x.tvlt"_s << true;
        QTest::newRow("blanks inside a path do")
            << u"/media/ana/PEN "_s << u"/media/ana/PEN /cofres/x.tvlt"_s << false;
        QTest::newRow("root beyond ASCII")
            << u"/media/ana/Coração"_s << u"/media/ana/Coração/x.tvlt"_s << true;
    }
    void containerFolderIsComparedWithTheDrive() {
        QFETCH(const QString, root);
        QFETCH(const QString, container);
        QFETCH(const bool, matches);
        plugInMounted(u"sdz"_s, root);
        m_usb->makeDirectory(QFileInfo(container).path());
        QVERIFY(writeFile(container, "x"));
        openWindow();
        QCOMPARE(chosenRow(), 0);
        QVERIFY(m_driver->chooseContainer(container));
        QCOMPARE(looks(), QStringList{matches ? Marked : Plain});
        QCOMPARE(list()->currentRow(), matches ? 0 : -1);
        QCOMPARE(chosenRow(), matches ? 0 : -1);
    }

    void slashesOfAShortRootAreKept_data() {
        QTest::addColumn<QString>("root");
        QTest::addColumn<bool>("matches");
        // The container's folder is compared as "/mnt/". A root loses slashes from its end as long
        // as it has four characters or more, so that of these only "/" is above that folder.
        QTest::newRow("1") << u"/"_s << true;
        QTest::newRow("2") << u"//"_s << false;
        QTest::newRow("3") << u"///"_s << false;
        QTest::newRow("4") << u"////"_s << false;
        QTest::newRow("5") << u"/////"_s << false;
        QTest::newRow("4, no slash") << u"/mnt"_s << true;
        QTest::newRow("5, a slash") << u"/mnt/"_s << true;
        QTest::newRow("6, two slashes") << u"/mnt//"_s << true;
        QTest::newRow("7, three slashes") << u"/mnt///"_s << true;
    }
    void slashesOfAShortRootAreKept() {
        QFETCH(const QString, root);
        QFETCH(const bool, matches);
        QVERIFY(writeFile(u"/mnt/x.tvlt"_s, "x"));
        plugIn(u"sdz"_s);
        m_usb->replaceMountTable("36 35 8:1 / " + root.toUtf8() + " rw - vfat /dev/sdz rw\n");
        openWindow();
        // Some versions of the storage API know the root by its shortest path.
        const QString shown = m_driver->window.selectedUsbRootPath();
        const bool isShortest = shown == QDir::cleanPath(root);
        QVERIFY2(isShortest || shown == root, qPrintable(shown));
        QVERIFY(m_driver->chooseContainer(u"/mnt/x.tvlt"_s));
        QCOMPARE(looks(), QStringList{matches || isShortest ? Marked : Plain});
        QCOMPARE(chosenRow(), matches || isShortest ? 0 : -1);
    }

    void innerDriveWins() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugInMounted(u"sdy"_s, u"/media/ana/PEN/inner"_s);
        plugInMounted(u"sdx"_s, u"/media/ana/OUTRA"_s);
        QVERIFY(writeFile(u"/media/ana/PEN/inner/x.tvlt"_s, "x"));
        openWindow();
        QVERIFY(m_driver->chooseContainer(u"/media/ana/PEN/inner/x.tvlt"_s));
        QCOMPARE(looks(), (QStringList{Plain, Marked, Plain}));
        QCOMPARE(chosenRow(), 1);
    }

    void lastMatchingRowWins() {
        // The outer directory belongs to a drive that only its label connects with it: such drives
        // come last.
        plugIn(u"sdz"_s, u"PEN"_s);
        plugInMounted(u"sdy"_s, u"/media/ana/PEN/inner"_s);
        QVERIFY(writeFile(u"/media/ana/PEN/inner/x.tvlt"_s, "x"));
        openWindow();
        QVERIFY(texts().last().startsWith(u"PEN (/media/ana/PEN) | "));
        QVERIFY(m_driver->chooseContainer(u"/media/ana/PEN/inner/x.tvlt"_s));
        QCOMPARE(looks(), (QStringList{Plain, Marked}));
    }

    void containerElsewhereLeavesNoDriveChosen() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        m_usb->makeDirectory(u"/mnt/disk"_s);
        QVERIFY(writeFile(u"/mnt/disk/x.tvlt"_s, "x"));
        openWindow();
        QCOMPARE(chosenRow(), 0);
        QVERIFY(m_driver->chooseContainer(u"/mnt/disk/x.tvlt"_s));
        QCOMPARE(looks(), QStringList{Plain});
        QCOMPARE(list()->currentRow(), -1);
        QVERIFY(list()->selectedItems().isEmpty());
        refresh();
        // Even a single drive is not chosen: it is not the container's.
        QCOMPARE(list()->currentRow(), -1);
        QVERIFY(list()->selectedItems().isEmpty());
    }

    void refreshKeepsTheMark() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        QVERIFY(writeFile(u"/media/ana/OUTRA/x.tvlt"_s, "x"));
        openWindow();
        QVERIFY(m_driver->chooseContainer(u"/media/ana/OUTRA/x.tvlt"_s));
        refresh();
        QCOMPARE(looks(), (QStringList{Plain, Marked}));
        QCOMPARE(chosenRow(), 1);
    }

    void unpluggedDriveOfTheContainerLeavesNoneChosen() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        QVERIFY(writeFile(u"/media/ana/OUTRA/x.tvlt"_s, "x"));
        openWindow();
        QVERIFY(m_driver->chooseContainer(u"/media/ana/OUTRA/x.tvlt"_s));
        m_usb->unmount(u"/media/ana/OUTRA"_s);
        refresh();
        QCOMPARE(looks(), (QStringList{Plain, UnmountedWithoutHint}));
        QCOMPARE(list()->currentRow(), -1);
        QCOMPARE(containerText(), u"Container: x.tvlt"_s);
        m_usb->mountVolume(u"sdy"_s, u"/media/ana/OUTRA"_s);
        refresh();
        QCOMPARE(looks(), (QStringList{Plain, Marked}));
    }

    void clickOnAnotherDriveGoesBackToTheContainers() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        QVERIFY(writeFile(u"/media/ana/PEN/x.tvlt"_s, "x"));
        openWindow();
        QVERIFY(m_driver->chooseContainer(u"/media/ana/PEN/x.tvlt"_s));
        click(1);
        QCOMPARE(looks(), (QStringList{Marked, Plain}));
        QCOMPARE(list()->currentRow(), 0);
        QVERIFY(list()->item(0)->isSelected());
        QVERIFY(!list()->item(1)->isSelected());
    }

    void arrowKeyGoesBackToTheDriveOfTheContainer() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        QVERIFY(writeFile(u"/media/ana/PEN/x.tvlt"_s, "x"));
        openWindow();
        QVERIFY(m_driver->chooseContainer(u"/media/ana/PEN/x.tvlt"_s));
        list()->setFocus();
        QTest::keyClick(list(), Qt::Key_Down);
        QCOMPARE(looks(), (QStringList{Marked, Plain}));
        QCOMPARE(chosenRow(), 0);
    }

    void currentRowAloneGoesBackToTheDriveOfTheContainer() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        QVERIFY(writeFile(u"/media/ana/PEN/x.tvlt"_s, "x"));
        openWindow();
        QVERIFY(m_driver->chooseContainer(u"/media/ana/PEN/x.tvlt"_s));
        list()->setCurrentRow(1, QItemSelectionModel::NoUpdate);
        QCOMPARE(chosenRow(), 0);
        list()->clearSelection();
        QCOMPARE(chosenRow(), 0);
    }

    void newVaultMarksItsDrive() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugIn(u"sdy"_s);
        m_usb->mountVolume(u"sdy"_s, u"/media/ana/OUTRA"_s, 64 << 20);
        openWindow();
        const QString path = u"/media/ana/OUTRA/tessel.tvlt"_s;
        m_driver->dialogs.answerFiles(u"Criar container Tessel"_s, {path});
        m_driver->dialogs.answerText(u"Definir senha do cofre"_s, Password);
        m_driver->dialogs.answerText(u"Confirmar senha do cofre"_s, Password);
        m_driver->action(u"Criar novo cofre..."_s)->trigger();
        QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
        QVERIFY(QFile::exists(path));
        QCOMPARE(looks(), (QStringList{Plain, Marked}));
        QCOMPARE(chosenRow(), 1);
        QCOMPARE(m_driver->result(), u"Cofre criado com sucesso."_s);
    }

    void driveOfTheContainerIsScrolledIntoView() {
        constexpr int Drives = 12;
        for (int i = 0; i < Drives; ++i) {
            plugInMounted(u"sdz%1"_s.arg(i), u"/media/ana/PEN%1"_s.arg(i));
        }
        openWindow();
        const auto inView = [this](int row) {
            return list()->viewport()->rect().contains(list()->visualItemRect(list()->item(row)));
        };
        QVERIFY(inView(0));
        QVERIFY(!inView(Drives - 1));
        const QString last = list()->item(Drives - 1)->data(Qt::UserRole).toString();
        const QString first = list()->item(0)->data(Qt::UserRole).toString();
        QVERIFY(writeFile(last + u"/x.tvlt"_s, "x") && writeFile(first + u"/x.tvlt"_s, "x"));
        QVERIFY(m_driver->chooseContainer(last + u"/x.tvlt"_s));
        QCOMPARE(chosenRow(), Drives - 1);
        QVERIFY(inView(Drives - 1));

        // Someone has scrolled away from it; the row was the current one all the time.
        list()->scrollToTop();
        QVERIFY(!inView(Drives - 1));
        QVERIFY(m_driver->chooseContainer(last + u"/x.tvlt"_s));
        QVERIFY(inView(Drives - 1));
        QVERIFY(m_driver->chooseContainer(first + u"/x.tvlt"_s));
        QVERIFY(inView(0));
    }

    void importShowsTheSpaceThatIsLeft() {
        QVERIFY(openVaultOnDrive(CraftedContainer()));
        m_usb->makeDirectory(u"/mnt/disk"_s);
        QVERIFY(writeFile(u"/mnt/disk/n.bin"_s, QByteArray(3 << 20, 'n')));
        const QString before = texts().first();
        m_driver->dialogs.answerFiles(u"Importar arquivos para o cofre"_s, {u"/mnt/disk/n.bin"_s});
        m_driver->action(u"Importar..."_s)->trigger();
        QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
        QVERIFY(texts().first() != before);
        QCOMPARE(texts(), QStringList{rowOfTheDriveNow()});
        QCOMPARE(looks(), QStringList{Marked});
    }

    void compactionShowsTheSpaceThatIsFree() {
        CraftedContainer crafted;
        crafted.addPayload(QByteArray(5 << 20, 'x'));
        QVERIFY(openVaultOnDrive(crafted));
        const QString before = texts().first();
        m_driver->dialogs.press(u"Compactar cofre"_s, u"Sim"_s);
        m_driver->dialogs.acceptInformation(u"Compactar cofre"_s);
        m_driver->action(u"Compactar cofre..."_s)->trigger();
        QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
        QVERIFY(texts().first() != before);
        QCOMPARE(texts(), QStringList{rowOfTheDriveNow()});
        QCOMPARE(looks(), QStringList{Marked});
    }

    // --- Double click ----------------------------------------------------------------------------

    void doubleClickOpensTheContainerOfTheDrive() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        // What is in it is not looked at.
        QVERIFY(writeFile(u"/media/ana/OUTRA/tessel.tvlt"_s, {}));
        openWindow();
        QVERIFY(!m_driver->action(u"Desbloquear"_s)->isEnabled());
        doubleClick(1);
        QVERIFY(m_driver->dialogs.seen().isEmpty());
        QCOMPARE(containerText(), u"Container: Tessel"_s);
        QCOMPARE(looks(), (QStringList{Plain, Marked}));
        QCOMPARE(chosenRow(), 1);
        QVERIFY(m_driver->action(u"Desbloquear"_s)->isEnabled());
    }

    void doubleClickChangesTheContainer() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        QVERIFY(writeFile(u"/media/ana/PEN/outro.tvlt"_s, "x"));
        QVERIFY(writeFile(u"/media/ana/OUTRA/tessel.tvlt"_s, "x"));
        openWindow();
        QVERIFY(m_driver->chooseContainer(u"/media/ana/PEN/outro.tvlt"_s));
        doubleClick(1);
        QCOMPARE(containerText(), u"Container: Tessel"_s);
        QCOMPARE(looks(), (QStringList{Plain, Marked}));
        QCOMPARE(chosenRow(), 1);
    }

    void doubleClickFindsAVaultWhoseCompactionWasCut() {
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        const QString container = u"/media/ana/PEN/tessel.tvlt"_s;
        CraftedContainer crafted;
        QVERIFY(crafted.addFile(u"a.txt"_s, "aaa").writeTo(container + u".anterior"_s));
        openWindow();
        doubleClick(0);
        QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
        QVERIFY(m_driver->unlock(u"senha de teste"_s));
        QVERIFY(QFileInfo(container).isFile());
        QVERIFY(!QFileInfo::exists(container + u".anterior"_s));
    }

    void doubleClickOnADriveWithoutContainerSaysSo_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("folder");
        QTest::newRow("empty drive") << QString() << QString();
        QTest::newRow("container of another name") << u"outro.tvlt"_s << QString();
        QTest::newRow("other letter case") << u"TESSEL.TVLT"_s << QString();
        QTest::newRow("container in a folder") << u"cofres/tessel.tvlt"_s << u"cofres"_s;
        QTest::newRow("folder of that name") << QString() << u"tessel.tvlt"_s;
    }
    void doubleClickOnADriveWithoutContainerSaysSo() {
        QFETCH(const QString, file);
        QFETCH(const QString, folder);
        plugInMounted(u"sdz"_s, u"/media/ana/PEN"_s);
        const QDir root(u"/media/ana/PEN"_s);
        QVERIFY(folder.isEmpty() || root.mkdir(folder));
        QVERIFY(file.isEmpty() || writeFile(root.filePath(file), "x"));
        openWindow();
        m_driver->dialogs.acceptInformation(Title);
        doubleClick(0);
        QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
        QCOMPARE(
            m_driver->dialogs.lastText(),
            u"Nenhum tessel.tvlt foi encontrado em /media/ana/PEN. Use Criar cofre para criar um "
            "novo container."_s);
        QCOMPARE(containerText(), u"Container: nenhum"_s);
        QCOMPARE(looks(), QStringList{Plain});
    }

    void doubleClickOnAnUnmountedDriveDoesNothing() {
        plugIn(u"sdz"_s);
        openWindow();
        doubleClick(0);
        QVERIFY(m_driver->dialogs.seen().isEmpty());
        QCOMPARE(containerText(), u"Container: nenhum"_s);
        QCOMPARE(looks(), QStringList{Unmounted});
    }

    void doubleClickDoesNotChangeTheContainerOfAnOpenVault() {
        plugIn(u"sdz"_s);
        m_usb->mountVolume(u"sdz"_s, u"/media/ana/PEN"_s, 64 << 20);
        plugInMounted(u"sdy"_s, u"/media/ana/OUTRA"_s);
        QVERIFY(writeFile(u"/media/ana/OUTRA/tessel.tvlt"_s, "x"));
        QVERIFY(CraftedContainer().writeTo(u"/media/ana/PEN/meu.tvlt"_s));
        openWindow();
        QVERIFY(m_driver->openVault(u"/media/ana/PEN/meu.tvlt"_s, Password));
        doubleClick(1);
        QCOMPARE(containerText(), u"Container: meu.tvlt"_s);
        QCOMPARE(looks(), (QStringList{Marked, Plain}));
        QVERIFY(m_driver->vaultIsOpen());
    }
};

TESSEL_TEST_MAIN(Tessel::Tests::runOnFakeMachine<QApplication, TestDeviceList>);

#include "test_device_list.moc"
