// Peers coming and going: the connection queries and listing, a peer that
// breaks off in the middle of a message, and the bridge stopped and started.

#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QFile>
#include <QHostAddress>
#include <QJsonArray>
#include <QTcpServer>
#include <QTcpSocket>

#include <memory>

#include "hostsession.h"
#include "messagefiles.h"
#include "peerprocess.h"
#include "rfmsg/wirecodec.h"

namespace {

// Runs one command and returns its result.
QJsonValue commandResult(HostSession& host, const QString& name)
{
    const std::size_t before = host.records(RecordMatch::command(name)).size();
    host.run(name + "();");
    const std::vector<QJsonObject> records =
        host.waitFor(RecordMatch::command(name), static_cast<int>(before) + 1);
    return records.size() > before ? records.back().value("result") : QJsonValue("no record");
}

// The peer list of the latest connection listing, as the plug-in wrote it.
QString listedPeers(HostSession& host)
{
    commandResult(host, "mgcconnect_show_connections");
    const QString text = host.records(RecordMatch::eval("mgclink_show_connected_servers"))
                             .back()
                             .value("text")
                             .toString();
    const int start = text.indexOf("\"1.0\",") + 6;
    return text.mid(start, text.size() - start - 2);
}

TEST(Connections, SchematicAndLayoutPeersAreFoundAndListedInConnectionOrder)
{
    HostSession host;
    const int port = host.startBridge();
    ASSERT_GT(port, 0);
    EXPECT_EQ(commandResult(host, "mgcconnect_is_connected_to_schematic"), 0);
    EXPECT_EQ(commandResult(host, "mgcconnect_is_connected_to_layout"), 0);
    EXPECT_EQ(listedPeers(host), "NULL");

    const std::unique_ptr<PeerProcess> schematic = PeerProcess::listen(port, "DXD");
    EXPECT_EQ(commandResult(host, "mgcconnect_is_connected_to_schematic"), 1);
    EXPECT_EQ(commandResult(host, "mgcconnect_is_connected_to_layout"), 0);
    std::unique_ptr<PeerProcess> layout = PeerProcess::listen(port, "BSXE");
    EXPECT_EQ(commandResult(host, "mgcconnect_is_connected_to_layout"), 1);

    EXPECT_EQ(listedPeers(host), "list(,list(\"DXD\",1),list(\"BSXE\",2))");
    const QString statement = host.records(RecordMatch::eval("mgclink_show_connected_servers"))
                                  .back()
                                  .value("text")
                                  .toString();
    EXPECT_TRUE(statement.startsWith("mgclink_show_connected_servers(\""))
        << statement.toStdString();
    EXPECT_TRUE(statement.contains("\"," + QString::number(port) + ",\"390.001\", \"1.0\",list("));
    EXPECT_TRUE(host.waitForOutput(", port " + QString::number(port) +
                                   ", plug-in 390.001, messaging 1.0: DXD (1), BSXE (2)"))
        << host.output().toStdString();

    // A peer that leaves is no longer found; one named in other letters is.
    layout.reset();
    QDeadlineTimer deadline(20000);
    while (commandResult(host, "mgcconnect_is_connected_to_layout") != 0 &&
           !deadline.hasExpired()) {
    }
    EXPECT_EQ(commandResult(host, "mgcconnect_is_connected_to_layout"), 0);
    const std::unique_ptr<PeerProcess> lowerCase = PeerProcess::listen(port, "bsxe");
    EXPECT_EQ(commandResult(host, "mgcconnect_is_connected_to_layout"), 1);
    EXPECT_EQ(listedPeers(host), "list(,list(\"DXD\",1),list(\"bsxe\",3))");
    EXPECT_EQ(host.finish(), 0);
}

TEST(Connections, PeerBreakingOffInTheMiddleOfAMessageIsReportedAndTheLinkGoesOn)
{
    HostSession host;
    const int port = host.startBridge();
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
    socket.disconnectFromHost();
    socket.abort();

    const std::vector<QJsonObject> errors = host.waitFor(RecordMatch::info("Tessel Error: "));
    ASSERT_EQ(errors.size(), 1u);
    const QString error = errors[0].value("text").toString();
    EXPECT_TRUE(error.startsWith("Tessel Error: Problem with communications with Mentor - MGCC "
                                 "XServer Error, value is peer DXD (1) at 127.0.0.1:"))
        << error.toStdString();
    EXPECT_TRUE(error.contains("connection lost in the middle of a frame ("))
        << error.toStdString();
    EXPECT_TRUE(host.records(RecordMatch::call("mgclink_create_design")).empty());

    MessageFiles files;
    ASSERT_EQ(PeerProcess::send(port, "DXD", {files.example("netlist.json")}), 0);
    const std::vector<QJsonObject> created =
        host.waitFor(RecordMatch::call("mgclink_create_design"));
    ASSERT_EQ(created.size(), 1u);
    EXPECT_TRUE(created[0].value("ok").toBool());
    EXPECT_EQ(listedPeers(host), "NULL");
}

TEST(Connections, DisconnectClosesThePeersAndInitializeStartsTheBridgeAgain)
{
    HostSession host;
    const int port = host.startBridge();
    ASSERT_GT(port, 0);
    const std::unique_ptr<PeerProcess> peer = PeerProcess::listen(port, "DXD");

    EXPECT_EQ(commandResult(host, "mgcconnect_disconnect"), 1);
    // The listener ends, saying why.
    EXPECT_EQ(peer->finish(), 0);
    EXPECT_FALSE(peer->errors().isEmpty());
    EXPECT_EQ(commandResult(host, "mgcconnect_is_connected_to_schematic"), 0);
    EXPECT_EQ(listedPeers(host), "NULL");

    const int again = host.startBridge();
    ASSERT_GT(again, 0);
    const std::unique_ptr<PeerProcess> next = PeerProcess::listen(again, "DXD");
    host.run("mgcconnect_push_command(\"\", \"\", \"pa\");");
    const std::vector<QJsonObject> messages = next->waitForMessages(1);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].value("properties").toObject().value("HIGLIGHT_RFREGION"), "pa");
    // Started twice: two start lines.
    EXPECT_EQ(host.records(RecordMatch::log("Tessel:Server started, hostname is ")).size(), 2u);
}

TEST(Connections, PortThatCannotBeListenedOnIsReportedBeforeTheStartLine)
{
    QTcpServer taken;
    ASSERT_TRUE(taken.listen(QHostAddress::LocalHost));
    HostSession host;
    host.run("mgcconnect_initialize(" + QString::number(taken.serverPort()) + ", 0);");
    ASSERT_EQ(host.waitFor(RecordMatch::command("mgcconnect_initialize")).size(), 1u);

    const int error = host.indexOf(RecordMatch::info("Tessel Error: "));
    ASSERT_GE(error, 0) << E2E::journalDump(host);
    const QString text = host.journal()[static_cast<std::size_t>(error)].value("text").toString();
    EXPECT_TRUE(text.startsWith("Tessel Error: Problem with communications with Mentor - MGCC "
                                "XServer Error, value is "));
    EXPECT_TRUE(text.contains(QString::number(taken.serverPort()))) << text.toStdString();
    EXPECT_LT(error, host.indexOf(RecordMatch::log("Tessel:Server started, hostname is ")));
    EXPECT_EQ(host.records(RecordMatch::command("mgcconnect_initialize")).at(0).value("result"), 1);
}

} // namespace
