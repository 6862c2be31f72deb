#pragma once
// Runs lumo-host (or, for the end-to-end tests, mgc-peer) as a real process
// and collects its exit status, output and journal, reading them as they come,
// each wait with a time limit. Every journal record is checked to carry
// exactly the fields of its event.

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <functional>
#include <vector>

#include "qstringprinting.h"

// Journal records of `event` whose `field` starts with `start` (any when
// `field` is empty).
struct RecordMatch
{
    RecordMatch(const char* e, QString f = {}, QString s = {}) : event(e), field(f), start(s) {}
    QString event, field, start;
};

struct HostRun
{
    int exitCode = -1;
    QString out, err;
    std::vector<QJsonObject> journal;

    std::vector<QJsonObject> records(const RecordMatch& match) const;
    // The `field` of every record matching, in order.
    QJsonArray values(const RecordMatch& match, const QString& field) const;
    // The "text" field of every record matching, in order.
    QStringList texts(const RecordMatch& match) const;
    // The "result" field of every command record, in order.
    QJsonArray results() const { return values("command", "result"); }
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
    // `{dir}` in an argument stands. The arguments get --journal, unless they
    // name their own or `journal` is false, and --plugin with
    // pluginUnderTest(), unless they name their own or another `program` runs.
    explicit HostProcess(QStringList arguments, const QString& program = {}, bool journal = true);

    QProcess& process() { return m_process; }
    QString path(const QString& relative) const { return m_dir.filePath(relative); }
    // Hands a line to the host's standard input (written while waiting).
    void write(const QString& line) { m_process.write(line.toUtf8() + "\n"); }
    // What the host has written so far.
    const HostRun& seen();
    // Reads what comes until `done` holds; false after the time limit or the end.
    bool waitUntil(const std::function<bool()>& done);
    // Waits until `count` records match (a test failure, showing the journal
    // and standard error, after the time limit); returns every record matching.
    std::vector<QJsonObject> waitFor(const RecordMatch& match, int count = 1);
    // Waits until standard output holds `text`; false after the time limit.
    bool waitForOutput(const QString& text)
    {
        return waitUntil([&] { return seen().out.contains(text); });
    }
    // Closes standard input after writing `input`, waits for the end; the
    // exit code is -1 after a crash or the time limit.
    HostRun finish(const QByteArray& input = {});

private:
    QTemporaryDir m_dir;
    QFile m_journal;
    // Killed, if it still runs, before its folder goes.
    QProcess m_process;
    HostRun m_seen;
    QByteArray m_partialLine;
};

inline HostRun runHost(const QStringList& arguments, const QByteArray& input = {})
{
    return HostProcess(arguments).finish(input);
}

// The content of a file, empty when it cannot be read.
QByteArray readFile(const QString& path);
// Writes `content` to `path` (a test failure if it cannot); returns the path.
QString writeFile(const QString& path, const QByteArray& content);
