// Each kind received through OnReceive on a messaging thread. Kind 212: the
// first region's netlist saved in the netlists directory and the design
// created through mgclink_create_design. Kind 213: the first region's EGS data
// saved as genFathom_a in the workspace, imported through
// mgclink_import_egs_file, then every port added to the view. Kind 222: the
// IFF text saved as mgcLayoutTmp.iff in the workspace and imported through
// mgclink_import_iff_file.

#include <algorithm>

#include <QDir>
#include <gtest/gtest.h>

#include "options/optionnames.h"
#include "plugintest.h"
#include "server/xserverlumo.h"

namespace {

using RFMsgExp::MessageContent;
using RFMsgExp::PortContent;

MessageContent netlistMessage(std::string designName, std::vector<RFMsgExp::RegionContent> regions)
{
    MessageContent content = PluginTest::message(212, std::move(regions));
    content.document->label = "a label";
    content.document->name = std::move(designName);
    content.document->path = "C:\\d\\p";
    return content;
}

// Fields: name, enabled, type, label, note, value, x, y.
PortContent port(std::string label, double x, double y, int type, int enabled = 1)
{
    return {"name of " + label, enabled, type, std::move(label), "a note", 50, x, y};
}

std::string create(const std::string& cell, const std::string& design, const std::string& region,
                   int count, const std::string& ports = "NULL")
{
    return "mgclink_create_design(\"\", \"" + cell + "\", \"" + design + "\", \"C:/d/p\", \"" +
           region + "\", " + std::to_string(count) + ", " + ports + ", 0);";
}

class NetlistReceipt : public PluginTest
{
protected:
    void SetUp() override
    {
        PluginTest::SetUp();
        test.answerPaths("/no/workspace/needed", netlists);
    }

    // What a message creating `command` runs, after both path queries.
    static std::vector<std::string> created(const std::string& command)
    {
        return {WorkspaceQuery, NetlistsQuery, host(command)};
    }

    const std::string netlists = dir.path().toStdString();
};

// Ports are numbered by those taken, disabled ones left out, coordinates as %g.
TEST_F(NetlistReceipt, CreatesTheDesignOfTheFirstRegionWithItsEnabledPorts)
{
    const std::string netlist = "* amp\nX1 ( in out gnd )\n";
    EXPECT_EQ(received(netlistMessage(
                  "amp_top.sch",
                  {region("lna", netlist,
                          {port("in \"rf\"\\", 1234567.0, -0.000012345, -3), port("b", 1, 1, 1, 0),
                           port("c", 0.1 + 0.2, 1e6, 7), port("d", 100000, 1e-5, 2147483647)}),
                   region("pa", "other netlist", {port("Q", 1, 1, 1)})})),
              created(create("amp_top_lna", "amp_top.sch", "lna", 3,
                             "list(list(\"in \"rf\"\\\",1.23457e+06,-1.2345e-05,1,-3),"
                             "list(\"c\",0.3,1e+06,2,7),list(\"d\",100000,1e-05,3,2147483647))")));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"amp_top_lna.net"});
    EXPECT_EQ(fileContent(netlists + "/amp_top_lna.net"), netlist);
    EXPECT_EQ(
        received(netlistMessage("d.sch", {region("r", "( a b c )", {port("a", 1, 1, 1, 0)})})),
        created(create("d_r", "d.sch", "r", 0, "list()")));
}

TEST_F(NetlistReceipt, CellNameAndPortlessCountFollowTheNamesAndTheFirstBrackets)
{
    // The count is the blanks from two places after the first "(" up to the
    // character before the first ")"; when that ")" is too close or comes
    // first, up to the end. Names go in unescaped. -1: the count throws.
    // design, region, netlist, cell name, count
    const std::tuple<std::string, std::string, std::string, std::string, int> rows[] = {
        // clang-format off
        {"amp_top.sch", "lna", "X1 ( a b c ) Y", "amp_top_lna", 2}, {"abc", "r1", "(x y)", "abc_r1", 1},
        {"abcd", "r1", "(xy )", "_r1", 0}, {"q\"x.sch", "r\"1", "no brackets", "q\"x_r\"1", 0},
        {"a b.sch", "l n a", "only ( o p e n", "a b_l n a", 0}, {"d.sch", "r", " a b ) close", "d_r", 0},
        {"d.sch", "r", "() a b", "d_r", 2}, {"d.sch", "r", "(ab)", "d_r", 0},
        {"d.sch", "r", ") a ( b c d e", "d_r", 3}, {"d.sch", "r", "a) b ( ", "d_r", 0},
        {"d.sch", "r", "a) b (", "d_r", -1},
        // clang-format on
    };
    for (const auto& [design, region, netlist, cell, count] : rows) {
        SCOPED_TRACE(design + " / " + region + " / " + netlist);
        const auto ran = received(netlistMessage(design, {PluginTest::region(region, netlist)}));
        EXPECT_EQ(ran.size(), 3u);
        EXPECT_EQ(ran.back(), count < 0 ? logged("Exception detected in OnReceive()")
                                        : host(create(cell, design, region, count)));
        // Written before the count is taken.
        EXPECT_EQ(fileContent(netlists + "/" + cell + ".net"), netlist);
    }
}

