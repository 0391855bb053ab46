// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"
#include "support/FakeDesktop.h"
#include "support/Files.h"
#include "support/ProgressProbe.h"
#include "support/TestProgram.h"
#include "support/WindowTest.h"
#include "ui/ImportPlan.h"
#include "ui/VaultTableWidget.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QDragEnterEvent>
#include <QDragLeaveEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QImage>
#include <QMimeData>
#include <QScopeGuard>
#include <QScrollBar>
#include <QTableWidget>
#include <QTest>
#include <QUrl>

#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Password = u"senha de teste"_s;

/// What a file manager, or the table itself, holds out.
class Drag {
public:
    explicit Drag(const QStringList& paths) : data(std::make_unique<QMimeData>()) {
        QList<QUrl> urls;
        for (const QString& path : paths) {
            urls.append(QUrl::fromLocalFile(path));
        }
        data->setUrls(urls);
    }

    /// A row of the table; without data when the table lets nobody drag that.
    Drag(const QTableWidget* table, int row)
        : data(table->model()->mimeData({table->model()->index(row, 1)})), offered(Qt::MoveAction),
          proposed(Qt::MoveAction) {}

    std::unique_ptr<QMimeData> data;
    Qt::DropActions offered = Qt::CopyAction | Qt::MoveAction | Qt::LinkAction;
    Qt::DropAction proposed = Qt::CopyAction;
    /// What the table made of it; IgnoreAction when it was refused.
    Qt::DropAction taken = Qt::IgnoreAction;
    /// Where it is, in the table's viewport.
    QPoint position = {40, 200};

    /// Enters the table and moves over it. @return whether it is welcome.
    bool hoverOver(QTableWidget* table) {
        QDragEnterEvent enter(position, offered, data.get(), Qt::LeftButton, Qt::NoModifier);
        return accepts(table, &enter) && moveOver(table);
    }

    /// Moves to where it is now. @return whether it is welcome there.
    bool moveOver(QTableWidget* table) {
        QDragMoveEvent move(position, offered, data.get(), Qt::LeftButton, Qt::NoModifier);
        return accepts(table, &move);
    }

    /// Enters the table, moves over it and, if it is welcome, lets go.
    void dropOn(QTableWidget* table) {
        if (hoverOver(table)) {
            letGo(table);
        }
    }

    void letGo(QTableWidget* table) {
        QDropEvent drop(position, offered, data.get(), Qt::LeftButton, Qt::NoModifier);
        static_cast<void>(accepts(table, &drop));
    }

private:
    bool accepts(QTableWidget* table, QDropEvent* event) {
        event->setDropAction(proposed);
        event->ignore();
        QApplication::sendEvent(table->viewport(), event);
        taken = event->isAccepted() ? event->dropAction() : Qt::IgnoreAction;
        return event->isAccepted();
    }
};

} // namespace

/// What is dropped on the table: files and folders from a file manager, and its own rows.
class TestDroppedFiles : public WindowTest {
    Q_OBJECT

private:
    [[nodiscard]] bool openSample() {
        CraftedContainer crafted;
        crafted.addFolder(u"docs"_s).addFile(u"a.txt"_s, "old").addFile(u"docs/b.txt"_s, "b");
        const QString container = m_folder->filePath(u"t.tvlt"_s);
        return crafted.writeTo(container) && m_driver->openVault(container, Password);
    }

    [[nodiscard]] bool make(const QString& name, const QByteArray& bytes) const {
        return QDir().mkpath(QFileInfo(path(name)).absolutePath()) && writeFile(path(name), bytes);
    }

    void drop(const QStringList& names) {
        QStringList paths;
        for (const QString& name : names) {
            paths.append(path(name));
        }
        Drag(paths).dropOn(m_driver->table());
        // The table has taken the drop; the import follows when the file manager is free again.
        QCoreApplication::processEvents();
    }

