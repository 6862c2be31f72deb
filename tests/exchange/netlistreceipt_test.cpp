// Kind 212: the first region's netlist saved in the netlists directory and the
// design created through mgclink_create_design.

#include <functional>
#include <string>
#include <vector>

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "exchangeseams.h"

namespace {

using namespace ExchangeSeams;
using RFMsgExp::DocumentContent;
using RFMsgExp::MessageContent;
using RFMsgExp::PortContent;
using RFMsgExp::RegionContent;

PortContent port(std::string label, double x, double y, int type, int enabled = 1)
{
    PortContent port;
    port.name = "name of " + label;
    port.enabled = enabled;
    port.type = type;
    port.label = std::move(label);
    port.note = "a note";
    port.value = 50;
    port.x = x;
    port.y = y;
    return port;
}

RegionContent region(std::string name, std::string netlist, std::vector<PortContent> ports = {})
{
    RegionContent region;
    region.name = std::move(name);
    region.netlist = std::move(netlist);
    region.egs = "egs data that a netlist never uses";
    region.ports = std::move(ports);
    return region;
}

MessageContent netlistMessage(std::string designName, std::string designPath,
                              std::vector<RegionContent> regions)
{
    DocumentContent document;
    document.label = "a label";
    document.name = std::move(designName);
    document.path = std::move(designPath);
    document.regions = std::move(regions);
    MessageContent content;
    content.kind = 212;
    content.document = std::move(document);
    return content;
}

class NetlistReceipt : public SeamTest
{
protected:
    void SetUp() override
    {
        SeamTest::SetUp();
        ASSERT_TRUE(workspace.isValid());
        ASSERT_TRUE(QDir(workspace.path()).mkdir("netlists"));
        netlists = workspace.path().toStdString() + "/netlists";
        test.answerPaths(workspace.path().toStdString(), netlists);
    }

    QStringList netlistFiles() const
    {
        return QDir(QString::fromStdString(netlists)).entryList(QDir::Files);
    }

