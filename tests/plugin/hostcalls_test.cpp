// Running host statements: directly on the main thread, through idle requests
// from any other, and the two path queries; user messages, log lines and the
// shared text and file routines built on them.

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <QFile>

#include "plugin/usermessages.h"
#include "plugintest.h"
#include "server/xserverlumo.h"

namespace {

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

using UserMessages = PluginTest;
using TextFiles = PluginTest;

// The log line ends in a raw line feed inside the string literal.
TEST_F(UserMessages, EachReportIsTheExactStatementsInCmdOpOnTheMainThread)
{
    const std::tuple<void (*)(std::string), std::string, std::vector<std::string>> rows[] = {
        {ReportError, "a \"b\"", reported("a \"b\"")},
        {ReportInfo, "done", {"CmdOp: de_info(\"Tessel Info: done\");", logged("Info: done")}},
        {WriteLog, "", {"CmdOp: fprintf(stderr,\"Tessel:\n\");"}},
    };
    for (const bool fromMessagingThread : {false, true}) {
        for (const auto& [report, message, ran] : rows) {
            SCOPED_TRACE(message + (fromMessagingThread ? " from a messaging thread" : ""));
            test.brio.clearStatements();
            const auto run = [&, report = report, message = message] { report(message); };
            if (fromMessagingThread)
                ASSERT_TRUE(test.runOnMessagingThread(run));
            else
                run();
            EXPECT_EQ(statements(), ran);
        }
    }
}

TEST(TextRewrites, EscapeQuotesPutsABackslashBeforeEachQuoteOnce)
{
    for (const auto& [text, escaped] : std::vector<std::pair<std::string, std::string>>{
             {"", ""}, {"a\"b\"c", "a\\\"b\\\"c"}, {"\\\"", "\\\\\""}})
        EXPECT_EQ(EscapeQuotes(text), escaped) << text;
}

// Line ends are kept as they are; the missing file and its standard-error
// line are in the sending tests.
TEST_F(TextFiles, ReadAppendsTheTextWithAnExtraLineFeedAndMayDeleteTheFile)
{
    std::string text = "kept:";
    ASSERT_TRUE(ReadTextFile(text, file("in \xc3\xbc.iff", "a\r\nb\n\n").c_str(), false));
    ASSERT_TRUE(ReadTextFile(text, file("gone", "x").c_str(), true));
    EXPECT_EQ(text, "kept:a\r\nb\n\n\nx\n");
    EXPECT_TRUE(QFile::exists(QString::fromStdString(file("in \xc3\xbc.iff"))));
    EXPECT_FALSE(QFile::exists(QString::fromStdString(file("gone"))));
    ReadTextFile(text, dir.path().toStdString().c_str(), false); // must not loop forever
    EXPECT_EQ(text, "kept:a\r\nb\n\n\nx\n") << "read a directory";
}

} // namespace