    /// Opens a vault with folders in folders.
    [[nodiscard]] bool openFolders() {
        CraftedContainer crafted;
        for (const QString& folder :
             {u"docs"_s, u"docs/sub"_s, u"docs/outra"_s, u"outra"_s, u"fotos"_s}) {
            crafted.addFolder(folder);
        }
        for (const QString& file : {u"a.txt"_s, u"b.txt"_s, u"docs/b.txt"_s, u"docs/c.txt"_s}) {
            crafted.addFile(file, "x");
        }
        const QString container = path(u"folders.tvlt"_s);
        return crafted.writeTo(container) && m_driver->openVault(container, Password);
    }

    /// The middle of the row with this name, in the table's viewport.
    [[nodiscard]] QPoint middleOf(const QString& row) const {
        const QTableWidget* table = m_driver->table();
        return table->visualItemRect(table->item(m_driver->rowNamed(row), 1)).center();
    }

    /// How the row with this name looks now.
    [[nodiscard]] QImage picture(const QString& row) const {
        QTableWidget* table = m_driver->table();
        const QRect place = table->visualItemRect(table->item(m_driver->rowNamed(row), 1));
        return table->viewport()->grab(place).toImage();
    }

    /// Drags one row onto another.
    void dragRow(const QString& row, const QString& onto) {
        QTableWidget* table = m_driver->table();
        QVERIFY(m_driver->selectRow(row));
        Drag drag(table, m_driver->rowNamed(row));
        drag.position = middleOf(row);
        QVERIFY(drag.data && !drag.hoverOver(table));
        drag.position = middleOf(onto);
        QVERIFY(drag.moveOver(table));
        drag.letGo(table);
        QCOMPARE(drag.taken, Qt::MoveAction);
        // The move follows when the drag has ended.
        QCoreApplication::processEvents();
    }

private Q_SLOTS:
    void filesAreImportedIntoTheFolderShown() {
        QVERIFY(openSample() && make(u"um.txt"_s, "1") && make(u"dois.txt"_s, "22"));
        QVERIFY(m_driver->activateRow(u"docs"_s));
        drop({u"um.txt"_s, u"dois.txt"_s});
        QCOMPARE(m_driver->rowNames(),
                 QStringList({u".."_s, u"b.txt"_s, u"dois.txt"_s, u"um.txt"_s}));
        QCOMPARE(m_driver->statusMessage(), u"2 arquivos importados com sucesso."_s);
        QCOMPARE(exported(u"dois.txt"_s), "22");
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
    }

    void sourceIsToldToKeepItsFiles() {
        QVERIFY(openSample() && make(u"um.txt"_s, "1"));
        Drag drag({path(u"um.txt"_s)});
        drag.proposed = Qt::MoveAction; // with the shift key held down
        drag.dropOn(m_driver->table());
        QCOMPARE(drag.taken, Qt::CopyAction);
        QTRY_COMPARE(m_driver->rowNamed(u"um.txt"_s), 2);
        QVERIFY(QFile::exists(path(u"um.txt"_s)));
    }

    void folderBringsItsFilesAndFolders() {
        QVERIFY(openSample() && make(u"fotos/praia.txt"_s, "p") &&
                make(u"fotos/2024/x.txt"_s, "x") && make(u"fotos/.oculto"_s, "o") &&
                make(u"solto.txt"_s, "s") && QDir().mkpath(path(u"fotos/vazia"_s)));
        drop({u"fotos"_s, u"solto.txt"_s});
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QCOMPARE(m_driver->statusMessage(), u"4 arquivos importados com sucesso."_s);
        QCOMPARE(m_driver->rowNames(),
                 QStringList({u"docs"_s, u"fotos"_s, u"a.txt"_s, u"solto.txt"_s}));
        QVERIFY(m_driver->activateRow(u"fotos"_s));
        QCOMPARE(m_driver->rowNames(),
                 QStringList({u".."_s, u"2024"_s, u"vazia"_s, u".oculto"_s, u"praia.txt"_s}));
        QCOMPARE(exported(u"praia.txt"_s), "p");
        QVERIFY(m_driver->activateRow(u"vazia"_s));
        QCOMPARE(m_driver->rowNames(), QStringList(u".."_s));
        QVERIFY(m_driver->activateRow(u".."_s) && m_driver->activateRow(u"2024"_s));
        QCOMPARE(m_driver->rowNames(), QStringList({u".."_s, u"x.txt"_s}));
        QCOMPARE(exported(u"x.txt"_s), "x");
    }

