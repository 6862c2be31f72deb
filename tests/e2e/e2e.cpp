#include "e2e.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

QString pluginUnderTest()
{
    return QStringLiteral(PLUGIN_PATH);
}

namespace E2E {

BridgedHost::BridgedHost(const QStringList& more, bool withWorkspace)
    : HostProcess(QStringList{"--library", "Local_Components_lib", "--library", "rflib"} +
                  (withWorkspace ? QStringList{"--workspace", "{dir}/workspace"} : QStringList()) +
                  more + QStringList{"-"})
{
    command("mgcconnect_initialize(0, 0);");
    listedPeers();
    // mgclink_show_connected_servers("MACHINE",PORT,...
    port = seen().texts({"eval", "text", "mgclink_show"}).value(0).section(',', 1, 1).toInt();
    EXPECT_GT(port, 0) << "no port in the connection listing";
}

QJsonObject BridgedHost::command(const QString& statement)
{
    const QString name = statement.section('(', 0, 0);
    const std::size_t before = seen().records({"command", "name", name}).size();
    write(statement);
    const std::vector<QJsonObject> found = waitFor({"command", "name", name}, int(before) + 1);
    return found.size() > before ? found.back() : QJsonObject();
}

QString BridgedHost::listedPeers()
{
    command("mgcconnect_show_connections();");
    const QStringList listings = seen().texts({"eval", "text", "mgclink_show"});
    return listings.join('\n').section('\n', -1).section("\"1.0\",", 1).chopped(2);
}

Peer::Peer(int port, const QString& app, const QStringList& arguments)
    : HostProcess(QStringList{"--port", QString::number(port), "--app", app} + arguments,
                  MGC_PEER_PATH, false)
{
    const bool listener = arguments == QStringList{"listen"};
    EXPECT_TRUE(!listener || waitUntil([&] { return seen().out.contains("\"connected\""); }))
        << seen().err.toStdString();
}

bool send(int port, const QString& app, const QStringList& examples)
{
    const QStringList files =
        QStringList(examples).replaceInStrings(QRegularExpression("^"), EXAMPLES_DIR "/");
    const HostRun run = Peer(port, app, QStringList{"send"} + files).finish();
    EXPECT_EQ(run.exitCode, 0) << "mgc-peer send failed: " << run.err.toStdString();
    return run.exitCode == 0;
}

} // namespace E2E
