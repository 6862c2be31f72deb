// What the user is told when the host cannot do what the plug-in asks: no
// workspace open, a host function that fails (lumo-host --fail), or a script
// that stops while the bridge runs.

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include "e2e.h"
#include "peerprocess.h"

namespace {

constexpr const char* NoProject =
    "LUMO project must be opened before receiving Mentor design netlist";
constexpr const char* NoWorkspace = "No workspace is open - unable to import IFF data";

// The information lines, or the plug-in's log lines leaving out the start-up line.
QStringList texts(HostProcess& host, const QString& event)
{
    QStringList found;
    for (const QJsonObject& record :
         host.seen().records({event, "text", event == "info" ? "" : "Tessel:"}))
        if (!record.value("text").toString().startsWith("Tessel:Server started"))
            found << record.value("text").toString();
    return found;
}

// Without a workspace, or with a host function that fails (--fail), the
// handlers tell the user, write nothing, and the link goes on. How each
// handler answers each failure is shown with a stand-in host in tests/exchange.
TEST(HostFailures, RefusedHostFunctionsAreReportedAndTheLinkGoesOn)
{
    struct Row
    {
        QString failing; // empty: no workspace instead
        QStringList examples;
        RecordMatch done; // the record that tells the handlers have finished
        QStringList errors;
    };
    const std::vector<Row> rows = {
        // The EM data is dropped without a word.
        {{},
         {"em_data.json", "netlist.json", "iff.json"},
         {"stderr", "text", "Tessel:Error: No workspace"},
         {NoProject, NoWorkspace}},
        // The command's own quotes are not escaped in the log statement, so
        // the host refuses it as a syntax error: the line never shows.
        {"mgclink_create_design",
         {"netlist.json"},
         {"eval", "text", "fprintf(stderr,\"Tessel:Execute BRIO command failed: "},
         {}},
        {"mgclink_import_iff_file",
         {"iff.json"},
         {"stderr", "text", "Tessel:Error: "},
         {"IFF import failed"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.failing.toStdString());
        const bool withWorkspace = !row.failing.isEmpty();
        HostProcess host(E2E::hostArguments(
            withWorkspace ? QStringList{"--fail", row.failing} : QStringList(), withWorkspace));
        const int port = E2E::startBridge(host);
        ASSERT_GT(port, 0);
        QStringList examples;
        for (const QString& example : row.examples)
            examples << E2E::example(example);
        ASSERT_EQ(PeerProcess::send(port, "DXD", examples), 0);
        host.waitFor(row.done);
        QStringList shown, logged;
        for (const QString& error : row.errors) {
            shown << "Tessel Error: " + error;
            logged << "Tessel:Error: " + error + "\n";
        }
        EXPECT_EQ(texts(host, "info"), shown);
        EXPECT_EQ(texts(host, "stderr"), logged);
        QStringList asked;
        for (const QJsonObject& call : host.seen().records({"call", "function", "mgclink_"})) {
            const QString function = call.value("function").toString();
            EXPECT_EQ(call.value("ok").toBool(), function != row.failing) << function.toStdString();
            if (function != "mgclink_show_connected_servers")
                asked << function;
        }
        if (!withWorkspace) {
            // Nothing but the workspace was asked of the host, and nothing was written.
            EXPECT_EQ(asked.removeAll("mgclink_get_workspace_path"), 3);
            EXPECT_TRUE(asked.isEmpty()) << asked.join(' ').toStdString();
            EXPECT_FALSE(QFile::exists(host.path("mgcLayoutTmp.iff")));
            EXPECT_FALSE(QFile::exists(host.path("genFathom_a")));
        }
        // The host and the link go on: the statement that failed does not end it.
        EXPECT_EQ(host.finish().exitCode, 0) << host.seen().err.toStdString();
    }
}

TEST(HostFailures, ScriptStoppingWhileTheBridgeRunsEndsTheHostAtOnce)
{
    QTemporaryDir dir;
    const QString script =
        writeFile(dir.filePath("import.brio"),
                  "mgcconnect_initialize(0, 0);\n"
                  "mgclink_import_iff_file(\"nolib\", \"missing.iff\", \"TRUE\");\n"
                  "mgcconnect_show_connections();\n");
    HostProcess host(E2E::hostArguments({script}));
    EXPECT_EQ(host.finish().exitCode, 1);
    EXPECT_TRUE(host.seen().err.contains(script + ":2: error: mgclink_import_iff_file: "))
        << host.seen().err.toStdString();
    EXPECT_EQ(host.seen().records({"stderr", "text", "Tessel:Server started"}).size(), 1u);
    EXPECT_TRUE(host.seen().records({"command", "name", "mgcconnect_show_connections"}).empty());
}

} // namespace
