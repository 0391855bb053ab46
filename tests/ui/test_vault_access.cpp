// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"
#include "support/Faults.h"
#include "support/Files.h"
#include "support/ProgressProbe.h"
#include "support/TestProgram.h"
#include "support/WindowTest.h"

#include <QAccessible>
#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QDialog>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QKeySequence>
#include <QLabel>
#include <QLineEdit>
#include <QRegularExpression>
#include <QStatusBar>
#include <QTest>
#include <QToolButton>

#include <sys/stat.h>
#include <unistd.h>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Password = u"senha de teste"_s;
const QString CreateTitle = u"Criar container Tessel"_s;
const QString FirstTitle = u"Definir senha do cofre"_s;
const QString SecondTitle = u"Confirmar senha do cofre"_s;
const QString BackupTitle = u"Fazer backup"_s;
const QString BackupFileTitle = u"Fazer backup do container"_s;

/// Keeps the open vault's temporary folder from being removed while it lives; removes it then.
class StubbornWorkspace {
public:
    StubbornWorkspace() {
        const QFileInfoList workspaces =
            QDir(QDir::tempPath() + u"/Tessel"_s).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot);
        if (workspaces.size() == 1) {
            m_path = workspaces.first().filePath();
            m_mount = std::make_unique<ReadOnlyMount>(m_path);
        }
    }
    ~StubbornWorkspace() {
        m_mount.reset();
        if (m_path.isEmpty() || !QDir(m_path).removeRecursively()) {
            qWarning("the temporary folder stays");
        }
    }
    Q_DISABLE_COPY_MOVE(StubbornWorkspace)

    [[nodiscard]] bool isHeld() const { return m_mount != nullptr && m_mount->isMounted(); }

private:
    QString m_path;
    std::unique_ptr<ReadOnlyMount> m_mount;
};

} // namespace

class TestVaultAccess : public WindowTest {
    Q_OBJECT

private:
    [[nodiscard]] QString containerPath() const { return path(u"t.tvlt"_s); }

    /// Makes a backup there, and lets it replace what is there. @return whether the dialogs were
    /// those of a backup that succeeds.
    [[nodiscard]] bool backsUpTo(const QString& destination) {
        chooseDestination(destination);
        dialogs().acceptInformation(BackupTitle);
        return run(u"Fazer backup..."_s);
    }
    /// The same for a backup that fails.
    [[nodiscard]] bool backupFailsTo(const QString& destination) {
        chooseDestination(destination);
        dialogs().acceptWarning(BackupTitle);
        return run(u"Fazer backup..."_s);
    }
    void chooseDestination(const QString& destination) {
        dialogs().answerFiles(BackupFileTitle, {destination});
        if (QFileInfo::exists(destination)) {
            // The file dialog asks before it lets anything be replaced.
            dialogs().press(BackupFileTitle, u"Yes"_s);
        }
    }
    [[nodiscard]] bool chooseCrafted() {
        CraftedContainer crafted;
        const bool chosen = crafted.addFile(u"a.txt"_s, "aaa").writeTo(containerPath()) &&
                            m_driver->chooseContainer(containerPath());
        m_driver->window.statusBar()->clearMessage();
        return chosen;
    }

private Q_SLOTS:
    void choosingSaysSo() {
        // What the file holds is found out only when it is unlocked.
        QVERIFY(writeFile(containerPath(), "no container"));
        QVERIFY(m_driver->chooseContainer(containerPath()));
        QCOMPARE(status(), u"Container selecionado."_s);
        QVERIFY(m_driver->action(u"Desbloquear"_s)->isEnabled());
    }

    // --- Creating --------------------------------------------------------------------------------

