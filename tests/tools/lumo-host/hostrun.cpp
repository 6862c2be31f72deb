#include "hostrun.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

// QProcess wants an application object.
void ensureApplication()
{
    static int argc = 1;
    static char name[] = "lumo_host_test";
    static char* argv[] = {name, nullptr};
    if (!QCoreApplication::instance())
        new QCoreApplication(argc, argv);
}

} // namespace

std::vector<QJsonObject> HostRun::records(const QString& event) const
{
    std::vector<QJsonObject> found;
    for (const QJsonObject& record : journal)
        if (record.value("event").toString() == event)
            found.push_back(record);
    return found;
}

QStringList HostRun::texts(const QString& event) const
{
    QStringList found;
    for (const QJsonObject& record : records(event))
        found << record.value("text").toString();
    return found;
}

QString testPluginPath()
{
    return QStringLiteral(TEST_PLUGIN_PATH);
}
QString sdkLibraryPath()
{
    return QStringLiteral(SDK_LIBRARY_PATH);
}

QString hostPath()
{
    return QStringLiteral(LUMO_HOST_PATH);
}

int indexOf(const HostRun& run, const QString& event)
{
    for (std::size_t i = 0; i < run.journal.size(); ++i)
        if (run.journal[i].value("event").toString() == event)
            return static_cast<int>(i);
    return -1;
}

HostProcess::HostProcess(QStringList arguments, const QString& program)
{
    ensureApplication();
    if (program.isEmpty() && !arguments.contains("--plugin"))
        arguments << "--plugin" << testPluginPath();
    arguments << "--journal" << m_dir.filePath("journal.jsonl");
    m_process.setProgram(program.isEmpty() ? hostPath() : program);
    m_process.setArguments(arguments);
    m_process.start();
    EXPECT_TRUE(m_process.waitForStarted(30000)) << m_process.errorString().toStdString();
}

HostProcess::~HostProcess()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(30000);
    }
}

bool HostProcess::waitForOutput(const QString& text, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!m_out.contains(text)) {
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
            return false;
        m_process.waitForReadyRead(static_cast<int>(deadline.remainingTime()));
        m_out += QString::fromUtf8(m_process.readAllStandardOutput());
    }
    return true;
}

HostRun HostProcess::finish(const QByteArray& input, int timeoutMs)
{
    if (!input.isEmpty())
        m_process.write(input);
    m_process.closeWriteChannel();
    HostRun run;
    run.finished = m_process.waitForFinished(timeoutMs);
    EXPECT_TRUE(run.finished) << "lumo-host did not end";
    if (!run.finished) {
        m_process.kill();
        m_process.waitForFinished(30000);
    }
    run.exitCode = m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    run.out = m_out + QString::fromUtf8(m_process.readAllStandardOutput());
    run.err = QString::fromUtf8(m_process.readAllStandardError());

    QFile journal(m_dir.filePath("journal.jsonl"));
    if (journal.open(QIODevice::ReadOnly)) {
        for (const QByteArray& line : journal.readAll().split('\n')) {
            if (line.isEmpty())
                continue;
            QJsonParseError error;
            const QJsonDocument document = QJsonDocument::fromJson(line, &error);
            EXPECT_TRUE(document.isObject())
                << "journal line is no JSON object: " << line.toStdString();
            run.journal.push_back(document.object());
        }
    }
    return run;
}

HostRun runHost(const QStringList& arguments, const QByteArray& input)
{
    HostProcess host(arguments);
    return host.finish(input);
}
