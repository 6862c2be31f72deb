// Each kind received through OnReceive on a messaging thread. Kind 212: the
// first region's netlist saved in the netlists directory and the design
// created through mgclink_create_design. Kind 213: the first region's EGS data
// saved as genFathom_a in the workspace, imported through
// mgclink_import_egs_file, then every port added to the view. Kind 222: the
// IFF text saved as mgcLayoutTmp.iff in the workspace and imported through
// mgclink_import_iff_file. Then what the commands send: a schematic or a
// layout as one kind-222 message (mgcconnect_designsend_command,
// mgcconnect_layoutsend_command), and requests about one RF region as kind-224
// messages (the netlist and highlight commands); the instance and update
// commands send nothing.

#include <algorithm>
#include <array>

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

#include "options/optionnames.h"
#include "plugintest.h"
#include "server/xserverlumo.h"

namespace {

using RFMsgExp::MessageContent;
using RFMsgExp::PortContent;
using Statements = std::vector<std::string>;

class Receipt : public PluginTest
{
protected:
    void TearDown() override
    {
        test.server().GetOptions().general().clear_options();
        PluginTest::TearDown();
    }

    // The general options hold just these; an absent value leaves the option out.
    void setGeneral(std::optional<QString> targetLibrary, std::optional<QString> overwrite = {})
    {
        Tessel::GeneralOptions& general = test.server().GetOptions().general();
        general.clear_options();
        if (targetLibrary)
            general.set_option(Tessel::OptionName::TargetLib, *targetLibrary, QString());
        if (overwrite)
            general.set_option(Tessel::OptionName::OverwriteDesigns, *overwrite, QString());
    }

    // The statements that receiving `content` ran, the host answering these paths.
    Statements receive(const MessageContent& content, std::optional<std::string> workspace,
                       std::optional<std::string> netlists = {}, Statements failing = {})
    {
        test.answerPaths(std::move(workspace), std::move(netlists), std::move(failing));
        return received(content);
    }

    const std::string here = dir.path().toStdString();
};

MessageContent netlistMessage(std::string designName, std::vector<RFMsgExp::RegionContent> regions)
{
    MessageContent content = PluginTest::message(212, std::move(regions));
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

using NetlistReceipt = Receipt;

// Ports are numbered by those taken, disabled ones left out, coordinates as %g.
TEST_F(NetlistReceipt, CreatesTheDesignOfTheFirstRegionWithItsEnabledPorts)
{
    const std::string netlist = "* amp\nX1 ( in out gnd )\n";
    EXPECT_EQ(receive(netlistMessage("amp_top.sch",
                                     {region("lna", netlist,
                                             {port("in \"rf\"\\", 1234567.0, -0.000012345, -3),
                                              port("b", 1, 1, 1, 0), port("c", 0.1 + 0.2, 1e6, 7),
                                              port("d", 100000, 1e-5, 2147483647)}),
                                      region("pa", "other netlist", {port("Q", 1, 1, 1)})}),
                      "/ws", here),
              (Statements{WorkspaceQuery, NetlistsQuery,
                          host(create("amp_top_lna", "amp_top.sch", "lna", 3,
                                      "list(list(\"in \"rf\"\\\",1.23457e+06,-1.2345e-05,1,-3),"
                                      "list(\"c\",0.3,1e+06,2,7),list(\"d\",100000,1e-05,3,"
                                      "2147483647))"))}));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"amp_top_lna.net"});
    EXPECT_EQ(fileContent(here + "/amp_top_lna.net"), netlist);
    EXPECT_EQ(receive(netlistMessage("d.sch", {region("r", "( a b c )", {port("a", 1, 1, 1, 0)})}),
                      "/ws", here)
                  .back(),
              host(create("d_r", "d.sch", "r", 0, "list()")));
}

