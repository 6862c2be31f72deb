// mgc-peer as a separate process against a bridge in this one. The examples
// reaching the plug-in are shown end to end in tests/e2e.

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <string>
#include <tuple>
#include <vector>

#include "jsonreader.h"
#include "recordingbridge.h"

using namespace RFMsgExp;

namespace {

const QString kExamples = QStringLiteral(KIVA_EXAMPLES_DIR);

std::string fileText(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : "(missing)";
}

// One mgc-peer child; QProcess ends it when the test is done with it.
struct PeerProcess : QProcess
{
    explicit PeerProcess(const QStringList& arguments) { start(MGC_PEER_PATH, arguments); }
    // The next line of standard output; empty when none came in time.
    std::string line()
    {
        while (!canReadLine())
            if (!waitForReadyRead(10000))
                return {};
        return readLine().trimmed().toStdString();
    }
    // Exit code; -1 when it did not end normally in time.
    int finish() { return waitForFinished(20000) && exitStatus() == NormalExit ? exitCode() : -1; }
    std::string errors() { return readAllStandardError().toStdString(); }
};

class MgcPeerProcess : public ::testing::Test
{
protected:
    // The command line with the bridge's port in front.
    QStringList on(const QStringList& arguments)
    {
        return QStringList{"--port", QString::number(port)} + arguments;
    }

    RecordingBridge bridge;
    const int port = bridge.start();
};

TEST_F(MgcPeerProcess, SendAndBenchDeliverWhatTheyAreAskedFor)
{
    PeerProcess sender(on({"send", kExamples + "/iff.json"}));
    ASSERT_EQ(sender.finish(), 0) << sender.errors();
    EXPECT_TRUE(sender.readAll().contains(R"("kind":222,"kind_name":"eDoc_LibIFF","number":1)"));
    PeerProcess bench(on({"--app", "BSXE", "bench", "iff", "--count", "2", "--bytes", "1M"}));
    ASSERT_EQ(bench.finish(), 0) << bench.errors();
    ASSERT_TRUE(bridge.waitForMessages(3));
    EXPECT_EQ(bridge.messages()[0].text, fileText(kExamples + "/pa_layout.iff"));
    EXPECT_EQ(bridge.messages().back().text.size(), std::size_t(1) << 20);
}

TEST_F(MgcPeerProcess, ListenPrintsEachMessageAsOneJsonLine)
{
    PeerProcess peer(on({"--app", "BSXE", "listen", "--count", "1", "--timeout", "20"}));
    ASSERT_EQ(peer.line(), R"({"event":"connected","app":"BSXE","number":1})");

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
    bridge.OnSend(Testing::makeMessage(iff).get(), "BSXE");
    EXPECT_EQ(
        peer.line(),
        R"j({"event":"message","kind":222,"kind_name":"eDoc_LibIFF","properties":{"RFDESIGN":"amp","RFREGION":"lna","RFDESIGNPATH":"C:\\d"},"text":"IFF \"2.1\"\n\u0001\u00e9t)j"
        "\xc3\xa9"
        R"j(","document":{"label":"amp","name":"amp.sch","path":"/d","regions":[{"name":"lna","netlist":"( IN )","egs":"","ports":[{"name":"P1","enabled":0,"type":1,"label":"IN","note":"","value":50,"x":0,"y":550.5}]}],"port_types":[{"id":1,"flag":0,"name":"external"}]}})j");
    EXPECT_EQ(peer.finish(), 0) << peer.errors();
}

TEST_F(MgcPeerProcess, ListenSavesTextsToFilesOrSaysWhyNotAndWhenTheBridgeDisconnects)
{
    QTemporaryDir folder;
    PeerProcess peer(on({"listen", "--count", "2", "--save", folder.path()}));
    ASSERT_EQ(peer.line(), R"({"event":"connected","app":"DXD","number":1})");
    QTemporaryDir gone;
    PeerProcess unwritable(on({"listen", "--save", gone.path()}));
    ASSERT_EQ(unwritable.line(), R"({"event":"connected","app":"DXD","number":2})");
    gone.remove();
    MessageContent content;
    content.kind = 213;
    content.text = std::string(100000, 'L');
    content.document =
        DocumentContent{"", "", "", {{"coupler/main", "( IN )", "EGS 1.3\n", {}}}, {}};
    bridge.OnSend(Testing::makeMessage(content).get(), "");
    const JsonValue line = JsonReader::parse(peer.line());
    const QString base = folder.filePath(QStringLiteral("message-1"));
    ASSERT_TRUE(line.find("text_file"));
    EXPECT_EQ(line.find("text_file")->text, (base + ".txt").toStdString());
    EXPECT_EQ(fileText(base + ".txt"), content.text);
    // Region texts go to files named after the message and the region, made safe for a file name.
    const JsonValue& region = line.find("document")->find("regions")->items.at(0);
    EXPECT_EQ(region.find("egs_file")->text, (base + "-1-coupler_main.egs").toStdString());
    EXPECT_EQ(fileText(base + "-1-coupler_main.egs"), "EGS 1.3\n");

    EXPECT_EQ(unwritable.finish(), 1);
    const std::string error = "mgc-peer: cannot write " + gone.path().toStdString() + "/message-1";
    EXPECT_EQ(unwritable.errors().find(error + ".txt: "), 0u) << unwritable.errors();

    bridge.Disconnect();
    EXPECT_EQ(peer.finish(), 1);
    EXPECT_EQ(peer.errors(), "mgc-peer: 1 of 2 messages arrived before the bridge at 127.0.0.1:" +
                                 std::to_string(port) +
                                 " closed the connection: the bridge is disconnecting\n");
}

// Nothing is sent, not even the good description before a bad one.
TEST_F(MgcPeerProcess, MistakesAreExplainedAndHelpDescribesTheTool)
{
    const QString netlist = kExamples + "/netlist.json";
    const std::vector<std::tuple<QStringList, int, std::string>> rows = {
        {on({"send", netlist, kExamples + "/lna.net"}), 1,
         (kExamples + "/lna.net:1:1: ").toStdString()},
        // The highest port is a port: the description is read before connecting.
        {{"--port", "65535", "send", netlist, "/no/msg.json"},
         1,
         "/no/msg.json: cannot read the message description: No such file"},
        {{"listen"}, 2, "--port is required"},
        {{"--port", "65536", "listen"}, 2, "--port 65536 is not a port number"},
        {on({"fetch"}), 2, "unknown command 'fetch'"},
        {on({"send", "--save", "/tmp", netlist}), 2, "--save is for listen, not send"},
        {on({"listen", "--timeout", "inf"}), 2,
         "--timeout inf is not a positive number of seconds"},
        {{"--help"}, 0, "Talks to the bridge as a peer tool would"},
    };
    for (const auto& [arguments, status, text] : rows) {
        PeerProcess peer(arguments);
        EXPECT_EQ(peer.finish(), status);
        const std::string said = status ? peer.errors() : peer.readAll().toStdString();
        EXPECT_NE(said.find(status ? "mgc-peer: " + text : text), std::string::npos) << said;
    }
    EXPECT_TRUE(bridge.connected().empty());
}

} // namespace
