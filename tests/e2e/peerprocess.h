#pragma once
// mgc-peer as a real process: a sender that runs to its end, or a listener
// whose JSON lines are read as they come, each wait with a time limit.

#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class PeerProcess
{
public:
    // mgc-peer --port PORT --app APP ARGUMENTS...
    PeerProcess(int port, const QString& app, const QStringList& arguments);
    ~PeerProcess();
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    // Sends the described messages and waits until the bridge has read them;
    // the exit status (0 on success), or -1 after a crash or the time limit.
    static int send(int port, const QString& app, const QStringList& descriptions);
    // Starts a listener and waits until the bridge has accepted it.
    static std::unique_ptr<PeerProcess> listen(int port, const QString& app);

    // Waits until `count` messages have arrived; returns all received so far.
    std::vector<QJsonObject> waitForMessages(int count);
    // Waits for the end; the exit status, or -1 after a crash or the time limit.
    int finish();
    QString errors();

private:
    // Reads what arrived; true once `done` holds, false after the time limit.
    template <typename Done> bool readUntil(Done done);

    QProcess m_process;
    QByteArray m_partialLine;
    QString m_errors;
    int m_number = 0;
    std::vector<QJsonObject> m_messages;
};
