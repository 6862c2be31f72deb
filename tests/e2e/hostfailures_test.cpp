// What the user is told when the host cannot do what the plug-in asks: no
// workspace open, or a host function that fails (lumo-host --fail).

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include "hostsession.h"
#include "messagefiles.h"
#include "peerprocess.h"

namespace {

const QString CreateDesign = "mgclink_create_design(\"\", \"lna_top_lna\", \"lna_top.sch\", "
                             "\"C:/designs/rf_frontend\", \"lna\", 2, "
                             "list(list(\"RFIN\",0,1.5,1,0),list(\"RFOUT\",412.25,1.5,2,0)), 0);";

// The plug-in's lines of the information window and of the log, leaving out
// the start-up line.
QStringList infoTexts(HostSession& host)
{
    QStringList texts;
    for (const QJsonObject& record : host.records(RecordMatch::event("info")))
        texts << record.value("text").toString();
    return texts;
}

QStringList logTexts(HostSession& host)
{
    QStringList texts;
    for (const QJsonObject& record : host.records(RecordMatch::log("Tessel:")))
        if (!record.value("text").toString().startsWith("Tessel:Server started"))
            texts << record.value("text").toString();
    return texts;
}

TEST(HostFailures, WithoutWorkspaceNetlistAndIffAreRefusedWithAnErrorAndEmDataIsDropped)
{
    HostSession host(HostSetup({}, false));
    const int port = host.startBridge();
    ASSERT_GT(port, 0);
    MessageFiles files;
    ASSERT_EQ(PeerProcess::send(port, "DXD",
                                {files.example("em_data.json"), files.example("netlist.json"),
                                 files.example("iff.json")}),
              0);
    host.waitFor(RecordMatch::log("Tessel:Error: No workspace"));

    EXPECT_EQ(infoTexts(host),
              (QStringList{"Tessel Error: LUMO project must be opened before receiving Mentor "
                           "design netlist",
                           "Tessel Error: No workspace is open - unable to import IFF data"}));
    EXPECT_EQ(logTexts(host),
              (QStringList{"Tessel:Error: LUMO project must be opened before receiving Mentor "
                           "design netlist\n",
                           "Tessel:Error: No workspace is open - unable to import IFF data\n"}));
    // Nothing further was asked of the host, and nothing was written.
    EXPECT_TRUE(
        host.records(RecordMatch::eval("mgcIntermediate=mgclink_get_netlists_path")).empty());
    for (const QString function : {"mgclink_create_design", "mgclink_import_iff_file",
                                   "mgclink_import_egs_file", "mgclink_add_port_to_fathom_view"})
        EXPECT_TRUE(host.records(RecordMatch::call(function)).empty()) << function.toStdString();
    EXPECT_FALSE(QFile::exists(host.path("mgcLayoutTmp.iff")));
    EXPECT_FALSE(QFile::exists(host.path("genFathom_a")));
    EXPECT_EQ(host.finish(), 0);
}

TEST(HostFailures, FailingHostFunctionsAreReportedAsTheirHandlerSays)
{
    struct Row
    {
        QStringList failing;
        QString example;
        // The record that tells the handler has finished.
        RecordMatch done;
        QStringList infos;
        QStringList logs;
        // A statement the plug-in must have handed to the host, exactly.
        QString statement;
    };
    const std::vector<Row> rows = {
        // The command's own quotes are not escaped in the log statement, so
        // the host refuses it as a syntax error: the line never shows.
        {{"mgclink_create_design"},
         "netlist.json",
         RecordMatch::eval("fprintf(stderr,\"Tessel:Execute BRIO command failed: "),
         {},
         {},
         "fprintf(stderr,\"Tessel:Execute BRIO command failed: " + CreateDesign + "\n\");"},
        {{"mgclink_import_iff_file"},
         "iff.json",
         RecordMatch::log("Tessel:Error: IFF import failed"),
         {"Tessel Error: IFF import failed"},
         {"Tessel:Error: IFF import failed\n"},
         {}},
        {{"mgclink_get_workspace_path"},
         "netlist.json",
         RecordMatch::log("Tessel:Error: "),
         {"Tessel Error: LUMO project must be opened before receiving Mentor design netlist"},
         {"Tessel:Error: LUMO project must be opened before receiving Mentor design netlist\n"},
         {}},
        {{"mgclink_get_workspace_path"},
         "iff.json",
         RecordMatch::log("Tessel:Error: "),
         {"Tessel Error: No workspace is open - unable to import IFF data"},
         {"Tessel:Error: No workspace is open - unable to import IFF data\n"},
         {}},
        // Import results are not looked at: the ports are still tried, and fail
        // for want of an EM view, without a word.
        {{"mgclink_import_egs_file"},
         "em_data.json",
         {"the fourth port",
          [](const QJsonObject& record) {
              return RecordMatch::call("mgclink_add_port_to_fathom_view").matches(record) &&
                     record.value("args").toArray().at(1).toInt() == 4;
          }},
         {},
         {},
         {}},
        // Each channel goes on without the other.
        {{"mgclink_import_iff_file", "de_info"},
         "iff.json",
         RecordMatch::log("Tessel:Error: IFF import failed"),
         {},
         {"Tessel:Error: IFF import failed\n"},
         {}},
        {{"mgclink_import_iff_file", "fprintf"},
         "iff.json",
         RecordMatch::info("Tessel Error: IFF import failed"),
         {"Tessel Error: IFF import failed"},
         {},
         {}},
    };
    MessageFiles files;
    for (const Row& row : rows) {
        SCOPED_TRACE((row.failing.join(", ") + " with " + row.example).toStdString());
        QStringList arguments;
        for (const QString& function : row.failing)
            arguments << "--fail" << function;
        HostSession host{HostSetup(arguments)};
        const int port = host.startBridge();
        ASSERT_GT(port, 0);
        ASSERT_EQ(PeerProcess::send(port, "DXD", {files.example(row.example)}), 0);
        ASSERT_EQ(host.waitFor(row.done).size(), 1u);
        // A failing fprintf fails "Server started" too; anything after the
        // awaited record would belong to no handler of ours.
        EXPECT_EQ(infoTexts(host), row.infos);
        EXPECT_EQ(logTexts(host), row.logs);
        if (!row.statement.isEmpty()) {
            const std::vector<QJsonObject> evals = host.records(row.done);
            ASSERT_EQ(evals.size(), 1u);
            EXPECT_EQ(evals[0].value("text").toString(), row.statement);
            EXPECT_EQ(evals[0].value("vocabulary").toString(), "CmdOp");
        }
        for (const QString& function : row.failing)
            for (const QJsonObject& call : host.records(RecordMatch::call(function)))
                EXPECT_FALSE(call.value("ok").toBool());
        // The host and the link go on: the statement that failed does not end it.
        EXPECT_EQ(host.finish(), 0) << host.errors().toStdString();
    }
}

TEST(HostFailures, EmViewWithoutItsPortsWhenTheHostRefusesThem)
{
    HostSession host(HostSetup({"--fail", "mgclink_add_port_to_fathom_view"}));
    const int port = host.startBridge();
    ASSERT_GT(port, 0);
    MessageFiles files;
    ASSERT_EQ(PeerProcess::send(port, "BSXE", {files.example("em_data.json")}), 0);
    ASSERT_EQ(host.waitFor(RecordMatch::call("mgclink_add_port_to_fathom_view"), 4).size(), 4u);
    EXPECT_TRUE(infoTexts(host).isEmpty());
    EXPECT_TRUE(logTexts(host).isEmpty());
    const QJsonObject view =
        QJsonDocument::fromJson(
            E2E::readFile(host.workspace() + "/libraries/rflib/coupler_top_coupler.emview"))
            .object();
    EXPECT_EQ(view.value("region").toString(), "coupler");
    EXPECT_TRUE(view.value("ports").toArray().isEmpty());
}

} // namespace
