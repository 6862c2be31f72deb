// Messages pushed by a peer process become files in the workspace and host
// actions, through the bridge, the plug-in and the host's idle requests.

#include <gtest/gtest.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>

#include "hostsession.h"
#include "messagefiles.h"
#include "peerprocess.h"

namespace {

class Receipt : public ::testing::Test
{
protected:
    void SetUp() override
    {
        port = host.startBridge();
        ASSERT_GT(port, 0) << E2E::journalDump(host);
    }

    QJsonObject workspaceJson(const QString& relative)
    {
        return QJsonDocument::fromJson(E2E::readFile(host.workspace() + "/" + relative)).object();
    }

    HostSession host;
    MessageFiles files;
    int port = 0;
};

TEST_F(Receipt, NetlistIsSavedAndTheHostCreatesTheDesignWithTheEnabledPorts)
{
    ASSERT_EQ(PeerProcess::send(port, "DXD", {files.example("netlist.json")}), 0);
    const std::vector<QJsonObject> calls = host.waitFor(RecordMatch::call("mgclink_create_design"));
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_TRUE(calls[0].value("ok").toBool()) << calls[0].value("reason").toString().toStdString();

    const std::vector<QJsonObject> creates =
        host.records(RecordMatch::eval("mgclink_create_design"));
    ASSERT_EQ(creates.size(), 1u);
    EXPECT_EQ(creates[0].value("text").toString(),
              "mgclink_create_design(\"\", \"lna_top_lna\", \"lna_top.sch\", "
              "\"C:/designs/rf_frontend\", \"lna\", 2, "
              "list(list(\"RFIN\",0,1.5,1,0),list(\"RFOUT\",412.25,1.5,2,0)), 0);");
    // Every statement of the handler was performed on the host's main thread
    // at the plug-in's request from the messaging thread.
    for (const QJsonObject& eval : host.records(RecordMatch::event("eval"))) {
        if (eval.value("vocabulary") == "Tessel_Voc" &&
            !eval.value("text").toString().startsWith("mgclink_show_connected_servers")) {
            EXPECT_EQ(eval.value("via").toString(), "idle")
                << eval.value("text").toString().toStdString();
        }
    }

    const QString netlist = host.workspace() + "/netlists/lna_top_lna.net";
    EXPECT_EQ(E2E::readFile(netlist), E2E::readFile(files.example("lna.net")));
    const QJsonObject design = workspaceJson("designs/lna_top_lna.design");
    EXPECT_EQ(design.value("netlist").toString(), netlist);
    EXPECT_TRUE(design.value("netlist_found").toBool());
    EXPECT_EQ(design.value("design_path").toString(), "C:/designs/rf_frontend");
    EXPECT_EQ(design.value("port_count").toInt(), 2);
    const QJsonArray ports = design.value("ports").toArray();
    ASSERT_EQ(ports.size(), 2);
    EXPECT_EQ(ports[0].toObject().value("label").toString(), "RFIN");
    EXPECT_EQ(ports[1].toObject().value("label").toString(), "RFOUT");
    EXPECT_EQ(ports[1].toObject().value("number").toInt(), 2);
    EXPECT_DOUBLE_EQ(ports[1].toObject().value("x").toDouble(), 412.25);
}

TEST_F(Receipt, RegionWithoutPortsGivesNullAndTheBlankCountOfTheFirstBrackets)
{
    const QString description = files.exampleWith("netlist.json", [](QJsonObject& message) {
        QJsonObject document = message.value("document").toObject();
        QJsonArray regions = document.value("regions").toArray();
        QJsonObject region = regions[0].toObject();
        region.remove("ports");
        regions[0] = region;
        document["regions"] = regions;
        message["document"] = document;
    });
    ASSERT_EQ(PeerProcess::send(port, "DXD", {description}), 0);
    ASSERT_EQ(host.waitFor(RecordMatch::call("mgclink_create_design")).size(), 1u);

    // "subckt lna ( RFIN RFOUT VDD GND )": three blanks between the brackets' insides.
    const QJsonObject design = workspaceJson("designs/lna_top_lna.design");
    EXPECT_EQ(design.value("port_count").toInt(), 3);
    EXPECT_TRUE(design.value("ports").isNull());
    EXPECT_TRUE(host.records(RecordMatch::eval("mgclink_create_design"))
                    .at(0)
                    .value("text")
                    .toString()
                    .endsWith("\"lna\", 3, NULL, 0);"));
}

TEST_F(Receipt, IffLayoutIsSavedInTheWorkspaceAndImportedIntoTheTargetLibrary)
{
    ASSERT_EQ(PeerProcess::send(port, "BSXE", {files.example("iff.json")}), 0);
    const std::vector<QJsonObject> calls =
        host.waitFor(RecordMatch::call("mgclink_import_iff_file"));
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_TRUE(calls[0].value("ok").toBool()) << calls[0].value("reason").toString().toStdString();

    const QString saved = host.workspace() + "/mgcLayoutTmp.iff";
    // Local_Components_lib is excluded from the choice, so rflib is the target;
    // designs are not overwritten by default.
    EXPECT_EQ(host.records(RecordMatch::eval("mgclink_import_iff_file")).at(0).value("text"),
              "mgclink_import_iff_file(\"rflib\", \"" + saved + "\", \"FALSE\");");
    const QByteArray layout = E2E::readFile(files.example("pa_layout.iff"));
    EXPECT_EQ(E2E::readFile(saved), layout);
    EXPECT_EQ(E2E::readFile(host.workspace() + "/libraries/rflib/mgcLayoutTmp.iff"), layout);
}

TEST_F(Receipt, SecondIffImportWithoutOverwritingFailsAndTellsTheUser)
{
    const QString iff = files.example("iff.json");
    ASSERT_EQ(PeerProcess::send(port, "BSXE", {iff, iff}), 0);
    const std::vector<QJsonObject> calls =
        host.waitFor(RecordMatch::call("mgclink_import_iff_file"), 2);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_TRUE(calls[0].value("ok").toBool());
    EXPECT_FALSE(calls[1].value("ok").toBool());
    ASSERT_EQ(host.waitFor(RecordMatch::info("Tessel Error: ")).size(), 1u);
    EXPECT_EQ(host.records(RecordMatch::info("Tessel Error: ")).at(0).value("text"),
              "Tessel Error: IFF import failed");
    EXPECT_EQ(host.waitFor(RecordMatch::log("Tessel:Error: ")).at(0).value("text"),
              "Tessel:Error: IFF import failed\n");
}

TEST_F(Receipt, EmDataIsImportedAndEveryPortIsAddedToTheEmView)
{
    ASSERT_EQ(PeerProcess::send(port, "BSXE", {files.example("em_data.json")}), 0);
    const std::vector<QJsonObject> ports =
        host.waitFor(RecordMatch::call("mgclink_add_port_to_fathom_view"), 4);
    ASSERT_EQ(ports.size(), 4u);

    const QString egs = host.workspace() + "/genFathom_a";
    EXPECT_EQ(E2E::readFile(egs), E2E::readFile(files.example("coupler.egs")));
    const QString import = "mgclink_import_egs_file(''rflib'',''" + egs +
                           "'', NULL, ''coupler_top'',''coupler'',''C:\\designs\\rf_frontend'');";
    EXPECT_EQ(host.records(RecordMatch::eval("mgclink_import_egs_file")).at(0).value("text"),
              import);
    EXPECT_TRUE(host.waitForError("brio command: " + import + "\n"));
    const std::vector<QJsonObject> adds =
        host.records(RecordMatch::eval("mgclink_add_port_to_fathom_view"));
    ASSERT_EQ(adds.size(), 4u);
    EXPECT_EQ(adds[0].value("text"),
              "mgclink_add_port_to_fathom_view(\"P1\",1,\"internal\",0,550,50);");
    EXPECT_EQ(adds[3].value("text"),
              "mgclink_add_port_to_fathom_view(\"P4\",4,\"external\",3000,1650,50);");

    const QJsonObject view = workspaceJson("libraries/rflib/coupler_top_coupler.emview");
    EXPECT_EQ(view.value("source").toString(), egs);
    const QJsonArray viewPorts = view.value("ports").toArray();
    ASSERT_EQ(viewPorts.size(), 4);
    EXPECT_EQ(viewPorts[2].toObject().value("name").toString(), "P3");
    EXPECT_EQ(viewPorts[2].toObject().value("type").toString(), "external");
}

TEST_F(Receipt, PortOfAnUnlistedTypeEndsTheEmHandlerAndTheNextMessageIsHandled)
{
    // Type 2 is listed with a non-zero flag, so it is not in the map.
    const QString description = files.exampleWith("em_data.json", [](QJsonObject& message) {
        QJsonObject document = message.value("document").toObject();
        QJsonArray regions = document.value("regions").toArray();
        QJsonObject region = regions[0].toObject();
        QJsonArray ports = region.value("ports").toArray();
        QJsonObject third = ports[2].toObject();
        third["type"] = 2;
        ports[2] = third;
        region["ports"] = ports;
        regions[0] = region;
        document["regions"] = regions;
        message["document"] = document;
    });
    ASSERT_EQ(PeerProcess::send(port, "BSXE", {description, files.example("netlist.json")}), 0);
    ASSERT_EQ(host.waitFor(RecordMatch::call("mgclink_create_design")).size(), 1u);
    EXPECT_EQ(host.records(RecordMatch::call("mgclink_add_port_to_fathom_view")).size(), 2u);
    EXPECT_EQ(host.records(RecordMatch::log("Tessel:Exception detected in OnReceive()\n")).size(),
              1u);
}

TEST_F(Receipt, KindsNotHandledAreLoggedAsIgnoredInArrivalOrder)
{
    struct Row
    {
        int kind;
        QString name;
    };
    const std::vector<Row> rows = {{214, "eDoc_BRIOScript"},
                                   {0, "eSys_OnUndef"},
                                   {70, "unknown event type"},
                                   {224, "eDoc_UserDefined"},
                                   {230, "unknown event type"}};
    QStringList descriptions;
    for (const Row& row : rows)
        descriptions << files.write("kind" + QString::number(row.kind),
                                    QJsonObject{{"kind", row.kind}, {"text", "de_info(\"x\");"}});
    descriptions << files.example("netlist.json");
    ASSERT_EQ(PeerProcess::send(port, "DXD", descriptions), 0);
    ASSERT_EQ(host.waitFor(RecordMatch::call("mgclink_create_design")).size(), 1u);

    const std::vector<QJsonObject> logs = host.records(RecordMatch::log("Tessel:Message type "));
    ASSERT_EQ(logs.size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].kind);
        EXPECT_EQ(logs[i].value("text").toString(),
                  "Tessel:Message type " + rows[i].name + " is ignored\n");
    }
    // The BRIO text of kind 214 was not run.
    EXPECT_TRUE(host.records(RecordMatch::info("x")).empty());
    EXPECT_LT(host.indexOf(RecordMatch::log("Tessel:Message type unknown event type")),
              host.indexOf(RecordMatch::call("mgclink_create_design")));
}

TEST_F(Receipt, MessagesOfOnePeerAreHandledOneAfterAnotherInArrivalOrder)
{
    ASSERT_EQ(PeerProcess::send(port, "DXD",
                                {files.example("em_data.json"), files.example("netlist.json"),
                                 files.example("iff.json")}),
              0);
    ASSERT_EQ(host.waitFor(RecordMatch::call("mgclink_import_iff_file")).size(), 1u);
    const int lastPort = [&] {
        int last = -1;
        const std::vector<QJsonObject>& journal = host.journal();
        for (std::size_t i = 0; i < journal.size(); ++i)
            if (RecordMatch::call("mgclink_add_port_to_fathom_view").matches(journal[i]))
                last = static_cast<int>(i);
        return last;
    }();
    ASSERT_GE(lastPort, 0);
    EXPECT_LT(host.indexOf(RecordMatch::call("mgclink_import_egs_file")), lastPort);
    EXPECT_LT(lastPort, host.indexOf(RecordMatch::call("mgclink_create_design")));
    EXPECT_LT(host.indexOf(RecordMatch::call("mgclink_create_design")),
              host.indexOf(RecordMatch::call("mgclink_import_iff_file")));
}

} // namespace
