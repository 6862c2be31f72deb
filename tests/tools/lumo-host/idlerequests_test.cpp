#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <csignal>

#include "hostrun.h"

namespace {

TEST(HostIdleRequests, PostedFromAPluginThreadArePerformedOnTheMainThreadWhileServing)
{
    const HostRun run =
        runHost({"-e", "tp_post(3, \"\");", "--serve", "--until", "de_info:3", "--timeout", "60"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.texts("info"), (QStringList{"idle request 1 ran on the main thread",
                                              "idle request 2 ran on the main thread",
                                              "idle request 3 ran on the main thread"}));
    const std::vector<QJsonObject> evals = run.records("eval");
    ASSERT_EQ(evals.size(), 3u);
    for (const QJsonObject& eval : evals) {
        EXPECT_EQ(eval.value("via").toString(), "idle");
        EXPECT_EQ(eval.value("vocabulary").toString(), "Tessel_Voc");
    }
}

TEST(HostIdleRequests, QueryStatementRunsViaIdleAndItsVariableIsReadOnThePluginThread)
{
    QTemporaryDir workspace;
    const HostRun run = runHost({"--workspace", workspace.path(), "-e", "tp_query();", "--serve",
                                 "--until", "de_info:1", "--timeout", "60"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.texts("info"), QStringList{"workspace from thread: " + workspace.path()});
    const std::vector<QJsonObject> evals = run.records("eval");
    ASSERT_EQ(evals.size(), 2u);
    EXPECT_EQ(evals[0].value("text").toString(), "mgcIntermediate=mgclink_get_workspace_path();");
    EXPECT_EQ(evals[0].value("via").toString(), "idle");
    // The handle made by find_variable on the plug-in's thread was released.
    EXPECT_EQ(run.records("exit").at(0).value("unreleased").toInt(), 0);
}

TEST(HostIdleRequests, AreAlsoPerformedInsideAModalDialog)
{
    const HostRun run = runHost({"-e", "tp_modal();"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    ASSERT_EQ(run.records("command").size(), 1u);
    EXPECT_EQ(run.records("command")[0].value("result").toInt(), 1);
    EXPECT_EQ(run.texts("info"), QStringList{"performed inside the dialog"});
    // The statement of the request is an idle one, though a command was running.
    EXPECT_EQ(run.records("eval").at(0).value("via").toString(), "idle");
    // Records are written as things finish: the nested statement before the command.
    EXPECT_LT(indexOf(run, "eval"), indexOf(run, "command"));
}

TEST(HostIdleRequests, EvaluateTextOffTheMainThreadIsRefused)
{
    const HostRun run = runHost({"-e", "tp_eval_from_thread(\"de_info(\\\"x\\\");\");", "--serve",
                                 "--until", "de_info:1", "--timeout", "60"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.texts("info"), QStringList{"from thread: refused"});
    const std::vector<QJsonObject> evals = run.records("eval");
    ASSERT_EQ(evals.size(), 2u);
    EXPECT_FALSE(evals[0].value("ok").toBool());
    EXPECT_EQ(evals[0].value("reason").toString(),
              "evaluate_text called off the host's main thread");
}

TEST(HostIdleRequests, ArePerformedWhileTheHostWaitsForInput)
{
    HostProcess host({"-"});
    host.process().write("tp_post(1, \"\");\n");
    EXPECT_TRUE(host.waitForOutput("[info] idle request 1 ran on the main thread"));
    const HostRun run = host.finish();
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
}

TEST(HostServing, EndsWhenTheFunctionHasBeenCalledOftenEnoughEvenBeforeServingBegins)
{
    // de_info was called during the statements: serving ends at once, no timeout needed.
    const HostRun run =
        runHost({"-e", "de_info(\"a\"); de_info(\"b\");", "--serve", "--until", "de_info:2"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.records("exit").at(0).value("code").toInt(), 0);
}

TEST(HostServing, TimeoutEndsServingAndFailsOnlyWhenUntilWasNotMet)
{
    const HostRun plain = runHost({"-e", "x=1;", "--serve", "--timeout", "0.2"});
    EXPECT_EQ(plain.exitCode, 0) << plain.err.toStdString();

    const HostRun unmet = runHost(
        {"-e", "de_info(\"once\");", "--serve", "--until", "de_info:2", "--timeout", "0.2"});
    EXPECT_EQ(unmet.exitCode, 4);
    EXPECT_TRUE(unmet.err.contains("--timeout: 0.2 s passed with de_info called 1 of 2 times"))
        << unmet.err.toStdString();
    EXPECT_EQ(unmet.records("exit").at(0).value("code").toInt(), 4);
}

TEST(HostServing, EndsOnSigtermOrSigint)
{
    for (int signal : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(signal);
        HostProcess host({"-e", "de_info(\"ready\");", "--serve"});
        ASSERT_TRUE(host.waitForOutput("[info] ready"));
        ::kill(static_cast<pid_t>(host.process().processId()), signal);
        const HostRun run = host.finish();
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_EQ(run.records("exit").size(), 1u);
    }
}

} // namespace