// A file name that could leave the netlists folder is refused with one error
// naming the design, escaped so that no name ends the host's string.
TEST_F(NetlistReceipt, ANameThatLeavesTheNetlistsFolderIsRefusedOnceAndWritesNothing)
{
    const QString netlistsFolder = dir.filePath("workspace/netlists");
    ASSERT_TRUE(QDir().mkpath(netlistsFolder));
    test.answerPaths("/no/workspace/needed", netlistsFolder.toStdString());
    struct Row
    {
        std::string design, region, shownDesign, shownFile;
    };
    const std::vector<Row> rows = {
        {"../../outside/pwned.sch", "lna", "../../outside/pwned.sch", "../../outside/pwned_lna"},
        {"amp.sch", "..\\lna", "amp.sch", "amp_..\\\\lna"},
        {"q\"\\\");x.sch", "r", "q\\\"\\\\\\\");x.sch", "q\\\"\\\\\\\");x_r"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.design + " / " + row.region);
        const std::string error = "Netlist of design \\\"" + row.shownDesign +
                                  "\\\" refused: its file name \\\"" + row.shownFile +
                                  ".net\\\" is not a plain name in the netlists folder";
        EXPECT_EQ(received(netlistMessage(row.design, {region(row.region, "( a b )")})),
                  (std::vector<std::string>{WorkspaceQuery, NetlistsQuery, shownError(error),
                                            logged("Error: " + error)}));
    }
    EXPECT_TRUE(QDir(netlistsFolder).isEmpty());
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList{"workspace"});
}

TEST_F(NetlistReceipt, NoRegionNoWorkspaceOrAFailingHostCreatesNothing)
{
    EXPECT_EQ(received(netlistMessage("d.sch", {})),
              (std::vector<std::string>{WorkspaceQuery, NetlistsQuery}));
    const std::string error = "LUMO project must be opened before receiving Mentor design netlist";
    for (const bool hostFailsAll : {false, true}) {
        SCOPED_TRACE(hostFailsAll ? "every statement fails" : "no workspace");
        test.answerPaths(hostFailsAll ? std::optional<std::string>("/ws") : std::nullopt, netlists,
                         hostFailsAll ? std::vector<std::string>{"mgclink_get_workspace_path",
                                                                 "de_info", "fprintf"}
                                      : std::vector<std::string>{});
        EXPECT_EQ(received(netlistMessage("d.sch", {region("r", "n")})),
                  (std::vector<std::string>{WorkspaceQuery, shownError(error),
                                            logged("Error: " + error)}));
    }
    EXPECT_TRUE(QDir(dir.path()).isEmpty());

    test.answerPaths("/ws", netlists, {"mgclink_create_design"});
    const std::string command = create("d_r", "d.sch", "r", 1);
    EXPECT_EQ(received(netlistMessage("d.sch", {region("r", "(x y)")})).back(),
              logged("Execute BRIO command failed: " + command));
}

// Fields: name, enabled, type, label, note, value, x, y.
PortContent emPort(std::string name, int type, double x, double y, double value, int enabled = 1)
{
    return {name, enabled, type, "label of " + name, "", value, x, y};
}

MessageContent emMessage(std::vector<PortContent> ports)
{
    MessageContent content =
        PluginTest::message(213, {PluginTest::region("lna", "netlist", std::move(ports)),
                                  PluginTest::region("pa", "", {emPort("Q1", 5, 1, 1, 1)})});
    content.document->label = "amp_top";
    content.document->name = "amp_top.sch";
    content.document->path = "C:/designs/amp";
    content.document->regions[0].egs = "EGS \"data\"\nof lna\n";
    content.document->portTypes = {{5, 0, "internal"}, {6, 1, "flagged"}, {7, 0, "external"}};
    return content;
}

std::string egsImport(const std::string& egsFile, const std::string& designPath = "C:/designs/amp")
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
        EXPECT_EQ(receive(emMessage({emPort("P1", 5, 0, 1.5, 90),
                                     emPort("P\"2", 7, -2.5, 1e7, 0.001234567, 0)}),
                          "C:\\ws\\proj_wrk", failing),
                  (std::vector<std::string>{
                      WorkspaceQuery, host(egsImport("C:/ws/proj_wrk/genFathom_a")),
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
        EXPECT_EQ(receive(content, workspace),
                  (std::vector<std::string>{WorkspaceQuery,
                                            host(egsImport(egsFile, "C:\\designs\\a'mp"))}));
    }
    EXPECT_NE(testing::internal::GetCapturedStderr().find(
                  "brio command: " + egsImport("C:\\genFathom_a", "C:\\designs\\a'mp") + "\n"),
              std::string::npos);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files),
              (QStringList{"C:\\genFathom_a", "genFathom_a"}));
    EXPECT_EQ(fileContent(rows.back().second), "EGS \"data\"\nof lna\n");
}

