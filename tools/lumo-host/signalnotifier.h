#pragma once
// SIGINT and SIGTERM turned into a call on the main loop (self-pipe).

#include <QObject>

#include <functional>

class QSocketNotifier;

class SignalNotifier : public QObject
{
    Q_OBJECT
public:
    // Installs the handlers; `onSignal` gets the signal number on the main thread.
    explicit SignalNotifier(std::function<void(int)> onSignal, QObject* parent = nullptr);
    ~SignalNotifier() override;

private:
    static void handle(int signal);
    void readSignal();

    std::function<void(int)> m_onSignal;
    QSocketNotifier* m_notifier = nullptr;
};