// The count is the blanks from two places after the first "(" up to the
// character before the first ")"; when that ")" is too close or comes first,
// up to the end. Names go in unescaped. -1: the count throws. The file is
// written before the count is taken.
TEST_F(NetlistReceipt, CellNameAndPortlessCountFollowTheNamesAndTheFirstBrackets)
{
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
        const Statements ran =
            receive(netlistMessage(design, {PluginTest::region(region, netlist)}), "/ws", here);
        EXPECT_EQ(ran.size(), 3u);
        EXPECT_EQ(ran.back(), count < 0 ? logged("Exception detected in OnReceive()")
                                        : host(create(cell, design, region, count)));
        EXPECT_EQ(fileContent(here + "/" + cell + ".net"), netlist);
    }
}

// A file name that could leave the netlists folder is refused with one error
// naming the design, escaped so that no name ends the host's string.
TEST_F(NetlistReceipt, ANameThatLeavesTheNetlistsFolderIsRefusedOnceAndWritesNothing)
{
    const QString netlists = dir.filePath("workspace/netlists");
    ASSERT_TRUE(QDir().mkpath(netlists));
    // design, region, the design and the file name as shown
    const std::array<std::string, 4> rows[] = {
        {"../../outside/pwned.sch", "lna", "../../outside/pwned.sch", "../../outside/pwned_lna"},
        {"amp.sch", "..\\lna", "amp.sch", "amp_..\\\\lna"},
        {"q\"\\\");x.sch", "r", "q\\\"\\\\\\\");x.sch", "q\\\"\\\\\\\");x_r"},
    };
    for (const auto& [design, region, shownDesign, shownFile] : rows) {
        SCOPED_TRACE(design + " / " + region);
        EXPECT_EQ(receive(netlistMessage(design, {PluginTest::region(region, "( a b )")}), "/ws",
                          netlists.toStdString()),
                  reported("Netlist of design \\\"" + shownDesign +
                               "\\\" refused: its file name \\\"" + shownFile +
                               ".net\\\" is not a plain name in the netlists folder",
                           {WorkspaceQuery, NetlistsQuery}));
    }
    EXPECT_TRUE(QDir(netlists).isEmpty());
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList{"workspace"});
}

