// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QObject>

class QSocketNotifier;

namespace Tessel::UI {

/// Turns SIGTERM, SIGINT and SIGHUP into a signal of the event loop, so that a program that is
/// told to end can still lock its vault. One at a time in a process.
class TerminationWatcher : public QObject {
    Q_OBJECT

public:
    explicit TerminationWatcher(QObject* parent = nullptr);
    /// Gives the signals their default effect back.
    ~TerminationWatcher() override;
    Q_DISABLE_COPY_MOVE(TerminationWatcher)

Q_SIGNALS:
    /// Emitted in the event loop for each signal that came.
    void terminationRequested();

private:
    void drain();

    QSocketNotifier* m_notifier = nullptr;
};

} // namespace Tessel::UI
