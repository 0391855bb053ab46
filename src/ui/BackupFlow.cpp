// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/BackupFlow.h"

#include "core/ContainerCopy.h"
#include "core/RegularFile.h"
#include "ui/DisplayFormats.h"
#include "ui/LockIfPresent.h"
#include "ui/ModalProgress.h"
#include "ui/WindowText.h"

#include <QFile>

namespace Tessel::UI {

QString backupTitle() {
    return WindowText::tr("Fazer backup");
}

BackupResult copyBackup(QWidget* parent, const QString& containerPath,
                        const QString& destinationPath) {
    Core::ContainerLock lock;
    QFile source(containerPath);
    if (!lock.acquire(containerPath) || !Core::openRegularFile(source, QIODevice::ReadOnly)) {
        return BackupResult::SourceNotOpened;
    }
    Core::ContainerLock destinationLock;
    Core::ContainerBackup backup(destinationPath);
    if (!backup.create(containerPath) || !lockIfPresent(&destinationLock, destinationPath)) {
        return BackupResult::DestinationNotCreated;
    }
    ModalProgress progress(
        parent, backupTitle(),
        WindowText::tr("Copiando backup criptografado...\n\nO backup permanece protegido "
                       "pela senha do cofre."));
    const auto report = [&progress](qint64 done, qint64 total) {
        // Until the first piece is copied, the dialog says what a backup is.
        if (done > 0) {
            progress.report(progressValue(done, total, 1000),
                            WindowText::tr("Copiando backup criptografado...\n%1 de %2")
                                .arg(formatFileSize(done), formatFileSize(total)));
        }
    };
    const bool copied = backup.copyFrom(source, report);
    source.close();
    progress.finish();
    return copied ? BackupResult::Done : BackupResult::CopyFailed;
}

} // namespace Tessel::UI