    void createRefusesPasswords_data() {
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        QTest::addColumn<QString>("message");
        const QString differ = u"As senhas informadas não coincidem."_s;
        const QString tooShort =
            u"Use uma senha com pelo menos 10 caracteres para criar o cofre."_s;
        QTest::newRow("no password") << QString() << QString() << QString();
        QTest::newRow("mismatch") << u"senha de teste"_s << u"senha de testes"_s << differ;
        QTest::newRow("confirmation cancelled") << u"senha de teste"_s << QString() << differ;
        QTest::newRow("mismatch before length") << u"curta"_s << u"outra"_s << differ;
        QTest::newRow("nine bytes") << u"123456789"_s << u"123456789"_s << tooShort;
        QTest::newRow("four accented letters") << u"éééé"_s << u"éééé"_s << tooShort;
    }
    void createRefusesPasswords() {
        QFETCH(const QString, first);
        QFETCH(const QString, second);
        QFETCH(const QString, message);
        dialogs().answerFiles(CreateTitle, {containerPath()});
        dialogs().answerText(FirstTitle, first);
        if (!first.isEmpty()) {
            if (second.isEmpty()) {
                dialogs().reject(SecondTitle);
            } else {
                dialogs().answerText(SecondTitle, second);
            }
            dialogs().acceptWarning(u"Tessel"_s);
        }
        VERIFY_RUN(u"Criar novo cofre..."_s);
        QCOMPARE(lastText(), message.isEmpty() ? u"Senha:"_s : message);
        QVERIFY(!dialogs().last().hasParent);
        QVERIFY(!QFileInfo::exists(containerPath()));
        QCOMPARE(status(), u"Pronto (0 ms)"_s);
    }

    void fiveAccentedLettersMakeAVault() {
        const QString password = u"ééééé"_s;
        dialogs().answerFiles(CreateTitle, {containerPath()});
        dialogs().answerText(FirstTitle, password);
        dialogs().answerText(SecondTitle, password);
        VERIFY_RUN(u"Criar novo cofre..."_s);
        QCOMPARE(status(), u"Cofre criado com sucesso."_s);
        QVERIFY(!m_driver->vaultIsOpen());
        QVERIFY(m_driver->unlock(password));
    }

    void createFailureIsTold() {
        QVERIFY(QDir(m_folder->path()).mkdir(u"gone"_s));
        dialogs().answerFiles(CreateTitle, {path(u"gone/t.tvlt"_s)});
        dialogs().answerText(FirstTitle, Password);
        dialogs().handle(SecondTitle, [this](QDialog* dialog) {
            QVERIFY(QDir(m_folder->path()).rmdir(u"gone"_s));
            dialog->findChild<QLineEdit*>()->setText(Password);
            dialog->accept();
        });
        dialogs().acceptWarning(u"Tessel"_s);
        VERIFY_RUN(u"Criar novo cofre..."_s);
        QCOMPARE(lastText(), u"Não foi possível criar o cofre."_s);
        QVERIFY(dialogs().last().hasParent);
        QVERIFY(!m_driver->action(u"Desbloquear"_s)->isEnabled());
    }

    // --- Unlocking and locking -------------------------------------------------------------------

    void unlockRefuses_data() {
        QTest::addColumn<QString>("fault");
        for (const char* fault :
             {"wrong password", "long password", "damaged", "other version", "missing", "folder"}) {
            QTest::newRow(fault) << QString::fromLatin1(fault);
        }
    }
    void unlockRefuses() {
        QFETCH(const QString, fault);
        CraftedContainer crafted;
        if (fault == u"other version") {
            crafted.setHeaderMember(u"formatVersion"_s, 4);
        }
        QVERIFY(crafted.writeTo(containerPath()));
        QVERIFY(m_driver->chooseContainer(containerPath()));
        m_driver->window.statusBar()->clearMessage();
        if (fault == u"damaged") {
            QVERIFY(overwriteAt(containerPath(), 0, "XXXX"));
        } else if (fault == u"missing" || fault == u"folder") {
            QVERIFY(QFile::remove(containerPath()));
            QVERIFY(fault == u"missing" || QDir().mkdir(containerPath()));
        }
        dialogs().handle(u"Senha do cofre"_s, [&fault](QDialog* dialog) {
            auto* edit = dialog->findChild<QLineEdit*>();
            edit->setMaxLength(8 * 1048576);
            edit->setText(fault == u"long password"    ? QString(4 * 1048576, u'x')
                          : fault == u"wrong password" ? u"senha errada"_s
                                                       : Password);
            dialog->accept();
        });
        dialogs().acceptWarning(u"Tessel"_s);
        VERIFY_RUN(u"Desbloquear"_s);
        QCOMPARE(lastText(), u"Não foi possível desbloquear o cofre. Verifique a senha ou se o "
                             u"container foi alterado."_s);
        QVERIFY(dialogs().last().hasParent);
        QVERIFY(!m_driver->vaultIsOpen());
        QCOMPARE(status(), QString());
    }

