#pragma once

#include <QObject>

class QSocketNotifier;

/// Turns SIGTERM (logout, shutdown, `kill`), SIGHUP (the terminal or
/// session went away) and SIGINT (Ctrl+C) into a signal on the main loop,
/// so that Norvo ends the running timer and saves before it goes instead
/// of dying with the time since the last autosave. The handler itself only
/// writes the signal's number into a pipe; everything else runs in the loop.
class ZVTerminationSignals : public QObject {
    Q_OBJECT
public:
    explicit ZVTerminationSignals(QObject* parent = nullptr);
    ~ZVTerminationSignals() override;
    ZVTerminationSignals(const ZVTerminationSignals&) = delete;
    ZVTerminationSignals& operator=(const ZVTerminationSignals&) = delete;

Q_SIGNALS:
    void terminationRequested(int signalNumber);

private:
    void _readSignal();
    QSocketNotifier* _notifier = nullptr;
};