    void existingFileIsAskedAbout() {
        QVERIFY(openSample() && make(u"docs/b.txt"_s, "new") && make(u"a.txt"_s, "newer"));
        dialogs().press(u"Substituir arquivo"_s, u"Não"_s);
        dialogs().press(u"Substituir arquivo"_s, u"Sim"_s);
        drop({u"a.txt"_s, u"docs"_s});
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QCOMPARE(lastText(),
                 u"docs/b.txt já existe no cofre. Deseja substituir o arquivo protegido?"_s);
        QCOMPARE(m_driver->statusMessage(), u"Arquivo importado com sucesso."_s);
        QCOMPARE(exported(u"a.txt"_s), "old");
        QVERIFY(m_driver->activateRow(u"docs"_s));
        QCOMPARE(exported(u"b.txt"_s), "new");
    }

    void fileDroppedOverAnOpenedOneCountsMoreThanItsEdit() {
        QVERIFY(openSample() && make(u"a.txt"_s, "dropped"));
        const FakeDesktop desktop(u"file"_s);
        QVERIFY(m_driver->activateRow(u"a.txt"_s) && desktop.opened.size() == 1);
        QFile copy(desktop.opened.first().toLocalFile());
        QVERIFY(copy.open(QIODevice::Append) && copy.write("er edit") == 7 && copy.flush());
        QVERIFY(copy.setFileTime(QDateTime::currentDateTime().addSecs(60),
                                 QFileDevice::FileModificationTime));
        dialogs().press(u"Substituir arquivo"_s, u"Sim"_s);
        drop({u"a.txt"_s});
        QCOMPARE(readFile(copy.fileName()), "dropped");
        m_driver->action(u"Bloquear"_s)->trigger();
        QVERIFY(m_driver->unlock(Password));
        QCOMPARE(exported(u"a.txt"_s), "dropped");
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
    }

    void linksToFoldersAndNowhereAreRefusedByName() {
        QVERIFY(openSample() && make(u"fotos/x.txt"_s, "x") && make(u"outro.txt"_s, "o"));
        QVERIFY(QFile::link(path(u"fotos"_s), path(u"atalho"_s)));
        QVERIFY(QFile::link(path(u"fotos"_s), path(u"fotos/circulo"_s)));
        QVERIFY(QFile::link(path(u"nada"_s), path(u"fotos/solto"_s)));
        QVERIFY(QFile::link(path(u"outro.txt"_s), path(u"fotos/vale.txt"_s)));
        for (int i = 0; i < 3; ++i) {
            dialogs().press(u"Tessel"_s, u"OK"_s);
        }
        drop({u"atalho"_s, u"fotos"_s});
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        const QList<DialogDriver::Seen> seen = dialogs().seen();
        QCOMPARE(seen.at(seen.size() - 3).text, u"Não foi possível importar atalho."_s);
        QCOMPARE(seen.at(seen.size() - 2).text, u"Não foi possível importar circulo."_s);
        QCOMPARE(seen.last().text, u"Não foi possível importar solto."_s);
        QVERIFY(m_driver->activateRow(u"fotos"_s));
        QCOMPARE(m_driver->rowNames(), QStringList({u".."_s, u"vale.txt"_s, u"x.txt"_s}));
        QCOMPARE(exported(u"vale.txt"_s), "o");
    }

