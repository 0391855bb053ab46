// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>

namespace Tessel::Tests {

/// Stands in for the desktop while it lives: takes what the program wants opened, and opens none.
class FakeDesktop : public QObject {
    Q_OBJECT

public:
    /// @param scheme of the addresses to take: "file" for files, "https" for pages.
    explicit FakeDesktop(const QString& scheme);
    ~FakeDesktop() override;
    Q_DISABLE_COPY_MOVE(FakeDesktop)

    /// In the order in which they came.
    QList<QUrl> opened;

public Q_SLOTS:
    void open(const QUrl& url) { opened.append(url); }

private:
    QString m_scheme;
};

} // namespace Tessel::Tests