// The netlists path is taken as the host gives it: a missing folder only
// leaves the file unwritten.
TEST_F(NetlistReceipt, NoRegionNoWorkspaceOrAFailingHostCreatesNothing)
{
    EXPECT_EQ(receive(netlistMessage("d.sch", {}), "/ws", here),
              (Statements{WorkspaceQuery, NetlistsQuery}));
    EXPECT_EQ(receive(netlistMessage("d.sch", {region("r", "n")}), std::nullopt, here),
              reported("LUMO project must be opened before receiving Mentor design netlist",
                       {WorkspaceQuery}));
    EXPECT_EQ(receive(netlistMessage("d.sch", {region("r", "(x y)")}), "/ws", here + "/missing",
                      {"mgclink_create_design"})
                  .back(),
              logged("Execute BRIO command failed: " + create("d_r", "d.sch", "r", 1)));
    EXPECT_TRUE(QDir(dir.path()).isEmpty());
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

using EmDataReceipt = Receipt;

// A disabled port is added all the same; failures are neither reported nor
// stop. A port type outside the map (flagged or absent) ends the handler.
TEST_F(EmDataReceipt, ImportsTheFirstRegionThenAddsEveryPortWhateverTheHostAnswers)
{
    setGeneral("rflib");
    const Statements imported = {
        WorkspaceQuery, host(egsImport("C:/ws/proj_wrk/genFathom_a")),
        host("mgclink_add_port_to_fathom_view(\"P1\",1,\"internal\",0,1.5,90);")};
    Statements expected = imported;
    expected.push_back(host("mgclink_add_port_to_fathom_view(\"P\"2\",2,\"external\",-2.5,"
                            "1e+07,0.00123457);"));
    EXPECT_EQ(
        receive(
            emMessage({emPort("P1", 5, 0, 1.5, 90), emPort("P\"2", 7, -2.5, 1e7, 0.001234567, 0)}),
            "C:\\ws\\proj_wrk", {}, {"mgclink_import_egs_file", "mgclink_add_port_to_fathom_view"}),
        expected);
    for (const int type : {6, 99}) {
        SCOPED_TRACE(type);
        Statements expected = imported;
        expected.push_back(logged("Exception detected in OnReceive()"));
        EXPECT_EQ(receive(emMessage({emPort("P1", 5, 0, 1.5, 90), emPort("P2", type, 4, 5, 6),
                                     emPort("P3", 7, 7, 8, 9)}),
                          "C:\\ws\\proj_wrk"),
                  expected);
    }
}

// Relative names land in the test's own working directory; without ports the
// file is written and imported only, the design path passed as it stands.
TEST_F(EmDataReceipt, TheEgsFileIsWrittenWithASeparatorThatDependsOnASlash)
{
    setGeneral("rflib");
    MessageContent content = emMessage({});
    content.document->path = "C:\\designs\\a'mp";
    testing::internal::CaptureStderr();
    for (const auto& [workspace, egsFile] :
         {std::pair<std::string, std::string>("C:", "C:\\genFathom_a"),
          std::pair<std::string, std::string>("C:\\ws", "C:/ws/genFathom_a"),
          std::pair<std::string, std::string>(here, here + "/genFathom_a")}) {
        SCOPED_TRACE(workspace);
        EXPECT_EQ(receive(content, workspace),
                  (Statements{WorkspaceQuery, host(egsImport(egsFile, "C:\\designs\\a'mp"))}));
    }
    EXPECT_NE(testing::internal::GetCapturedStderr().find(
                  "brio command: " + egsImport("C:\\genFathom_a", "C:\\designs\\a'mp") + "\n"),
              std::string::npos);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files),
              (QStringList{"C:\\genFathom_a", "genFathom_a"}));
    EXPECT_EQ(fileContent(here + "/genFathom_a"), "EGS \"data\"\nof lna\n");

    content.document->regions.clear();
    EXPECT_EQ(receive(content, "/ws"), Statements{WorkspaceQuery}) << "no region";
    EXPECT_EQ(receive(emMessage({emPort("P1", 5, 0, 0, 0)}), std::nullopt),
              Statements{WorkspaceQuery});
}

RFMsgExp::MessageContent iffMessage(std::string text, int regions = 1)
{
    return PluginTest::message(222, std::vector(regions, PluginTest::region("r")), std::move(text));
}

using IffReceipt = Receipt;

// Given with backslashes, the workspace path still names the test's directory.
TEST_F(IffReceipt, EachMessageReplacesTheFileWholeAndReadsTheOptionsAfreshFailuresAreShown)
{
    const std::string temporaryFile = file("mgcLayoutTmp.iff");
    const auto import = [&](const std::string& library, const std::string& overwrite) {
        return host("mgclink_import_iff_file(\"" + library + "\", \"" + temporaryFile + "\", \"" +
                    overwrite + "\");");
    };
    std::string backslashed = here;
    std::replace(backslashed.begin(), backslashed.end(), '/', '\\');
    // target library, overwrite, text, the library and flag imported
    const std::tuple<std::optional<QString>, std::optional<QString>, std::string, std::string,
                     std::string>
        rows[] = {
            {"rflib", "True", "HEADER \"q\" C:\\lib\nline two without an end", "rflib", "TRUE"},
            {"rflib", std::nullopt, "text", "rflib", "FALSE"},
            {std::nullopt, "false", "", "", "FALSE"},
            {"a \"b\"", "true", "y", "a \"b\"", "TRUE"},
        };
    for (const auto& [targetLibrary, overwrite, text, library, flag] : rows) {
        SCOPED_TRACE(library + " / " + flag);
        setGeneral(targetLibrary, overwrite);
        EXPECT_EQ(receive(iffMessage(text, 2), backslashed),
                  (Statements{WorkspaceQuery, import(library, flag)}));
        EXPECT_EQ(fileContent(temporaryFile), text);
    }
    // A missing region is logged, the other failures shown; only the failed
    // import leaves the file.
    ASSERT_TRUE(QFile::remove(QString::fromStdString(temporaryFile)));
    setGeneral("rflib", "true");
    EXPECT_EQ(receive(iffMessage("IFF text", 0), here),
              Statements{logged("No RF Regions found in IFF message")});
    EXPECT_EQ(receive(iffMessage("IFF text"), std::nullopt),
              reported("No workspace is open - unable to import IFF data", {WorkspaceQuery}));
    EXPECT_FALSE(fileContent(temporaryFile));
    EXPECT_EQ(receive(iffMessage("IFF text"), here, {}, {"mgclink_import_iff_file"}),
              reported("IFF import failed", {WorkspaceQuery, import("rflib", "TRUE")}));
    EXPECT_EQ(fileContent(temporaryFile), "IFF text");
}