TEST_F(EmDataReceipt, NoWorkspaceOrNoRegionDropsTheMessageSilently)
{
    MessageContent noRegions = emMessage({});
    noRegions.document->regions.clear();
    const MessageContent onePort = emMessage({emPort("P1", 5, 0, 0, 0)});
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
        EXPECT_EQ(receive(emMessage({emPort("P1", 5, 1, 2, 3), emPort("P2", type, 4, 5, 6),
                                     emPort("P3", 7, 7, 8, 9)}),
                          "C:\\ws\\proj_wrk"),
                  (std::vector<std::string>{
                      WorkspaceQuery, host(egsImport("C:/ws/proj_wrk/genFathom_a")),
                      host("mgclink_add_port_to_fathom_view(\"P1\",1,\"internal\",1,2,3);"),
                      logged("Exception detected in OnReceive()")}));
    }
}

RFMsgExp::MessageContent iffMessage(std::string text, int regions = 1)
{
    return PluginTest::message(222, std::vector(regions, PluginTest::region("r")), std::move(text));
}

class IffReceipt : public PluginTest
{
protected:
    void TearDown() override
    {
        test.server().GetOptions().general().clear_options();
        PluginTest::TearDown();
    }

    // An absent value leaves the option out of the set.
    void setGeneral(std::optional<QString> targetLibrary, std::optional<QString> overwrite)
    {
        Tessel::GeneralOptions& general = test.server().GetOptions().general();
        general.clear_options();
        if (targetLibrary)
            general.set_option(Tessel::OptionName::TargetLib, *targetLibrary, QString());
        if (overwrite)
            general.set_option(Tessel::OptionName::OverwriteDesigns, *overwrite, QString());
    }

    std::string import(const std::string& library, const std::string& overwrite) const
    {
        return host("mgclink_import_iff_file(\"" + library + "\", \"" + temporaryFile + "\", \"" +
                    overwrite + "\");");
    }

    const std::string temporaryFile = file("mgcLayoutTmp.iff");
};

TEST_F(IffReceipt, EachMessageReplacesTheFileWholeAndReadsTheOptionsAfresh)
{
    // Given with backslashes, the path still names the test's directory.
    std::string backslashed = dir.path().toStdString();
    std::replace(backslashed.begin(), backslashed.end(), '/', '\\');
    test.answerPaths(backslashed, std::nullopt);
    struct Row
    {
        std::optional<QString> targetLibrary, overwrite;
        std::string text, library, flag;
    };
    const std::vector<Row> rows = {
        {"rflib", "True", "HEADER \"q\" C:\\lib\nline two without an end", "rflib", "TRUE"},
        {"rflib", std::nullopt, "text", "rflib", "FALSE"},
        {std::nullopt, "false", "", "", "FALSE"},
        {"a \"b\"", "true", "y", "a \"b\"", "TRUE"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.library + " / " + row.flag);
        setGeneral(row.targetLibrary, row.overwrite);
        EXPECT_EQ(received(iffMessage(row.text, 2)),
                  (std::vector<std::string>{WorkspaceQuery, import(row.library, row.flag)}));
        EXPECT_EQ(fileContent(temporaryFile), row.text);
    }
}

TEST_F(IffReceipt, AMissingRegionIsLoggedTheOtherFailuresShown)
{
    setGeneral("rflib", "true");
    const std::string workspace = dir.path().toStdString();
    const std::string noWorkspace = "No workspace is open - unable to import IFF data";
    const std::vector<std::string> noWorkspaceShown = {WorkspaceQuery, shownError(noWorkspace),
                                                       logged("Error: " + noWorkspace)};
    struct Row
    {
        int regions;
        std::optional<std::string> workspace;
        std::vector<std::string> failing, statements;
    };
    const std::vector<Row> rows = {
        {0, workspace, {}, {logged("No RF Regions found in IFF message")}},
        {1, std::nullopt, {}, noWorkspaceShown},
        {1, workspace, {"mgclink_get_workspace_path", "de_info", "fprintf"}, noWorkspaceShown},
        {1,
         workspace,
         {"mgclink_import_iff_file"},
         {WorkspaceQuery, import("rflib", "TRUE"), shownError("IFF import failed"),
          logged("Error: IFF import failed")}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.statements.back());
        test.answerPaths(row.workspace, std::nullopt, row.failing);
        EXPECT_EQ(received(iffMessage("IFF text", row.regions)), row.statements);
        // Only the failed import leaves the file.
        EXPECT_EQ(fileContent(temporaryFile).has_value(), row.statements.size() == 4);
    }
}

} // namespace
