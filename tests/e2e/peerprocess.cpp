#include "peerprocess.h"

#include <QDeadlineTimer>
#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

constexpr int TimeLimitMs = 20000;
constexpr int PollMs = 10;

} // namespace

PeerProcess::PeerProcess(int port, const QString& app, const QStringList& arguments)
{
    m_process.setProgram(QStringLiteral(MGC_PEER_PATH));
    m_process.setArguments(QStringList{"--port", QString::number(port), "--app", app} + arguments);
    m_process.start();
    EXPECT_TRUE(m_process.waitForStarted(TimeLimitMs)) << m_process.errorString().toStdString();
}

PeerProcess::~PeerProcess()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(TimeLimitMs);
    }
}

int PeerProcess::send(int port, const QString& app, const QStringList& descriptions)
{
    PeerProcess peer(port, app, QStringList{"send"} + descriptions);
    const int status = peer.finish();
    EXPECT_EQ(status, 0) << "mgc-peer send failed: " << peer.errors().toStdString();
    return status;
}

std::unique_ptr<PeerProcess> PeerProcess::listen(int port, const QString& app)
{
    auto peer = std::make_unique<PeerProcess>(port, app, QStringList{"listen"});
    EXPECT_TRUE(peer->readUntil([&] { return peer->m_number > 0; }))
        << "mgc-peer listen did not connect: " << peer->errors().toStdString();
    return peer;
}

template <typename Done> bool PeerProcess::readUntil(Done done)
{
    QDeadlineTimer deadline(TimeLimitMs);
    for (;;) {
        m_errors += QString::fromUtf8(m_process.readAllStandardError());
        m_partialLine += m_process.readAllStandardOutput();
        for (int end; (end = m_partialLine.indexOf('\n')) >= 0; m_partialLine.remove(0, end + 1)) {
            const QJsonObject record = QJsonDocument::fromJson(m_partialLine.left(end)).object();
            EXPECT_FALSE(record.isEmpty()) << "mgc-peer printed no JSON object";
            if (record.value("event") == "connected")
                m_number = record.value("number").toInt();
            else if (record.value("event") == "message")
                m_messages.push_back(record);
        }
        if (done())
            return true;
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
            return false;
        m_process.waitForReadyRead(PollMs);
    }
}

std::vector<QJsonObject> PeerProcess::waitForMessages(int count)
{
    EXPECT_TRUE(readUntil([&] { return static_cast<int>(m_messages.size()) >= count; }))
        << "waited for " << count << " messages at the peer, got " << m_messages.size()
        << "; its errors: " << m_errors.toStdString();
    return m_messages;
}

int PeerProcess::finish()
{
    m_process.closeWriteChannel();
    const bool ended = m_process.waitForFinished(TimeLimitMs);
    EXPECT_TRUE(ended) << "mgc-peer did not end";
    if (!ended) {
        m_process.kill();
        m_process.waitForFinished(TimeLimitMs);
    }
    readUntil([] { return true; });
    return ended && m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

QString PeerProcess::errors()
{
    readUntil([] { return true; });
    return m_errors;
}
