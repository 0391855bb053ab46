// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/FilePrompts.h"

#include "core/ContainerLayout.h"
#include "ui/FileDialog.h"
#include "ui/WindowText.h"

#include <QDateTime>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

QString containerFilter() {
    return WindowText::tr("Tessel Container (*.tvlt);;Todos os arquivos (*.*)");
}

QString askContainerDestination(QWidget* parent, const QString& title, const FilePlaces& places,
                                const QString& proposal) {
    FileDialog dialog(parent, title, places);
    dialog.setNameFilter(containerFilter());
    return dialog.chooseDestination(proposal, u"tvlt"_s);
}

} // namespace

QString askContainerToOpen(QWidget* parent, const FilePlaces& places) {
    FileDialog dialog(parent, WindowText::tr("Escolher container Tessel"), places);
    dialog.setNameFilter(containerFilter());
    return dialog.chooseFiles(QFileDialog::ExistingFile).value(0);
}

QString askContainerToCreate(QWidget* parent, const FilePlaces& places) {
    return askContainerDestination(parent, WindowText::tr("Criar container Tessel"), places,
                                   Core::ContainerLayout::ContainerFileName);
}

QString askBackupDestination(QWidget* parent, const FilePlaces& places) {
    const QString now = QDateTime::currentDateTime().toString(u"yyyy-MM-dd_HHmm"_s);
    return askContainerDestination(parent, WindowText::tr("Fazer backup do container"), places,
                                   u"tessel_backup_%1.tvlt"_s.arg(now));
}

QStringList askFilesToImport(QWidget* parent, const FilePlaces& places) {
    FileDialog dialog(parent, WindowText::tr("Importar arquivos para o cofre"), places);
    return dialog.chooseFiles(QFileDialog::ExistingFiles);
}

QString askExportDestination(QWidget* parent, const FilePlaces& places, const QString& fileName) {
    FileDialog dialog(parent, WindowText::tr("Exportar arquivo"), places);
    return dialog.chooseDestination(fileName, QString());
}

} // namespace Tessel::UI
