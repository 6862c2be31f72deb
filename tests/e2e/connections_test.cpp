// Peers coming and going: the connection queries and listing, a peer that
// breaks off in the middle of a message, and the bridge stopped.

#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QHostAddress>
#include <QTcpSocket>

#include <memory>

#include "e2e.h"
#include "peerprocess.h"
#include "rfmsg/wirecodec.h"

namespace {

QJsonValue result(HostProcess& host, const QString& command)
{
    return E2E::command(host, command + "();").value("result");
}

// The peer list of a new connection listing, as the plug-in wrote it.
QString listedPeers(HostProcess& host)
{
    E2E::command(host, "mgcconnect_show_connections();");
    const QJsonObject eval =
        host.seen().records({"eval", "text", "mgclink_show_connected_servers"}).back();
    EXPECT_EQ(eval.value("via").toString(), "direct");
    const QString text = eval.value("text").toString();
    const int start = text.indexOf("\"1.0\",") + 6;
    return text.mid(start, text.size() - start - 2);
}

TEST(Connections, SchematicAndLayoutPeersAreFoundListedAndLetGo)
{
    HostProcess host(E2E::hostArguments());
    const int port = E2E::startBridge(host);
    ASSERT_GT(port, 0);
    const std::unique_ptr<PeerProcess> schematic = PeerProcess::listen(port, "DXD");
    EXPECT_EQ(result(host, "mgcconnect_is_connected_to_schematic"), 1);
    EXPECT_EQ(result(host, "mgcconnect_is_connected_to_layout"), 0);
    std::unique_ptr<PeerProcess> layout = PeerProcess::listen(port, "BSXE");
    EXPECT_EQ(result(host, "mgcconnect_is_connected_to_layout"), 1);
    EXPECT_EQ(listedPeers(host), "list(,list(\"DXD\",1),list(\"BSXE\",2))");

    // A peer that leaves is no longer found.
    layout.reset();
    QDeadlineTimer deadline(20000);
    while (result(host, "mgcconnect_is_connected_to_layout") != 0 && !deadline.hasExpired()) {
    }
    EXPECT_EQ(listedPeers(host), "list(,list(\"DXD\",1))");

    // Disconnect closes the peers; the listener ends, saying why.
    EXPECT_EQ(result(host, "mgcconnect_disconnect"), 1);
    EXPECT_EQ(schematic->finish(), 0);
    EXPECT_FALSE(schematic->errors().isEmpty());
    EXPECT_EQ(result(host, "mgcconnect_is_connected_to_schematic"), 0);
    EXPECT_EQ(listedPeers(host), "NULL");
    EXPECT_EQ(host.finish().exitCode, 0);
}

TEST(Connections, PeerBreakingOffInTheMiddleOfAMessageIsReportedAndTheLinkGoesOn)
{
    HostProcess host(E2E::hostArguments());
    const int port = E2E::startBridge(host);
    ASSERT_GT(port, 0);

    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, static_cast<quint16>(port));
    ASSERT_TRUE(socket.waitForConnected(20000)) << socket.errorString().toStdString();
    socket.write(QByteArray::fromStdString(RFMsgExp::Wire::encodeHello({"DXD"}).flatten()));
    ASSERT_TRUE(socket.waitForReadyRead(20000)); // the bridge's welcome
    RFMsgExp::MessageContent content;
    content.kind = 212;
    content.text = std::string(100000, 'x');
    const std::string frame = RFMsgExp::Wire::encodeMessage(content).flatten();
    socket.write(frame.data(), static_cast<qint64>(frame.size() / 2));
    ASSERT_TRUE(socket.waitForBytesWritten(20000));
    socket.abort();

    const std::vector<QJsonObject> errors = host.waitFor({"info", "text", "Tessel Error: "});
    ASSERT_EQ(errors.size(), 1u);
    const QString error = errors[0].value("text").toString();
    EXPECT_TRUE(error.startsWith("Tessel Error: Problem with communications with Mentor - MGCC "
                                 "XServer Error, value is peer DXD (1) at 127.0.0.1:"))
        << error.toStdString();
    EXPECT_TRUE(error.contains("connection lost in the middle of a frame ("))
        << error.toStdString();
    EXPECT_TRUE(host.seen().records({"call", "function", "mgclink_create_design"}).empty());

    ASSERT_EQ(PeerProcess::send(port, "DXD", {E2E::example("netlist.json")}), 0);
    const std::vector<QJsonObject> created =
        host.waitFor({"call", "function", "mgclink_create_design"});
    ASSERT_EQ(created.size(), 1u);
    EXPECT_TRUE(created[0].value("ok").toBool());
    EXPECT_EQ(listedPeers(host), "NULL");
}

} // namespace
