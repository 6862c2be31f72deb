// What the user is told when the host cannot do what the plug-in asks: no
// workspace open, a host function that fails (lumo-host --fail), or a script
// that stops while the bridge runs.

#include <gtest/gtest.h>

#include <QFile>

#include "e2e.h"

namespace {

using namespace E2E;

// How each handler answers each failure is shown with a stand-in host in
// tests/exchange; here, that the real host's refusals reach the user.
TEST(HostFailures, RefusedHostFunctionsAreReportedAndTheLinkGoesOn)
{
    struct Row
    {
        const char* failing; // none: no workspace instead
        QStringList examples;
        QStringList errors; // each shown and logged
        const char* asked;  // of the host
    };
    const std::vector<Row> rows = {
        // The EM data is dropped without a word.
        {nullptr,
         {"em_data.json", "netlist.json", "iff.json"},
         {"LUMO project must be opened before receiving Mentor design netlist",
          "No workspace is open - unable to import IFF data"},
         "get_workspace_path get_workspace_path get_workspace_path"},
        {"mgclink_import_iff_file",
         {"iff.json"},
         {"IFF import failed"},
         "get_workspace_path import_iff_file"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.failing ? row.failing : "no workspace");
        BridgedHost host(row.failing ? QStringList{"--fail", row.failing} : QStringList(),
                         row.failing);
        ASSERT_TRUE(send(host.port, "DXD", row.examples));
        host.waitFor({"stderr", "text", "Tessel:Error: "}, row.errors.size());
        QStringList shown, logged;
        for (const QString& error : row.errors) {
            shown << "Tessel Error: " + error;
            logged << "Tessel:Error: " + error + "\n";
        }
        EXPECT_EQ(host.seen().texts("info"), shown);
        EXPECT_EQ(host.seen().texts({"stderr", "text", "Tessel:Error: "}), logged);
        QStringList asked;
        for (const QJsonObject& call : host.seen().records({"call", "function", "mgclink_"})) {
            EXPECT_EQ(call["ok"].toBool(), call["function"] != row.failing);
            asked << call["function"].toString().mid(8);
        }
        asked.removeAll("show_connected_servers");
        EXPECT_EQ(asked.join(' '), row.asked);
        // Nothing is written outside the workspace.
        for (const char* file : {"mgcLayoutTmp.iff", "genFathom_a"})
            EXPECT_FALSE(QFile::exists(host.path(file)));
        EXPECT_EQ(host.finish().exitCode, 0) << host.seen().err.toStdString();
    }
}

TEST(HostFailures, ScriptStoppingWhileTheBridgeRunsEndsTheHostAtOnce)
{
    const HostRun run =
        runHost({"-e", "mgcconnect_initialize(0, 0);\n"
                       "mgclink_import_iff_file(\"nolib\", \"missing.iff\", \"TRUE\");\n"
                       "mgcconnect_show_connections();"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains(":2: error: mgclink_import_iff_file: ")) << run.err.toStdString();
    EXPECT_EQ(run.records({"stderr", "text", "Tessel:Server started"}).size(), 1u);
    EXPECT_TRUE(run.records({"command", "name", "mgcconnect_show_connections"}).empty());
}

} // namespace
