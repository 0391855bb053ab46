// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/ProgressProbe.h"
#include "support/TestProgram.h"
#include "support/WindowTest.h"
#include "ui/ApplicationSetup.h"

#include <QAccessible>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QFileDialog>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QListWidget>
#include <QTableWidget>
#include <QTest>
#include <QToolButton>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Password = u"senha de teste"_s;

/// What a person works with or listens to; the rest is frames, separators and layout.
bool isControl(QAccessible::Role role) {
    switch (role) {
    case QAccessible::Button:
    case QAccessible::ButtonMenu:
    case QAccessible::CheckBox:
    case QAccessible::ColumnHeader:
    case QAccessible::ComboBox:
    case QAccessible::Dialog:
    case QAccessible::EditableText:
    case QAccessible::Graphic:
    case QAccessible::List:
    case QAccessible::ListItem:
    case QAccessible::MenuItem:
    case QAccessible::ProgressBar:
    case QAccessible::StaticText:
    case QAccessible::Table:
    case QAccessible::Tree:
        return true;
    default:
        return false;
    }
}

bool isShown(const QAccessibleInterface* element) {
    return !element->state().invisible;
}

/// Collects the controls beneath @p element that a screen reader could not call by a name.
void collectNameless(QAccessibleInterface* element, const QString& trail, QStringList* nameless) {
    const QString here = trail + u'/' + element->text(QAccessible::Name);
    if (isControl(element->role()) && isShown(element) &&
        element->text(QAccessible::Name).trimmed().isEmpty()) {
        const QObject* object = element->object();
        nameless->append(u"%1 role %2 (%3)"_s.arg(here)
                             .arg(element->role())
                             .arg(object == nullptr ? QString()
                                                    : object->objectName() + u' ' +
                                                          QString::fromLatin1(
                                                              object->metaObject()->className())));
    }
    for (int i = 0; i < element->childCount(); ++i) {
        if (QAccessibleInterface* child = element->child(i)) {
            collectNameless(child, here, nameless);
        }
    }
}

QString namelessControls(QWidget* widget) {
    QStringList nameless;
    collectNameless(QAccessible::queryAccessibleInterface(widget), QString(), &nameless);
    return nameless.join(u'\n');
}

QString accessibleName(QObject* object) {
    return QAccessible::queryAccessibleInterface(object)->text(QAccessible::Name);
}

QString accessibleDescription(QObject* object) {
    return QAccessible::queryAccessibleInterface(object)->text(QAccessible::Description);
}

} // namespace

/// The window as a screen reader sees it.
class TestAccessibility : public WindowTest {
    Q_OBJECT

private:
    [[nodiscard]] bool openSample() {
        CraftedContainer crafted;
        crafted.addFolder(u"docs"_s).addFile(u"a.txt"_s, "a").addFile(u"b.pdf"_s, "b");
        const QString path = m_folder->filePath(u"tessel.tvlt"_s);
        return crafted.writeTo(path) && m_driver->openVault(path, Password);
    }

private Q_SLOTS:
    void initTestCase() { Tessel::UI::setUpApplication(*qApp); }

    void everyControlOfTheWindowHasAName() {
        QCOMPARE(namelessControls(&m_driver->window), QString());
        QVERIFY(openSample());
        QCOMPARE(namelessControls(&m_driver->window), QString());
        // The walk finds one that has none.
        m_driver->padlock()->setAccessibleName(QString());
        m_driver->padlock()->setToolTip(QString());
        QVERIFY(namelessControls(&m_driver->window).contains(u"vaultToggleButton"));
    }

    void iconCellsSayWhatTheIconShows() {
        QVERIFY(openSample());
        const QStringList expected{u"Pasta"_s, u"TXT"_s, u"PDF"_s};
        QTableWidget* table = m_driver->table();
        QAccessibleInterface* element = QAccessible::queryAccessibleInterface(table);
        for (int row = 0; row < table->rowCount(); ++row) {
            const QAccessibleInterface* cell = element->tableInterface()->cellAt(row, 0);
            QCOMPARE(cell->text(QAccessible::Name), expected.at(row));
        }
    }

    void namesAreTheWindowsOwnTexts() {
        QCOMPARE(accessibleName(m_driver->deviceList()), u"Dispositivos USB"_s);
        QCOMPARE(accessibleName(m_driver->table()), u"Arquivos protegidos"_s);
    }

    void padlockIsNamedByWhatItDoes() {
        QCOMPARE(accessibleName(m_driver->padlock()),
                 u"Selecione um container para desbloquear o cofre."_s);
        QVERIFY(openSample());
        QCOMPARE(accessibleName(m_driver->padlock()), u"Bloquear cofre"_s);
        m_driver->action(u"Bloquear"_s)->trigger();
        QCOMPARE(accessibleName(m_driver->padlock()), u"Desbloquear cofre"_s);
    }

    void tableIsDescribedByItsSummaryAndOrder() {
        QCOMPARE(accessibleDescription(m_driver->table()), u"Nenhum cofre em uso (aberto)"_s);
        QVERIFY(openSample());
        QCOMPARE(
            accessibleDescription(m_driver->table()),
            u"Arquivos protegidos | Pasta: Raiz | 2 arquivos no cofre. | Ordem: Nome do arquivo, "
            "crescente"_s);
    }

