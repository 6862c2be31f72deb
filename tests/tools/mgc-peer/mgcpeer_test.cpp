// mgc-peer as a separate process against a bridge in this one.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>

#include "jsonreader.h"
#include "recordingbridge.h"
#include "rfmsg/testing.h"

using namespace RFMsgExp;

namespace {

const std::string kExamples = KIVA_EXAMPLES_DIR;

std::string fileText(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// One mgc-peer child, the tool built beside the test program.
class PeerProcess
{
public:
    explicit PeerProcess(const std::vector<std::string>& arguments)
    {
        QStringList list;
        for (const std::string& argument : arguments)
            list << QString::fromStdString(argument);
        m_process.start(QCoreApplication::applicationDirPath() + QStringLiteral("/mgc-peer"), list);
        m_process.waitForStarted(10000);
    }
    ~PeerProcess() { kill(); }

    // The next line of standard output; empty when none came in time.
    std::string readLine()
    {
        while (!m_process.canReadLine()) {
            if (!m_process.waitForReadyRead(10000))
                return {};
        }
        return m_process.readLine().trimmed().toStdString();
    }
    // Exit code; -1 when it did not end normally in time.
    int finish()
    {
        if (!m_process.waitForFinished(20000) || m_process.exitStatus() != QProcess::NormalExit)
            return -1;
        return m_process.exitCode();
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

void sendFromBridge(XBridge& bridge, const MessageContent& content, const std::string& target)
{
    msg_auto_ptr<IRFMessage> message = Testing::makeMessage(content);
    bridge.OnSend(message.get(), target);
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

    // The command line with the bridge's port in front.
    std::vector<std::string> on(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {"--port", std::to_string(port)});
        return arguments;
    }

    RecordingBridge bridge;
    const int port = bridge.start();
};

TEST_F(MgcPeerProcess, SendDeliversEveryExampleAsDescribed)
{
    PeerProcess peer(on({"send", kExamples + "/netlist.json", kExamples + "/iff.json",
                         kExamples + "/em_data.json"}));
    ASSERT_EQ(peer.finish(), 0) << peer.errors();
    // send ends once the bridge has read everything: no waiting needed beyond delivery.
    ASSERT_TRUE(bridge.waitForMessages(3));
    // Texts named by the descriptions are read from beside them.
    const std::vector<MessageContent> messages = bridge.messages();
    EXPECT_EQ(messages[0].kind, 212);
    ASSERT_TRUE(messages[0].document);
    EXPECT_EQ(messages[0].document->regions.at(0).netlist, fileText(kExamples + "/lna.net"));
    EXPECT_EQ(messages[1].kind, 222);
    EXPECT_EQ(messages[1].text, fileText(kExamples + "/pa_layout.iff"));
    EXPECT_EQ(messages[2].kind, 213);
    ASSERT_TRUE(messages[2].document);
    EXPECT_EQ(messages[2].document->regions.at(0).egs, fileText(kExamples + "/coupler.egs"));
    EXPECT_TRUE(bridge.errors().empty());
    const std::string output = peer.output();
    EXPECT_NE(output.find(R"("kind":212,"kind_name":"eDoc_LUMONetList","number":1)"),
              std::string::npos)
        << output;
}

TEST_F(MgcPeerProcess, ListenersAreNumberedAndPrintWhatIsSentToThem)
{
    PeerProcess first(on({"--app", "DXD", "listen", "--timeout", "20"}));
    ASSERT_EQ(first.readLine(), R"({"event":"connected","app":"DXD","number":1})");
    PeerProcess peer(on({"--app", "BSXE", "listen", "--count", "2", "--timeout", "20"}));
    ASSERT_EQ(peer.readLine(), R"({"event":"connected","app":"BSXE","number":2})");

    MessageContent iff;
    iff.kind = 222;
    iff.properties = {{"RFDESIGN", "amp"}, {"RFREGION", "lna"}, {"RFDESIGNPATH", "C:\\d"}};
    // A control character and bytes that are not UTF-8 among the text.
    iff.text = "IFF \"2.1\"\n\x01\xe9t\xc3\xa9";
    iff.document = DocumentContent{"amp",
                                   "amp.sch",
                                   "/d",
                                   {{"lna", "( IN )", "", {{"P1", 0, 1, "IN", "", 50, 0, 550.5}}}},
                                   {{1, 0, "external"}}};
    sendFromBridge(bridge, iff, "BSXE");
    MessageContent request;
    request.kind = 224;
    request.properties = {{"HIGLIGHT_RFREGION", "lna"}};
    sendFromBridge(bridge, request, "");
    EXPECT_EQ(
        peer.readLine(),
        R"j({"event":"message","kind":222,"kind_name":"eDoc_LibIFF","properties":{"RFDESIGN":"amp","RFREGION":"lna","RFDESIGNPATH":"C:\\d"},"text":"IFF \"2.1\"\n\u0001\u00e9t)j"
        "\xc3\xa9"
        R"j(","document":{"label":"amp","name":"amp.sch","path":"/d","regions":[{"name":"lna","netlist":"( IN )","egs":"","ports":[{"name":"P1","enabled":0,"type":1,"label":"IN","note":"","value":50,"x":0,"y":550.5}]}],"port_types":[{"id":1,"flag":0,"name":"external"}]}})j");
    const std::string toAll =
        R"({"event":"message","kind":224,"kind_name":"eDoc_UserDefined","properties":{"HIGLIGHT_RFREGION":"lna"},"text":""})";
    EXPECT_EQ(peer.readLine(), toAll);
    EXPECT_EQ(peer.finish(), 0) << peer.errors();
    EXPECT_EQ(first.readLine(), toAll) << "DXD got what was meant for BSXE";
    EXPECT_TRUE(bridge.errors().empty()) << bridge.errors().front();
}

TEST_F(MgcPeerProcess, ListenSavesTextsToFilesAndSaysWhenTheBridgeDisconnects)
{
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    PeerProcess peer(on({"listen", "--count", "2", "--save", folder.path().toStdString()}));
    ASSERT_EQ(peer.readLine(), R"({"event":"connected","app":"DXD","number":1})");
    MessageContent content;
    content.kind = 213;
    content.text = std::string(100000, 'L') + "\n";
    content.document =
        DocumentContent{"", "", "", {{"coupler/main", "( IN )", "EGS 1.3\n", {}}}, {}};
    sendFromBridge(bridge, content, "");
    const JsonValue line = JsonReader::parse(peer.readLine());
    EXPECT_FALSE(line.find("text"));
    const std::string base = folder.path().toStdString() + "/message-1";
    ASSERT_TRUE(line.find("text_file"));
    EXPECT_EQ(line.find("text_file")->text, base + ".txt");
    EXPECT_EQ(line.find("text_size")->integer, 100001);
    EXPECT_EQ(fileText(base + ".txt"), content.text);
    // Region texts go to files named after the message and the region, made safe for a file name.
    const JsonValue& region = line.find("document")->find("regions")->items.at(0);
    EXPECT_EQ(region.find("egs_file")->text, base + "-1-coupler_main.egs");
    EXPECT_EQ(region.find("egs_size")->integer, 8);
    EXPECT_EQ(fileText(base + "-1-coupler_main.egs"), "EGS 1.3\n");
    EXPECT_EQ(fileText(base + "-1-coupler_main.net"), "( IN )");

    bridge.Disconnect();
    EXPECT_EQ(peer.finish(), 1);
    EXPECT_EQ(peer.errors(), "mgc-peer: 1 of 2 messages arrived before the bridge at 127.0.0.1:" +
                                 std::to_string(port) +
                                 " closed the connection: the bridge is disconnecting\n");
}

TEST_F(MgcPeerProcess, BadDescriptionSendsNothingAndNamesFileAndReason)
{
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const std::string broken = folder.filePath(QStringLiteral("bad.json")).toStdString();
    std::ofstream(broken) << "{\"kind\": 212,,}";
    const std::vector<std::pair<std::string, std::string>> rows = {
        {broken, broken + ":1:14: expected a member name in double quotes"},
        {"/nonexistent/msg.json",
         "/nonexistent/msg.json: cannot read the message description: No such file or directory"},
    };
    for (const auto& [file, error] : rows) {
        SCOPED_TRACE(file);
        // A good description first: it must not go out either.
        PeerProcess peer(on({"send", kExamples + "/netlist.json", file}));
        EXPECT_EQ(peer.finish(), 1);
        EXPECT_EQ(peer.errors().find("mgc-peer: " + error), 0u) << peer.errors();
    }
    EXPECT_TRUE(bridge.connected().empty());
    EXPECT_TRUE(bridge.messages().empty());
}

TEST_F(MgcPeerProcess, WrongCommandLinesAreExplained)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
        {{"listen"}, "--port is required"},
        {{"--port", "99999", "listen"}, "--port 99999 is not a port number"},
        {on({"fetch"}), "unknown command 'fetch'"},
        {on({"send"}), "send needs at least one message description"},
        {on({"send", "--save", "/tmp", kExamples + "/iff.json"}), "--save is for listen, not send"},
        {on({"bench", "layout"}), "bench needs what to send"},
        {on({"listen", "--count", "0"}), "--count 0 is not a positive number"},
        {on({"listen", "--timeout", "inf"}), "--timeout inf is not a positive number of seconds"},
        {on({"--frobnicate"}), "Unknown option 'frobnicate'."},
    };
    for (const auto& [arguments, error] : rows) {
        SCOPED_TRACE(error);
        PeerProcess peer(arguments);
        EXPECT_EQ(peer.finish(), 2);
        EXPECT_EQ(peer.errors().find("mgc-peer: " + error), 0u) << peer.errors();
    }
    EXPECT_TRUE(bridge.connected().empty());
}

TEST_F(MgcPeerProcess, BenchSendsTheRequestedNumberOfMessagesOfTheRequestedSize)
{
    PeerProcess peer(on({"--app", "BSXE", "bench", "iff", "--count", "3", "--bytes", "1M"}));
    ASSERT_EQ(peer.finish(), 0) << peer.errors();
    ASSERT_TRUE(bridge.waitForMessages(3));
    for (const MessageContent& message : bridge.messages()) {
        EXPECT_EQ(message.kind, 222);
        EXPECT_EQ(message.text.size(), 1u << 20);
    }
    const JsonValue line = JsonReader::parse(peer.output());
    EXPECT_EQ(line.find("count")->integer, 3);
    EXPECT_EQ(line.find("bytes")->integer, 1 << 20);
}
