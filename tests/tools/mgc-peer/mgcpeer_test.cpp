// mgc-peer as a separate process against a bridge in this one.

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>

#include <unistd.h>

#include "jsonreader.h"
#include "recordingbridge.h"
#include "rfmsg/testing.h"

using namespace RFMsgExp;

namespace {

const std::string kExamples = KIVA_EXAMPLES_DIR;

// The tool is built beside the test program.
QString peerProgram()
{
    char path[4096] = {};
    const long length = ::readlink("/proc/self/exe", path, sizeof path - 1);
    std::string self(path, length > 0 ? static_cast<std::size_t>(length) : 0);
    return QString::fromStdString(self.substr(0, self.rfind('/') + 1) + "mgc-peer");
}

std::string fileText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// One mgc-peer child; its standard output read line by line.
class PeerProcess
{
public:
    explicit PeerProcess(const QStringList& arguments)
    {
        m_process.setProgram(peerProgram());
        m_process.setArguments(arguments);
        m_process.start();
        m_process.waitForStarted(10000);
    }
    ~PeerProcess()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(10000);
        }
    }

    // The next line of standard output, or empty when none came in time.
    std::string readLine(int timeoutMs = 10000)
    {
        while (!m_process.canReadLine()) {
            if (!m_process.waitForReadyRead(timeoutMs))
                return {};
        }
        return m_process.readLine().trimmed().toStdString();
    }
    // Exit status, or -1 when it did not end in time.
    int finish(int timeoutMs = 20000)
    {
        if (!m_process.waitForFinished(timeoutMs))
            return -1;
        return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }
    std::string errors() { return m_process.readAllStandardError().toStdString(); }
    std::string output() { return m_process.readAllStandardOutput().toStdString(); }
    void kill()
    {
        m_process.kill();
        m_process.waitForFinished(10000);
    }

private:
    QProcess m_process;
};

QStringList on(int port, QStringList arguments)
{
    return QStringList{QStringLiteral("--port"), QString::number(port)} + arguments;
}

QString example(const char* name)
{
    return QString::fromStdString(kExamples + "/" + name);
}

} // namespace

class MgcPeerProcess : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        static int argc = 1;
        static char name[] = "mgc_peer_test";
        static char* argv[] = {name, nullptr};
        if (!QCoreApplication::instance())
            new QCoreApplication(argc, argv);
    }

    void SetUp() override { port = bridge.start(); }

    RecordingBridge bridge;
    int port = 0;
};

TEST_F(MgcPeerProcess, SendDeliversEveryExampleAsDescribed)
{
    PeerProcess peer(on(port, {QStringLiteral("send"), example("netlist.json"), example("iff.json"),
                               example("em_data.json")}));
    ASSERT_EQ(peer.finish(), 0) << peer.errors();
    // send ends once the bridge has read everything: no waiting needed beyond delivery.
    ASSERT_TRUE(bridge.waitForMessages(3));
    const std::vector<MessageContent> messages = bridge.messages();
    EXPECT_EQ(messages[0].kind, 212);
    ASSERT_TRUE(messages[0].document);
    EXPECT_EQ(messages[0].document->regions[0].netlist, fileText(kExamples + "/lna.net"));
    EXPECT_EQ(messages[0].document->regions[0].ports.size(), 3u);
    EXPECT_EQ(messages[1].kind, 222);
    EXPECT_EQ(messages[1].text, fileText(kExamples + "/pa_layout.iff"));
    EXPECT_EQ(messages[1].properties[2].first, "RFDESIGNPATH");
    EXPECT_EQ(messages[2].kind, 213);
    EXPECT_EQ(messages[2].document->portTypes.size(), 3u);
    EXPECT_TRUE(bridge.errors().empty());

    const std::string output = peer.output();
    EXPECT_NE(output.find(R"("kind":212,"kind_name":"eDoc_LUMONetList","number":1)"),
              std::string::npos)
        << output;
    EXPECT_NE(output.find(R"("kind_name":"eDoc_FathomData")"), std::string::npos) << output;
}

