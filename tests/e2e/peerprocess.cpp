#include "peerprocess.h"

#include <QDeadlineTimer>
#include <QJsonDocument>

#include <gtest/gtest.h>

#include <memory>

#include "hostsession.h"

namespace {

constexpr int PollMs = 10;

} // namespace

PeerProcess::PeerProcess(int port, const QString& app, const QStringList& arguments)
{
    m_process.setProgram(E2E::peerPath());
    m_process.setArguments(QStringList{"--port", QString::number(port), "--app", app} + arguments);
    m_process.start();
    EXPECT_TRUE(m_process.waitForStarted(30000)) << m_process.errorString().toStdString();
}

PeerProcess::~PeerProcess()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(30000);
    }
}

int PeerProcess::send(int port, const QString& app, const QStringList& descriptions,
                      QString* errors)
{
    PeerProcess peer(port, app, QStringList{"send"} + descriptions);
    const int status = peer.finish();
    if (errors)
        *errors = peer.errors();
    EXPECT_EQ(status, 0) << "mgc-peer send failed: " << peer.errors().toStdString();
    return status;
}

std::unique_ptr<PeerProcess> PeerProcess::listen(int port, const QString& app,
                                                 const QStringList& arguments)
{
    auto peer = std::make_unique<PeerProcess>(port, app, QStringList{"listen"} + arguments);
    EXPECT_GT(peer->waitConnected(), 0)
        << "mgc-peer listen did not connect: " << peer->errors().toStdString();
    return peer;
}

void PeerProcess::readLines()
{
    m_errors += QString::fromUtf8(m_process.readAllStandardError());
    m_partialLine += m_process.readAllStandardOutput();
    int end = 0;
    while ((end = m_partialLine.indexOf('\n')) >= 0) {
        const QByteArray line = m_partialLine.left(end);
        m_partialLine.remove(0, end + 1);
        const QJsonObject record = QJsonDocument::fromJson(line).object();
        EXPECT_FALSE(record.isEmpty()) << "mgc-peer printed no JSON object: " << line.constData();
        if (record.value("event") == "connected")
            m_number = record.value("number").toInt();
        else if (record.value("event") == "message") {
            m_messages.push_back(record);
            m_messageLines.push_back(line);
        }
    }
}

int PeerProcess::waitConnected(int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    for (readLines(); m_number == 0; readLines()) {
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
            return 0;
        m_process.waitForReadyRead(PollMs);
    }
    return m_number;
}

std::vector<QJsonObject> PeerProcess::waitForMessages(int count, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    for (readLines(); static_cast<int>(m_messages.size()) < count; readLines()) {
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning) {
            ADD_FAILURE() << "waited for " << count << " messages at the peer, got "
                          << m_messages.size() << "; its errors: " << m_errors.toStdString();
            break;
        }
        m_process.waitForReadyRead(PollMs);
    }
    return m_messages;
}

int PeerProcess::finish(int timeoutMs)
{
    m_process.closeWriteChannel();
    const bool ended = m_process.waitForFinished(timeoutMs);
    EXPECT_TRUE(ended) << "mgc-peer did not end within " << timeoutMs << " ms";
    if (!ended) {
        m_process.kill();
        m_process.waitForFinished(30000);
    }
    readLines();
    if (!ended || m_process.exitStatus() != QProcess::NormalExit)
        return -1;
    return m_process.exitCode();
}

QString PeerProcess::errors()
{
    readLines();
    return m_errors;
}