    void folderNamedAsAFileIsRefused() {
        // A folder "a.txt" must not come to lie beside the file "a.txt", nor beneath it.
        QVERIFY(openSample() && make(u"a.txt/x.txt"_s, "x") &&
                QDir().mkpath(path(u"a.txt/vazia"_s)));
        dialogs().press(u"Tessel"_s, u"OK"_s);
        dialogs().press(u"Tessel"_s, u"OK"_s);
        drop({u"a.txt"_s});
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QCOMPARE(dialogs().seen().at(dialogs().seen().size() - 2).text,
                 u"Não foi possível importar x.txt."_s);
        QCOMPARE(lastText(), u"Não foi possível importar vazia."_s);
        QCOMPARE(m_driver->rowNames(), QStringList({u"docs"_s, u"a.txt"_s}));
        QCOMPARE(exported(u"a.txt"_s), "old");
    }

    void folderWithoutAUsableNameIsRefused() {
        // Blanks alone are no name in the vault; the files must not end up in the folder above.
        QVERIFY(openSample() && make(u"f/ /x.txt"_s, "x") && make(u"f/y.txt"_s, "y") &&
                make(u"f/  "_s, "two blanks"));
        dialogs().press(u"Tessel"_s, u"OK"_s);
        dialogs().press(u"Tessel"_s, u"OK"_s);
        drop({u"f"_s});
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QCOMPARE(m_driver->rowNames(), QStringList({u"docs"_s, u"f"_s, u"a.txt"_s}));
        QVERIFY(m_driver->activateRow(u"f"_s));
        QCOMPARE(m_driver->rowNames(), QStringList({u".."_s, u"y.txt"_s}));
    }

    void namesThatAreNoTextAreRefusedByName() {
        // From a drive that was written under another encoding.
        QVERIFY(openSample() && make(u"f/y.txt"_s, "y") && make(u"f/açaí.txt"_s, "a"));
        const QByteArray folder = QFile::encodeName(path(u"f"_s));
        const QByteArray fileName = folder + "/caf\xe9.txt";
        const QByteArray folderName = folder + "/\xc1lbum";
        const int file = ::open(fileName.constData(), O_CREAT | O_WRONLY, 0600);
        QVERIFY(file >= 0 && ::close(file) == 0);
        QCOMPARE(::mkdir(folderName.constData(), 0700), 0);
        // Qt does not see them when it removes the test's folder.
        const auto removing = qScopeGuard([&] {
            ::unlink(fileName.constData());
            ::rmdir(folderName.constData());
        });
        dialogs().press(u"Tessel"_s, u"OK"_s);
        dialogs().press(u"Tessel"_s, u"OK"_s);
        drop({u"f"_s});
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QStringList refused;
        for (const DialogDriver::Seen& seen : dialogs().seen().last(2)) {
            refused.append(seen.text);
        }
        refused.sort();
        QCOMPARE(refused, QStringList({u"Não foi possível importar caf\ufffd.txt."_s,
                                       u"Não foi possível importar \ufffdlbum."_s}));
        QCOMPARE(m_driver->statusMessage(), u"2 arquivos importados com sucesso."_s);
        QVERIFY(m_driver->activateRow(u"f"_s));
        QCOMPARE(m_driver->rowNames(), QStringList({u".."_s, u"açaí.txt"_s, u"y.txt"_s}));
    }

    void folderThatCannotBeReadIsRefused() {
        QVERIFY(make(u"f/aberto.txt"_s, "a") && make(u"f/fechado/x.txt"_s, "x"));
        QVERIFY(QFile::setPermissions(m_folder->path(), QFile::permissions(u"/usr"_s)));
        QVERIFY(QFile::setPermissions(path(u"f/fechado"_s), QFile::WriteOwner));
        // Root reads everything: somebody else looks.
        const uid_t before = geteuid();
        QVERIFY(before != 0 || seteuid(65534) == 0);
        const Tessel::UI::ImportPlan plan = Tessel::UI::planImport({path(u"f"_s)}, QString());
        QCOMPARE(seteuid(before), 0);
        QVERIFY(QFile::setPermissions(path(u"f/fechado"_s),
                                      QFile::ReadOwner | QFile::ExeOwner | QFile::WriteOwner));
        QCOMPARE(plan.unusable, QStringList(path(u"f/fechado"_s)));
        QCOMPARE(plan.emptyDirectories, QStringList());
        QCOMPARE(plan.files.size(), 1);
        QCOMPARE(plan.files.first().sourcePath, path(u"f/aberto.txt"_s));
    }