TEST_F(MgcPeerProcess, ListenPrintsItsNumberThenEachMessage)
{
    auto first = std::make_unique<PeerProcess>(
        on(port, {QStringLiteral("--app"), QStringLiteral("DXD"), QStringLiteral("listen"),
                  QStringLiteral("--timeout"), QStringLiteral("20")}));
    ASSERT_EQ(first->readLine(), R"({"event":"connected","app":"DXD","number":1})");
    PeerProcess peer(
        on(port, {QStringLiteral("--app"), QStringLiteral("BSXE"), QStringLiteral("listen"),
                  QStringLiteral("--count"), QStringLiteral("2"), QStringLiteral("--timeout"),
                  QStringLiteral("20")}));
    ASSERT_EQ(peer.readLine(), R"({"event":"connected","app":"BSXE","number":2})");
    ASSERT_TRUE(bridge.waitForPeerCount(2));

    MessageContent iff;
    iff.kind = 222;
    iff.properties = {{"RFDESIGN", "amp"}, {"RFREGION", "lna"}, {"RFDESIGNPATH", "C:/d"}};
    iff.text = "IFF 2.1\nCELL amp\n";
    msg_auto_ptr<IRFMessage> message = Testing::makeMessage(iff);
    bridge.OnSend(message.get(), "BSXE");
    MessageContent request;
    request.kind = 224;
    request.properties = {{"HIGLIGHT_RFREGION", "lna"}};
    message = Testing::makeMessage(request);
    bridge.OnSend(message.get(), "");

    const JsonValue line = JsonReader::parse(peer.readLine());
    EXPECT_EQ(line.find("kind")->integer, 222);
    EXPECT_EQ(line.find("kind_name")->text, "eDoc_LibIFF");
    const JsonValue* properties = line.find("properties");
    ASSERT_TRUE(properties);
    ASSERT_EQ(properties->members.size(), 3u);
    EXPECT_EQ(properties->members[0].first, "RFDESIGN");
    EXPECT_EQ(properties->members[1].first, "RFREGION");
    EXPECT_EQ(properties->members[2].first, "RFDESIGNPATH");
    EXPECT_EQ(line.find("text")->text, iff.text);
    EXPECT_EQ(
        peer.readLine(),
        R"({"event":"message","kind":224,"kind_name":"eDoc_UserDefined","properties":{"HIGLIGHT_RFREGION":"lna"},"text":""})");
    EXPECT_EQ(peer.finish(), 0) << peer.errors();
    // The other listener got the message to all, and not the one for BSXE.
    EXPECT_NE(first->readLine().find("eDoc_UserDefined"), std::string::npos);
}

TEST_F(MgcPeerProcess, ListenSavesTextsToFilesWhenAsked)
{
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    PeerProcess peer(on(port, {QStringLiteral("listen"), QStringLiteral("--count"),
                               QStringLiteral("1"), QStringLiteral("--save"), folder.path()}));
    ASSERT_NE(peer.readLine().find("connected"), std::string::npos);
    MessageContent content;
    content.kind = 222;
    content.text = std::string(100000, 'L') + "\n";
    msg_auto_ptr<IRFMessage> message = Testing::makeMessage(content);
    bridge.OnSend(message.get(), "");
    const JsonValue line = JsonReader::parse(peer.readLine());
    EXPECT_FALSE(line.find("text"));
    ASSERT_TRUE(line.find("text_file"));
    EXPECT_EQ(line.find("text_size")->integer, 100001);
    EXPECT_EQ(fileText(line.find("text_file")->text), content.text);
    EXPECT_EQ(peer.finish(), 0) << peer.errors();
}

