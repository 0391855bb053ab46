// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>

namespace Tessel::Tests {

/// Replaces the desktop while it exists: records what the program wants to open and opens nothing.
class FakeDesktop : public QObject {
    Q_OBJECT

public:
    /// @param scheme of the addresses to take: "file" for files, "https" for pages.
    explicit FakeDesktop(const QString& scheme);
    ~FakeDesktop() override;
    Q_DISABLE_COPY_MOVE(FakeDesktop)

    /// In order of arrival.
    QList<QUrl> opened;

public Q_SLOTS:
    void open(const QUrl& url) { opened.append(url); }

private:
    QString m_scheme;
};

} // namespace Tessel::Tests
