#include "hostsession.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

#include <csignal>

namespace {

// QProcess wants an application object.
void ensureApplication()
{
    static int argc = 1;
    static char name[] = "e2e_test";
    static char* argv[] = {name, nullptr};
    if (!QCoreApplication::instance())
        new QCoreApplication(argc, argv);
}

// Between two looks at the journal the host's output is drained, so that a
// full pipe never stops the host; this is also the pause of the wait.
constexpr int PollMs = 10;

QString textOf(const QJsonObject& record)
{
    return record.value("text").toString();
}

} // namespace

RecordMatch RecordMatch::event(const QString& event)
{
    return {"a \"" + event + "\" record",
            [event](const QJsonObject& record) { return record.value("event") == event; }};
}

RecordMatch RecordMatch::call(const QString& function)
{
    return {"a call of " + function, [function](const QJsonObject& record) {
                return record.value("event") == "call" && record.value("function") == function;
            }};
}

RecordMatch RecordMatch::command(const QString& name)
{
    return {"the command " + name, [name](const QJsonObject& record) {
                return record.value("event") == "command" && record.value("name") == name;
            }};
}

RecordMatch RecordMatch::eval(const QString& start)
{
    return {"a statement starting " + start, [start](const QJsonObject& record) {
                return record.value("event") == "eval" && textOf(record).startsWith(start);
            }};
}

RecordMatch RecordMatch::info(const QString& start)
{
    return {"an information line starting " + start, [start](const QJsonObject& record) {
                return record.value("event") == "info" && textOf(record).startsWith(start);
            }};
}

RecordMatch RecordMatch::log(const QString& start)
{
    return {"a log line starting " + start, [start](const QJsonObject& record) {
                return record.value("event") == "stderr" && textOf(record).startsWith(start);
            }};
}

HostSession::HostSession(const HostSetup& setup) : m_workspace(setup.workspace)
{
    ensureApplication();
    EXPECT_TRUE(m_dir.isValid());
    QStringList arguments{"--journal", path("journal.jsonl")};
    if (setup.workspace)
        arguments << "--workspace" << workspace();
    for (const QString& library : setup.libraries)
        arguments << "--library" << library;
    if (!setup.arguments.contains("--plugin"))
        arguments << "--plugin" << E2E::pluginPath();
    arguments << setup.arguments << "-";
    m_process.setProgram(E2E::hostPath());
    m_process.setArguments(arguments);
    m_process.setWorkingDirectory(m_dir.path());
    m_process.setProcessEnvironment(setup.environment);
    m_process.start();
    EXPECT_TRUE(m_process.waitForStarted(30000)) << m_process.errorString().toStdString();
}

HostSession::~HostSession()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(30000);
    }
}

QString HostSession::workspace() const
{
    return m_workspace ? m_dir.filePath("workspace") : QString();
}

void HostSession::run(const QString& statements)
{
    m_process.write(statements.toUtf8() + "\n");
    m_process.waitForBytesWritten(30000);
}

int HostSession::startBridge()
{
    const RecordMatch listed = RecordMatch::call("mgclink_show_connected_servers");
    const std::size_t before = records(listed).size();
    run("mgcconnect_initialize(0, 0);\nmgcconnect_show_connections();");
    const std::vector<QJsonObject> listing = waitFor(listed, static_cast<int>(before) + 1);
    if (listing.size() <= before)
        return 0;
    return listing.back().value("args").toArray().at(1).toInt();
}

void HostSession::readAvailable()
{
    m_out += QString::fromUtf8(m_process.readAllStandardOutput());
    m_err += QString::fromUtf8(m_process.readAllStandardError());

    QFile file(path("journal.jsonl"));
    if (!file.open(QIODevice::ReadOnly) || !file.seek(m_journalOffset))
        return;
    const QByteArray added = file.readAll();
    m_journalOffset += added.size();
    m_partialLine += added;
    int end = 0;
    while ((end = m_partialLine.indexOf('\n')) >= 0) {
        const QByteArray line = m_partialLine.left(end);
        m_partialLine.remove(0, end + 1);
        const QJsonDocument document = QJsonDocument::fromJson(line);
        EXPECT_TRUE(document.isObject()) << "journal line is no JSON object: " << line.constData();
        m_journal.push_back(document.object());
    }
}

const std::vector<QJsonObject>& HostSession::journal()
{
    readAvailable();
    return m_journal;
}

std::vector<QJsonObject> HostSession::records(const RecordMatch& match)
{
    std::vector<QJsonObject> found;
    for (const QJsonObject& record : journal())
        if (match.matches(record))
            found.push_back(record);
    return found;
}

int HostSession::indexOf(const RecordMatch& match)
{
    const std::vector<QJsonObject>& all = journal();
    for (std::size_t i = 0; i < all.size(); ++i)
        if (match.matches(all[i]))
            return static_cast<int>(i);
    return -1;
}

std::vector<QJsonObject> HostSession::waitFor(const RecordMatch& match, int count, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        std::vector<QJsonObject> found = records(match);
        if (static_cast<int>(found.size()) >= count)
            return found;
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning) {
            ADD_FAILURE() << "waited for " << count << " x " << match.description.toStdString()
                          << ", found " << found.size() << "\n"
                          << E2E::journalDump(*this);
            return found;
        }
        m_process.waitForReadyRead(PollMs);
    }
}

bool HostSession::waitForOutput(const QString& text, int count, int timeoutMs)
{
    return waitForText(m_out, text, count, timeoutMs);
}

bool HostSession::waitForError(const QString& text, int count, int timeoutMs)
{
    return waitForText(m_err, text, count, timeoutMs);
}

bool HostSession::waitForText(const QString& collected, const QString& text, int count,
                              int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    for (readAvailable(); collected.count(text) < count; readAvailable()) {
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
            return false;
        m_process.waitForReadyRead(PollMs);
    }
    return true;
}

int HostSession::waitForEnd(int timeoutMs)
{
    const bool ended = m_process.waitForFinished(timeoutMs);
    EXPECT_TRUE(ended) << "lumo-host did not end within " << timeoutMs << " ms";
    if (!ended) {
        m_process.kill();
        m_process.waitForFinished(30000);
    }
    readAvailable();
    if (!ended || m_process.exitStatus() != QProcess::NormalExit)
        return -1;
    return m_process.exitCode();
}

int HostSession::finish(int timeoutMs)
{
    m_process.closeWriteChannel();
    return waitForEnd(timeoutMs);
}

int HostSession::stop(int signal, int timeoutMs)
{
    ::kill(static_cast<pid_t>(m_process.processId()), signal);
    return waitForEnd(timeoutMs);
}

QString HostSession::output()
{
    readAvailable();
    return m_out;
}

QString HostSession::errors()
{
    readAvailable();
    return m_err;
}

void PrintTo(const QString& text, std::ostream* out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace E2E {

QString hostPath()
{
    return QStringLiteral(LUMO_HOST_PATH);
}

QString peerPath()
{
    return QStringLiteral(MGC_PEER_PATH);
}

QString pluginPath()
{
    return QStringLiteral(KIVA51_PATH);
}

QString examplesPath()
{
    return QStringLiteral(EXAMPLES_DIR);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

std::string journalDump(HostSession& host)
{
    std::string dump = "journal:\n";
    for (const QJsonObject& record : host.journal())
        dump += "  " + QJsonDocument(record).toJson(QJsonDocument::Compact).toStdString() + "\n";
    dump += "standard error:\n" + host.errors().toStdString();
    return dump;
}

} // namespace E2E
