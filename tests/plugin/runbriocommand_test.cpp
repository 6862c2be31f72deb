// Running host statements: directly on the main thread, through idle requests
// from any other, and the two path queries.

#include <atomic>
#include <map>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "lumo/hostbackend.h"
#include "plugin/mgcbrioidlerequest.h"
#include "plugintesthost.h"
#include "server/xserverlumo.h"

namespace {

class RunBrioCommand : public testing::Test
{
protected:
    void SetUp() override { test.reset(); }
    PluginTestHost& test = PluginTestHost::instance();
};

TEST_F(RunBrioCommand, MainThreadRunsAtOnceInTheGivenOrDefaultVocabulary)
{
    struct Row
    {
        const char* vocabulary;
        const char* expected;
    };
    const int performedBefore = test.host.performed();
    for (const Row& row :
         {Row{"CmdOp", "CmdOp"}, Row{"", "Tessel_Voc"}, Row{nullptr, "Tessel_Voc"}}) {
        SCOPED_TRACE(row.expected);
        test.reset();
        EXPECT_TRUE(test.server().RunBrioCommand("x=1;", row.vocabulary));
        const auto statements = test.brio.statements();
        ASSERT_EQ(statements.size(), 1u);
        EXPECT_EQ(statements[0].vocabulary, row.expected);
        EXPECT_EQ(statements[0].text, "x=1;");
        EXPECT_EQ(statements[0].thread, std::this_thread::get_id());
    }
    EXPECT_EQ(test.host.performed(), performedBefore) << "nothing is posted from the main thread";
}

TEST_F(RunBrioCommand, MainThreadHandsEvenAnEmptyTextToTheHostButNotANullOne)
{
    EXPECT_TRUE(test.server().RunBrioCommand("", "Tessel_Voc"));
    EXPECT_EQ(test.statementTexts(), std::vector<std::string>{""});
    test.brio.clearStatements();
    EXPECT_FALSE(test.server().RunBrioCommand(nullptr, "Tessel_Voc"));
    EXPECT_TRUE(test.brio.statements().empty());
}

TEST_F(RunBrioCommand, HostFailureIsTheResult)
{
    test.brio.setEvaluator([](const std::string&, const std::string&) { return false; });
    EXPECT_FALSE(test.server().RunBrioCommand("bad(", "Tessel_Voc"));
    bool posted = true;
    ASSERT_TRUE(test.runOnMessagingThread(
        [&] { posted = test.server().RunBrioCommand("bad(", "Tessel_Voc"); }));
    EXPECT_FALSE(posted);
}

TEST_F(RunBrioCommand, OtherThreadIsPerformedOnTheMainThreadInDefaultVocabulary)
{
    bool result = false;
    ASSERT_TRUE(test.runOnMessagingThread(
        [&] { result = test.server().RunBrioCommand("mgclink_x();", ""); }));
    EXPECT_TRUE(result);
    const auto statements = test.brio.statements();
    ASSERT_EQ(statements.size(), 1u);
    EXPECT_EQ(statements[0].thread, std::this_thread::get_id());
    EXPECT_EQ(statements[0].vocabulary, "Tessel_Voc");
}

TEST_F(RunBrioCommand, PostedEmptyTextNeverReachesTheHost)
{
    bool result = true;
    ASSERT_TRUE(
        test.runOnMessagingThread([&] { result = test.server().RunBrioCommand("", "CmdOp"); }));
    EXPECT_FALSE(result);
    EXPECT_TRUE(test.brio.statements().empty());
}

TEST_F(RunBrioCommand, ConcurrentCallersEachGetTheirOwnResultAllPerformedOnMainThread)
{
    // Odd statements fail, even ones succeed: a mixed-up result shows.
    test.brio.setEvaluator([](const std::string&, const std::string& text) {
        return std::stoi(text.substr(2)) % 2 == 0;
    });
    constexpr int Threads = 8;
    constexpr int PerThread = 50;
    std::atomic<int> wrong{0};
    std::atomic<int> finished{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < Threads; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; i < PerThread; ++i) {
                const int n = t * PerThread + i;
                const std::string text = "x=" + std::to_string(n);
                if (test.server().RunBrioCommand(text.c_str(), "") != (n % 2 == 0))
                    ++wrong;
            }
            ++finished;
        });
    }
    const bool done = test.host.pumpUntil([&] { return finished == Threads; });
    if (!done)
        test.host.shutdown();
    for (std::thread& worker : workers)
        worker.join();
    ASSERT_TRUE(done);
    EXPECT_EQ(wrong, 0);
    const auto statements = test.brio.statements();
    EXPECT_EQ(statements.size(), static_cast<std::size_t>(Threads * PerThread));
    for (const auto& statement : statements)
        ASSERT_EQ(statement.thread, std::this_thread::get_id()) << statement.text;
}

TEST_F(RunBrioCommand, PostingWithoutAHostReturnsFalseAtOnce)
{
    LumoHost::installBackend(nullptr);
    bool result = true;
    std::thread worker([&] { result = test.server().RunBrioCommand("x=1;", ""); });
    worker.join(); // would hang if the request waited for a host that is not there
    LumoHost::installBackend(&test.host);
    EXPECT_FALSE(result);
    EXPECT_TRUE(test.brio.statements().empty());
}

TEST_F(RunBrioCommand, IdleRequestPerformsOnlyWhenTheHostCalls)
{
    MGCBrioIdleRequest request("y=2;", "");
    EXPECT_FALSE(request.result());
    request.perform();
    EXPECT_TRUE(request.result());
    EXPECT_EQ(test.brio.statements().at(0).vocabulary, "Tessel_Voc");
}

class PathQuery : public RunBrioCommand
{
};

TEST_F(PathQuery, AnswersComeThroughTheResultVariableAndItsHandleIsFreed)
{
    test.answerPaths(std::string("C:\\ws\\proj_wrk"), std::string("/ws/netlists"));
    EXPECT_EQ(test.server().GetWorkspacePath(), "C:\\ws\\proj_wrk");
    EXPECT_EQ(test.server().GetNetlistsPath(), "/ws/netlists");
    EXPECT_EQ(test.statementTexts(),
              (std::vector<std::string>{"mgcIntermediate=mgclink_get_workspace_path();",
                                        "mgcIntermediate=mgclink_get_netlists_path();"}));
    EXPECT_EQ(test.brio.statements().at(0).vocabulary, "Tessel_Voc");
    EXPECT_EQ(test.brio.liveHandles(), 0);
    EXPECT_EQ(test.brio.invalidFrees(), 0);
}

TEST_F(PathQuery, FailedStatementOrUnsetVariableGivesEmptyText)
{
    test.answerPaths(std::nullopt, std::nullopt);
    EXPECT_EQ(test.server().GetWorkspacePath(), "");
    test.answerPaths(std::string("/ws"), std::string("/n"), {"mgclink_get_workspace_path"});
    test.brio.setVariable("Tessel_Voc", "mgcIntermediate", std::string("/stale"));
    EXPECT_EQ(test.server().GetWorkspacePath(), "") << "a failed query must not read the variable";
}

TEST_F(PathQuery, FromMessagingThreadTheQueryIsPostedAndTheAnswerRead)
{
    test.answerPaths(std::string("/ws/α"), std::string("/ws/netlists"));
    const int performedBefore = test.host.performed();
    std::string answer;
    ASSERT_TRUE(test.runOnMessagingThread([&] { answer = test.server().GetWorkspacePath(); }));
    EXPECT_EQ(answer, "/ws/α");
    EXPECT_EQ(test.host.performed(), performedBefore + 1);
}

} // namespace
