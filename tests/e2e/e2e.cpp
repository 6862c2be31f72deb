#include "e2e.h"

#include <QJsonArray>
#include <QJsonDocument>

QString pluginUnderTest()
{
    return QStringLiteral(PLUGIN_PATH);
}

namespace E2E {

QStringList hostArguments(const QStringList& more, bool withWorkspace)
{
    QStringList arguments{"--library", "Local_Components_lib", "--library", "rflib"};
    if (withWorkspace)
        arguments << "--workspace"
                  << "{dir}/workspace";
    return arguments << more << "-";
}

QJsonObject command(HostProcess& host, const QString& statement)
{
    const RecordMatch match{"command", "name", statement.section('(', 0, 0).section('=', -1)};
    const std::size_t before = host.seen().records(match).size();
    host.write(statement);
    const std::vector<QJsonObject> found = host.waitFor(match, static_cast<int>(before) + 1);
    return found.size() > before ? found.back() : QJsonObject();
}

int startBridge(HostProcess& host)
{
    command(host, "mgcconnect_initialize(0, 0);");
    command(host, "mgcconnect_show_connections();");
    const std::vector<QJsonObject> listing =
        host.seen().records({"call", "function", "mgclink_show_connected_servers"});
    return listing.empty() ? 0 : listing.back().value("args").toArray().at(1).toInt();
}

QString example(const QString& name)
{
    return QStringLiteral(EXAMPLES_DIR "/") + name;
}

QJsonObject readJson(const QString& path)
{
    return QJsonDocument::fromJson(readFile(path)).object();
}

} // namespace E2E