    /// Qt tells screen readers when a description changes.
    void changeOfOrderChangesTheDescription() {
        QVERIFY(openSample());
        QTableWidget* table = m_driver->table();
        QTest::keyClick(&m_driver->window, Qt::Key_Right);
        QVERIFY(accessibleDescription(table).endsWith(u"| Ordem: Nome do arquivo, decrescente"));
        const QHeaderView* header = table->horizontalHeader();
        const QPoint type(header->sectionViewportPosition(3) + 5, header->height() / 2);
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, type);
        QVERIFY(accessibleDescription(table).endsWith(u"| Ordem: Tipo, crescente"));
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, type);
        QVERIFY(accessibleDescription(table).endsWith(u"| Ordem: Tipo, decrescente"));
    }

    void columnsHaveNamesOfTheirOwn() {
        QStringList names;
        QAccessibleInterface* table = QAccessible::queryAccessibleInterface(m_driver->table());
        for (int i = 0; i < table->childCount(); ++i) {
            if (table->child(i)->role() == QAccessible::ColumnHeader) {
                names.append(table->child(i)->text(QAccessible::Name));
            }
        }
        QCOMPARE(names, QStringList({u"Ícone"_s, u"Nome do arquivo"_s, u"Tamanho"_s, u"Tipo"_s,
                                     u"Modificado em"_s}));
    }

    void stateOfTheVaultIsNamed() {
        QLabel* label = m_driver->label(u"vaultStateLabel"_s);
        QCOMPARE(accessibleName(label), u"Cofre bloqueado"_s);
        QVERIFY(openSample());
        QCOMPARE(accessibleName(label), u"Cofre aberto"_s);
        QCOMPARE(label->text(), u"COFRE"_s);
        m_driver->action(u"Bloquear"_s)->trigger();
        QCOMPARE(accessibleName(label), u"Cofre bloqueado"_s);
    }

    void elidedContainerNameIsReadWhole() {
        const QString name =
            u"<b>um nome bem comprido para um container</b>.tvlt"_s.replace(u'/', u'_');
        const QString path = m_folder->filePath(name);
        QVERIFY(CraftedContainer().writeTo(path) && m_driver->chooseContainer(path));
        QLabel* label = m_driver->label(u"containerLabel"_s);
        QCOMPARE(accessibleName(label), u"Container: "_s + name);
        QVERIFY(label->text().size() < name.size());
        // Its tool tip shows the marks instead of obeying them.
        QVERIFY(label->toolTip().contains(u"&lt;b&gt;um"));
    }

    void everyControlOfTheDialogsHasAName_data() {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("title");
        QTest::addColumn<bool>("needsVault");
        QTest::newRow("help") << u"Ajuda"_s << u"Ajuda do Tessel"_s << false;
        QTest::newRow("about") << u"Sobre o Tessel"_s << u"Sobre o Tessel"_s << false;
        QTest::newRow("choosing a file")
            << u"Escolher container..."_s << u"Escolher container Tessel"_s << false;
        QTest::newRow("typing a name") << u"Nova pasta..."_s << u"Nova pasta"_s << true;
        QTest::newRow("question") << u"Excluir..."_s << u"Excluir arquivo"_s << true;
        QTest::newRow("moving") << u"Mover para pasta..."_s << u"Mover arquivo"_s << true;
    }
    void everyControlOfTheDialogsHasAName() {
        QFETCH(const QString, command);
        QFETCH(const QString, title);
        QFETCH(const bool, needsVault);
        if (needsVault) {
            QVERIFY(openSample() && m_driver->selectRow(u"a.txt"_s));
        }
        QString nameless = u"not looked at"_s;
        dialogs().handle(title, [&nameless](QDialog* dialog) {
            nameless = namelessControls(dialog);
            dialog->reject();
        });
        m_driver->action(command)->trigger();
        QCOMPARE(nameless, QString());
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
    }

    void listOfDestinationsIsDescribedByItsQuestion() {
        QVERIFY(openSample() && m_driver->selectRow(u"a.txt"_s));
        QString description;
        dialogs().handle(u"Mover arquivo"_s, [&description](QDialog* dialog) {
            description = accessibleDescription(dialog->findChild<QComboBox*>());
            dialog->reject();
        });
        m_driver->action(u"Mover para pasta..."_s)->trigger();
        QCOMPARE(description, u"Mover a.txt para:"_s);
    }

    void progressBarHasTheOperationsName() {
        QVERIFY(openSample() && writeFile(m_folder->filePath(u"n.txt"_s), "n"));
        QString name;
        QString nameless = u"not looked at"_s;
        const ProgressProbe probe([&](QProgressDialog* dialog, int) {
            name = accessibleName(dialog->findChild<QProgressBar*>());
            nameless = namelessControls(dialog);
        });
        dialogs().answerFiles(u"Importar arquivos para o cofre"_s,
                              {m_folder->filePath(u"n.txt"_s)});
        m_driver->action(u"Importar..."_s)->trigger();
        QCOMPARE(name, u"Importar arquivos"_s);
        QCOMPARE(nameless, QString());
    }
};

TESSEL_TEST_MAIN(runTest<QApplication, TestAccessibility>);

#include "test_accessibility.moc"
