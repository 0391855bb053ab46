// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Measures what the person before the window waits for, through the real window.
//   bench_window paint NANOSECONDS   from that reading of the monotonic clock to the first picture
//   bench_window table ROWS          a folder of so many files: unlocking, entering, sorting it

#include "Measure.h"

#include "support/CraftedContainer.h"
#include "support/WindowDriver.h"
#include "ui/ProductInfo.h"
#include "ui/VaultColumns.h"

#include <QApplication>
#include <QHeaderView>
#include <QIcon>
#include <QTableWidget>
#include <QTest>

#include <chrono>

using namespace Tessel;
using namespace Tessel::Bench;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Folder = u"documentos"_s;

/// Sees the window's first paint event.
class FirstPaint : public QObject {
public:
    [[nodiscard]] bool seen() const { return m_seen; }

    bool eventFilter(QObject* watched, QEvent* event) override {
        m_seen = m_seen || event->type() == QEvent::Paint;
        return QObject::eventFilter(watched, event);
    }

private:
    bool m_seen = false;
};

void measureFirstPaint(qint64 startNanoseconds) {
    QApplication::setWindowIcon(QIcon(UI::ProductInfo::iconResource()));
    UI::MainWindow window(nullptr);
    FirstPaint paint;
    window.installEventFilter(&paint);
    window.show();
    while (!paint.seen()) {
        QApplication::processEvents();
    }
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const qint64 nanoseconds =
        std::chrono::duration_cast<std::chrono::nanoseconds>(now).count() - startNanoseconds;
    std::printf("{\"job\": \"first paint\", \"seconds\": %.6f}\n",
                static_cast<double>(nanoseconds) / 1e9);
}

/// Files of one folder in no order, with sizes, kinds and dates that differ, and some that do not.
Core::SecureFileIndex mixedIndex(int rows) {
    const QStringList suffixes{u"pdf"_s, u"jpg"_s, u"txt"_s, u"odt"_s, u"key"_s, u"xyz"_s};
    const QDateTime newest = QDateTime::currentDateTimeUtc();
    Core::SecureFileIndex index;
    require(index.addDirectory({Folder, newest, newest}), "adding a folder");
    const QList<Core::VaultFileEntry> entries = BenchVault::indexOf(rows).entries();
    for (int i = 0; i < entries.size(); ++i) {
        // A prime step visits every number once and in no order.
        const int number = static_cast<int>(qint64(i) * 7919 % entries.size());
        Core::VaultFileEntry entry = entries.at(i);
        entry.vaultPath =
            u"%1/documento %2.%3"_s.arg(Folder).arg(number).arg(suffixes.at(i % suffixes.size()));
        entry.sizeBytes = number % 5000 * qint64(977);
        entry.lastModifiedUtc = newest.addSecs(-60 * (number % 7000));
        require(index.addOrReplace(entry), "adding a file");
    }
    return index;
}

void clickHeader(const QTableWidget* table, int column) {
    const QHeaderView* header = table->horizontalHeader();
    const QPoint middle(header->sectionViewportPosition(column) + header->sectionSize(column) / 2,
                        header->height() / 2);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, middle);
    QApplication::processEvents();
}

void measureTable(int rows) {
    const QTemporaryDir folder(benchFolderTemplate());
    const QString path = folder.filePath(u"tessel.tvlt"_s);
    Tests::CraftedContainer crafted;
    crafted.setIndexJson(mixedIndex(rows).toJson());
    require(crafted.writeTo(path), "crafting a container");

    Tests::WindowDriver driver;
    require(driver.chooseContainer(path), "choosing the container");
    measure("window unlock",
            [&] { return driver.unlock(QString::fromUtf8(crafted.keys.password)); });
    measure("show rows", [&] {
        const bool entered = driver.activateRow(Folder);
        QApplication::processEvents();
        return entered && driver.table()->rowCount() == rows + 1;
    });
    const struct {
        int column;
        const char* job;
    } sorts[] = {{UI::VaultColumn::Name, "sort by name"},
                 {UI::VaultColumn::Size, "sort by size"},
                 {UI::VaultColumn::Type, "sort by type"},
                 {UI::VaultColumn::Modified, "sort by date"}};
    for (const auto& sort : sorts) {
        const QString before = driver.table()->item(1, UI::VaultColumn::Name)->text();
        measure(sort.job, [&] {
            clickHeader(driver.table(), sort.column);
            return driver.table()->item(1, UI::VaultColumn::Name)->text() != before;
        });
    }
    driver.action(u"Bloquear"_s)->trigger();
}

} // namespace

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    const QStringList arguments = QApplication::arguments();
    const bool isComplete = arguments.size() == 3;
    if (isComplete && arguments.at(1) == "paint"_L1) {
        measureFirstPaint(arguments.at(2).toLongLong());
        return 0;
    }
    if (isComplete && arguments.at(1) == "table"_L1) {
        measureTable(arguments.at(2).toInt());
        return 0;
    }
    std::fprintf(stderr, "bench_window: paint NANOSECONDS or table ROWS\n");
    return 2;
}