    void folderThatSharesAFilesNameStillTakesFiles() {
        // An import may put a file beside a folder of its path; the folder is no worse for that.
        QVERIFY(openSample() && make(u"docs"_s, "a file") && make(u"n.txt"_s, "n"));
        drop({u"docs"_s});
        QCOMPARE(m_driver->rowNames(), QStringList({u"docs"_s, u"a.txt"_s, u"docs"_s}));
        QVERIFY(m_driver->activateRow(u"docs"_s));
        dialogs().answerFiles(u"Importar arquivos para o cofre"_s, {path(u"n.txt"_s)});
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(m_driver->rowNames(), QStringList({u".."_s, u"b.txt"_s, u"n.txt"_s}));
    }

    void emptyFolderIsMade() {
        QVERIFY(openSample() && QDir().mkpath(path(u"vazia"_s)));
        drop({u"vazia"_s});
        QCOMPARE(m_driver->statusMessage(), u"Pasta criada."_s);
        QCOMPARE(m_driver->rowNames(), QStringList({u"docs"_s, u"vazia"_s, u"a.txt"_s}));
    }

    void fileThatHasGoneRefusesAll() {
        QVERIFY(openSample() && make(u"um.txt"_s, "1"));
        dialogs().press(u"Importar arquivos"_s, u"OK"_s);
        drop({u"um.txt"_s, u"foi.txt"_s});
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QCOMPARE(lastText(), u"O arquivo foi.txt não está disponível para importação."_s);
        QCOMPARE(m_driver->rowNames(), QStringList({u"docs"_s, u"a.txt"_s}));
    }

    void lockedVaultTakesNothing() {
        QVERIFY(make(u"um.txt"_s, "1"));
        Drag drag({path(u"um.txt"_s)});
        drag.dropOn(m_driver->table());
        QCOMPARE(drag.taken, Qt::IgnoreAction);
    }

    void onlyLocalFilesAreTaken() {
        QVERIFY(openSample());
        Drag page({});
        page.data->setUrls({QUrl(u"https://example.org/a.txt"_s)});
        page.dropOn(m_driver->table());
        QCOMPARE(page.taken, Qt::IgnoreAction);
        QVERIFY(make(u"um.txt"_s, "1"));
        Drag mixture({path(u"um.txt"_s)});
        mixture.data->setUrls(mixture.data->urls() << page.data->urls());
        mixture.dropOn(m_driver->table());
        QCOMPARE(mixture.taken, Qt::IgnoreAction);
        Drag text({});
        text.data->setText(u"/etc/hostname"_s);
        text.dropOn(m_driver->table());
        QCOMPARE(text.taken, Qt::IgnoreAction);
    }

    void sourceThatOnlyMovesIsRefused() {
        QVERIFY(openSample() && make(u"um.txt"_s, "1"));
        Drag drag({path(u"um.txt"_s)});
        drag.offered = Qt::MoveAction;
        drag.dropOn(m_driver->table());
        QCOMPARE(drag.taken, Qt::IgnoreAction);
    }

    void nothingIsTakenDuringAnImport() {
        QVERIFY(openSample() && make(u"um.txt"_s, "1") && make(u"dois.txt"_s, "2"));
        int tried = 0;
        const ProgressProbe probe([&](QProgressDialog*, int) {
            ++tried;
            Drag drag({path(u"dois.txt"_s)});
            drag.dropOn(m_driver->table());
            QCOMPARE(drag.taken, Qt::IgnoreAction);
        });
        drop({u"um.txt"_s});
        QVERIFY(tried > 0);
        QCoreApplication::processEvents();
        QCOMPARE(m_driver->rowNames(), QStringList({u"docs"_s, u"a.txt"_s, u"um.txt"_s}));
    }

