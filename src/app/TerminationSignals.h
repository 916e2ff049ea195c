#pragma once

// Turns SIGTERM, SIGINT and SIGHUP into a normal end of the event loop, so that Pindle lets its hot
// keys go on the way out instead of dying with them grabbed.

#include <QObject>

class QSocketNotifier;

namespace pindle::app {

class TerminationSignals : public QObject
{
    Q_OBJECT
public:
    // Installs the handlers; only one instance may exist at a time. isActive() is false when the
    // pipe or the handlers could not be set up.
    explicit TerminationSignals(QObject *parent = nullptr);
    ~TerminationSignals() override;

    bool isActive() const { return m_notifier != nullptr; }

Q_SIGNALS:
    // Emitted on the main thread, from the event loop, once per signal received.
    void received(int signalNumber);

private:
    void readPending();

    QSocketNotifier *m_notifier = nullptr;
};

} // namespace pindle::app