    void passwordsAreAskedForOutOfSightUnderTheirWholeTitle() {
        QStringList shown;
        QStringList cut;
        QStringList names;
        const auto typeUnseen = [&](QDialog* dialog) {
            auto* input = qobject_cast<QInputDialog*>(dialog);
            shown.append(input->textValue());
            QCOMPARE(input->textEchoMode(), QLineEdit::Password);
            // A desktop puts an icon and a button or two beside the title.
            const QFontMetrics metrics = dialog->fontMetrics();
            const int needed =
                metrics.horizontalAdvance(dialog->windowTitle()) + 6 * metrics.height();
            if (dialog->width() < needed) {
                cut.append(dialog->windowTitle());
            }
            auto* field = dialog->findChild<QLineEdit*>();
            names.append(QAccessible::queryAccessibleInterface(field)->text(QAccessible::Name));
            input->setTextValue(Password);
            input->accept();
        };
        dialogs().answerFiles(CreateTitle, {containerPath()});
        dialogs().handle(FirstTitle, typeUnseen);
        dialogs().handle(SecondTitle, typeUnseen);
        VERIFY_RUN(u"Criar novo cofre..."_s);
        dialogs().handle(u"Senha do cofre"_s, typeUnseen);
        VERIFY_RUN(u"Desbloquear"_s);
        QVERIFY(m_driver->vaultIsOpen());
        QCOMPARE(shown, QStringList({QString(), QString(), QString()}));
        QCOMPARE(cut, QStringList());
        QCOMPARE(names, QStringList({FirstTitle, SecondTitle, u"Senha do cofre"_s}));
        const QList<DialogDriver::Seen> passwords = dialogs().seen().mid(1);
        for (const DialogDriver::Seen& dialog : passwords) {
            QCOMPARE(dialog.text, u"Senha:"_s);
            QVERIFY2(!dialog.hasParent, qPrintable(dialog.title));
        }
    }

    void theEyeShowsAPasswordAndHidesIt() {
        QVERIFY(chooseCrafted());
        QStringList shown;
        bool pressed = false;
        dialogs().handle(u"Senha do cofre"_s, [&](QDialog* dialog) {
            auto* field = dialog->findChild<QLineEdit*>();
            typeText(field, Password);
            pressed = pressButton(dialog, u"Mostrar senha"_s);
            shown.append(field->displayText());
            pressed = pressButton(dialog, u"Ocultar senha"_s) && pressed;
            shown.append(field->displayText());
            dialog->activateWindow();
            pressed = QTest::qWaitForWindowActive(dialog) && pressed;
            QTest::keyClick(field, Qt::Key_M, Qt::ControlModifier);
            shown.append(field->displayText());
            dialog->accept();
        });
        VERIFY_RUN(u"Desbloquear"_s);
        QVERIFY(pressed);
        QCOMPARE(shown.value(0), Password);
        QVERIFY(shown.value(1) != Password);
        QCOMPARE(shown.value(2), Password);
        QVERIFY(m_driver->vaultIsOpen());
    }