    void dropBeforeALockIsForgotten() {
        QVERIFY(openSample() && make(u"um.txt"_s, "1"));
        Drag({path(u"um.txt"_s)}).dropOn(m_driver->table());
        m_driver->action(u"Bloquear"_s)->trigger();
        QCoreApplication::processEvents();
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QVERIFY(!m_driver->vaultIsOpen());
    }

    // --- Folders as destinations -----------------------------------------------------------------

    void filesDroppedOnAFolderGoIntoIt_data() {
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("row");
        QTest::newRow("folder") << QString() << u"docs"_s;
        QTest::newRow("folder above") << u"docs"_s << u".."_s;
    }
    void filesDroppedOnAFolderGoIntoIt() {
        QFETCH(const QString, shown);
        QFETCH(const QString, row);
        QVERIFY(openFolders() && make(u"um.txt"_s, "1"));
        QVERIFY(shown.isEmpty() || m_driver->activateRow(shown));
        Drag drag({path(u"um.txt"_s)});
        drag.position = middleOf(row);
        drag.dropOn(m_driver->table());
        QCOMPARE(drag.taken, Qt::CopyAction);
        QTRY_COMPARE(m_driver->statusMessage(), u"Arquivo importado com sucesso."_s);
        QCOMPARE(m_driver->rowNamed(u"um.txt"_s), -1);
        QVERIFY(m_driver->activateRow(row));
        QCOMPARE(exported(u"um.txt"_s), "1");
    }

    void onlyTheFolderUnderADragIsHighlighted() {
        QVERIFY(openFolders() && make(u"um.txt"_s, "1"));
        const QImage folder = picture(u"docs"_s);
        const QImage file = picture(u"a.txt"_s);
        Drag drag({path(u"um.txt"_s)});
        drag.position = middleOf(u"docs"_s);
        QVERIFY(drag.hoverOver(m_driver->table()));
        QVERIFY(picture(u"docs"_s) != folder);
        drag.position = middleOf(u"a.txt"_s);
        QVERIFY(drag.hoverOver(m_driver->table()));
        QCOMPARE(picture(u"a.txt"_s), file);
        QCOMPARE(picture(u"docs"_s), folder);
        drag.position = middleOf(u"docs"_s);
        QVERIFY(drag.hoverOver(m_driver->table()));
        QDragLeaveEvent leave;
        QApplication::sendEvent(m_driver->table()->viewport(), &leave);
        QCOMPARE(picture(u"docs"_s), folder);
        drag.dropOn(m_driver->table());
        QCOMPARE(picture(u"docs"_s), folder);
    }

    void selectedFolderUnderADragIsHighlighted() {
        QVERIFY(openFolders() && make(u"um.txt"_s, "1") && m_driver->selectRow(u"docs"_s));
        const QImage folder = picture(u"docs"_s);
        Drag drag({path(u"um.txt"_s)});
        drag.position = middleOf(u"docs"_s);
        QVERIFY(drag.hoverOver(m_driver->table()));
        QVERIFY(picture(u"docs"_s) != folder);
    }

    void dragAtTheEdgeScrolls() {
        CraftedContainer crafted;
        for (int i = 0; i < 100; ++i) {
            crafted.addFolder(u"pasta %1"_s.arg(i));
        }
        QVERIFY(crafted.writeTo(path(u"long.tvlt"_s)));
        QVERIFY(m_driver->openVault(path(u"long.tvlt"_s), Password) && make(u"um.txt"_s, "1"));
        QTableWidget* table = m_driver->table();
        Drag drag({path(u"um.txt"_s)});
        drag.position = {40, table->viewport()->height() - 2};
        QVERIFY(drag.hoverOver(table));
        const QScrollBar* bar = table->verticalScrollBar();
        QTRY_VERIFY(bar->value() > 0);
        QDragLeaveEvent leave;
        QApplication::sendEvent(table->viewport(), &leave);
    }

    // --- Rows that are dragged -------------------------------------------------------------------