TEST_F(MgcPeerProcess, BadDescriptionSendsNothingAndNamesFileAndReason)
{
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    struct Row
    {
        const char* name;
        std::string json;
        std::string error;
    };
    const std::vector<Row> rows = {
        {"broken JSON", "{\"kind\": 212,,}", ":1:14: expected a member name in double quotes"},
        {"unknown kind", "{\"kind\": \"netlist\"}", ":1:10: unknown kind \"netlist\""},
        {"missing text file", "{\"kind\": 222, \"text_file\": \"layout.iff\"}",
         ":1:28: cannot read text_file \"layout.iff\""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const QString path = folder.filePath(QStringLiteral("bad.json"));
        std::ofstream(path.toStdString()) << row.json;
        // A good description first: it must not go out either.
        PeerProcess peer(on(port, {QStringLiteral("send"), example("netlist.json"), path}));
        EXPECT_EQ(peer.finish(), 1);
        const std::string errors = peer.errors();
        EXPECT_EQ(errors.find("mgc-peer: " + path.toStdString() + row.error), 0u) << errors;
    }
    EXPECT_TRUE(bridge.connected().empty());
    EXPECT_TRUE(bridge.messages().empty());
}

TEST_F(MgcPeerProcess, WrongCommandLinesAreExplained)
{
    struct Row
    {
        QStringList arguments;
        std::string error;
    };
    const std::vector<Row> rows = {
        {{QStringLiteral("listen")}, "mgc-peer: --port is required"},
        {{QStringLiteral("--port"), QStringLiteral("99999"), QStringLiteral("listen")},
         "mgc-peer: --port 99999 is not a port number"},
        {on(port, {QStringLiteral("fetch")}), "mgc-peer: unknown command 'fetch'"},
        {on(port, {QStringLiteral("send")}),
         "mgc-peer: send needs at least one message description"},
        {on(port, {QStringLiteral("send"), QStringLiteral("--save"), QStringLiteral("/tmp"),
                   example("iff.json")}),
         "mgc-peer: --save is for listen, not send"},
        {on(port, {QStringLiteral("bench"), QStringLiteral("layout")}),
         "mgc-peer: bench needs what to send"},
        {on(port, {QStringLiteral("listen"), QStringLiteral("--count"), QStringLiteral("0")}),
         "mgc-peer: --count 0 is not a positive number"},
        {on(port, {QStringLiteral("--frobnicate")}), "mgc-peer: Unknown option 'frobnicate'."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error);
        PeerProcess peer(row.arguments);
        EXPECT_EQ(peer.finish(), 2);
        EXPECT_EQ(peer.errors().find(row.error), 0u);
    }
    EXPECT_TRUE(bridge.connected().empty());
}

TEST_F(MgcPeerProcess, NoBridgeIsReportedWithHostAndPort)
{
    RecordingBridge gone;
    const int closed = gone.start();
    gone.Disconnect();
    PeerProcess peer(on(closed, {QStringLiteral("send"), example("iff.json")}));
    EXPECT_EQ(peer.finish(), 1);
    EXPECT_EQ(peer.errors(), "mgc-peer: cannot connect to the bridge at 127.0.0.1:" +
                                 std::to_string(closed) + ": Connection refused\n");
}

TEST_F(MgcPeerProcess, KilledPeerLeavesTheList)
{
    PeerProcess peer(on(port, {QStringLiteral("listen")}));
    ASSERT_NE(peer.readLine().find("\"number\":1"), std::string::npos);
    ASSERT_TRUE(bridge.waitForPeerCount(1));
    peer.kill();
    EXPECT_TRUE(bridge.waitForPeerCount(0));
}

TEST_F(MgcPeerProcess, ListenerIsToldWhenTheBridgeDisconnects)
{
    PeerProcess peer(
        on(port, {QStringLiteral("listen"), QStringLiteral("--count"), QStringLiteral("5")}));
    ASSERT_NE(peer.readLine().find("connected"), std::string::npos);
    bridge.Disconnect();
    EXPECT_EQ(peer.finish(), 1);
    EXPECT_EQ(peer.errors(), "mgc-peer: 0 of 5 messages arrived before the bridge at 127.0.0.1:" +
                                 std::to_string(port) +
                                 " closed the connection: the bridge is disconnecting\n");
}

TEST_F(MgcPeerProcess, BenchSendsTheRequestedNumberOfMessages)
{
    PeerProcess peer(
        on(port, {QStringLiteral("--app"), QStringLiteral("BSXE"), QStringLiteral("bench"),
                  QStringLiteral("iff"), QStringLiteral("--count"), QStringLiteral("50"),
                  QStringLiteral("--bytes"), QStringLiteral("2k")}));
    ASSERT_EQ(peer.finish(), 0) << peer.errors();
    ASSERT_TRUE(bridge.waitForMessages(50));
    for (const MessageContent& message : bridge.messages()) {
        EXPECT_EQ(message.kind, 222);
        EXPECT_EQ(message.text.size(), 2048u);
    }
    const JsonValue line = JsonReader::parse(peer.output());
    EXPECT_EQ(line.find("count")->integer, 50);
    EXPECT_EQ(line.find("bytes")->integer, 2048);
}