    void pastedPasswordsLoseTheirLineBreak() {
        QGuiApplication::clipboard()->setText(Password + u'\n');
        const auto paste = [](QDialog* dialog) {
            QTest::keySequence(dialog->findChild<QLineEdit*>(), QKeySequence::Paste);
            dialog->accept();
        };
        dialogs().answerFiles(CreateTitle, {containerPath()});
        dialogs().handle(FirstTitle, paste);
        dialogs().answerText(SecondTitle, Password);
        VERIFY_RUN(u"Criar novo cofre..."_s);
        QCOMPARE(status(), u"Cofre criado com sucesso."_s);
        QVERIFY(chooseCrafted());
        dialogs().handle(u"Senha do cofre"_s, paste);
        VERIFY_RUN(u"Desbloquear"_s);
        QVERIFY(m_driver->vaultIsOpen());
    }

    void emptyPasswordIsSilent() {
        QVERIFY(chooseCrafted());
        dialogs().answerText(u"Senha do cofre"_s, QString());
        VERIFY_RUN(u"Desbloquear"_s);
        dialogs().reject(u"Senha do cofre"_s);
        VERIFY_RUN(u"Desbloquear"_s);
        QCOMPARE(status(), QString());
        QVERIFY(!m_driver->vaultIsOpen());
    }

    void unlockAndLockSaySo() {
        QVERIFY(chooseCrafted());
        QVERIFY(m_driver->unlock(Password));
        QCOMPARE(status(), u"Cofre desbloqueado."_s);
        QCOMPARE(m_driver->rowNames(), QStringList(u"a.txt"_s));
        QVERIFY(run(u"Bloquear"_s));
        QCOMPARE(status(), u"Cofre bloqueado."_s);
        QVERIFY(m_driver->rowNames().isEmpty());
    }

    void aStubbornWorkspaceIsToldAndLockedAllTheSame() {
        NEEDS_PRIVATE_MOUNTS();
        QVERIFY(chooseCrafted());
        QVERIFY(m_driver->unlock(Password));
        const StubbornWorkspace workspace;
        QVERIFY(workspace.isHeld());
        dialogs().acceptWarning(u"Tessel"_s);
        VERIFY_RUN(u"Bloquear"_s);
        QCOMPARE(lastText(), u"Não foi possível limpar a área temporária."_s);
        QCOMPARE(dialogs().last().status, u"Cofre desbloqueado."_s);
        QCOMPARE(status(), u"Cofre bloqueado."_s);
        QVERIFY(!m_driver->vaultIsOpen());
    }

    void aStubbornWorkspaceKeepsTheWindowButLocksTheVault() {
        NEEDS_PRIVATE_MOUNTS();
        QVERIFY(chooseCrafted());
        QVERIFY(m_driver->unlock(Password));
        const StubbornWorkspace workspace;
        QVERIFY(workspace.isHeld());
        dialogs().acceptWarning(u"Tessel"_s);
        QVERIFY(!m_driver->window.close());
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QCOMPARE(lastText(), u"Não foi possível bloquear o cofre."_s);
        QVERIFY(m_driver->window.isVisible());
        // The window shows what the vault is.
        QVERIFY(m_driver->rowNames().isEmpty());
        QCOMPARE(m_driver->label(u"protectedFilesLabel"_s)->text(),
                 u"Nenhum cofre em uso (aberto)"_s);
        QVERIFY(!m_driver->padlock()->isChecked());
        for (const QString& command : {u"Bloquear"_s, u"Nova pasta..."_s, u"Importar..."_s,
                                       u"Exportar..."_s, u"Compactar cofre..."_s}) {
            QVERIFY2(!m_driver->action(command)->isEnabled(), qPrintable(command));
        }
        for (const QString& command : {u"Desbloquear"_s, u"Escolher container..."_s,
                                       u"Fazer backup..."_s, u"Alterar senha..."_s}) {
            QVERIFY2(m_driver->action(command)->isEnabled(), qPrintable(command));
        }
    }

