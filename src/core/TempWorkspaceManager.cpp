// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/TempWorkspaceManager.h"

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QUuid>

namespace Tessel::Core {

TempWorkspaceManager::TempWorkspaceManager()
    : m_workspace(QDir(QStandardPaths::writableLocation(QStandardPaths::TempLocation))
                      .filePath(QStringLiteral("Tessel/%1")
                                    .arg(QUuid::createUuid().toString(QUuid::WithoutBraces)))) {}

bool TempWorkspaceManager::prepare() {
    return m_workspace.mkpath(QStringLiteral("."));
}

QString TempWorkspaceManager::workspacePath() const {
    return m_workspace.absolutePath();
}

QString TempWorkspaceManager::pathForVaultFile(const QString& vaultPath) const {
    // Not QDir::filePath: it would let an absolute path out of the workspace.
    return workspacePath() + QLatin1Char('/') + vaultPath;
}

bool TempWorkspaceManager::cleanup() {
    const QFileInfo folder(workspacePath());
    if (folder.isSymLink()) {
        return QFile::remove(folder.filePath());
    }
    return !folder.exists() || m_workspace.removeRecursively();
}

} // namespace Tessel::Core
