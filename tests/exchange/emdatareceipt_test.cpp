// Kind 213: the first region's EGS data saved as genFathom_a in the workspace,
// imported through mgclink_import_egs_file, then every port added to the view.

#include <functional>
#include <string>
#include <vector>

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "exchangeseams.h"
#include "options/optionnames.h"

namespace {

using namespace ExchangeSeams;
using RFMsgExp::DocumentContent;
using RFMsgExp::MessageContent;
using RFMsgExp::PortContent;
using RFMsgExp::PortTypeContent;
using RFMsgExp::RegionContent;

PortContent port(std::string name, int type, double x, double y, double value, int enabled = 1)
{
    PortContent port;
    port.name = std::move(name);
    port.enabled = enabled;
    port.type = type;
    port.label = "label of " + port.name;
    port.value = value;
    port.x = x;
    port.y = y;
    return port;
}

MessageContent emMessage(std::vector<PortContent> ports, std::string designPath = "C:/designs/amp")
{
    RegionContent lna;
    lna.name = "lna";
    lna.netlist = "netlist that EM data never uses";
    lna.egs = "EGS \"data\"\nof lna\n";
    lna.ports = std::move(ports);
    RegionContent pa;
    pa.name = "pa";
    pa.egs = "EGS of pa";
    pa.ports = {port("Q1", 5, 1, 1, 1)};

    DocumentContent document;
    document.label = "amp_top";
    document.name = "amp_top.sch";
    document.path = std::move(designPath);
    document.regions = {lna, pa};
    document.portTypes = {{5, 0, "internal"}, {6, 1, "flagged"}, {7, 0, "external"}};
    MessageContent content;
    content.kind = 213;
    content.document = std::move(document);
    return content;
}

class EmDataReceipt : public SeamTest
{
protected:
    void SetUp() override
    {
        SeamTest::SetUp();
        ASSERT_TRUE(workspace.isValid());
        Tessel::GeneralOptions& general = test.server().GetOptions().general();
        general.clear_options();
        general.set_option(Tessel::OptionName::TargetLib, "rflib", QString());
        test.answerPaths("C:\\ws\\proj_wrk", std::nullopt);
    }

    void TearDown() override
    {
        test.server().GetOptions().general().clear_options();
        SeamTest::TearDown();
    }

    QTemporaryDir workspace;
};

const char exampleImport[] = "mgclink_import_egs_file(''rflib'',''C:/ws/proj_wrk/genFathom_a'', "
                             "NULL, ''amp_top'',''lna'',''C:/designs/amp'');";

TEST_F(EmDataReceipt, ImportsTheFirstRegionThenAddsEveryPortInOrder)
{
    receive(test, emMessage({port("P1", 5, 0, 1.5, 90), port("P2", 7, -2.5, 1e7, 0.001234567, 0)}));
    // A disabled port is added all the same.
    EXPECT_EQ(statements(),
              (std::vector<HostStatement>{
                  workspaceQuery(), host(exampleImport),
                  host("mgclink_add_port_to_fathom_view(\"P1\",1,\"internal\",0,1.5,90);"),
                  host("mgclink_add_port_to_fathom_view(\"P2\",2,\"external\",-2.5,1e+07,"
                       "0.00123457);")}));
}

TEST_F(EmDataReceipt, TheEgsFileNameSeparatorDependsOnASlashInTheWorkspace)
{
    struct Row
    {
        std::string workspace;
        std::string egsFile;
    };
    const std::vector<Row> rows = {
        {"C:", "C:\\genFathom_a"},
        {"C:\\ws", "C:/ws/genFathom_a"},
        {"/missing/w\"s", "/missing/w\"s/genFathom_a"},
        {"ws", "ws\\genFathom_a"},
    };
    // Relative names land in the working directory: make that a temporary one.
    const WorkingDirectory workingDirectory(workspace.path());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.workspace);
        test.reset();
        test.answerPaths(row.workspace, std::nullopt);
        receive(test, emMessage({}));
        EXPECT_EQ(statements(), (std::vector<HostStatement>{
                                    workspaceQuery(),
                                    host("mgclink_import_egs_file(''rflib'',''" + row.egsFile +
                                         "'', NULL, ''amp_top'',''lna'',''C:/designs/amp'');")}));
    }
    EXPECT_EQ(QDir(workspace.path()).entryList(QDir::Files),
              (QStringList{"C:\\genFathom_a", "ws\\genFathom_a"}));
}

