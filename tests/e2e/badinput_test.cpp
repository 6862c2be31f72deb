// Mistakes in what the host is given, with the real plug-in loaded: commands
// called with the wrong arguments, statements that do not parse or call
// nothing known, scripts that stop half-way while the bridge runs.

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include <memory>

#include "hostsession.h"
#include "peerprocess.h"

namespace {

// Writes one line to the host's standard input and waits until it has run
// (or failed to parse).
void runLine(HostSession& host, const QString& line)
{
    const int before = static_cast<int>(host.records(RecordMatch::event("script")).size());
    host.run(line);
    host.waitFor(RecordMatch::event("script"), before + 1);
}

QString writeScript(const QTemporaryDir& dir, const QString& name, const QByteArray& text)
{
    QFile file(dir.filePath(name));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
    return file.fileName();
}

TEST(BadInput, CommandArgumentsOfTheWrongTypeOrCountGiveNoResultAndDoNothing)
{
    HostSession host;
    runLine(host, "mgcconnect_initialize(\"0\", 0);");
    runLine(host, "mgcconnect_initialize(0);");
    EXPECT_TRUE(host.records(RecordMatch::log("Tessel:Server started")).empty());

    const int port = host.startBridge();
    ASSERT_GT(port, 0);
    const std::unique_ptr<PeerProcess> peer = PeerProcess::listen(port, "DXD");
    const QString options = host.path("iff_options.txt");
    const QStringList statements = {
        "mgcconnect_netlist_command(\"a\", \"b\", 3, \"d\");",
        "mgcconnect_netlist_command(\"a\");",
        "mgcconnect_push_command(\"a\", NULL, \"c\");",
        "mgcconnect_send_push_into_message(\"a\", \"b\", list(\"c\"));",
        "mgcconnect_designsend_command(1, \"b\", \"c\", \"d\", \"e\");",
        "mgcconnect_layoutsend_command(\"a\", \"b\", \"c\", \"d\", 1.5);",
        "mgcconnect_set_IFF_project_list(list(\"a\"));",
        "mgcconnect_write_IFF_options_file(42);",
        "mgcconnect_write_IFF_options_file();",
    };
    for (const QString& statement : statements) {
        SCOPED_TRACE(statement.toStdString());
        const std::size_t before = host.records(RecordMatch::event("command")).size();
        runLine(host, statement);
        const std::vector<QJsonObject> commands = host.records(RecordMatch::event("command"));
        ASSERT_EQ(commands.size(), before + 1);
        EXPECT_TRUE(commands.back().value("result").isNull());
        EXPECT_EQ(commands.back().value("unreleased").toInt(), 0);
        EXPECT_TRUE(host.records(RecordMatch::event("script")).back().value("ok").toBool());
    }
    // Nothing was sent: the first message at the peer is this one.
    runLine(host, "mgcconnect_netlist_command(\"\", \"marker\", \"\", \"\");");
    const std::vector<QJsonObject> messages = peer->waitForMessages(1);
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(messages[0].value("properties").toObject().value("NETLIST_RFREGION"), "marker");
    EXPECT_TRUE(host.records(RecordMatch::event("info")).empty());
    EXPECT_FALSE(QFile::exists(options));
    EXPECT_EQ(host.finish(), 0) << host.errors().toStdString();
}

TEST(BadInput, MistakenStatementsOnStandardInputAreReportedWithTheirLineAndTheRestRuns)
{
    HostSession host;
    runLine(host, "mgcconnect_initialise(0, 0);");
    runLine(host, "mgcconnect_is_connected_to_layout(;");
    runLine(host, "mgclink_create_design(\"\", \"c\");");
    runLine(host, "mgcconnect_update_command();");
    EXPECT_EQ(host.finish(), 1);

    const QString errors = host.errors();
    EXPECT_TRUE(errors.contains("stdin:1: error: unknown function mgcconnect_initialise"))
        << errors.toStdString();
    EXPECT_TRUE(errors.contains("stdin:2:")) << errors.toStdString();
    EXPECT_TRUE(errors.contains("syntax error")) << errors.toStdString();
    EXPECT_TRUE(errors.contains("stdin:3: error: mgclink_create_design: takes 8 arguments, got 2"))
        << errors.toStdString();
    EXPECT_EQ(host.records(RecordMatch::command("mgcconnect_update_command")).at(0).value("result"),
              1);
}

TEST(BadInput, ScriptThatDoesNotParseRunsNothingAndIsNamedWithLineAndColumn)
{
    QTemporaryDir dir;
    const QString script = writeScript(
        dir, "start.brio",
        "mgcconnect_initialize(0, 0);\nmgcconnect_show_connections();\nx = list(1, 2;\n");
    HostSession host(HostSetup({script}));
    EXPECT_EQ(host.finish(), 1);
    EXPECT_TRUE(host.errors().contains(script + ":3:")) << host.errors().toStdString();
    EXPECT_TRUE(host.errors().contains("syntax error"));
    EXPECT_TRUE(host.records(RecordMatch::event("command")).empty());
}

TEST(BadInput, ScriptStoppingWhileTheBridgeRunsEndsTheHostAtOnce)
{
    QTemporaryDir dir;
    const QString script =
        writeScript(dir, "import.brio",
                    "mgcconnect_initialize(0, 0);\n"
                    "mgclink_import_iff_file(\"nolib\", \"missing.iff\", \"TRUE\");\n"
                    "mgcconnect_show_connections();\n");
    HostSession host(HostSetup({script}));
    EXPECT_EQ(host.finish(), 1);
    EXPECT_TRUE(host.errors().contains(script + ":2: error: mgclink_import_iff_file: "))
        << host.errors().toStdString();
    EXPECT_EQ(host.records(RecordMatch::log("Tessel:Server started")).size(), 1u);
    EXPECT_TRUE(host.records(RecordMatch::command("mgcconnect_show_connections")).empty());
    EXPECT_EQ(host.records(RecordMatch::event("exit")).at(0).value("code").toInt(), 1);
}

} // namespace