    void aLockThatFailsGoesOnAllTheSame() {
        CraftedContainer crafted;
        QVERIFY(crafted.addFolder(u"docs"_s).addFile(u"a.txt"_s, "aaa").writeTo(containerPath()));
        QVERIFY(m_driver->openWithoutWayBack(containerPath(), Password, u"a.txt"_s));
        QVERIFY(m_driver->activateRow(u"docs"_s));
        const QLabel* summary = m_driver->label(u"protectedFilesLabel"_s);
        QCOMPARE(summary->text(), u"Arquivos protegidos | Pasta: docs | 1 arquivo no cofre."_s);
        dialogs().acceptWarning(u"Tessel"_s);
        VERIFY_RUN(u"Bloquear"_s);
        QCOMPARE(lastText(), u"Não foi possível limpar a área temporária."_s);
        QCOMPARE(status(), u"Cofre bloqueado."_s);
        // It is still open, with the change that could not be taken back, and shown from the root.
        QVERIFY(m_driver->vaultIsOpen());
        QCOMPARE(summary->text(), u"Arquivos protegidos | Pasta: Raiz | 1 arquivo no cofre."_s);
        QCOMPARE(m_driver->rowNames(), QStringList({u"docs"_s, u"a.txt"_s}));
        QVERIFY(WindowDriver::bringBack(containerPath()));
    }

    // --- Out of place
    // -----------------------------------------------------------------------------

    void fileDialogsProposeANameAndFilter_data() {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("namePattern");
        QTest::newRow("choose") << u"Escolher container..."_s << u"Escolher container Tessel"_s
                                << QString();
        QTest::newRow("create") << u"Criar novo cofre..."_s << CreateTitle << u"tessel\\.tvlt"_s;
        QTest::newRow("backup") << u"Fazer backup..."_s << BackupFileTitle
                                << u"tessel_backup_\\d{4}-\\d\\d-\\d\\d_\\d{4}\\.tvlt"_s;
    }
    void fileDialogsProposeANameAndFilter() {
        QFETCH(const QString, command);
        QFETCH(const QString, title);
        QFETCH(const QString, namePattern);
        QVERIFY(chooseCrafted());
        const QString container = m_driver->label(u"containerLabel"_s)->text();
        QStringList filters;
        QString name;
        QString folder;
        dialogs().handle(title, [&](QDialog* dialog) {
            const auto* files = qobject_cast<QFileDialog*>(dialog);
            filters = files->nameFilters();
            folder = files->directory().absolutePath();
            name = dialog->findChild<QLineEdit*>(u"fileNameEdit"_s)->text();
            dialog->reject();
        });
        VERIFY_RUN(command);
        QCOMPARE(filters,
                 QStringList({u"Tessel Container (*.tvlt)"_s, u"Todos os arquivos (*.*)"_s}));
        const QRegularExpression pattern(QRegularExpression::anchoredPattern(namePattern));
        QVERIFY2(pattern.match(name).hasMatch(), qPrintable(name));
        if (title == BackupFileTitle) {
            QCOMPARE(folder, QDir::home().absolutePath());
        }
        // Cancelled, they change nothing.
        QCOMPARE(status(), QString());
        QCOMPARE(m_driver->label(u"containerLabel"_s)->text(), container);
    }

    void commandsOutOfPlaceAreTold_data() {
        QTest::addColumn<QString>("command");
        QTest::addColumn<bool>("unlocked");
        QTest::addColumn<QString>("message");
        const QString none = u"Selecione um container primeiro."_s;
        QTest::newRow("password, no container") << u"Alterar senha..."_s << false << none;
        QTest::newRow("backup, no container") << u"Fazer backup..."_s << false << none;
        QTest::newRow("password, unlocked")
            << u"Alterar senha..."_s << true << u"Bloqueie o cofre antes de alterar a senha."_s;
        QTest::newRow("backup, unlocked")
            << u"Fazer backup..."_s << true << u"Bloqueie o cofre antes de fazer o backup."_s;
    }
    void commandsOutOfPlaceAreTold() {
        QFETCH(const QString, command);
        QFETCH(const bool, unlocked);
        QFETCH(const QString, message);
        if (unlocked) {
            QVERIFY(chooseCrafted());
            QVERIFY(m_driver->unlock(Password));
        }
        // The menu does not offer it; who gets there all the same is told why not.
        QVERIFY(!m_driver->action(command)->isEnabled());
        m_driver->action(command)->setEnabled(true);
        dialogs().acceptInformation(u"Tessel"_s);
        VERIFY_RUN(command);
        QCOMPARE(lastText(), message);
    }