    void draggedRowIsMoved_data() {
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("row");
        QTest::addColumn<QString>("onto");
        QTest::addColumn<QString>("message");
        const QString file = u"Arquivo movido."_s;
        const QString folder = u"Pasta renomeada."_s;
        QTest::newRow("file into a folder") << QString() << u"a.txt"_s << u"docs"_s << file;
        QTest::newRow("file out of a folder") << u"docs"_s << u"c.txt"_s << u".."_s << file;
        QTest::newRow("folder into a folder") << QString() << u"fotos"_s << u"docs"_s << folder;
        QTest::newRow("folder out of a folder") << u"docs"_s << u"sub"_s << u".."_s << folder;
    }
    void draggedRowIsMoved() {
        QFETCH(const QString, shown);
        QFETCH(const QString, row);
        QFETCH(const QString, onto);
        QVERIFY(openFolders());
        QVERIFY(shown.isEmpty() || m_driver->activateRow(shown));
        dragRow(row, onto);
        QTEST(m_driver->statusMessage(), "message");
        QCOMPARE(m_driver->rowNamed(row), -1);
        QCOMPARE(m_driver->table()->currentRow(), -1);
        QVERIFY(m_driver->activateRow(onto));
        QVERIFY(m_driver->rowNamed(row) >= 0);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
    }

    void draggedRowIsRefusedAsItsCommandIs_data() {
        QTest::addColumn<QString>("row");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("text");
        QTest::newRow("file") << u"b.txt"_s << u"Mover arquivo"_s
                              << u"Já existe um item com esse nome na pasta de destino."_s;
        QTest::newRow("folder") << u"outra"_s << u"Renomear pasta"_s
                                << u"Já existe um item com esse nome nesta pasta."_s;
    }
    void draggedRowIsRefusedAsItsCommandIs() {
        QFETCH(const QString, row);
        QFETCH(const QString, title);
        QVERIFY(openFolders());
        dialogs().acceptWarning(title);
        dragRow(row, u"docs"_s);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QTEST(lastText(), "text");
        QVERIFY(m_driver->rowNamed(row) >= 0);
    }

    void folderBackOnItsOwnRowIsRefused() {
        QVERIFY(openFolders());
        QTableWidget* table = m_driver->table();
        Drag drag(table, m_driver->rowNamed(u"fotos"_s));
        drag.position = middleOf(u"fotos"_s);
        QVERIFY(drag.data && !drag.hoverOver(table));
        drag.position = middleOf(u"docs"_s);
        QVERIFY(drag.moveOver(table));
        dialogs().acceptWarning(u"Renomear pasta"_s);
        drag.position = middleOf(u"fotos"_s);
        QVERIFY(drag.moveOver(table));
        drag.letGo(table);
        QCoreApplication::processEvents();
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QCOMPARE(lastText(),
                 u"Não foi possível renomear a pasta. Feche arquivos abertos dentro dela e tente "
                 "novamente."_s);
        QVERIFY(m_driver->rowNamed(u"fotos"_s) >= 0);
    }

    void slipOnARowMovesNothing() {
        // A click during which the hand was not quite at rest.
        QVERIFY(openFolders());
        const QStringList before = m_driver->rowNames();
        const QImage folder = picture(u"fotos"_s);
        Drag drag(m_driver->table(), m_driver->rowNamed(u"fotos"_s));
        drag.position = middleOf(u"fotos"_s);
        QVERIFY(drag.data && !drag.hoverOver(m_driver->table()));
        QCOMPARE(picture(u"fotos"_s), folder);
        drag.letGo(m_driver->table());
        QCOMPARE(drag.taken, Qt::IgnoreAction);
        QCoreApplication::processEvents();
        QCOMPARE(m_driver->rowNames(), before);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
    }

    void openedFileIsNotMovedByDragging() {
        QVERIFY(openFolders());
        const FakeDesktop desktop(u"file"_s);
        QVERIFY(m_driver->activateRow(u"a.txt"_s) && desktop.opened.size() == 1);
        dialogs().acceptWarning(u"Mover arquivo"_s);
        dragRow(u"a.txt"_s, u"docs"_s);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QCOMPARE(lastText(),
                 u"Não foi possível mover o arquivo. Feche o arquivo se ele estiver aberto e tente "
                 "novamente."_s);
        QVERIFY(m_driver->rowNamed(u"a.txt"_s) >= 0);
    }