class DesignSending : public PluginTest
{
protected:
    // Calls the command, which returns 1 whatever happened, with get_argument
    // refusing the argument at `refused`; the body of the one message it sent
    // (nullopt: none). Standard error goes to `standardError`.
    std::optional<std::string> send(const char* command, std::vector<BRIOValue> arguments,
                                    int refused = -1)
    {
        test.brio.clearStatements();
        RFMsgExp::Testing::clearSentMessages(test.server());
        testing::internal::CaptureStderr();
        EXPECT_EQ(test.call(command, std::move(arguments), refused), 1);
        standardError = testing::internal::GetCapturedStderr();
        const auto messages = sent();
        EXPECT_LE(messages.size(), 1u);
        return messages.empty() ? std::nullopt : std::optional(messages.front().content.text);
    }
    std::string standardError;
};

TEST_F(DesignSending, OneMessageCarriesKindPropertiesInOrderAndBothTexts)
{
    const std::string schematic = file("s.iff", "S1\nS2");
    const std::string layout = file("l.iff", "L1\n");
    const std::string path = "C:\\designs\\amp \"x\"";
    for (const auto& [command, first, second] :
         {std::tuple{"mgcconnect_designsend_command", schematic, layout},
          std::tuple{"mgcconnect_layoutsend_command", layout, schematic}}) {
        SCOPED_TRACE(command);
        // Each line gains its line feed, the end one more: schematic first, nothing between.
        EXPECT_EQ(send(command, {first, second, "amp top", "", path}), "S1\nS2\nL1\n\n");
        const RFMsgExp::Testing::SentMessage message = sent().at(0);
        EXPECT_EQ(message.content.kind, 222);
        EXPECT_EQ(message.content.properties,
                  (std::vector<std::pair<std::string, std::string>>{
                      {"RFDESIGN", "amp top"}, {"RFREGION", ""}, {"RFDESIGNPATH", path}}));
        // Prepared once, right after the kind, before any property.
        EXPECT_EQ(message.content.prepareCalls, 1);
        EXPECT_EQ(message.content.propertiesAtPrepare, 0);
        EXPECT_EQ(message.target, "");
    }
    EXPECT_TRUE(statements().empty());
    unreleasedHandles = 1; // the layout send keeps its second argument's value
}

