// Messages pushed by a peer process become files in the workspace and host
// actions, through the bridge, the plug-in and the host's idle requests.

#include <gtest/gtest.h>

#include <QJsonArray>

#include "e2e.h"
#include "peerprocess.h"

namespace {

// The settings dialog is left open, unanswered, the whole time: the messages
// are still handled, and a signal still ends the host.
TEST(Receipt, EachHandledKindIsActedOnInArrivalOrderThroughIdleRequestsEvenUnderAnOpenDialog)
{
    HostProcess host(E2E::hostArguments());
    const int port = E2E::startBridge(host);
    ASSERT_GT(port, 0) << host.dump();
    host.write("mgcconnect_open_options_dialog();");
    host.waitFor({"dialog", "when", "opened"});
    // 213, 212 and 222, one after another from one peer.
    ASSERT_EQ(PeerProcess::send(port, "BSXE",
                                {E2E::example("em_data.json"), E2E::example("netlist.json"),
                                 E2E::example("iff.json")}),
              0);
    const std::vector<QJsonObject> imports =
        host.waitFor({"call", "function", "mgclink_import_iff_file"});
    ASSERT_EQ(imports.size(), 1u);
    QStringList functions;
    for (const QJsonObject& call : host.seen().records({"call", "function", "mgclink_"})) {
        EXPECT_TRUE(call.value("ok").toBool()) << call.value("reason").toString().toStdString();
        functions << call.value("function").toString().mid(8);
    }
    functions.removeAll("show_connected_servers");
    EXPECT_EQ(functions.join(' ').toStdString(),
              "get_workspace_path import_egs_file add_port_to_fathom_view add_port_to_fathom_view "
              "add_port_to_fathom_view add_port_to_fathom_view get_workspace_path "
              "get_netlists_path create_design get_workspace_path import_iff_file");
    // Every statement of a handler was performed on the host's main thread at
    // the plug-in's request from the messaging thread.
    for (const QJsonObject& eval : host.seen().records({"eval", "vocabulary", "Tessel_Voc"}))
        if (!eval.value("text").toString().startsWith("mgclink_show_connected_servers")) {
            EXPECT_EQ(eval.value("via").toString(), "idle")
                << eval.value("text").toString().toStdString();
        }

    // 212: the netlist saved, the design created with the enabled ports.
    const QString ws = host.path("workspace");
    EXPECT_EQ(readFile(ws + "/netlists/lna_top_lna.net"), readFile(E2E::example("lna.net")));
    const QJsonObject design = E2E::readJson(ws + "/designs/lna_top_lna.design");
    EXPECT_TRUE(design.value("netlist_found").toBool());
    EXPECT_EQ(design.value("design_path").toString(), "C:/designs/rf_frontend");
    const QJsonArray ports = design.value("ports").toArray();
    ASSERT_EQ(ports.size(), 2);
    EXPECT_EQ(ports[0].toObject().value("label").toString(), "RFIN");
    EXPECT_EQ(ports[1].toObject().value("label").toString(), "RFOUT");
    EXPECT_DOUBLE_EQ(ports[1].toObject().value("x").toDouble(), 412.25);

    // 222: the layout saved in the workspace and imported into rflib, the
    // target, without overwriting.
    const QByteArray layout = readFile(E2E::example("pa_layout.iff"));
    EXPECT_EQ(readFile(ws + "/mgcLayoutTmp.iff"), layout);
    EXPECT_EQ(readFile(ws + "/libraries/rflib/mgcLayoutTmp.iff"), layout);
    EXPECT_EQ(imports[0].value("args").toArray().last().toString(), "FALSE");

    // 213: the EGS data imported as an EM view holding the four ports.
    EXPECT_EQ(readFile(ws + "/genFathom_a"), readFile(E2E::example("coupler.egs")));
    const QJsonObject view = E2E::readJson(ws + "/libraries/rflib/coupler_top_coupler.emview");
    EXPECT_EQ(view.value("source").toString(), ws + "/genFathom_a");
    QStringList names;
    for (const QJsonValue& port : view.value("ports").toArray())
        names << port.toObject().value("name").toString() + ":" +
                     port.toObject().value("type").toString();
    EXPECT_EQ(names, (QStringList{"P1:internal", "P2:internal", "P3:external", "P4:external"}));

    // Still open: the command has not returned.
    EXPECT_TRUE(host.seen().records({"command", "name", "mgcconnect_open_options_dialog"}).empty());
    host.process().terminate();
    const HostRun run = host.finish();
    EXPECT_EQ(run.exitCode, 128 + 15) << run.err.toStdString();
    const std::vector<QJsonObject> closed = run.records({"dialog", "when", "closed"});
    ASSERT_EQ(closed.size(), 1u) << host.dump();
    EXPECT_TRUE(closed[0].value("answer").isNull());
}

} // namespace
