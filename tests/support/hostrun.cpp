#include "hostrun.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>

#include <gtest/gtest.h>

#include <map>

namespace {

constexpr int TimeLimitMs = 30000;
// Between two looks the host's output is drained, so that a full pipe never
// stops the host; this is also the pause of a wait.
constexpr int PollMs = 10;

// QProcess wants an application object.
void ensureApplication()
{
    static int argc = 1;
    static char name[] = "host_test";
    static char* argv[] = {name, nullptr};
    if (!QCoreApplication::instance())
        new QCoreApplication(argc, argv);
}

// The fields of each event; a refusal (ok or accepted false) adds "reason",
// and a command stopped by --fail also "ok".
void expectJournalFields(const QJsonObject& record)
{
    static const std::map<QString, QString> fields = {
        {"load", "plugin,version"},
        {"load_error", "text"},
        {"lookup", "found,name"},
        {"register", "accepted,commands,interface,library"},
        {"eval", "ok,text,via,vocabulary"},
        {"call", "args,function,ok"},
        {"command", "args,name,result,unreleased"},
        {"info", "text"},
        {"stderr", "text"},
        {"stdout", "text"},
        {"script", "line,ok,source,text"},
        {"bad_handle", "operation"},
        {"bad_thread", "operation"},
        {"dialog", "answer,controls,when"},
        {"dialog_error", "text"},
        {"exit", "code,unreleased"}};
    const QString event = record.value("event").toString();
    ASSERT_TRUE(fields.count(event)) << "unknown event " << event.toStdString();
    QStringList wanted = fields.at(event).split(',') << "event";
    if (record.value("ok") == QJsonValue(false) || record.value("accepted") == QJsonValue(false))
        wanted << "reason" << (event == "command" ? "ok" : "event");
    wanted.removeDuplicates();
    wanted.sort();
    EXPECT_EQ(record.keys().join(',').toStdString(), wanted.join(',').toStdString())
        << QJsonDocument(record).toJson(QJsonDocument::Compact).toStdString();
}

} // namespace

bool RecordMatch::matches(const QJsonObject& record) const
{
    return record.value("event") == event &&
           (field.isEmpty() || record.value(field).toString().startsWith(start));
}

std::vector<QJsonObject> HostRun::records(const RecordMatch& match) const
{
    std::vector<QJsonObject> found;
    for (const QJsonObject& record : journal)
        if (match.matches(record))
            found.push_back(record);
    return found;
}

QStringList HostRun::texts(const RecordMatch& match) const
{
    QStringList found;
    for (const QJsonObject& record : records(match))
        found << record.value("text").toString();
    return found;
}

QJsonArray HostRun::results() const
{
    QJsonArray found;
    for (const QJsonObject& command : records("command"))
        found.append(command.value("result"));
    return found;
}

int HostRun::indexOf(const RecordMatch& match) const
{
    for (std::size_t i = 0; i < journal.size(); ++i)
        if (match.matches(journal[i]))
            return static_cast<int>(i);
    return -1;
}

HostProcess::HostProcess(QStringList arguments, const QString& program,
                         const QProcessEnvironment& environment)
{
    ensureApplication();
    arguments.replaceInStrings("{dir}", m_dir.path());
    if (program.isEmpty() && !arguments.contains("--plugin"))
        arguments << "--plugin" << pluginUnderTest();
    if (!arguments.contains("--journal"))
        arguments << "--journal" << path("journal.jsonl");
    m_process.setProgram(program.isEmpty() ? LUMO_HOST_PATH : program);
    m_process.setArguments(arguments);
    m_process.setWorkingDirectory(m_dir.path());
    m_process.setProcessEnvironment(environment);
    m_process.start();
    EXPECT_TRUE(m_process.waitForStarted(TimeLimitMs)) << m_process.errorString().toStdString();
}

HostProcess::~HostProcess()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(TimeLimitMs);
    }
}

void HostProcess::write(const QString& line)
{
    m_process.write(line.toUtf8() + "\n");
    m_process.waitForBytesWritten(TimeLimitMs);
}

const HostRun& HostProcess::seen()
{
    m_seen.out += QString::fromUtf8(m_process.readAllStandardOutput());
    m_seen.err += QString::fromUtf8(m_process.readAllStandardError());
    QFile file(path("journal.jsonl"));
    if (!file.open(QIODevice::ReadOnly) || !file.seek(m_journalOffset))
        return m_seen;
    const QByteArray added = file.readAll();
    m_journalOffset += added.size();
    m_partialLine += added;
    for (int end; (end = m_partialLine.indexOf('\n')) >= 0; m_partialLine.remove(0, end + 1)) {
        const QJsonDocument document = QJsonDocument::fromJson(m_partialLine.left(end));
        EXPECT_TRUE(document.isObject()) << "no JSON object: " << m_partialLine.left(end).data();
        m_seen.journal.push_back(document.object());
        expectJournalFields(document.object());
    }
    return m_seen;
}

template <typename Done> bool HostProcess::waitUntil(Done done)
{
    QDeadlineTimer deadline(TimeLimitMs);
    for (seen(); !done(); seen()) {
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
            return false;
        m_process.waitForReadyRead(PollMs);
    }
    return true;
}

std::vector<QJsonObject> HostProcess::waitFor(const RecordMatch& match, int count)
{
    if (!waitUntil([&] { return static_cast<int>(m_seen.records(match).size()) >= count; }))
        ADD_FAILURE() << "waited for " << count << " " << match.event.toStdString() << " "
                      << match.field.toStdString() << " " << match.start.toStdString() << "\n"
                      << dump();
    return m_seen.records(match);
}

bool HostProcess::waitForOutput(const QString& text)
{
    return waitUntil([&] { return m_seen.out.contains(text); });
}

std::string HostProcess::dump()
{
    std::string text = "journal:\n";
    for (const QJsonObject& record : seen().journal)
        text += "  " + QJsonDocument(record).toJson(QJsonDocument::Compact).toStdString() + "\n";
    return text + "standard error:\n" + m_seen.err.toStdString();
}

HostRun HostProcess::finish(const QByteArray& input)
{
    m_process.write(input);
    m_process.closeWriteChannel();
    const bool ended = m_process.waitForFinished(TimeLimitMs);
    EXPECT_TRUE(ended) << "lumo-host did not end";
    if (!ended) {
        m_process.kill();
        m_process.waitForFinished(TimeLimitMs);
    }
    HostRun run = seen();
    run.exitCode =
        ended && m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    // The exit record, when there is one, ends the journal with the status.
    if (!run.journal.empty() && run.journal.back().value("event") == "exit") {
        EXPECT_EQ(run.journal.back().value("code").toInt(), run.exitCode);
    }
    return run;
}

HostRun runHost(const QStringList& arguments, const QByteArray& input)
{
    return HostProcess(arguments).finish(input);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(content);
    return path;
}
