#pragma once
// Runs lumo-host as a real process (against the test plug-in unless the
// arguments name another) and collects its exit status, output and journal.

#include <QByteArray>
#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <vector>

struct HostRun
{
    int exitCode = -1;
    bool finished = false;
    QString out;
    QString err;
    std::vector<QJsonObject> journal;

    std::vector<QJsonObject> records(const QString& event) const;
    // The "text" field of every record of the event, in order.
    QStringList texts(const QString& event) const;
};

class HostProcess
{
public:
    // Starts the host; `arguments` get --journal, and --plugin with the test
    // plug-in unless they name one or another `program` is run.
    explicit HostProcess(QStringList arguments, const QString& program = {});
    ~HostProcess();

    QProcess& process() { return m_process; }
    // Waits until standard output holds `text`; false after the timeout.
    bool waitForOutput(const QString& text, int timeoutMs = 30000);
    // Closes standard input after writing `input`, waits for the end.
    HostRun finish(const QByteArray& input = {}, int timeoutMs = 60000);

private:
    QTemporaryDir m_dir;
    QProcess m_process;
    QString m_out;
};

HostRun runHost(const QStringList& arguments, const QByteArray& input = {});
// The index of the first record of `event` in the journal, or -1.
int indexOf(const HostRun& run, const QString& event);

QString testPluginPath();
QString sdkLibraryPath();
QString hostPath();
