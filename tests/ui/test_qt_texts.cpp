// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"
#include "support/TestProgram.h"
#include "support/WindowTest.h"
#include "ui/ApplicationSetup.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QFileSystemModel>
#include <QHash>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMutex>
#include <QMutexLocker>
#include <QRegularExpression>
#include <QSet>
#include <QTest>
#include <QTextEdit>
#include <QTranslator>
#include <QTreeView>

#include <utility>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Password = u"senha de teste"_s;

/// Words that Qt shows when it has no Portuguese, none of which is a Portuguese word.
const QRegularExpression
    EnglishWords(u"\\b(?:cancel|ok to|open|save|close|yes|apply|help|back|forward|parent|look in|"
                 u"create|new|folder|file|files|name|type|size|date|modified|directory|undo|redo|"
                 u"cut|copy|paste|delete|select|list|detail|details|view|show|hide|computer|"
                 u"search|up|of|the|all|location|rename|drive|return|insert|remove|unknown)\\b"_s,
                 QRegularExpression::CaseInsensitiveOption);

void collectMenu(const QMenu* menu, QStringList* texts) {
    const QList<QAction*> actions = menu->actions();
    for (const QAction* action : actions) {
        texts->append(action->text());
        texts->append(action->toolTip());
    }
}

/// The menu that a right click on a field of text shows.
template <typename Field>
void collectFieldMenus(const QWidget* dialog, QStringList* texts) {
    const QList<Field*> fields = dialog->findChildren<Field*>();
    for (Field* field : fields) {
        const std::unique_ptr<QMenu> menu(field->createStandardContextMenu());
        if (menu != nullptr) {
            collectMenu(menu.get(), texts);
        }
    }
}

/// Translates nothing, and notes what it was asked for.
class NotingTranslator : public QTranslator {
public:
    NotingTranslator() { QCoreApplication::installTranslator(this); }
    ~NotingTranslator() override { QCoreApplication::removeTranslator(this); }
    Q_DISABLE_COPY_MOVE(NotingTranslator)

    [[nodiscard]] QString translate(const char* context, const char* sourceText,
                                    const char* /*disambiguation*/, int /*n*/) const override {
        m_contexts[QString::fromUtf8(sourceText)].insert(QString::fromUtf8(context));
        return {};
    }
    [[nodiscard]] bool isEmpty() const override { return false; }

    /// The contexts in which this text was asked for, in alphabetical order.
    [[nodiscard]] QStringList contextsOf(const QString& text) const {
        QStringList contexts = m_contexts.value(text).values();
        contexts.sort();
        return contexts;
    }

private:
    mutable QHash<QString, QSet<QString>> m_contexts;
};

/// Is asked for what no other translator has, and notes it.
class LastTranslator : public QTranslator {
public:
    [[nodiscard]] QString translate(const char* context, const char* sourceText,
                                    const char* /*disambiguation*/, int /*n*/) const override {
        // File dialogs ask from a thread too. The program's own texts are Portuguese already.
        const QMutexLocker locker(&m_mutex);
        if (!QLatin1StringView(context).startsWith("Tessel::UI::"_L1)) {
            m_lacking.insert(
                u"%1: %2"_s.arg(QLatin1StringView(context), QString::fromUtf8(sourceText)));
        }
        return {};
    }
    [[nodiscard]] bool isEmpty() const override { return false; }

    /// What was asked for since the last call, in alphabetical order.
    QStringList takeLacking() {
        const QMutexLocker locker(&m_mutex);
        QStringList lacking = std::exchange(m_lacking, {}).values();
        lacking.sort();
        return lacking;
    }

private:
    mutable QMutex m_mutex;
    mutable QSet<QString> m_lacking;
};

