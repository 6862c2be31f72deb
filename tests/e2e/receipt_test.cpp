// Messages pushed by a peer process become files in the workspace and host
// actions, through the bridge, the plug-in and the host's idle requests.

#include <gtest/gtest.h>

#include <QJsonDocument>

#include "e2e.h"

namespace {

using namespace E2E;

QJsonObject readJson(const QString& path)
{
    return QJsonDocument::fromJson(readFile(path)).object();
}

// `first`:`second` of each entry of `array`.
QString fields(const QJsonValue& array, const char* first, const char* second)
{
    QStringList found;
    for (const QJsonValue& entry : array.toArray())
        found << entry[first].toVariant().toString() + ":" + entry[second].toVariant().toString();
    return found.join(' ');
}

// The settings dialog is left open, unanswered, the whole time: the messages
// are still handled, and a signal still ends the host.
TEST(Receipt, EachHandledKindIsActedOnInArrivalOrderThroughIdleRequestsEvenUnderAnOpenDialog)
{
    BridgedHost host;
    host.write("mgcconnect_open_options_dialog();");
    host.waitFor({"dialog", "when", "opened"});
    // 213, 212 and 222, one after another from one peer.
    ASSERT_TRUE(send(host.port, "BSXE", {"em_data.json", "netlist.json", "iff.json"}));
    const QJsonObject import = host.waitFor({"call", "function", "mgclink_import_iff_file"}).at(0);
    QStringList functions;
    for (const QJsonObject& call : host.seen().records({"call", "function", "mgclink_"})) {
        EXPECT_TRUE(call["ok"].toBool()) << call["reason"].toString().toStdString();
        functions << call["function"].toString().mid(8);
    }
    functions.removeAll("show_connected_servers");
    EXPECT_EQ(functions.join(' '),
              "get_workspace_path import_egs_file add_port_to_fathom_view add_port_to_fathom_view "
              "add_port_to_fathom_view add_port_to_fathom_view get_workspace_path "
              "get_netlists_path create_design get_workspace_path import_iff_file");
    // Every statement of a handler was performed on the host's main thread at
    // the plug-in's request from the messaging thread.
    for (const QJsonObject& eval : host.seen().records({"eval", "vocabulary", "Tessel_Voc"}))
        EXPECT_TRUE(eval["via"] == "idle" ||
                    eval["text"].toString().startsWith("mgclink_show_connected_servers"));

    // 212: the netlist saved, the design created with the enabled ports.
    const QString ws = host.path("workspace/");
    EXPECT_EQ(readFile(ws + "netlists/lna_top_lna.net"), readFile(example("lna.net")));
    const QJsonObject design = readJson(ws + "designs/lna_top_lna.design");
    EXPECT_EQ(design["netlist_found"], true);
    EXPECT_EQ(design["design_path"], "C:/designs/rf_frontend");
    EXPECT_EQ(fields(design["ports"], "label", "x"), "RFIN:0 RFOUT:412.25");
    // 222: the layout saved in the workspace and imported into rflib, the
    // target, without overwriting.
    EXPECT_EQ(readFile(ws + "mgcLayoutTmp.iff"), readFile(example("pa_layout.iff")));
    EXPECT_EQ(readFile(ws + "libraries/rflib/mgcLayoutTmp.iff"),
              readFile(example("pa_layout.iff")));
    EXPECT_EQ(import["args"].toArray().last(), "FALSE");
    // 213: the EGS data imported as an EM view holding the four ports.
    EXPECT_EQ(readFile(ws + "genFathom_a"), readFile(example("coupler.egs")));
    const QJsonObject view = readJson(ws + "libraries/rflib/coupler_top_coupler.emview");
    EXPECT_EQ(view["source"], ws + "genFathom_a");
    EXPECT_EQ(fields(view["ports"], "name", "type"),
              "P1:internal P2:internal P3:external P4:external");

    // Still open: the command has not returned.
    EXPECT_TRUE(host.seen().records({"command", "name", "mgcconnect_open_options_dialog"}).empty());
    host.process().terminate();
    const HostRun run = host.finish();
    EXPECT_EQ(run.exitCode, 128 + 15) << run.err.toStdString();
    ASSERT_EQ(run.records({"dialog", "when", "closed"}).size(), 1u);
    EXPECT_TRUE(run.records({"dialog", "when", "closed"})[0]["answer"].isNull());
}

} // namespace