    void rowIsWelcomeOnFoldersAlone() {
        QVERIFY(openFolders());
        QTableWidget* table = m_driver->table();
        Drag drag(table, m_driver->rowNamed(u"a.txt"_s));
        for (const QPoint& place :
             {middleOf(u"b.txt"_s), QPoint(40, table->viewport()->height() - 2)}) {
            drag.position = place;
            QVERIFY(drag.data && !drag.hoverOver(table));
            drag.letGo(table);
            QCOMPARE(drag.taken, Qt::IgnoreAction);
        }
        QCoreApplication::processEvents();
        QVERIFY(m_driver->rowNamed(u"a.txt"_s) >= 0);
    }

    void onlyFilesAndFoldersCanBeDragged() {
        QVERIFY(openFolders() && m_driver->activateRow(u"docs"_s));
        const QTableWidget* table = m_driver->table();
        QVERIFY(table->dragEnabled());
        QVERIFY(!Drag(table, m_driver->rowNamed(u".."_s)).data);
        QVERIFY(Drag(table, m_driver->rowNamed(u"sub"_s)).data);
        QVERIFY(Drag(table, m_driver->rowNamed(u"c.txt"_s)).data);
    }

    void nothingCanBeDraggedDuringAnImport() {
        QVERIFY(openFolders() && make(u"um.txt"_s, "1"));
        QTableWidget* table = m_driver->table();
        Drag begun(table, m_driver->rowNamed(u"a.txt"_s));
        QVERIFY(begun.data);
        begun.position = middleOf(u"docs"_s);
        int tried = 0;
        const ProgressProbe probe([&](QProgressDialog*, int) {
            ++tried;
            QVERIFY(!Drag(table, m_driver->rowNamed(u"a.txt"_s)).data);
            QVERIFY(!begun.hoverOver(table));
            begun.letGo(table);
            QCOMPARE(begun.taken, Qt::IgnoreAction);
        });
        drop({u"um.txt"_s});
        QVERIFY(tried > 0);
        QCoreApplication::processEvents();
        QVERIFY(m_driver->rowNamed(u"a.txt"_s) >= 0);
    }

    void draggedRowShowsOthersNothing() {
        QVERIFY(openFolders());
        const Drag drag(m_driver->table(), m_driver->rowNamed(u"a.txt"_s));
        QVERIFY(drag.data);
        QCOMPARE(drag.data->formats(), QStringList(u"application/x-tessel-row"_s));
        QCOMPARE(drag.data->data(u"application/x-tessel-row"_s), QByteArray());
    }

    void rowOfAnotherWindowIsRefused() {
        QVERIFY(openFolders());
        Tessel::UI::VaultTableWidget other;
        Tessel::UI::VaultRow row;
        row.path = row.name = u"a.txt"_s;
        other.showRows(QString(), {row});
        other.setDropsAllowed(true);
        Drag drag(&other, 0);
        drag.position = middleOf(u"docs"_s);
        QVERIFY(drag.data && !drag.hoverOver(m_driver->table()));
        drag.letGo(m_driver->table());
        QCOMPARE(drag.taken, Qt::IgnoreAction);
    }

    void moveBeforeALockIsForgotten() {
        QVERIFY(openFolders());
        Drag drag(m_driver->table(), m_driver->rowNamed(u"a.txt"_s));
        drag.position = middleOf(u"docs"_s);
        QVERIFY(drag.data && drag.hoverOver(m_driver->table()));
        drag.letGo(m_driver->table());
        m_driver->action(u"Bloquear"_s)->trigger();
        QCoreApplication::processEvents();
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QVERIFY(m_driver->unlock(Password) && m_driver->rowNamed(u"a.txt"_s) >= 0);
    }
};

TESSEL_TEST_MAIN(runTest<QApplication, TestDroppedFiles>);

#include "test_dropped_files.moc"
