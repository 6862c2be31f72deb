#include <gtest/gtest.h>

#include <csignal>

#include "hostrun.h"

namespace {

TEST(HostIdleRequests, FromAPluginThreadArePerformedOnTheMainThread)
{
    // The requests come after the command has returned: while the host reads
    // its input or, once that has ended, while it serves.
    const HostRun run =
        runHost({"-", "--serve", "--until=de_info:3", "--timeout=60"}, "tp_post(3);\n");
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.texts("info"), (QStringList{"idle request 1 ran on the main thread",
                                              "idle request 2 ran on the main thread",
                                              "idle request 3 ran on the main thread"}));
    for (const QJsonObject& eval : run.records("eval"))
        EXPECT_EQ(eval.value("via").toString(), "idle");
}

TEST(HostIdleRequests, OneThatThrowsIsFailedToItsPosterAndTheHostGoesOn)
{
    const HostRun run =
        runHost({"-", "--serve", "--until=de_info:3", "--timeout=60"}, "tp_post(3, 2);\n");
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.texts("info"),
              (QStringList{"idle request 1 ran on the main thread",
                           "idle request 2 failed to its poster, which ran on the main thread",
                           "idle request 3 ran on the main thread"}));
    EXPECT_TRUE(run.err.contains("idle request failed: idle request 2 threw"))
        << run.err.toStdString();
}

TEST(HostIdleRequests, ArePerformedWhileTheHostWaitsForInput)
{
    HostProcess host({"-"});
    host.write("tp_post(1);");
    EXPECT_TRUE(host.waitForOutput("[info] idle request 1 ran on the main thread"));
    EXPECT_EQ(host.finish().exitCode, 0);
}

TEST(HostIdleRequests, AreAlsoPerformedInsideAModalDialog)
{
    const HostRun run = runHost({"-e", "tp_modal();"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.results(), QJsonArray({1}));
    EXPECT_EQ(run.texts("info"), QStringList{"in the dialog ran on the main thread"});
    // An idle statement, though a command was running; written before the
    // command's record, as it finished first.
    EXPECT_EQ(run.records("eval").at(0).value("via").toString(), "idle");
    EXPECT_LT(run.indexOf("eval"), run.indexOf("command"));
}

TEST(HostServing, EndsWhenUntilIsMetOrTheTimeoutPasses)
{
    struct Case
    {
        const char* name;
        QStringList arguments;
        int exitCode;
        QString error;
        QByteArray input = {};
    };
    const std::vector<Case> cases = {
        // No timeout: de_info was called often enough before serving began.
        {"until met before serving",
         {"-e", "de_info(\"a\"); de_info(\"b\");", "--serve", "--until", "de_info:2"},
         0,
         {}},
        {"timeout alone", {"-e", "x=1;", "--serve", "--timeout", "0.2"}, 0, {}},
        {"timeout before until",
         {"-e", "de_info(\"once\");", "--serve", "--until", "de_info:2", "--timeout", "0.2"},
         4,
         "--timeout: 0.2 s passed with de_info called 1 of 2 times"},
        {"a statement of standard input failed",
         {"-", "--serve", "--timeout", "0.2"},
         1,
         "stdin:1: error: unknown function nope",
         "nope();\n"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        const HostRun run = runHost(row.arguments, row.input);
        EXPECT_EQ(run.exitCode, row.exitCode) << run.err.toStdString();
        EXPECT_TRUE(run.err.contains(row.error)) << run.err.toStdString();
        EXPECT_EQ(run.records("exit").size(), 1u);
    }
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
