// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QObject>

class QSocketNotifier;

namespace Tessel::UI {

/// Turns SIGTERM, SIGINT and SIGHUP into a Qt signal, so that the program can lock its vault before
/// it ends. At most one object in a process.
class TerminationWatcher : public QObject {
    Q_OBJECT

public:
    explicit TerminationWatcher(QObject* parent = nullptr);
    /// Restores the default action of the signals.
    ~TerminationWatcher() override;
    Q_DISABLE_COPY_MOVE(TerminationWatcher)

Q_SIGNALS:
    /// Emitted in the event loop; once for several signals that arrive together.
    void terminationRequested();

private:
    void drain();

    QSocketNotifier* m_notifier = nullptr;
};

} // namespace Tessel::UI
