#include "hostrun.h"

#include <QDeadlineTimer>
#include <QJsonDocument>

#include <gtest/gtest.h>

constexpr int TimeLimitMs = 30000;

// The fields of each event; a refusal (ok or accepted false) adds "reason",
// and a command stopped by --fail also "ok".
static void expectJournalFields(const QJsonObject& record)
{
    static const QString fields =
        " load:plugin,version load_error:text lookup:found,name eval:ok,text,via,vocabulary"
        " register:accepted,commands,interface,library call:args,function,ok info:text"
        " command:args,name,result,unreleased stderr:text stdout:text script:line,ok,source,text"
        " bad_handle:operation bad_thread:operation dialog:answer,controls,when"
        " dialog_error:text exit:code,unreleased";
    const QString event = record.value("event").toString();
    QStringList wanted = fields.section(' ' + event + ':', 1).section(' ', 0, 0).split(',');
    if (record.value("ok") == QJsonValue(false) || record.value("accepted") == QJsonValue(false))
        wanted << "reason" << (event == "command" ? "ok" : "event");
    wanted << "event";
    wanted.removeDuplicates();
    wanted.sort();
    EXPECT_EQ(record.keys(), wanted) << QJsonDocument(record).toJson().toStdString();
}

std::vector<QJsonObject> HostRun::records(const RecordMatch& match) const
{
    std::vector<QJsonObject> found;
    for (const QJsonObject& record : journal)
        if (record.value("event") == match.event &&
            (match.field.isEmpty() || record.value(match.field).toString().startsWith(match.start)))
            found.push_back(record);
    return found;
}

QJsonArray HostRun::values(const RecordMatch& match, const QString& field) const
{
    QJsonArray found;
    for (const QJsonObject& record : records(match))
        found.append(record.value(field));
    return found;
}

QStringList HostRun::texts(const RecordMatch& match) const
{
    return QVariant(values(match, "text").toVariantList()).toStringList();
}

int HostRun::indexOf(const RecordMatch& match) const
{
    // An equal record before the first match would match too.
    const std::vector<QJsonObject> found = records(match);
    return found.empty() ? -1
                         : std::find(journal.begin(), journal.end(), found[0]) - journal.begin();
}

HostProcess::HostProcess(QStringList arguments, const QString& program, bool journal)
    : m_journal(path("journal.jsonl"))
{
    // Created here, so that it can be read from the start.
    m_journal.open(QIODevice::ReadWrite);
    arguments.replaceInStrings("{dir}", m_dir.path());
    if (program.isEmpty() && !arguments.contains("--plugin"))
        arguments << "--plugin" << pluginUnderTest();
    if (journal && !arguments.contains("--journal"))
        arguments << "--journal" << m_journal.fileName();
    m_process.setWorkingDirectory(m_dir.path());
    m_process.start(program.isEmpty() ? LUMO_HOST_PATH : program, arguments);
}

const HostRun& HostProcess::seen()
{
    m_seen.out += QString::fromUtf8(m_process.readAllStandardOutput());
    m_seen.err += QString::fromUtf8(m_process.readAllStandardError());
    m_partialLine += m_journal.readAll();
    for (int end; (end = m_partialLine.indexOf('\n')) >= 0; m_partialLine.remove(0, end + 1)) {
        m_seen.journal.push_back(QJsonDocument::fromJson(m_partialLine.left(end)).object());
        expectJournalFields(m_seen.journal.back());
    }
    return m_seen;
}

bool HostProcess::waitUntil(const std::function<bool()>& done)
{
    // Between two looks the output is drained, so that a full pipe never stops the child.
    for (QDeadlineTimer deadline(TimeLimitMs); !done(); m_process.waitForReadyRead(10))
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
            return false;
    return true;
}

std::vector<QJsonObject> HostProcess::waitFor(const RecordMatch& match, int count)
{
    if (!waitUntil([&] { return int(seen().records(match).size()) >= count; }))
        ADD_FAILURE() << "waited in vain; journal and standard error:\n"
                      << readFile(m_journal.fileName()).data() << m_seen.err.toStdString();
    return m_seen.records(match);
}

HostRun HostProcess::finish(const QByteArray& input)
{
    m_process.write(input);
    m_process.closeWriteChannel();
    const bool ended = m_process.waitForFinished(TimeLimitMs);
    HostRun run = seen();
    run.exitCode =
        ended && m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    // The exit record, when there is one, ends the journal with the status.
    const QJsonValue code = run.journal.empty() ? QJsonValue() : run.journal.back().value("code");
    EXPECT_EQ(code.toInt(run.exitCode), run.exitCode);
    return run;
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
