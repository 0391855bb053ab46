// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/ChangePasswordDialog.h"

#include "ui/MessageBoxes.h"
#include "ui/PasswordField.h"
#include "ui/WindowGeometry.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace Tessel::UI {

ChangePasswordDialog::ChangePasswordDialog(QWidget* parent) : QDialog(parent) {
    buildUi();
}

ChangePasswordDialog::~ChangePasswordDialog() {
    for (QLineEdit* edit : {m_currentPassword, m_newPassword, m_confirmation}) {
        wipePassword(edit);
    }
}

QByteArray ChangePasswordDialog::currentPassword() const {
    return passwordIn(*m_currentPassword);
}

QByteArray ChangePasswordDialog::newPassword() const {
    return passwordIn(*m_newPassword);
}

void ChangePasswordDialog::buildUi() {
    setWindowTitle(tr("Alterar senha do cofre"));
    setModal(true);
    setMinimumWidth(widthForTitle(windowTitle()));

    auto* form = new QFormLayout;
    const auto addPasswordRow = [this, form](const QString& label) {
        auto* edit = new QLineEdit(this);
        makePasswordField(edit);
        form->addRow(label, edit);
        return edit;
    };
    m_currentPassword = addPasswordRow(tr("Senha atual:"));
    m_newPassword = addPasswordRow(tr("Nova senha:"));
    m_confirmation = addPasswordRow(tr("Confirmar nova senha:"));

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setText(tr("Alterar"));
    buttons->button(QDialogButtonBox::Cancel)->setText(tr("Cancelar"));
    connect(buttons, &QDialogButtonBox::accepted, this, &ChangePasswordDialog::validateAndAccept);
    connect(buttons, &QDialogButtonBox::rejected, this, &ChangePasswordDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);
}

void ChangePasswordDialog::validateAndAccept() {
    const QString problem = objection();
    if (problem.isEmpty()) {
        accept();
        return;
    }
    showWarning(this, tr("Alterar senha"), problem);
}

QString ChangePasswordDialog::objection() const {
    const QString newPassword = m_newPassword->text();
    if (m_currentPassword->text().isEmpty()) {
        return tr("Informe a senha atual.");
    }
    if (newPassword.size() < MinimumPasswordLength) {
        return tr("Use uma nova senha com pelo menos 10 caracteres.");
    }
    if (m_confirmation->text() != newPassword) {
        return tr("A confirmação não coincide com a nova senha.");
    }
    return {};
}

} // namespace Tessel::UI