/// All that a person can read in a dialog, without the program's own documents.
QStringList textsOf(QDialog* dialog) {
    QStringList texts{dialog->windowTitle()};
    const QList<QWidget*> widgets = dialog->findChildren<QWidget*>();
    for (const QWidget* widget : widgets) {
        texts.append({widget->toolTip(), widget->accessibleName()});
        if (const auto* label = qobject_cast<const QLabel*>(widget)) {
            texts.append(label->text());
        } else if (const auto* button = qobject_cast<const QAbstractButton*>(widget)) {
            texts.append(button->text());
        } else if (const auto* menu = qobject_cast<const QMenu*>(widget)) {
            collectMenu(menu, &texts);
        } else if (const auto* header = qobject_cast<const QHeaderView*>(widget);
                   header != nullptr && header->orientation() == Qt::Horizontal) {
            for (int section = 0; section < header->count(); ++section) {
                texts.append(header->model()
                                 ->headerData(section, Qt::Horizontal, Qt::DisplayRole)
                                 .toString());
            }
        }
    }
    const QList<QAction*> actions = dialog->findChildren<QAction*>();
    for (const QAction* action : actions) {
        texts.append({action->text(), action->toolTip()});
    }
    collectFieldMenus<QLineEdit>(dialog, &texts);
    collectFieldMenus<QTextEdit>(dialog, &texts);
    return texts;
}

QStringList englishAmong(const QStringList& texts) {
    QStringList english;
    for (QString text : texts) {
        text.remove(u'&');
        if (EnglishWords.match(text).hasMatch()) {
            english.append(text);
        }
    }
    return english;
}

} // namespace

/// Qt's own texts: file dialogs, buttons, the menus of text fields.
class TestQtTexts : public WindowTest {
    Q_OBJECT

public:
    /// The system speaks English: the program does not follow it.
    static void initMain() {
        qputenv("LC_ALL", "en_US.UTF-8");
        qputenv("LANGUAGE", "en");
    }

private:
    LastTranslator m_last;

    [[nodiscard]] QStringList textsOfDialog(const QString& command, const QString& title) {
        QStringList texts;
        dialogs().handle(title, [&texts](QDialog* dialog) {
            texts = textsOf(dialog);
            dialog->reject();
        });
        m_driver->action(command)->trigger();
        return texts;
    }

private Q_SLOTS:
    /// Runs first: once installed, the catalogue stays.
    void withoutTheCatalogueTheyAreEnglish() {
        // Installed first, so that it is asked last.
        QVERIFY(QCoreApplication::installTranslator(&m_last));
        const QStringList texts =
            textsOfDialog(u"Escolher container..."_s, u"Escolher container Tessel"_s);
        QVERIFY(!englishAmong(texts).isEmpty());
        Tessel::UI::setUpApplication(*qApp);
    }

    void noDialogShowsAnEnglishWord_data() {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("title");
        QTest::newRow("choose a container")
            << u"Escolher container..."_s << u"Escolher container Tessel"_s;
        QTest::newRow("create a container")
            << u"Criar novo cofre..."_s << u"Criar container Tessel"_s;
        QTest::newRow("import") << u"Importar..."_s << u"Importar arquivos para o cofre"_s;
        QTest::newRow("type a name") << u"Nova pasta..."_s << u"Nova pasta"_s;
        QTest::newRow("type a password") << u"Desbloquear"_s << u"Senha do cofre"_s;
        QTest::newRow("change the password")
            << u"Alterar senha..."_s << u"Alterar senha do cofre"_s;
        QTest::newRow("question") << u"Excluir..."_s << u"Excluir arquivo"_s;
        QTest::newRow("move") << u"Mover para pasta..."_s << u"Mover arquivo"_s;
        QTest::newRow("back up") << u"Fazer backup..."_s << u"Fazer backup do container"_s;
        QTest::newRow("compact") << u"Compactar cofre..."_s << u"Compactar cofre"_s;
        QTest::newRow("help") << u"Ajuda"_s << u"Ajuda do Tessel"_s;
    }
    void noDialogShowsAnEnglishWord() {
        QFETCH(const QString, command);
        QFETCH(const QString, title);
        CraftedContainer crafted;
        crafted.addFolder(u"docs"_s).addFile(u"a.txt"_s, "a");
        const QString path = m_folder->filePath(u"tessel.tvlt"_s);
        QVERIFY(crafted.writeTo(path) && m_driver->openVault(path, Password) &&
                m_driver->selectRow(u"a.txt"_s));
        if (!m_driver->action(command)->isEnabled()) {
            m_driver->action(u"Bloquear"_s)->trigger();
        }
        m_last.takeLacking();
        const QStringList texts = textsOfDialog(command, title);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QVERIFY(texts.contains(title));
        QCOMPARE(englishAmong(texts).join(u'|'), QString());
        QCOMPARE(m_last.takeLacking().join(u'|'), QString());
    }