    void anImportWhoseDriveIsGoneIsTold() {
        const QString drive = path(u"drive"_s);
        QVERIFY(QDir().mkdir(drive));
        QVERIFY(CraftedContainer().writeTo(drive + u"/t.tvlt"_s));
        QVERIFY(writeFile(path(u"n.bin"_s), "n"));
        QVERIFY(m_driver->openVault(drive + u"/t.tvlt"_s, Password));
        QVERIFY(QDir().rename(drive, path(u"gone"_s)));
        dialogs().answerFiles(u"Importar arquivos para o cofre"_s, {path(u"n.bin"_s)});
        dialogs().acceptWarning(u"Importar arquivos"_s);
        VERIFY_RUN(u"Importar..."_s);
        QCOMPARE(lastText(),
                 u"Não foi possível verificar o espaço livre da unidade do container."_s);
        QVERIFY(m_driver->rowNames().isEmpty());
    }

    // --- Backup ----------------------------------------------------------------------------------

    void backupCopiesByteForByte() {
        QVERIFY(chooseCrafted());
        const QString copy = path(u"copy.tvlt"_s);
        QVERIFY(writeFile(copy, noise(20 * 1048576)));
        QVERIFY2(backsUpTo(copy), qPrintable(problems()));
        QCOMPARE(
            lastText(),
            u"Backup concluído com sucesso.\n\nO arquivo de backup é uma cópia criptografada do "
            u"container e permanece protegido pela senha do cofre."_s);
        QCOMPARE(dialogs().last().status, u"Backup do container concluído."_s);
        QCOMPARE(status(), u"Backup do container concluído."_s);
        QCOMPARE(sha256OfFile(copy), sha256OfFile(containerPath()));
    }

    void backupOfNothingIsComplete() {
        QVERIFY(writeFile(containerPath(), QByteArray()));
        QVERIFY(m_driver->chooseContainer(containerPath()));
        int last = -1;
        const ProgressProbe probe([&last](const QProgressDialog*, int value) { last = value; });
        QVERIFY2(backsUpTo(path(u"copy.tvlt"_s)), qPrintable(problems()));
        QCOMPARE(status(), u"Backup do container concluído."_s);
        QCOMPARE(last, 1000);
        QVERIFY(QFileInfo(path(u"copy.tvlt"_s)).isFile());
        QCOMPARE(QFileInfo(path(u"copy.tvlt"_s)).size(), 0);
    }

    void backupOntoALinkKeepsTheVault() {
        QVERIFY(chooseCrafted());
        const QByteArray before = sha256OfFile(containerPath());
        const QString link = path(u"link.tvlt"_s);
        QVERIFY(QFile::link(containerPath(), link));
        QVERIFY2(backsUpTo(link), qPrintable(problems()));
        QCOMPARE(sha256OfFile(containerPath()), before);
        QVERIFY(m_driver->unlock(Password));
    }

