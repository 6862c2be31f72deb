// Kind 213: the first region's EGS data saved as genFathom_a in the workspace,
// imported through mgclink_import_egs_file, then every port added to the view.

#include <QDir>
#include <gtest/gtest.h>

#include "options/optionnames.h"
#include "plugintest.h"
#include "server/xserverlumo.h"

namespace {

using RFMsgExp::MessageContent;
using RFMsgExp::PortContent;

// Fields: name, enabled, type, label, note, value, x, y.
PortContent port(std::string name, int type, double x, double y, double value, int enabled = 1)
{
    return {name, enabled, type, "label of " + name, "", value, x, y};
}

MessageContent emMessage(std::vector<PortContent> ports)
{
    MessageContent content =
        PluginTest::message(213, {PluginTest::region("lna", "netlist", std::move(ports)),
                                  PluginTest::region("pa", "", {port("Q1", 5, 1, 1, 1)})});
    content.document->label = "amp_top";
    content.document->name = "amp_top.sch";
    content.document->path = "C:/designs/amp";
    content.document->regions[0].egs = "EGS \"data\"\nof lna\n";
    content.document->portTypes = {{5, 0, "internal"}, {6, 1, "flagged"}, {7, 0, "external"}};
    return content;
}

std::string import(const std::string& egsFile, const std::string& designPath = "C:/designs/amp")
{
    return "mgclink_import_egs_file(''rflib'',''" + egsFile + "'', NULL, ''amp_top'',''lna'',''" +
           designPath + "'');";
}

class EmDataReceipt : public PluginTest
{
protected:
    void SetUp() override
    {
        PluginTest::SetUp();
        test.server().GetOptions().general().set_option(Tessel::OptionName::TargetLib, "rflib",
                                                        QString());
    }
    void TearDown() override
    {
        test.server().GetOptions().general().clear_options();
        PluginTest::TearDown();
    }

    // The statements that receiving `content` ran, the host answering `workspace`.
    std::vector<std::string> receive(const MessageContent& content,
                                     std::optional<std::string> workspace,
                                     std::vector<std::string> failing = {})
    {
        test.answerPaths(std::move(workspace), std::nullopt, std::move(failing));
        return received(content);
    }
};

// A disabled port is added all the same; failures are neither reported nor stop.
TEST_F(EmDataReceipt, ImportsTheFirstRegionThenAddsEveryPortWhateverTheHostAnswers)
{
    for (const std::vector<std::string>& failing : std::vector<std::vector<std::string>>{
             {}, {"mgclink_import_egs_file", "mgclink_add_port_to_fathom_view"}}) {
        SCOPED_TRACE(failing.size());
        EXPECT_EQ(receive(emMessage({port("P1", 5, 0, 1.5, 90),
                                     port("P\"2", 7, -2.5, 1e7, 0.001234567, 0)}),
                          "C:\\ws\\proj_wrk", failing),
                  (std::vector<std::string>{
                      WorkspaceQuery, host(import("C:/ws/proj_wrk/genFathom_a")),
                      host("mgclink_add_port_to_fathom_view(\"P1\",1,\"internal\",0,1.5,90);"),
                      host("mgclink_add_port_to_fathom_view(\"P\"2\",2,\"external\",-2.5,1e+07,"
                           "0.00123457);")}));
    }
}

// Relative names land in the test's own working directory.
TEST_F(EmDataReceipt, TheEgsFileIsWrittenWithASeparatorThatDependsOnASlash)
{
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"C:", "C:\\genFathom_a"},
        {"C:\\ws", "C:/ws/genFathom_a"},
        {dir.path().toStdString(), dir.path().toStdString() + "/genFathom_a"},
    };
    // No ports: written and imported only, the design path passed as it stands.
    MessageContent content = emMessage({});
    content.document->path = "C:\\designs\\a'mp";
    testing::internal::CaptureStderr();
    for (const auto& [workspace, egsFile] : rows) {
        SCOPED_TRACE(workspace);
        EXPECT_EQ(
            receive(content, workspace),
            (std::vector<std::string>{WorkspaceQuery, host(import(egsFile, "C:\\designs\\a'mp"))}));
    }
    EXPECT_NE(testing::internal::GetCapturedStderr().find(
                  "brio command: " + import("C:\\genFathom_a", "C:\\designs\\a'mp") + "\n"),
              std::string::npos);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files),
              (QStringList{"C:\\genFathom_a", "genFathom_a"}));
    EXPECT_EQ(fileContent(rows.back().second), "EGS \"data\"\nof lna\n");
}

TEST_F(EmDataReceipt, NoWorkspaceOrNoRegionDropsTheMessageSilently)
{
    MessageContent noRegions = emMessage({});
    noRegions.document->regions.clear();
    const MessageContent onePort = emMessage({port("P1", 5, 0, 0, 0)});
    const std::vector<std::string> queryOnly = {WorkspaceQuery};
    EXPECT_EQ(receive(onePort, std::nullopt), queryOnly);
    EXPECT_EQ(receive(onePort, "/ws", {"mgclink_get_workspace_path", "de_info", "fprintf"}),
              queryOnly);
    EXPECT_EQ(receive(noRegions, dir.path().toStdString()), queryOnly);
    EXPECT_TRUE(QDir(dir.path()).isEmpty());
}

TEST_F(EmDataReceipt, APortTypeOutsideTheMapEndsTheHandlerAfterTheEarlierPorts)
{
    for (const int type : {6, 99}) { // flagged, absent
        SCOPED_TRACE(type);
        EXPECT_EQ(receive(emMessage({port("P1", 5, 1, 2, 3), port("P2", type, 4, 5, 6),
                                     port("P3", 7, 7, 8, 9)}),
                          "C:\\ws\\proj_wrk"),
                  (std::vector<std::string>{
                      WorkspaceQuery, host(import("C:/ws/proj_wrk/genFathom_a")),
                      host("mgclink_add_port_to_fathom_view(\"P1\",1,\"internal\",1,2,3);"),
                      logged("Exception detected in OnReceive()")}));
    }
}

} // namespace
