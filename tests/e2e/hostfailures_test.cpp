// What the user is told when the host cannot do what the plug-in asks: no
// workspace open, a host function that fails (lumo-host --fail), or a script
// that stops while the bridge runs.

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
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

// Without a workspace, or with host functions that fail (--fail), the
// handlers tell the user as their kind says, write nothing, and the link goes on.
TEST(HostFailures, RefusedHostFunctionsAreReportedAsTheirHandlerSays)
{
    const RecordMatch log{"stderr", "text", "Tessel:Error: "};
    const RecordMatch info{"info", "text", "Tessel Error: "};
    const RecordMatch ports{"call", "function", "mgclink_add_port"};
    const RecordMatch listed{"command", "name", "mgcconnect_show_connections"};
    const RecordMatch failed{"eval", "text",
                             "fprintf(stderr,\"Tessel:Execute BRIO command failed: "};
    enum Shown { Nothing = 0, Info = 1, Log = 2, Both = 3 };
    struct Row
    {
        QString failing;      // space-separated; "-" for no workspace instead
        QStringList examples; // none: the connection listing is shown instead
        RecordMatch done;     // the record that tells the handlers have finished
        int count;
        QStringList errors;
        int shown;
    };
    const QStringList iff{"iff.json"}, netlist{"netlist.json"}, em{"em_data.json"};
    const std::vector<Row> rows = {
        // The EM data is dropped without a word.
        {"-", em + netlist + iff, log, 2, {NoProject, NoWorkspace}, Both},
        // The command's own quotes are not escaped in the log statement, so
        // the host refuses it as a syntax error: the line never shows.
        {"mgclink_create_design", netlist, failed, 1, {}, Nothing},
        {"mgclink_import_iff_file", iff, log, 1, {"IFF import failed"}, Both},
        // A workspace the host cannot name is as good as none.
        {"mgclink_get_workspace_path", netlist + iff, log, 2, {NoProject, NoWorkspace}, Both},
        // Import results are not looked at: the four ports are still tried,
        // and fail for want of an EM view, without a word.
        {"mgclink_import_egs_file", em, ports, 4, {}, Nothing},
        // The EM view is written, and stays without its ports.
        {"mgclink_add_port_to_fathom_view", em, ports, 4, {}, Nothing},
        // Each channel goes on without the other.
        {"mgclink_import_iff_file de_info", iff, log, 1, {"IFF import failed"}, Log},
        {"mgclink_import_iff_file fprintf", iff, info, 1, {"IFF import failed"}, Info},
        // The listing is the host's to show: nothing else is said.
        {"mgclink_show_connected_servers", {}, listed, 1, {}, Nothing},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE((row.failing + " with " + row.examples.join(' ')).toStdString());
        const bool withWorkspace = row.failing != "-";
        QStringList arguments;
        for (const QString& function : row.failing.split(' '))
            arguments << "--fail" << function;
        HostProcess host(
            E2E::hostArguments(withWorkspace ? arguments : QStringList(), withWorkspace));
        const int port = E2E::startBridge(host);
        ASSERT_GT(port, 0);
        QStringList examples;
        for (const QString& example : row.examples)
            examples << E2E::example(example);
        if (!examples.isEmpty()) {
            ASSERT_EQ(PeerProcess::send(port, "DXD", examples), 0);
        }
        ASSERT_EQ(host.waitFor(row.done, row.count).size(), static_cast<std::size_t>(row.count));
        // A failing fprintf fails "Server started" too; anything after the
        // awaited record would belong to no handler of ours.
        QStringList shownInfo, shownLog;
        for (const QString& error : row.errors) {
            shownInfo << "Tessel Error: " + error;
            shownLog << "Tessel:Error: " + error + "\n";
        }
        EXPECT_EQ(texts(host, "info"), row.shown & Info ? shownInfo : QStringList{});
        EXPECT_EQ(texts(host, "stderr"), row.shown & Log ? shownLog : QStringList{});
        QStringList asked;
        for (const QJsonObject& call : host.seen().records("call")) {
            const QString function = call.value("function").toString();
            if (row.failing.split(' ').contains(function)) {
                EXPECT_FALSE(call.value("ok").toBool()) << function.toStdString();
            }
            if (function.startsWith("mgclink_") && function != "mgclink_show_connected_servers")
                asked << function;
        }
        if (!withWorkspace) {
            // Nothing but the workspace was asked of the host, and nothing was written.
            EXPECT_EQ(asked.removeAll("mgclink_get_workspace_path"), 3);
            EXPECT_TRUE(asked.isEmpty()) << asked.join(' ').toStdString();
            EXPECT_FALSE(QFile::exists(host.path("mgcLayoutTmp.iff")));
            EXPECT_FALSE(QFile::exists(host.path("genFathom_a")));
        }
        if (row.failing == "mgclink_add_port_to_fathom_view") {
            const QJsonObject view = E2E::readJson(host.path("workspace") +
                                                   "/libraries/rflib/coupler_top_coupler.emview");
            EXPECT_EQ(view.value("region").toString(), "coupler");
            EXPECT_TRUE(view.value("ports").toArray().isEmpty());
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