// The design send goes on with what it could read ("none", exactly, names no
// layout); the layout send sends nothing when a file is missing, and shows
// only a missing schematic, whose absence also leaves the layout unread.
TEST_F(DesignSending, DesignSendGoesOnWithWhatItCouldReadLayoutSendStops)
{
    file("None", "capitalised none is a file");
    const std::string unreadable = "Unable to open IFF file ";
    const std::string schematicError = "Unable to open schematic IFF file to send to Mentor: ";
    // command, first and second file, body sent (empty: none), standard error
    const std::array<std::string, 5> rows[] = {
        // clang-format off
        {"designsend", file("s", "S"), "none", "S\n", ""},
        {"designsend", file("s"), "None", "S\ncapitalised none is a file\n", ""},
        {"designsend", file("s0", ""), file("l0", ""), "\n\n", ""},
        {"designsend", file("missing"), file("l", "L"), "L\n", unreadable + file("missing") + "\n"},
        {"layoutsend", file("l", "L"), file("missing"), "", unreadable + file("missing") + "\n"},
        {"layoutsend", file("missing"), file("s", "S"), "", unreadable + file("missing") + "\n"},
        // clang-format on
    };
    for (const auto& [command, first, second, body, error] : rows) {
        SCOPED_TRACE(command + " " + first + " + " + second);
        const std::optional<std::string> sentBody =
            send(("mgcconnect_" + command + "_command").c_str(), {first, second, "d", "r", "p"});
        EXPECT_EQ(sentBody.value_or(""), body);
        EXPECT_EQ(standardError, error);
        EXPECT_EQ(statements(), command == "layoutsend" && second == file("missing")
                                    ? reported(schematicError + second)
                                    : std::vector<std::string>{});
    }
    unreleasedHandles = 2; // the layout send keeps its second argument's value
    // Refused values: no schematic value, nothing read or sent; no value kept.
    EXPECT_EQ(send("mgcconnect_designsend_command", {file("s"), "none", "d", "r", "p"}, 0),
              std::nullopt);
    EXPECT_EQ(standardError, "");
    send("mgcconnect_layoutsend_command", {file("l"), file("s"), "d", "r", "p"}, 1);
    EXPECT_EQ(standardError, unreadable + "(null)\n");
    EXPECT_EQ(statements(), reported(schematicError));
}

using RFRegionRequests = PluginTest;

// The netlist request is prepared after its property is set; a highlight
// ignores its first two arguments and is never prepared.
TEST_F(RFRegionRequests, EachRequestCarriesOnePropertyNamingTheRegion)
{
    // command, arguments, property, region, properties at Prepare (-1: not prepared)
    const std::tuple<const char*, std::vector<BRIOValue>, std::string, std::string, int> rows[] = {
        // clang-format off
        {"mgcconnect_netlist_command", {"design", "lna 1", "view", "path"}, "NETLIST_RFREGION", "lna 1", 1},
        {"mgcconnect_push_command", {"design", "cell", "C:\\r \"2\""}, "HIGLIGHT_RFREGION", "C:\\r \"2\"", -1},
        {"mgcconnect_send_push_into_message", {"design", "cell", "pa"}, "HIGLIGHT_RFREGION", "pa", -1},
        // clang-format on
    };
    for (const auto& [command, arguments, property, region, propertiesAtPrepare] : rows) {
        SCOPED_TRACE(command);
        RFMsgExp::Testing::clearSentMessages(test.server());
        test.call(command, arguments);
        const std::vector<RFMsgExp::Testing::SentMessage> messages = sent();
        ASSERT_EQ(messages.size(), 1u);
        const RFMsgExp::MessageContent& content = messages.front().content;
        EXPECT_EQ(content.kind, 224);
        EXPECT_EQ(content.properties,
                  (std::vector<std::pair<std::string, std::string>>{{property, region}}));
        EXPECT_EQ(content.prepareCalls, propertiesAtPrepare < 0 ? 0 : 1);
        EXPECT_EQ(content.propertiesAtPrepare, propertiesAtPrepare);
    }
    const long created = RFMsgExp::Testing::createdObjects();
    EXPECT_EQ(test.call("mgcconnect_instance_command"), 1);
    EXPECT_EQ(test.call("mgcconnect_update_command"), 1);
    EXPECT_EQ(RFMsgExp::Testing::createdObjects(), created) << "instance or update made a message";
    EXPECT_TRUE(statements().empty());
}

} // namespace