    QTemporaryDir workspace;
    std::string netlists;
};

TEST_F(NetlistReceipt, CreatesTheDesignOfTheFirstRegionWithItsEnabledPorts)
{
    const std::string netlist = "* amp\nX1 ( in out gnd )\n";
    receive(test, netlistMessage("amp_top.sch", "C:\\designs\\amp",
                                 {region("lna", netlist,
                                         {port("P1", 0, 1.5, 0), port("Px", 3, 3, 4, 0),
                                          port("P2", 12.25, 1.5, 0)}),
                                  region("pa", "other netlist", {port("Q", 1, 1, 1)})}));

    EXPECT_EQ(statements(),
              (std::vector<HostStatement>{
                  workspaceQuery(), netlistsQuery(),
                  host("mgclink_create_design(\"\", \"amp_top_lna\", \"amp_top.sch\", "
                       "\"C:/designs/amp\", \"lna\", 2, "
                       "list(list(\"P1\",0,1.5,1,0),list(\"P2\",12.25,1.5,2,0)), 0);")}));
    EXPECT_EQ(netlistFiles(), QStringList{"amp_top_lna.net"});
    EXPECT_EQ(fileContent(netlists + "/amp_top_lna.net"), netlist);
}

TEST_F(NetlistReceipt, DesignCellNameIsTheDesignNameLessFourCharactersAndTheRegion)
{
    struct Row
    {
        std::string designName;
        std::string regionName;
        std::string cellName;
    };
    const std::vector<Row> rows = {
        {"amp_top.sch", "lna", "amp_top_lna"},
        {"abc", "r1", "abc_r1"},
        {"abcd", "r1", "_r1"},
        {"", "r1", "_r1"},
        {"a.b.sch", "", "a.b_"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.designName + " / " + row.regionName);
        test.brio.clearStatements();
        QDir(QString::fromStdString(netlists)).removeRecursively();
        QDir().mkpath(QString::fromStdString(netlists));
        receive(test, netlistMessage(row.designName, "p", {region(row.regionName, "n")}));
        EXPECT_EQ(netlistFiles(), QStringList{QString::fromStdString(row.cellName + ".net")});
        const std::vector<HostStatement> ran = statements();
        ASSERT_EQ(ran.size(), 3u);
        EXPECT_EQ(ran[2],
                  host("mgclink_create_design(\"\", \"" + row.cellName + "\", \"" + row.designName +
                       "\", \"p\", \"" + row.regionName + "\", 0, NULL, 0);"));
    }
}

TEST_F(NetlistReceipt, WithoutPortsTheCountIsTheBlanksBetweenTheFirstBrackets)
{
    // Taken from two places after the first "(" up to the character before the
    // first ")"; when that ")" is too close or comes first, to the end.
    struct Row
    {
        const char* netlist;
        int count;
    };
    const std::vector<Row> rows = {
        {"X1 ( a b c ) Y", 2}, {"(x y)", 1},        {"(xy )", 0},
        {"( xy)", 0},          {"( a  b )", 2},     {"no brackets", 0},
        {"only ( open", 0},    {"only ) close", 0}, {"", 0},
        {"() a b", 2},         {"( ) x y", 2},      {") a ( b c d e", 3},
        {"x)(y", 0},           {"(ab)", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.netlist);
        test.brio.clearStatements();
        receive(test, netlistMessage("d.sch", "", {region("r", row.netlist)}));
        EXPECT_EQ(statements(),
                  (std::vector<HostStatement>{
                      workspaceQuery(), netlistsQuery(),
                      host("mgclink_create_design(\"\", \"d_r\", \"d.sch\", \"\", \"r\", " +
                           std::to_string(row.count) + ", NULL, 0);")}));
        EXPECT_EQ(fileContent(netlists + "/d_r.net"), std::string(row.netlist));
    }
}

TEST_F(NetlistReceipt, OpeningBracketAsLastCharacterAfterAClosingOneEndsInTheLoggedException)
{
    receive(test, netlistMessage("d.sch", "", {region("r", "a) b (")}));
    EXPECT_EQ(statements(),
              (std::vector<HostStatement>{
                  workspaceQuery(), netlistsQuery(),
                  message("fprintf(stderr,\"Tessel:Exception detected in OnReceive()\n\");")}));
    // The file is written before the count is taken.
    EXPECT_EQ(fileContent(netlists + "/d_r.net"), std::string("a) b ("));

    test.brio.clearStatements();
    receive(test, netlistMessage("d.sch", "", {region("r", "a) b ( ")}));
    EXPECT_EQ(statements().back(),
              host("mgclink_create_design(\"\", \"d_r\", \"d.sch\", \"\", \"r\", 0, NULL, 0);"));
}

TEST_F(NetlistReceipt, PortFieldsAreFormattedLikePercentGAndInsertedUnescaped)
{
    receive(test, netlistMessage("d.sch", "",
                                 {region("r", "( a b c d e f )",
                                         {port("in \"rf\"\\", 1234567.0, -0.000012345, -3),
                                          port("b", 1, 1, 1, 0), port("c", 0.1 + 0.2, 1e6, 7),
                                          port("d", 100000, 1e-5, 2147483647, -1)})}));
    // Numbered by the ports taken; the disabled one is skipped.
    EXPECT_EQ(statements().back(),
              host("mgclink_create_design(\"\", \"d_r\", \"d.sch\", \"\", \"r\", 3, "
                   "list(list(\"in \"rf\"\\\",1.23457e+06,-1.2345e-05,1,-3),"
                   "list(\"c\",0.3,1e+06,2,7),list(\"d\",100000,1e-05,3,2147483647)), 0);"));
}

TEST_F(NetlistReceipt, AllPortsDisabledGiveAnEmptyListAndACountOfZero)
{
    receive(test, netlistMessage(
                      "d.sch", "",
                      {region("r", "( a b c )", {port("a", 1, 1, 1, 0), port("b", 2, 2, 2, 0)})}));
    EXPECT_EQ(statements().back(),
              host("mgclink_create_design(\"\", \"d_r\", \"d.sch\", \"\", \"r\", 0, list(), 0);"));
}

TEST_F(NetlistReceipt, NamesAreInsertedUnescapedAndThePathGetsForwardSlashes)
{
    receive(test, netlistMessage("q\"x.sch", "C:\\a \"b\"\\c", {region("r\"1", "n")}));
    EXPECT_EQ(statements().back(),
              host("mgclink_create_design(\"\", \"q\"x_r\"1\", \"q\"x.sch\", \"C:/a \"b\"/c\", "
                   "\"r\"1\", 0, NULL, 0);"));
    EXPECT_EQ(netlistFiles(), QStringList{"q\"x_r\"1.net"});
}

TEST_F(NetlistReceipt, NoRegionAsksForBothPathsThenDropsTheMessage)
{
    receive(test, netlistMessage("d.sch", "p", {}));
    EXPECT_EQ(statements(), (std::vector<HostStatement>{workspaceQuery(), netlistsQuery()}));
    EXPECT_TRUE(netlistFiles().isEmpty());
}

TEST_F(NetlistReceipt, NoWorkspaceShowsTheErrorAndNeitherAsksForNetlistsNorWrites)
{
    const std::vector<HostStatement> expected = {
        workspaceQuery(),
        message("de_info(\"Tessel Error: LUMO project must be opened before receiving Mentor "
                "design netlist\");"),
        message("fprintf(stderr,\"Tessel:Error: LUMO project must be opened before receiving "
                "Mentor design netlist\n\");")};
    const std::vector<std::pair<const char*, std::function<void()>>> hosts = {
        {"variable unset", [&] { test.answerPaths(std::nullopt, netlists); }},
        {"empty answer", [&] { test.answerPaths(std::string(), netlists); }},
        {"query fails", [&] { test.answerPaths("/ws", netlists, {"mgclink_get_workspace_path"}); }},
        {"every statement fails",
         [&] {
             test.brio.setEvaluator([](const std::string&, const std::string&) { return false; });
         }},
    };
    for (const auto& [name, setUp] : hosts) {
        SCOPED_TRACE(name);
        test.reset();
        setUp();
        receive(test, netlistMessage("d.sch", "p", {region("r", "n")}));
        EXPECT_EQ(statements(), expected);
        EXPECT_TRUE(netlistFiles().isEmpty());
    }
}

TEST_F(NetlistReceipt, AFailedCreateIsLoggedWithTheWholeCommand)
{
    test.answerPaths(workspace.path().toStdString(), netlists, {"mgclink_create_design"});
    receive(test, netlistMessage("d.sch", "p", {region("r", "(x y)")}));
    const std::string create =
        "mgclink_create_design(\"\", \"d_r\", \"d.sch\", \"p\", \"r\", 1, NULL, 0);";
    EXPECT_EQ(
        statements(),
        (std::vector<HostStatement>{
            workspaceQuery(), netlistsQuery(), host(create),
            message("fprintf(stderr,\"Tessel:Execute BRIO command failed: " + create + "\n\");")}));
}

TEST_F(NetlistReceipt, AnUnwritableNetlistFileStillCreatesTheDesign)
{
    struct Row
    {
        const char* name;
        std::string netlistsPath;
        std::string regionName;
    };
    const std::vector<Row> rows = {
        {"missing directory", netlists + "/missing", "r"},
        {"name too long for the file system", netlists, std::string(100000, 'r')},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        test.reset();
        test.answerPaths(workspace.path().toStdString(), row.netlistsPath);
        receive(test, netlistMessage("d.sch", "p", {region(row.regionName, "n")}));
        EXPECT_EQ(statements().back(),
                  host("mgclink_create_design(\"\", \"d_" + row.regionName +
                       "\", \"d.sch\", \"p\", \"" + row.regionName + "\", 0, NULL, 0);"));
        EXPECT_TRUE(netlistFiles().isEmpty());
    }
}

TEST_F(NetlistReceipt, AHundredMegabyteNetlistIsWrittenWhole)
{
    std::string netlist = "X1 ( a b c )\n";
    netlist.resize(100u << 20, 'x');
    receive(test, netlistMessage("big.sch", "p", {region("r", netlist)}));
    EXPECT_EQ(
        statements().back(),
        host("mgclink_create_design(\"\", \"big_r\", \"big.sch\", \"p\", \"r\", 2, NULL, 0);"));
    const std::optional<std::string> written = fileContent(netlists + "/big_r.net");
    ASSERT_TRUE(written.has_value());
    EXPECT_TRUE(*written == netlist) << "written " << written->size() << " bytes";
}

} // namespace
