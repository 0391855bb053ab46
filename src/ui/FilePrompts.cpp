// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/FilePrompts.h"

#include "core/ContainerLayout.h"
#include "ui/WindowText.h"

#include <QDateTime>
#include <QDir>
#include <QFileDialog>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

QString containerFilter() {
    return WindowText::tr("Tessel Container (*.tvlt);;Todos os arquivos (*.*)");
}

} // namespace

QString askContainerToOpen(QWidget* parent) {
    return QFileDialog::getOpenFileName(parent, WindowText::tr("Escolher container Tessel"),
                                        QString(), containerFilter());
}

QString askContainerToCreate(QWidget* parent) {
    return QFileDialog::getSaveFileName(parent, WindowText::tr("Criar container Tessel"),
                                        Core::ContainerLayout::ContainerFileName,
                                        containerFilter());
}

QString askBackupDestination(QWidget* parent) {
    const QString now = QDateTime::currentDateTime().toString(u"yyyy-MM-dd_HHmm"_s);
    const QString proposal = QDir::home().filePath(u"tessel_backup_%1.tvlt"_s.arg(now));
    return QFileDialog::getSaveFileName(parent, WindowText::tr("Fazer backup do container"),
                                        proposal, containerFilter());
}

QStringList askFilesToImport(QWidget* parent) {
    return QFileDialog::getOpenFileNames(parent, WindowText::tr("Importar arquivos para o cofre"));
}

QString askExportDestination(QWidget* parent, const QString& fileName) {
    return QFileDialog::getSaveFileName(parent, WindowText::tr("Exportar arquivo"), fileName);
}

} // namespace Tessel::UI
