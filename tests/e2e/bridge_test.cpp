// Peers coming and going through the bridge of a running host: found, listed,
// sent what the script commands send, let go, or breaking off.

#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QRegularExpression>

#include <memory>

#include <sys/socket.h>
#include <unistd.h>

#include "e2e.h"
#include "rfmsg/wirecodec.h"

namespace {

using namespace E2E;

// What each command answers and sends is shown with a stand-in host and
// bridge in tests/exchange and tests/plugin; here, that it arrives.
TEST(Bridge, PeersAreFoundListedSentWhatTheCommandsSendAndLetGo)
{
    BridgedHost host;
    const auto result = [&](const char* name) -> QJsonValue {
        return host.command(name + QString("();"))["result"];
    };
    Peer schematic(host.port, "DXD");
    EXPECT_EQ(result("mgcconnect_is_connected_to_schematic"), 1);
    EXPECT_EQ(result("mgcconnect_is_connected_to_layout"), 0);
    auto layout = std::make_unique<Peer>(host.port, "BSXE");
    EXPECT_EQ(result("mgcconnect_is_connected_to_layout"), 1);
    EXPECT_EQ(host.listedPeers(), "list(,list(\"DXD\",1),list(\"BSXE\",2))");

    const QString sch = writeFile(host.path("amp.sch.iff"), "IFF 2.1\nCELL amp_top\nEND\n");
    const QString lay = writeFile(host.path("amp.lay.iff"), "IFF 2.1\nLAYOUT amp_top\nEND");
    // The option command deliberately keeps its text's value, and sends nothing.
    const QJsonObject kept =
        host.command("mgcconnect_set_IFF_project_list(\"rf_frontend;pa_lib\");");
    EXPECT_EQ(kept["result"], 1);
    EXPECT_EQ(kept["unreleased"], 1);
    EXPECT_TRUE(host.command("mgcconnect_send_push_into_message(\"a\", \"b\", \"pa2\");")["result"]
                    .isNull());
    EXPECT_EQ(host.command("mgcconnect_designsend_command(\"" + sch + "\", \"" + lay +
                           R"(", "amp_top", "lna", "C:\\designs\\amp");)")["result"],
              1);
    ASSERT_TRUE(schematic.waitUntil([&] { return schematic.events("message").size() >= 2; }));
    // Kind, properties, text; each line gains a line feed, and a file ending in one another.
    QStringList received;
    for (const QJsonObject& message : schematic.events("message"))
        received
            << QString::number(message["kind"].toInt()) +
                   QJsonDocument(message["properties"].toObject()).toJson(QJsonDocument::Compact) +
                   message["text"].toString();
    EXPECT_EQ(received,
              (QStringList{R"(224{"HIGLIGHT_RFREGION":"pa2"})",
                           R"(222{"RFDESIGN":"amp_top","RFDESIGNPATH":"C:\\designs\\amp",)"
                           R"("RFREGION":"lna"}IFF 2.1)"
                           "\nCELL amp_top\nEND\n\nIFF 2.1\nLAYOUT amp_top\nEND\n"}));

    // A peer that leaves is no longer found.
    layout.reset();
    for (QDeadlineTimer deadline(20000);
         result("mgcconnect_is_connected_to_layout") != 0 && !deadline.hasExpired();) {
    }
    EXPECT_EQ(host.listedPeers(), "list(,list(\"DXD\",1))");
    // Disconnect closes the peers; the listener ends, saying why.
    EXPECT_EQ(result("mgcconnect_disconnect"), 1);
    const HostRun ended = schematic.finish();
    EXPECT_EQ(ended.exitCode, 0);
    EXPECT_FALSE(ended.err.isEmpty());
    EXPECT_EQ(result("mgcconnect_is_connected_to_schematic"), 0);
    EXPECT_EQ(host.listedPeers(), "NULL");
    EXPECT_EQ(host.finish().exitCode, 0);
}

TEST(Bridge, PeerBreakingOffInTheMiddleOfAMessageIsReportedAndTheLinkGoesOn)
{
    BridgedHost host;
    RFMsgExp::MessageContent content;
    content.kind = 212;
    content.text = std::string(100000, 'x');
    const std::string frame = RFMsgExp::Wire::encodeMessage(content).flatten();
    const int socket = connectTo(host.port);
    sendAll(socket,
            RFMsgExp::Wire::encodeHello({"DXD"}).flatten() + frame.substr(0, frame.size() / 2));
    ::shutdown(socket, SHUT_WR);
    host.waitFor({"info", "text", "Tessel Error: "});
    ::close(socket);
    const QStringList errors = host.seen().texts("info");
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors[0].contains(QRegularExpression(
        "^Tessel Error: Problem with communications with Mentor - MGCC XServer Error, value is "
        "peer DXD \\(1\\) at 127\\.0\\.0\\.1:\\d+: connection lost in the middle of a frame \\(")));
    ASSERT_TRUE(send(host.port, "DXD", {"netlist.json"}));
    EXPECT_TRUE(host.waitFor({"call", "function", "mgclink_create_design"}).at(0)["ok"].toBool());
    EXPECT_EQ(host.seen().records({"call", "function", "mgclink_create_design"}).size(), 1u);
}

} // namespace