    void fileDialogsNameFoldersAndDrives() {
        QString folder;
        QString drive;
        dialogs().handle(u"Escolher container Tessel"_s, [&](QDialog* dialog) {
            const auto* model = dialog->findChild<QFileSystemModel*>();
            folder = model->type(model->index(m_folder->path()));
            drive = model->type(model->index(u"/"_s));
            dialog->reject();
        });
        VERIFY_RUN(u"Escolher container..."_s);
        QCOMPARE(folder, u"Pasta"_s);
        QCOMPARE(drive, u"Unidade"_s);
    }

    void menusNameKeysAsKeyboardsDo() {
        const QKeySequence key = m_driver->action(u"Abrir"_s)->shortcut();
        QCOMPARE(key, QKeySequence(Qt::Key_Return));
        QCOMPARE(key.toString(QKeySequence::NativeText), u"Enter"_s);
        const QList<QAction*> actions = m_driver->window.findChildren<QAction*>();
        for (const QAction* action : actions) {
            const QString keys = action->shortcut().toString(QKeySequence::NativeText);
            QVERIFY2(!EnglishWords.match(keys).hasMatch() || keys == u"Delete", qPrintable(keys));
        }
    }

    void buttonsOfQtArePortuguese() {
        const QStringList texts =
            textsOfDialog(u"Escolher container..."_s, u"Escolher container Tessel"_s);
        QVERIFY2(texts.contains(u"&Abrir"_s) || texts.contains(u"Abrir"_s),
                 qPrintable(texts.join(u'|')));
        QVERIFY2(texts.contains(u"Cancelar"_s) || texts.contains(u"&Cancelar"_s),
                 qPrintable(texts.join(u'|')));
    }

    void numbersStayTheSystems() {
        QCOMPARE(QLocale().language(), QLocale::system().language());
        QVERIFY(QLocale() == QLocale::system());
    }

    void theWindowsOwnTextsCanBeTranslated() {
        const NotingTranslator translator;
        m_driver = std::make_unique<WindowDriver>();
        CraftedContainer crafted;
        const QString path = m_folder->filePath(u"tessel.tvlt"_s);
        QVERIFY(crafted.addFile(u"a.txt"_s, "a").writeTo(path) && m_driver->chooseContainer(path));
        dialogs().answerText(u"Senha do cofre"_s, u"senha errada"_s);
        dialogs().acceptWarning(u"Tessel"_s);
        m_driver->action(u"Desbloquear"_s)->trigger();
        QStringList texts{lastText(), m_driver->label(u"protectedFilesLabel"_s)->text()};
        QVERIFY(m_driver->unlock(Password) && m_driver->selectRow(u"a.txt"_s));
        texts.append(m_driver->statusMessage());
        dialogs().reject(u"Excluir arquivo"_s);
        m_driver->action(u"Excluir..."_s)->trigger();
        texts.append(dialogs().last().buttons);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        const QList<DialogDriver::Seen> allSeen = dialogs().seen();
        for (const DialogDriver::Seen& dialog : allSeen) {
            // The product is called the same in every language.
            if (dialog.title != u"Tessel") {
                texts.append(dialog.title);
            }
        }
        const QList<QAction*> actions = m_driver->window.findChildren<QAction*>();
        for (const QAction* action : actions) {
            if (!action->text().isEmpty()) {
                texts.append(action->text());
            }
        }
        // As they are before names and numbers are put in.
        texts.append(
            {u"Arquivos protegidos | Pasta: %1 | %2"_s, u"Raiz"_s, u"1 arquivo no cofre."_s,
             u"Container: %1"_s, u"Versão %1"_s,
             u"Excluir %1 removerá o arquivo da lista do cofre.\n\nOs dados físicos só serão "
             u"liberados do container após executar Compactar cofre."_s});
        for (const QString& text : std::as_const(texts)) {
            QVERIFY2(translator.contextsOf(text) == QStringList(u"Tessel::UI::MainWindow"_s),
                     qPrintable(u"%1: %2"_s.arg(text, translator.contextsOf(text).join(u' '))));
        }
    }
};

TESSEL_TEST_MAIN(runTest<QApplication, TestQtTexts>);

#include "test_qt_texts.moc"