TEST_F(EmDataReceipt, TheDesignPathIsPassedAsItStands)
{
    receive(test, emMessage({}, "C:\\designs\\a'mp"));
    EXPECT_EQ(statements().back(),
              host("mgclink_import_egs_file(''rflib'',''C:/ws/proj_wrk/genFathom_a'', NULL, "
                   "''amp_top'',''lna'',''C:\\designs\\a'mp'');"));
}

TEST_F(EmDataReceipt, WithoutPortsTheEgsDataIsWrittenAndImportedOnly)
{
    test.answerPaths(workspace.path().toStdString(), std::nullopt);
    testing::internal::CaptureStderr();
    receive(test, emMessage({}));
    const std::string standardError = testing::internal::GetCapturedStderr();

    const std::string egsFile = workspace.path().toStdString() + "/genFathom_a";
    const std::string import = "mgclink_import_egs_file(''rflib'',''" + egsFile +
                               "'', NULL, ''amp_top'',''lna'',''C:/designs/amp'');";
    EXPECT_EQ(statements(), (std::vector<HostStatement>{workspaceQuery(), host(import)}));
    EXPECT_EQ(fileContent(egsFile), std::string("EGS \"data\"\nof lna\n"));
    EXPECT_NE(standardError.find("brio command: " + import + "\n"), std::string::npos)
        << standardError;
}

TEST_F(EmDataReceipt, NoWorkspaceOrNoRegionDropsTheMessageSilently)
{
    MessageContent noRegions = emMessage({});
    noRegions.document->regions.clear();
    const std::vector<std::pair<const char*, std::function<void()>>> cases = {
        {"variable unset", [&] { receive(test, emMessage({port("P1", 5, 0, 0, 0)})); }},
        {"every statement fails",
         [&] {
             test.brio.setEvaluator([](const std::string&, const std::string&) { return false; });
             receive(test, emMessage({port("P1", 5, 0, 0, 0)}));
         }},
        {"no region",
         [&] {
             test.answerPaths(workspace.path().toStdString(), std::nullopt);
             receive(test, noRegions);
         }},
    };
    for (const auto& [name, run] : cases) {
        SCOPED_TRACE(name);
        test.reset();
        run();
        EXPECT_EQ(statements(), (std::vector<HostStatement>{workspaceQuery()}));
        EXPECT_TRUE(QDir(workspace.path()).isEmpty());
    }
}

TEST_F(EmDataReceipt, APortTypeOutsideTheMapEndsTheHandlerAfterTheEarlierPorts)
{
    for (int type : {6, 99}) {
        SCOPED_TRACE(type);
        test.brio.clearStatements();
        receive(test, emMessage({port("P1", 5, 1, 2, 3), port("P2", type, 4, 5, 6),
                                 port("P3", 7, 7, 8, 9)}));
        EXPECT_EQ(statements(),
                  (std::vector<HostStatement>{
                      workspaceQuery(), host(exampleImport),
                      host("mgclink_add_port_to_fathom_view(\"P1\",1,\"internal\",1,2,3);"),
                      message("fprintf(stderr,\"Tessel:Exception detected in OnReceive()\n\");")}));
    }
}

TEST_F(EmDataReceipt, FailedHostCommandsAreNeitherReportedNorStopTheHandler)
{
    test.answerPaths("C:\\ws\\proj_wrk", std::nullopt,
                     {"mgclink_import_egs_file", "mgclink_add_port_to_fathom_view"});
    receive(test, emMessage({port("P\"1", 5, 0, 0, 0), port("P2", 5, 0, 0, 0)}));
    EXPECT_EQ(statements(),
              (std::vector<HostStatement>{
                  workspaceQuery(), host(exampleImport),
                  host("mgclink_add_port_to_fathom_view(\"P\"1\",1,\"internal\",0,0,0);"),
                  host("mgclink_add_port_to_fathom_view(\"P2\",2,\"internal\",0,0,0);")}));
}

} // namespace
