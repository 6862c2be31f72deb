// Kind 212: the first region's netlist saved in the netlists directory and the
// design created through mgclink_create_design.

#include <string>
#include <vector>

#include <QDir>
#include <gtest/gtest.h>

#include "plugintest.h"

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

    const std::string netlists = dir.path().toStdString();
};

TEST_F(NetlistReceipt, CreatesTheDesignOfTheFirstRegionWithItsEnabledPorts)
{
    const std::string netlist = "* amp\nX1 ( in out gnd )\n";
    MessageContent content = netlistMessage(
        "amp_top.sch",
        {region("lna", netlist,
                {port("P1", 0, 1.5, 0), port("Px", 3, 3, 4, 0), port("P2", 12.25, 1.5, 0)}),
         region("pa", "other netlist", {port("Q", 1, 1, 1)})});
    content.document->path = "C:\\designs\\amp";
    test.receive(content);
    EXPECT_EQ(statements(),
              (std::vector<std::string>{
                  WorkspaceQuery, NetlistsQuery,
                  host("mgclink_create_design(\"\", \"amp_top_lna\", \"amp_top.sch\", "
                       "\"C:/designs/amp\", \"lna\", 2, "
                       "list(list(\"P1\",0,1.5,1,0),list(\"P2\",12.25,1.5,2,0)), 0);")}));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"amp_top_lna.net"});
    EXPECT_EQ(fileContent(netlists + "/amp_top_lna.net"), netlist);
}

TEST_F(NetlistReceipt, CellNameAndPortlessCountFollowTheNamesAndTheFirstBrackets)
{
    // The count is the blanks from two places after the first "(" up to the
    // character before the first ")"; when that ")" is too close or comes
    // first, up to the end. Names go in unescaped. -1: the count throws.
    struct Row
    {
        std::string design, region, netlist, cell;
        int count;
    };
    const std::vector<Row> rows = {
        {"amp_top.sch", "lna", "X1 ( a b c ) Y", "amp_top_lna", 2},
        {"abc", "r1", "(x y)", "abc_r1", 1},
        {"abcd", "r1", "(xy )", "_r1", 0},
        {"", "r1", "( xy)", "_r1", 0},
        {"a.b.sch", "", "( a b )", "a.b_", 1},
        {"q\"x.sch", "r\"1", "no brackets", "q\"x_r\"1", 0},
        {"amp top.sch", "l n a", "only ( o p e n", "amp top_l n a", 0},
        {"Verst\xc3\xa4rker.sch", "\xce\xa9", "(x y)", "Verst\xc3\xa4rker_\xce\xa9", 1},
        {"..", "r", "(x y)", ".._r", 1},
        {"d.sch", "r", " a b ) close", "d_r", 0},
        {"d.sch", "r", "() a b", "d_r", 2},
        {"d.sch", "r", "( ) x y", "d_r", 2},
        {"d.sch", "r", ") a ( b c d e", "d_r", 3},
        {"d.sch", "r", "x)(y", "d_r", 0},
        {"d.sch", "r", "(ab)", "d_r", 0},
        {"d.sch", "r", "a) b ( ", "d_r", 0},
        {"d.sch", "r", "a) b (", "d_r", -1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.design + " / " + row.region + " / " + row.netlist);
        test.brio.clearStatements();
        test.receive(netlistMessage(row.design, {region(row.region, row.netlist)}));
        EXPECT_EQ(statements(),
                  (std::vector<std::string>{
                      WorkspaceQuery, NetlistsQuery,
                      row.count < 0 ? logged("Exception detected in OnReceive()")
                                    : host(create(row.cell, row.design, row.region, row.count))}));
        // Written before the count is taken.
        EXPECT_EQ(fileContent(netlists + "/" + row.cell + ".net"), row.netlist);
    }
}

// A file name that could leave the netlists folder is refused with one error
// naming the design, escaped so that no name ends the host's string; nothing is
// written and no design created.
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
        {"..\\..\\outside\\pwned.sch", "lna", "..\\\\..\\\\outside\\\\pwned.sch",
         "..\\\\..\\\\outside\\\\pwned_lna"},
        {"amp.sch", "../../lna", "amp.sch", "amp_../../lna"},
        {"/abs.sch", "r", "/abs.sch", "/abs_r"},
        {"q\"\\\");x.sch", "r", "q\\\"\\\\\\\");x.sch", "q\\\"\\\\\\\");x_r"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.design + " / " + row.region);
        test.brio.clearStatements();
        test.receive(netlistMessage(row.design, {region(row.region, "( a b )")}));
        const std::string error = "Netlist of design \\\"" + row.shownDesign +
                                  "\\\" refused: its file name \\\"" + row.shownFile +
                                  ".net\\\" is not a plain name in the netlists folder";
        EXPECT_EQ(statements(),
                  (std::vector<std::string>{WorkspaceQuery, NetlistsQuery, shownError(error),
                                            logged("Error: " + error)}));
    }
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList{"workspace"});
    EXPECT_TRUE(QDir(netlistsFolder).isEmpty());
}

