// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/MessageBoxes.h"

#include "ui/LongText.h"
#include "ui/WindowText.h"

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

namespace Tessel::UI {

namespace {

/// Gives the icon, which has no text, a name for a screen reader.
void nameIcon(QMessageBox* box) {
    const QList<QLabel*> labels = box->findChildren<QLabel*>();
    for (QLabel* label : labels) {
        if (label->text().isEmpty()) {
            label->setAccessibleName(box->windowTitle());
        }
    }
}

bool ask(QWidget* parent, const QString& title, const QString& text, const QString& acceptText,
         const QString& rejectText) {
    QMessageBox box(QMessageBox::Question, title, text, QMessageBox::NoButton, parent);
    box.setTextFormat(Qt::PlainText);
    const QPushButton* accept = box.addButton(acceptText, QMessageBox::AcceptRole);
    QPushButton* reject = box.addButton(rejectText, QMessageBox::RejectRole);
    box.setDefaultButton(reject);
    nameIcon(&box);
    breakLongWords(&box);
    box.exec();
    return box.clickedButton() == accept;
}

void show(QWidget* parent, QMessageBox::Icon icon, const QString& title, const QString& text) {
    QMessageBox box(icon, title, text, QMessageBox::Ok, parent);
    box.setTextFormat(Qt::PlainText);
    nameIcon(&box);
    breakLongWords(&box);
    box.exec();
}

} // namespace

QWidget* frontWindow(QWidget* window) {
    QWidget* front = QApplication::activeModalWidget();
    return front == nullptr ? window : front;
}

bool questionContinueCancel(QWidget* parent, const QString& title, const QString& text) {
    return ask(parent, title, text, WindowText::tr("Continuar"), WindowText::tr("Cancelar"));
}

bool questionYesNo(QWidget* parent, const QString& title, const QString& text) {
    return ask(parent, title, text, WindowText::tr("Sim"), WindowText::tr("Não"));
}

void leaveInformation(QWidget* parent, const QString& title, const QString& text) {
    auto* box = new QMessageBox(QMessageBox::Information, title, text, QMessageBox::Ok, parent);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setModal(false);
    box->setTextFormat(Qt::PlainText);
    box->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    nameIcon(box);
    breakLongWords(box);
    box->show();
}

void showWarning(QWidget* parent, const QString& title, const QString& text) {
    show(parent, QMessageBox::Warning, title, text);
}

void showInformation(QWidget* parent, const QString& title, const QString& text) {
    show(parent, QMessageBox::Information, title, text);
}

} // namespace Tessel::UI
