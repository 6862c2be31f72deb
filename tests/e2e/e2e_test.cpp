// The real host with the real plug-in and its bridge: loading it, refusing
// what it asks, answering its settings dialog as --dialogs says, and peer
// processes found, listed, sent to, and pushing messages that become files in
// the workspace and host actions. What each command and handler does is shown
// with a stand-in host and bridge in tests/plugin and tests/exchange; here,
// that it happens in a whole run.

#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

#include <array>
#include <memory>

#include "e2e.h"

namespace {

using namespace E2E;

// The host functions the plug-in called, "(refused)" after those that failed.
QString calls(HostProcess& host)
{
    QStringList found;
    for (const QJsonObject& call : host.seen().records({"call", "function", "mgclink_"}))
        found << call["function"].toString().mid(8) + (call["ok"].toBool() ? "" : "(refused)");
    found.removeAll("show_connected_servers");
    return found.join(' ');
}

TEST(PluginLoading, WithoutAnAcceptableBrioInterfaceNothingIsRegisteredAndTheUserIsTold)
{
    const std::vector<std::pair<QStringList, QString>> rows = {
        {{}, {}},
        {{"--brio-version", "2000"}, "Tessel plugin found an incompatible BRIO interface"},
        {{"--no-brio"}, "Tessel plugin failed to load the BRIO interface"},
    };
    for (const auto& [arguments, loadError] : rows) {
        SCOPED_TRACE(arguments.join(' ').toStdString());
        const HostRun run =
            runHost(arguments + QStringList{"-e", "mgcconnect_is_connected_to_schematic();"});
        const bool loaded = loadError.isEmpty();
        EXPECT_EQ(run.texts("load_error").join(""), loadError);
        EXPECT_EQ(run.exitCode, loaded ? 0 : 1) << run.err.toStdString();
        // Once loaded, the commands are registered, and run.
        EXPECT_EQ(run.values("register", "library"), loaded ? QJsonArray{"CmdOp"} : QJsonArray());
        EXPECT_EQ(run.results(), loaded ? QJsonArray{0} : QJsonArray());
    }
}

TEST(HostFailures, RefusedHostFunctionsAreReportedAndTheLinkGoesOn)
{
    // lumo-host's --fail (none: no workspace instead), the examples sent, the
    // errors shown, the host functions asked.
    const std::vector<std::array<QString, 4>> rows = {
        // The EM data is dropped without a word.
        {"", "em_data.json netlist.json iff.json",
         "LUMO project must be opened before receiving Mentor design netlist\n"
         "No workspace is open - unable to import IFF data",
         "get_workspace_path get_workspace_path get_workspace_path"},
        {"mgclink_import_iff_file", "iff.json", "IFF import failed",
         "get_workspace_path import_iff_file(refused)"},
    };
    for (const auto& [failing, examples, errors, asked] : rows) {
        SCOPED_TRACE(asked.toStdString());
        BridgedHost host(failing.isEmpty() ? QStringList() : QStringList{"--fail", failing},
                         !failing.isEmpty());
        ASSERT_TRUE(send(host.port, "DXD", examples.split(' ')));
        host.waitFor({"stderr", "text", "Tessel:Error: "}, errors.count('\n') + 1);
        EXPECT_EQ(host.seen().texts("info"),
                  errors.split('\n').replaceInStrings(QRegularExpression("^"), "Tessel Error: "));
        EXPECT_EQ(calls(host), asked);
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
    EXPECT_EQ(run.texts({"stderr", "text", "Tessel:Server started"}).size(), 1);
    EXPECT_TRUE(run.records({"command", "name", "mgcconnect_show_connections"}).empty());
}

// ExcludeLibrary, OverwriteDesigns and TargetLib in ./Tessel.opt (attributes
// in any order), then ImportOverwriteExistingDesign as the plug-in holds it.
QStringList settings(BridgedHost& host)
{
    QStringList found;
    for (const char* name : {"ExcludeLibrary", "OverwriteDesigns", "TargetLib"})
        found << QRegularExpression(QString("<Option[^>]* name=\"%1\"[^>]*").arg(name))
                     .match(readFile(host.path("Tessel.opt")))
                     .captured()
                     .section("value=\"", 1)
                     .section('"', 0, 0);
    host.command("mgcconnect_write_IFF_options_file(\"" + host.path("iff.txt") + "\");");
    return found << QRegularExpression("ImportOverwriteExistingDesign = (\\w+)")
                        .match(readFile(host.path("iff.txt")))
                        .captured(1);
}

// A dialog's journal record: "answer overwrite current entries excluded".
QString dialogRecord(const QJsonObject& record)
{
    const QJsonObject controls = record["controls"].toObject();
    const QJsonObject combo = controls["comboBoxTargetLibrary"].toObject();
    QStringList entries;
    for (const QJsonValue& entry : combo["entries"].toArray())
        entries << entry.toString();
    return QStringList{record["answer"].toString("-"),
                       controls["checkBoxOverwriteDesigns"].toBool() ? "true" : "false",
                       combo["current"].toString(), entries.join(','),
                       controls["lineEditExcludeLibrary"].toString()}
        .join(' ');
}

// Each way out keeps, saves or restores the edits in memory and in
// ./Tessel.opt as a person's would. (A dialog nobody answers: Receipt below.)
TEST(SettingsDialog, EachWayOutKeepsSavesOrRestoresTheEditsAsAPersonsWould)
{
    // The answer and the edits; then the dialog's controls on closing,
    // ExcludeLibrary, OverwriteDesigns and TargetLib in the file, ImportOverwriteExistingDesign
    // in memory and after the next load, and the number of edits that could
    // not be applied (the dialog answered all the same).
    const std::vector<std::pair<QString, QString>> rows = {
        {"ok checkBoxOverwriteDesigns=true comboBoxTargetLibrary=rflib",
         "ok true rflib alib,rflib Local_Components_lib Local_Components_lib true rflib TRUE TRUE "
         "0"},
        {"cancel checkBoxOverwriteDesigns=true lineEditExcludeLibrary=alib",
         "cancel true Local_Components_lib Local_Components_lib,rflib alib Local_Components_lib "
         "false alib FALSE FALSE 0"},
        {"close checkBoxOverwriteDesigns=true", "close true alib alib,rflib Local_Components_lib "
                                                "Local_Components_lib false alib TRUE FALSE 0"},
        {"cancel noSuchControl=1 checkBoxOverwriteDesigns=yes comboBoxTargetLibrary=closed_lib",
         "cancel false alib alib,rflib Local_Components_lib Local_Components_lib false alib FALSE "
         "FALSE 3"},
    };
    for (const auto& [actions, outcome] : rows) {
        SCOPED_TRACE(actions.toStdString());
        QStringList arguments{"--library",         "alib",
                              "--dialogs",         actions.section(' ', 0, 0),
                              "--dialog-snapshot", "{dir}/pictures"};
        for (const QString& edit : actions.section(' ', 1).split(' '))
            arguments << "--dialog-edit" << edit;
        BridgedHost host(arguments);
        host.command("mgcconnect_open_options_dialog();");
        QStringList found;
        for (const QJsonObject& record : host.seen().records("dialog"))
            found << dialogRecord(record);
        // A PNG of 376 x 275 pixels: its signature, then width and height in its header.
        const QByteArray picture = readFile(host.path("pictures/dialog-1.png"));
        EXPECT_EQ((picture.left(8) + picture.mid(16, 8)).toHex(),
                  "89504e470d0a1a0a0000017800000113");
        found << settings(host);
        host.command("mgcconnect_disconnect();");
        host.command("mgcconnect_initialize(0, 0);");
        found << settings(host).last()
              << QString::number(host.seen().records("dialog_error").size());
        EXPECT_EQ(found.join(' '), "- false alib alib,rflib Local_Components_lib " + outcome);
        EXPECT_EQ(host.finish().exitCode, outcome.endsWith(" 0") ? 0 : 1);
    }
}

TEST(Bridge, PeersAreFoundListedSentWhatTheCommandsSendAndLetGo)
{
    BridgedHost host;
    const auto result = [&](const char* name) {
        return host.command(name + QString("();")).value("result");
    };
    Peer schematic(host.port, "DXD");
    EXPECT_EQ(result("mgcconnect_is_connected_to_schematic"), 1);
    auto layout = std::make_unique<Peer>(host.port, "BSXE");
    EXPECT_EQ(result("mgcconnect_is_connected_to_layout"), 1);
    EXPECT_EQ(host.listedPeers(), "list(,list(\"DXD\",1),list(\"BSXE\",2))");

    // A push-into request, then a design of two files: kind, properties and
    // text arrive; each line gains a line feed, and a file ending in one another.
    const QString sch = writeFile(host.path("amp.sch.iff"), "IFF 2.1\nCELL amp_top\nEND\n");
    const QString lay = writeFile(host.path("amp.lay.iff"), "IFF 2.1\nLAYOUT amp_top\nEND");
    host.command("mgcconnect_send_push_into_message(\"a\", \"b\", \"pa2\");");
    host.command("mgcconnect_designsend_command(\"" + sch + "\", \"" + lay +
                 R"(", "amp_top", "lna", "C:\\designs\\amp");)");
    ASSERT_TRUE(schematic.waitUntil([&] { return schematic.seen().out.count('\n') >= 3; }));
    EXPECT_EQ(
        schematic.seen().out.section('\n', 1),
        R"({"event":"message","kind":224,"kind_name":"eDoc_UserDefined","properties":)"
        R"({"HIGLIGHT_RFREGION":"pa2"},"text":""})"
        "\n"
        R"({"event":"message","kind":222,"kind_name":"eDoc_LibIFF","properties":{"RFDESIGN":)"
        R"("amp_top","RFREGION":"lna","RFDESIGNPATH":"C:\\designs\\amp"},"text":"IFF 2.1\nCELL )"
        R"(amp_top\nEND\n\nIFF 2.1\nLAYOUT amp_top\nEND\n"})"
        "\n");

    // A peer that leaves is no longer found; disconnect closes the others, and
    // the listener ends, saying why.
    layout.reset();
    for (QDeadlineTimer deadline(20000);
         result("mgcconnect_is_connected_to_layout") != 0 && !deadline.hasExpired();) {
    }
    EXPECT_EQ(host.listedPeers(), "list(,list(\"DXD\",1))");
    EXPECT_EQ(result("mgcconnect_disconnect"), 1);
    const HostRun ended = schematic.finish();
    EXPECT_TRUE(ended.exitCode == 0 && !ended.err.isEmpty()) << ended.err.toStdString();
    EXPECT_EQ(result("mgcconnect_is_connected_to_schematic"), 0);
    EXPECT_EQ(host.listedPeers(), "NULL");
    EXPECT_EQ(host.finish().exitCode, 0);
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
    EXPECT_EQ(calls(host),
              "get_workspace_path import_egs_file add_port_to_fathom_view add_port_to_fathom_view "
              "add_port_to_fathom_view add_port_to_fathom_view get_workspace_path "
              "get_netlists_path create_design get_workspace_path import_iff_file");
    // Every statement of a handler ran on the host's main thread, at the
    // plug-in's request from the messaging thread.
    for (const QJsonObject& eval : host.seen().records({"eval", "vocabulary", "Tessel_Voc"}))
        EXPECT_TRUE(eval["via"] == "idle" ||
                    eval["text"].toString().startsWith("mgclink_show_connected_servers"));

    // 212: the netlist saved, the design created with the enabled ports.
    const QString ws = host.path("workspace/");
    EXPECT_EQ(readFile(ws + "netlists/lna_top_lna.net"), readFile(EXAMPLES_DIR "/lna.net"));
    const QJsonObject design =
        QJsonDocument::fromJson(readFile(ws + "designs/lna_top_lna.design")).object();
    EXPECT_EQ(design["design_path"], "C:/designs/rf_frontend");
    EXPECT_EQ(fields(design["ports"], "label", "x"), "RFIN:0 RFOUT:412.25");
    // 222: the layout imported into rflib, the target, without overwriting.
    EXPECT_EQ(readFile(ws + "libraries/rflib/mgcLayoutTmp.iff"),
              readFile(EXAMPLES_DIR "/pa_layout.iff"));
    EXPECT_EQ(import["args"].toArray().last(), "FALSE");
    // 213: the EGS data saved and imported as an EM view holding the four ports.
    const QJsonObject view =
        QJsonDocument::fromJson(readFile(ws + "libraries/rflib/coupler_top_coupler.emview"))
            .object();
    EXPECT_EQ(view["source"], ws + "genFathom_a");
    EXPECT_EQ(fields(view["ports"], "name", "type"),
              "P1:internal P2:internal P3:external P4:external");

    // Still open: the command has not returned. The signal closes it unanswered.
    EXPECT_TRUE(host.seen().records({"command", "name", "mgcconnect_open_options_dialog"}).empty());
    host.process().terminate();
    const HostRun run = host.finish();
    EXPECT_EQ(run.exitCode, 128 + 15) << run.err.toStdString();
    EXPECT_EQ(run.values({"dialog", "when", "closed"}, "answer"), QJsonArray{QJsonValue()});
}

} // namespace
