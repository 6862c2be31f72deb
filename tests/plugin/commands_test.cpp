// The script commands of "CmdOp" called through the table the host registered:
// their argument checks, what they do with refused fetches, and the connection,
// start and option commands. Then what they build on: host statements run
// directly on the main thread or through idle requests from any other, the two
// path queries, and the reading of text files.

#include <cstdint>
#include <ctime>

#include <QDir>
#include <QFile>
#include <QTcpServer>
#include <gtest/gtest.h>

#include "options/optionnames.h"
#include "options/tesseloptions.h"
#include "plugin/usermessages.h"
#include "plugintest.h"
#include "server/xserverlumo.h"

namespace {

namespace OptionName = Tessel::OptionName;

class Commands : public PluginTest
{
protected:
    Tessel::TesselOptions& options() { return test.server().GetOptions(); }
};

// The commands that send: their number of string arguments, how many of their
// values they keep, and whether they stop at a refused fetch and never answer.
const std::tuple<const char*, int, int, bool> sends[] = {
    // clang-format off
    {"mgcconnect_send_push_into_message", 3, 0, true}, {"mgcconnect_netlist_command", 4, 0, false},
    {"mgcconnect_push_command", 3, 0, false}, {"mgcconnect_designsend_command", 5, 0, false},
    {"mgcconnect_layoutsend_command", 5, 1, false}};
// clang-format on

TEST_F(Commands, AnArgumentOfTheWrongTypeOrMissingGivesNullAndFetchesNothing)
{
    const QString projects = options().iff().get_option_value(OptionName::ExportProjects);
    std::vector<std::pair<const char*, int>> commands = {{"mgcconnect_set_IFF_project_list", 1},
                                                         {"mgcconnect_write_IFF_options_file", 1}};
    for (const auto& [name, count, kept, strict] : sends)
        commands.emplace_back(name, count);
    for (const auto& [command, count] : commands) {
        // One too few, a number first, a real last.
        std::vector<std::vector<BRIOValue>> calls(3, std::vector<BRIOValue>(count, "file"));
        calls[0].pop_back();
        calls[1].front() = 7;
        calls[2].back() = 2.5;
        for (const std::vector<BRIOValue>& arguments : calls) {
            SCOPED_TRACE(std::string(command) + " of " + std::to_string(arguments.size()));
            const int fetches = test.brio.getArgumentCalls();
            EXPECT_EQ(test.call(command, arguments), std::nullopt);
            EXPECT_EQ(test.brio.getArgumentCalls(), fetches);
        }
    }
    // The start takes two integers, no type asked; it releases each as soon as read.
    for (const std::vector<BRIOValue>& arguments :
         std::vector<std::vector<BRIOValue>>{{"0", 0}, {0, "0"}, {0, 2.5}, {0}, {}})
        EXPECT_EQ(test.call("mgcconnect_initialize", arguments), std::nullopt);
    EXPECT_EQ(test.call("mgcconnect_initialize", {0, 0}, 1), std::nullopt);
    EXPECT_EQ(test.server().GetPort(), 0) << "the bridge was started";
    EXPECT_TRUE(sent().empty());
    EXPECT_TRUE(statements().empty());
    EXPECT_EQ(options().iff().get_option_value(OptionName::ExportProjects), projects);
    EXPECT_TRUE(QDir(dir.path()).isEmpty());
}

TEST_F(Commands, InitializeShowsAStartErrorLogsTheStartAndReloadsTheOptions)
{
    Tessel::TesselOptions saved; // the options file is "./Tessel.opt", in the test's directory
    saved.general().set_option(OptionName::TargetLib, "saved", QString());
    ASSERT_TRUE(saved.save());
    const std::string started = logged("Server started, hostname is " +
                                       std::string(test.server().GetMachineName().c_str()));
    QTcpServer busy; // a port the system picked, held by a listener of our own
    ASSERT_TRUE(busy.listen(QHostAddress::LocalHost));
    options().general().clear_options();
    EXPECT_EQ(test.call("mgcconnect_initialize", {int(busy.serverPort()), 0}), 1);
    busy.close();
    const std::vector<std::string> ran = statements();
    ASSERT_EQ(ran.size(), 3u);
    // The library's own words follow the fixed text.
    const std::string error =
        "Problem with communications with Mentor - MGCC XServer Error, value is ";
    EXPECT_EQ(ran[0].rfind("CmdOp: de_info(\"Tessel Error: " + error, 0), 0u) << ran[0];
    EXPECT_EQ(ran[1].rfind("CmdOp: fprintf(stderr,\"Tessel:Error: " + error, 0), 0u) << ran[1];
    EXPECT_EQ(ran[2], started);
    EXPECT_TRUE(options().general().get_option_value(OptionName::TargetLib).isEmpty())
        << "the throw came before the options were read";

    test.brio.clearStatements();
    EXPECT_EQ(test.call("mgcconnect_initialize", {0, 0}), 1);
    EXPECT_EQ(statements(), std::vector<std::string>{started});
    EXPECT_NE(test.server().GetPort(), 0) << "the bridge is not listening";
    EXPECT_EQ(options().general().get_option_value(OptionName::TargetLib), "saved");
    EXPECT_EQ(test.call("mgcconnect_disconnect"), 1);
}

TEST_F(Commands, ConnectionQueriesMatchTheApplicationNameIgnoringCase)
{
    // clang-format off
    const std::vector<std::tuple<std::vector<RFMsgExp::Testing::Peer>, int, int>> rows = {
        {{}, 0, 0}, {{{"dxd", 1}}, 1, 0}, {{{"bSxE", 1}}, 0, 1},
        {{{"DXD2", 1}, {"XBSXE", 2}, {"", 3}}, 0, 0}, {{{"other", 1}, {"BSXE", 2}, {"Dxd", 3}}, 1, 1},
    };
    // clang-format on
    for (const auto& [peers, schematic, layout] : rows) {
        SCOPED_TRACE(peers.size());
        RFMsgExp::Testing::simulatePeers(test.server(), peers);
        EXPECT_EQ(test.call("mgcconnect_is_connected_to_schematic"), schematic);
        EXPECT_EQ(test.call("mgcconnect_is_connected_to_layout"), layout);
    }
    RFMsgExp::Testing::simulateNoPeerSet(test.server());
    EXPECT_EQ(test.call("mgcconnect_is_connected_to_schematic"), 0) << "no set: no peer";
    EXPECT_TRUE(statements().empty());
}

TEST_F(Commands, TimestampIsTheLowThirtyTwoBitsOfTheCurrentTime)
{
    const auto before = static_cast<std::uint32_t>(std::time(nullptr));
    const auto stamp = std::uint32_t(test.call("mgcconnect_get_current_timestamp").value());
    EXPECT_LE(before, stamp);
    EXPECT_LE(stamp, static_cast<std::uint32_t>(std::time(nullptr)));
}

// The strict command keeps the values fetched before a refused one; the others
// fetch every argument. A failed send is shown as a communication error.
TEST_F(Commands, SendCommandsFetchEveryArgumentAndShowAFailedSend)
{
    const std::string iff = file("a.iff", "");
    for (int refused = 0; refused < 3; ++refused) {
        EXPECT_EQ(test.call("mgcconnect_send_push_into_message", {"a", "b", "c"}, refused),
                  std::nullopt);
        unreleasedHandles += refused;
    }
    const std::vector<std::string> shown =
        reported("Problem with communications with Mentor - MGCC XServer Error, value is peer "
                 "went away");
    for (const bool failing : {false, true}) {
        if (failing)
            RFMsgExp::Testing::failSends(test.server(), "peer went away");
        for (const auto& [name, count, kept, strict] : sends) {
            SCOPED_TRACE(std::string(name) + (failing ? " failing" : ""));
            test.brio.clearStatements();
            const int fetches = test.brio.getArgumentCalls();
            EXPECT_EQ(test.call(name, std::vector<BRIOValue>(count, iff),
                                failing || strict ? -1 : count - 1),
                      strict ? std::nullopt : std::optional(1));
            EXPECT_EQ(test.brio.getArgumentCalls() - fetches, count);
            EXPECT_EQ(statements(), failing ? shown : std::vector<std::string>());
            unreleasedHandles += kept;
        }
    }
    EXPECT_EQ(sent().size(), 5u);
}

TEST_F(Commands, OptionCommandsDecodeTheirTextAsUtf8AndKeepItsValue)
{
    const std::string projects = "Projekt \xc3\xa4, b;c";
    EXPECT_EQ(test.call("mgcconnect_set_IFF_project_list", {projects}), 1);
    EXPECT_EQ(options().iff().get_option_value(OptionName::ExportProjects),
              QString::fromUtf8(projects.c_str()));
    EXPECT_TRUE(options().iff().get_option_tip(OptionName::ExportProjects).isEmpty());
    const std::string written = file("\xc3\xb6ptions.txt");
    EXPECT_EQ(test.call("mgcconnect_write_IFF_options_file", {written}), 1);
    EXPECT_TRUE(QFile::exists(QString::fromUtf8(written.c_str())));
    EXPECT_EQ(test.call("mgcconnect_write_IFF_options_file", {file("missing/options.txt")}), 0);
    EXPECT_TRUE(statements().empty());
    unreleasedHandles = 3;
}

using RunBrioCommand = PluginTest;

// An empty text still reaches the host from the main thread, never when posted.
TEST_F(RunBrioCommand, MainThreadRunsAtOnceOtherThreadsPostAndWait)
{
    // posted, text, vocabulary, whether the host succeeds, the statements it ran
    const std::tuple<bool, const char*, const char*, bool, std::vector<std::string>> rows[] = {
        // clang-format off
        {false, "x=1;", "CmdOp", true, {"CmdOp: x=1;"}}, {false, "", nullptr, true, {"Tessel_Voc: "}},
        {false, nullptr, "Tessel_Voc", true, {}}, {false, "bad(", "Tessel_Voc", false, {"Tessel_Voc: bad("}},
        {true, "mgclink_x();", "", true, {"Tessel_Voc: mgclink_x();"}}, {true, "", "CmdOp", true, {}},
        {true, "bad(", "CmdOp", false, {"CmdOp: bad("}},
        // clang-format on
    };
    for (const auto& [posted, text, vocabulary, succeeds, ran] : rows) {
        SCOPED_TRACE(std::string(posted ? "posted " : "") + (text ? text : "(null)"));
        test.brio.clearStatements();
        test.brio.setEvaluator(
            [succeeds = succeeds](const std::string&, const std::string&) { return succeeds; });
        const int performed = test.host.performed();
        bool result = !succeeds;
        const auto run = [&, text = text, vocabulary = vocabulary] {
            result = test.server().RunBrioCommand(text, vocabulary);
        };
        if (posted)
            ASSERT_TRUE(test.runOnMessagingThread(run));
        else
            run();
        EXPECT_EQ(result, succeeds && !ran.empty());
        EXPECT_EQ(statements(), ran); // and every one on the main thread
        EXPECT_EQ(test.host.performed() - performed, posted ? 1 : 0);
    }
}

TEST_F(RunBrioCommand, PathQueriesAnswerThroughTheResultVariableOrGiveEmptyText)
{
    test.answerPaths("C:\\ws\\proj_w\xc3\xa4rk", "/ws/netlists");
    EXPECT_EQ(test.server().GetWorkspacePath(), "C:\\ws\\proj_w\xc3\xa4rk");
    EXPECT_EQ(test.server().GetNetlistsPath(), "/ws/netlists");
    EXPECT_EQ(statements(), (std::vector<std::string>{WorkspaceQuery, NetlistsQuery}));
    test.answerPaths(std::nullopt, std::nullopt);
    EXPECT_EQ(test.server().GetWorkspacePath(), "");
    test.answerPaths("/ws", "/n", {"mgclink_get_workspace_path"});
    test.brio.setVariable("Tessel_Voc", "mgcIntermediate", std::string("/stale"));
    EXPECT_EQ(test.server().GetWorkspacePath(), "") << "a failed query must not read the variable";
}

using TextFiles = PluginTest;

// Line ends stay as they are, with one line feed more; the file may be
// deleted after; a directory is no file to read, and must not keep the reader
// going forever.
TEST_F(TextFiles, ReadAppendsTheTextWithAnExtraLineFeedAndStopsAtADirectory)
{
    std::string text = "kept:";
    ASSERT_TRUE(ReadTextFile(text, file("in \xc3\xbc.iff", "a\r\nb\n\n").c_str(), false));
    ASSERT_TRUE(ReadTextFile(text, file("gone", "x").c_str(), true));
    EXPECT_FALSE(QFile::exists(QString::fromStdString(file("gone"))));
    ReadTextFile(text, dir.path().toStdString().c_str(), false);
    EXPECT_EQ(text, "kept:a\r\nb\n\n\nx\n");
}

} // namespace
