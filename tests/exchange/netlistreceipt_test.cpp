// Kind 212: the first region's netlist saved in the netlists directory and the
// design created through mgclink_create_design.

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

} // namespace