    void destinationsThatAreNoneAreRefused_data() {
        QTest::addColumn<QString>("kind");
        for (const char* kind :
             {"the container", "second name of the container", "pipe", "link to a device"}) {
            QTest::newRow(kind) << QString::fromLatin1(kind);
        }
    }
    void destinationsThatAreNoneAreRefused() {
        QFETCH(const QString, kind);
        QVERIFY(chooseCrafted());
        const QByteArray before = sha256OfFile(containerPath());
        const bool isContainer = kind == u"the container";
        const QString name = isContainer ? containerPath() : path(u"name.tvlt"_s);
        const QByteArray file = QFile::encodeName(name);
        if (kind == u"second name of the container") {
            QCOMPARE(::link(qPrintable(containerPath()), file.constData()), 0);
        } else if (kind == u"pipe") {
            QCOMPARE(::mkfifo(file.constData(), 0600), 0);
        } else if (!isContainer) {
            QVERIFY(QFile::link(u"/dev/null"_s, name));
        }
        QVERIFY2(backupFailsTo(name), qPrintable(problems()));
        QCOMPARE(lastText(), isContainer ? u"Escolha um destino diferente do container original."_s
                                         : u"Não foi possível criar o arquivo de backup."_s);
        QCOMPARE(status(), QString());
        QCOMPARE(sha256OfFile(containerPath()), before);
        QVERIFY(QFileInfo::exists(name));
    }

    void backupFailuresAreTold_data() {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("message");
        QTest::newRow("missing") << u"missing"_s << u"O arquivo do container não foi encontrado."_s;
        QTest::newRow("folder") << u"folder"_s << u"O arquivo do container não foi encontrado."_s;
        QTest::newRow("gone meanwhile")
            << u"meanwhile"_s << u"Não foi possível abrir o container para backup."_s;
        QTest::newRow("destination without folder")
            << u"destination"_s << u"Não foi possível criar o arquivo de backup."_s;
    }
    void backupFailuresAreTold() {
        QFETCH(const QString, fault);
        QFETCH(const QString, message);
        QVERIFY(chooseCrafted());
        QVERIFY(QDir(m_folder->path()).mkdir(u"gone"_s));
        if (fault == u"missing" || fault == u"folder") {
            QVERIFY(QFile::remove(containerPath()));
            QVERIFY(fault == u"missing" || QDir().mkdir(containerPath()));
        } else {
            dialogs().handle(BackupFileTitle, [&](QDialog* dialog) {
                connect(dialog, &QDialog::finished, this, [&] {
                    QVERIFY(fault == u"meanwhile" ? QFile::remove(containerPath())
                                                  : QDir(m_folder->path()).rmdir(u"gone"_s));
                });
                dialog->findChild<QLineEdit*>(u"fileNameEdit"_s)
                    ->setText(path(u"gone/copy.tvlt"_s));
                QMetaObject::invokeMethod(dialog, "accept");
            });
        }
        dialogs().acceptWarning(BackupTitle);
        VERIFY_RUN(u"Fazer backup..."_s);
        QCOMPARE(lastText(), message);
        QCOMPARE(status(), QString());
    }

    void fullDestinationKeepsWhatIsThere_data() {
        QTest::addColumn<bool>("hasEarlier");
        QTest::newRow("nothing") << false;
        QTest::newRow("an earlier backup") << true;
    }
    void fullDestinationKeepsWhatIsThere() {
        QFETCH(const bool, hasEarlier);
        NEEDS_PRIVATE_MOUNTS();
        QVERIFY(chooseCrafted());
        const SmallDisk disk(MiB);
        const QString copy = disk.filePath(u"copy.tvlt"_s);
        QVERIFY(!hasEarlier || writeFile(copy, "an earlier backup"));
        QVERIFY2(backupFailsTo(copy), qPrintable(problems()));
        QCOMPARE(lastText(), u"Não foi possível concluir o backup."_s);
        QCOMPARE(dialogs().last().status, QString());
        QCOMPARE(status(), u"Falha ao fazer backup do container."_s);
        QCOMPARE(readFile(copy), hasEarlier ? "an earlier backup"_ba : QByteArray());
        QCOMPARE(QDir(disk.path()).entryList(QDir::Files | QDir::Hidden),
                 hasEarlier ? QStringList(u"copy.tvlt"_s) : QStringList());
    }