TEST_F(NetlistReceipt, PortEntriesAreFormattedLikePercentGAndNumberedByTheTakenPorts)
{
    test.receive(netlistMessage(
        "d.sch", {region("r", "( a b c d e f )",
                         {port("in \"rf\"\\", 1234567.0, -0.000012345, -3), port("b", 1, 1, 1, 0),
                          port("c", 0.1 + 0.2, 1e6, 7), port("d", 100000, 1e-5, 2147483647, -1)}),
                  region("pa")}));
    test.receive(netlistMessage(
        "d.sch", {region("r", "( a b c )", {port("a", 1, 1, 1, 0), port("b", 2, 2, 2, 0)})}));
    const std::vector<std::string> ran = statements();
    ASSERT_EQ(ran.size(), 6u);
    EXPECT_EQ(ran[2],
              host(create("d_r", "d.sch", "r", 3,
                          "list(list(\"in \"rf\"\\\",1.23457e+06,-1.2345e-05,1,-3),"
                          "list(\"c\",0.3,1e+06,2,7),list(\"d\",100000,1e-05,3,2147483647))")));
    EXPECT_EQ(ran[5], host(create("d_r", "d.sch", "r", 0, "list()")));
}

TEST_F(NetlistReceipt, NoRegionNoWorkspaceOrAFailingHostCreatesNothing)
{
    const std::string error = "LUMO project must be opened before receiving Mentor design netlist";
    test.receive(netlistMessage("d.sch", {}));
    EXPECT_EQ(statements(), (std::vector<std::string>{WorkspaceQuery, NetlistsQuery}));
    for (const bool hostFailsAll : {false, true}) {
        SCOPED_TRACE(hostFailsAll ? "every statement fails" : "no workspace");
        test.reset();
        test.answerPaths(hostFailsAll ? std::optional<std::string>("/ws") : std::nullopt, netlists,
                         hostFailsAll ? std::vector<std::string>{"mgclink_get_workspace_path",
                                                                 "de_info", "fprintf"}
                                      : std::vector<std::string>{});
        test.receive(netlistMessage("d.sch", {region("r", "n")}));
        EXPECT_EQ(statements(), (std::vector<std::string>{WorkspaceQuery, shownError(error),
                                                          logged("Error: " + error)}));
    }
    EXPECT_TRUE(QDir(dir.path()).isEmpty());

    test.reset();
    test.answerPaths("/ws", netlists, {"mgclink_create_design"});
    test.receive(netlistMessage("d.sch", {region("r", "(x y)")}));
    const std::string command = create("d_r", "d.sch", "r", 1);
    EXPECT_EQ(statements(),
              (std::vector<std::string>{WorkspaceQuery, NetlistsQuery, host(command),
                                        logged("Execute BRIO command failed: " + command)}));
}

TEST_F(NetlistReceipt, TheFileIsWrittenWholeOrNotAtAllAndTheDesignCreatedAnyway)
{
    const std::string big = "X1 ( a b c )\n" + std::string(1000, 'x');
    const std::string huge(300, 'r'); // too long a file name
    struct Row
    {
        std::string netlists, region, netlist;
        int count;
    };
    // The netlists path is taken as the host gives it, backslash and all.
    ASSERT_TRUE(QDir(dir.path()).mkdir("a\\b"));
    for (const Row& row : {Row{netlists + "/missing", "r", "n", 0}, Row{netlists, huge, "n", 0},
                           Row{netlists + "/a\\b", "r", "n", 0}, Row{netlists, "r", big, 2}}) {
        SCOPED_TRACE(row.netlists + " " + row.region.substr(0, 10));
        test.reset();
        test.answerPaths("/ws", row.netlists);
        test.receive(netlistMessage("d.sch", {region(row.region, row.netlist)}));
        EXPECT_EQ(statements().back(),
                  host(create("d_" + row.region, "d.sch", row.region, row.count)));
    }
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"d_r.net"});
    EXPECT_EQ(fileContent(netlists + "/a\\b/d_r.net"), "n");
    EXPECT_EQ(fileContent(netlists + "/d_r.net"), big);
}

} // namespace
