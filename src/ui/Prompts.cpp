// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/Prompts.h"

#include "core/SecretBytes.h"
#include "core/SecureFileIndex.h"
#include "core/VaultPath.h"
#include "ui/DisplayFormats.h"
#include "ui/LongText.h"
#include "ui/MessageBoxes.h"
#include "ui/PasswordField.h"
#include "ui/ProductInfo.h"
#include "ui/WindowGeometry.h"
#include "ui/WindowText.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileInfo>
#include <QInputDialog>
#include <QLineEdit>
#include <QList>
#include <QPushButton>
#include <QScopeGuard>
#include <QVBoxLayout>

#include <algorithm>

namespace Tessel::UI {

using Core::sameVaultPath;
using Core::SecureFileIndex;

namespace {

constexpr qsizetype MinimumPasswordBytes = 10;

/// A folder that a file can be moved to.
struct MoveDestination {
    QString label;
    /// Empty for the root.
    QString path;
};

/// @return the name without blanks around it; empty when the user gave none.
QString askName(QWidget* parent, const NameQuestion& question, const QString& proposal) {
    QInputDialog dialog(parent);
    dialog.setWindowTitle(question.title);
    dialog.setLabelText(question.label);
    dialog.setTextValue(proposal);
    auto* field = dialog.findChild<QLineEdit*>();
    const int stem = static_cast<int>(QFileInfo(proposal).completeBaseName().size());
    if (question.ofFile && stem > 0) {
        // Queued, because the dialog selects the whole text when it is shown.
        QMetaObject::invokeMethod(
            field, [field, stem] { field->setSelection(0, stem); }, Qt::QueuedConnection);
    }
    return dialog.exec() == QDialog::Accepted ? dialog.textValue().trimmed() : QString();
}

/// The root first, then the folders by path; the file's own folder is left out.
QList<MoveDestination> moveDestinations(const SecureFileIndex& index, const QString& ownFolder) {
    QList<MoveDestination> destinations;
    const QList<Core::VaultDirectoryEntry> directories = index.directories();
    for (const Core::VaultDirectoryEntry& directory : directories) {
        if (!sameVaultPath(directory.path, ownFolder)) {
            destinations.append({directory.path, directory.path});
        }
    }
    std::stable_sort(destinations.begin(), destinations.end(),
                     [](const MoveDestination& a, const MoveDestination& b) {
                         return a.path.compare(b.path, Qt::CaseInsensitive) < 0;
                     });
    if (!ownFolder.isEmpty()) {
        destinations.prepend({WindowText::tr("Raiz"), QString()});
    }
    return destinations;
}

std::optional<QString> chooseDestination(QWidget* parent, const QString& fileName,
                                         const QList<MoveDestination>& destinations) {
    QDialog dialog(parent);
    dialog.setWindowTitle(WindowText::tr("Mover arquivo"));
    dialog.setModal(true);

    const int widest = widestTextFor(parent);
    auto* label =
        new WrappedLabel(WindowText::tr("Mover %1 para:").arg(nameInSentence(fileName)), widest);
    auto* combo = new QComboBox;
    combo->setMaximumWidth(widest);
    combo->view()->setTextElideMode(Qt::ElideMiddle);
    // On X11 Qt names a combo box by its value, whatever accessible name it is given.
    combo->setAccessibleDescription(label->text());
    for (const MoveDestination& destination : destinations) {
        combo->addItem(destination.label, destination.path);
        combo->setItemData(combo->count() - 1, longToolTip(destination.label), Qt::ToolTipRole);
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Ok)->setText(WindowText::tr("Mover"));
    buttons->button(QDialogButtonBox::Cancel)->setText(WindowText::tr("Cancelar"));
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);

    auto* layout = new QVBoxLayout(&dialog);
    layout->addWidget(label);
    layout->addWidget(combo);
    layout->addWidget(buttons);
    if (dialog.exec() != QDialog::Accepted) {
        return std::nullopt;
    }
    return combo->currentData().toString();
}

} // namespace

QByteArray requestPassword(const QString& title) {
    QInputDialog dialog;
    dialog.setWindowTitle(title);
    dialog.setLabelText(WindowText::tr("Senha:"));
    dialog.setTextEchoMode(QLineEdit::Password);
    auto* field = dialog.findChild<QLineEdit*>();
    makePasswordField(field);
    field->setMinimumWidth(widthForTitle(title));
    // "Senha:" alone does not tell the password from its confirmation.
    field->setAccessibleName(title);
    QByteArray password;
    if (dialog.exec() == QDialog::Accepted) {
        password = passwordIn(*field);
    }
    wipePassword(field);
    return password;
}

QByteArray requestNewVaultPassword() {
    QByteArray first = requestPassword(WindowText::tr("Definir senha do cofre"));
    if (first.isEmpty()) {
        return {};
    }
    QByteArray second = requestPassword(WindowText::tr("Confirmar senha do cofre"));
    auto wipeFirst = qScopeGuard([&first] { Core::wipe(&first); });
    const auto wipeSecond = qScopeGuard([&second] { Core::wipe(&second); });
    if (first != second) {
        showWarning(nullptr, ProductInfo::name(),
                    WindowText::tr("As senhas informadas não coincidem."));
        return {};
    }
    if (first.size() < MinimumPasswordBytes) {
        showWarning(
            nullptr, ProductInfo::name(),
            WindowText::tr("Use uma senha com pelo menos 10 caracteres para criar o cofre."));
        return {};
    }
    wipeFirst.dismiss();
    return first;
}

QString askFreePath(QWidget* parent, const NameQuestion& question, const SecureFileIndex& index,
                    const QString& directory, const QString& presentName) {
    const QString name = askName(parent, question, presentName);
    if (name.isEmpty() || name == presentName) {
        return {};
    }
    if (!Core::isValidVaultName(name)) {
        showWarning(parent, question.title, question.badName);
        return {};
    }
    QString path = Core::joinVaultPath(directory, name);
    if (indexHolds(index, path)) {
        showWarning(parent, question.title,
                    WindowText::tr("Já existe um item com esse nome nesta pasta."));
        return {};
    }
    return path;
}

std::optional<QString> askMoveDestination(QWidget* parent, const SecureFileIndex& index,
                                          const QString& vaultPath) {
    const QList<MoveDestination> destinations =
        moveDestinations(index, Core::parentVaultPath(vaultPath));
    if (destinations.isEmpty()) {
        showInformation(parent, WindowText::tr("Mover arquivo"),
                        WindowText::tr("Não há outra pasta disponível para receber este arquivo."));
        return std::nullopt;
    }
    return chooseDestination(parent, Core::vaultBaseName(vaultPath), destinations);
}

bool indexHolds(const SecureFileIndex& index, const QString& vaultPath) {
    return Core::indexContainsFilePath(index, vaultPath) ||
           Core::indexContainsDirectoryPath(index, vaultPath);
}

} // namespace Tessel::UI
