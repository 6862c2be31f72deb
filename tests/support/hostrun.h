#pragma once
// Runs lumo-host as a real process and collects its exit status, output and
// journal, reading them as they come. Every journal record is checked to
// carry exactly the fields of its event. Shared by the lumo-host and the
// end-to-end tests.

#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "qstringprinting.h"

// Journal records of `event` whose `field` starts with `start` (any when
// `field` is empty).
struct RecordMatch
{
    RecordMatch(const char* event) : event(event) {}
    RecordMatch(QString event, QString field, QString start = {})
        : event(std::move(event)), field(std::move(field)), start(std::move(start))
    {
    }
    bool matches(const QJsonObject& record) const;

    QString event;
    QString field;
    QString start;
};

struct HostRun
{
    int exitCode = -1;
    QString out;
    QString err;
    std::vector<QJsonObject> journal;

    std::vector<QJsonObject> records(const RecordMatch& match) const;
    // The "text" field of every record matching, in order.
    QStringList texts(const RecordMatch& match) const;
    // The "result" field of every command record, in order.
    QJsonArray results() const;
    // The index of the first record matching, or -1.
    int indexOf(const RecordMatch& match) const;
};

// The plug-in that a host started by HostProcess loads unless told otherwise;
// each test program that runs the host defines it.
QString pluginUnderTest();

class HostProcess
{
public:
    // Starts the host in a folder of its own, its working directory, for which
    // `{dir}` in an argument stands. The arguments get --journal, and --plugin
    // with pluginUnderTest(), unless they name their own or another `program`
    // runs.
    explicit HostProcess(
        QStringList arguments, const QString& program = {},
        const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment());
    ~HostProcess();
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;

    QProcess& process() { return m_process; }
    QString path(const QString& relative) const { return m_dir.filePath(relative); }
    // Hands a line to the host's standard input.
    void write(const QString& line);
    // What the host has written so far.
    const HostRun& seen();
    // Waits until `count` records match (a test failure after the time
    // limit); returns every record matching.
    std::vector<QJsonObject> waitFor(const RecordMatch& match, int count = 1);
    // Waits until standard output holds `text`; false after the time limit.
    bool waitForOutput(const QString& text);
    // The journal and standard error, for failure messages.
    std::string dump();
    // Closes standard input after writing `input`, waits for the end.
    HostRun finish(const QByteArray& input = {});

private:
    template <typename Done> bool waitUntil(Done done);

    QTemporaryDir m_dir;
    QProcess m_process;
    HostRun m_seen;
    QByteArray m_partialLine;
    qint64 m_journalOffset = 0;
};

HostRun runHost(const QStringList& arguments, const QByteArray& input = {});

// The content of a file, empty when it cannot be read.
QByteArray readFile(const QString& path);
// Writes `content` to `path` (a test failure if it cannot); returns the path.
QString writeFile(const QString& path, const QByteArray& content);