    void anEarlierBackupStaysUntilTheNewOneIsWhole() {
        QVERIFY(chooseCrafted());
        const QString copy = path(u"copy.tvlt"_s);
        QVERIFY(writeFile(copy, "an earlier backup"));
        QByteArrayList seen;
        const ProgressProbe probe([&](const QProgressDialog*, int) {
            // The bar is filled once more when everything is done.
            seen.append(readFile(copy).left(100));
        });
        QVERIFY2(backsUpTo(copy), qPrintable(problems()));
        QVERIFY(!seen.isEmpty());
        QCOMPARE(seen.first(), "an earlier backup"_ba);
        QCOMPARE(sha256OfFile(copy), sha256OfFile(containerPath()));
    }

    void aContainerThatChangesItsSizeMeanwhileIsNoBackup_data() {
        QTest::addColumn<int>("change");
        QTest::newRow("shorter") << -1;
        QTest::newRow("longer") << 1;
    }
    void aContainerThatChangesItsSizeMeanwhileIsNoBackup() {
        QFETCH(const int, change);
        QVERIFY(chooseCrafted());
        const qint64 size = QFileInfo(containerPath()).size();
        bool changed = false;
        const ProgressProbe probe([&](const QProgressDialog*, int) {
            changed = changed || QFile::resize(containerPath(), size + change);
        });
        QVERIFY2(backupFailsTo(path(u"copy.tvlt"_s)), qPrintable(problems()));
        QVERIFY(changed);
        QCOMPARE(lastText(), u"Não foi possível concluir o backup."_s);
        QVERIFY(!QFileInfo::exists(path(u"copy.tvlt"_s)));
    }

    void aVaultWhoseCompactionWasCutIsUnlockedAndSaved_data() {
        QTest::addColumn<QString>("command");
        QTest::addColumn<bool>("copyBegun");
        for (const bool begun : {false, true}) {
            QTest::addRow("unlock, copy begun: %d", begun) << u"Desbloquear"_s << begun;
            QTest::addRow("password, copy begun: %d", begun) << u"Alterar senha..."_s << begun;
            QTest::addRow("backup, copy begun: %d", begun) << u"Fazer backup..."_s << begun;
        }
    }
    void aVaultWhoseCompactionWasCutIsUnlockedAndSaved() {
        QFETCH(const QString, command);
        QFETCH(const bool, copyBegun);
        QVERIFY(chooseCrafted());
        const QByteArray whole = readFile(containerPath());
        QVERIFY(QFile::rename(containerPath(), containerPath() + u".anterior"_s));
        QVERIFY(!copyBegun || writeFile(containerPath(), QByteArray(7, '\0') + whole.mid(7, 5000)));
        if (command == u"Desbloquear") {
            QVERIFY(m_driver->unlock(Password));
        } else if (command == u"Fazer backup...") {
            QVERIFY2(backsUpTo(path(u"copy.tvlt"_s)), qPrintable(problems()));
            QVERIFY(readFile(path(u"copy.tvlt"_s)) == whole);
        } else {
            dialogs().handle(u"Alterar senha do cofre"_s, [&](QDialog* dialog) {
                const QList<QLineEdit*> fields = dialog->findChildren<QLineEdit*>();
                QCOMPARE(fields.size(), 3);
                fields.at(0)->setText(Password);
                fields.at(1)->setText(u"outra senha longa"_s);
                fields.at(2)->setText(u"outra senha longa"_s);
                dialog->accept();
            });
            dialogs().acceptInformation(u"Tessel"_s);
            VERIFY_RUN(command);
            QCOMPARE(lastText(), u"Senha alterada com sucesso."_s);
        }
        QVERIFY(command == u"Alterar senha..." || readFile(containerPath()) == whole);
        QVERIFY(!QFileInfo::exists(containerPath() + u".anterior"_s));
    }
};

namespace {

int run(int argc, char** argv) {
    static_cast<void>(enterPrivateMounts());
    const TemporaryFolderInMemory temporaryFolder;
    return runTest<QApplication, TestVaultAccess>(argc, argv);
}

} // namespace

TESSEL_TEST_MAIN(run);

#include "test_vault_access.moc"
