#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "hostrun.h"

namespace {

TEST(HostStandardInput, StatementsMaySpanLinesAndAFailureDoesNotStopTheRest)
{
    QTemporaryDir workspace;
    const QByteArray input = "x=\n"
                             "mgclink_get_workspace_path();\n"
                             "de_info(x);\n"
                             "bogus(;\n"
                             "nope();\n"
                             "de_info(\"two\n"
                             "lines\"); de_info(\"after\");\n";
    const HostRun run = runHost({"--workspace", workspace.path()}, input);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.texts("info"), (QStringList{workspace.path(), "two\nlines", "after"}));
    EXPECT_TRUE(run.err.contains("stdin:4:7: syntax error: expected an expression, found ';'"))
        << run.err.toStdString();
    EXPECT_TRUE(run.err.contains("stdin:5: error: unknown function nope"));

    const std::vector<QJsonObject> scripts = run.records("script");
    ASSERT_EQ(scripts.size(), 6u);
    EXPECT_EQ(scripts[0].value("text").toString(), "x=\nmgclink_get_workspace_path();");
    EXPECT_EQ(scripts[0].value("line").toInt(), 1);
    EXPECT_EQ(scripts[0].value("source").toString(), "stdin");
    EXPECT_EQ(scripts[1].value("line").toInt(), 3);
    EXPECT_EQ(scripts[2].value("line").toInt(), 4);
    EXPECT_FALSE(scripts[2].value("ok").toBool());
    EXPECT_EQ(scripts[4].value("line").toInt(), 6);
}

TEST(HostStandardInput, ALastLineWithoutLineFeedStillRuns)
{
    const HostRun run = runHost({}, "de_info(\"end\");");
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.texts("info"), QStringList{"end"});
}

TEST(HostStandardInput, AnUnfinishedStatementAtTheEndIsReported)
{
    const HostRun run = runHost({}, "de_info(\"a\");\nde_info(\"b\"\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.texts("info"), QStringList{"a"});
    EXPECT_TRUE(run.err.contains(
        "stdin:3:1: syntax error: expected ',' or ')' in the argument list at the end of the text"))
        << run.err.toStdString();
}

TEST(HostStandardInput, TakesItsPlaceAmongScriptsWhereTheDashStands)
{
    const HostRun run = runHost({"-e", "de_info(\"first\");", "-", "-e", "de_info(\"last\");"},
                                "de_info(\"middle\");\n");
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.texts("info"), (QStringList{"first", "middle", "last"}));
}

TEST(HostStandardInput, EndOfInputHandsOverToServing)
{
    const HostRun run =
        runHost({"-", "--serve", "--until", "de_info:2", "--timeout", "60"}, "tp_post(2, \"\");\n");
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.texts("info").size(), 2);
}

TEST(HostStandardInput, AClosedStandardInputEndsAtOnce)
{
    // Through a shell, which can start the host with its standard input closed.
    HostProcess host({"-c", "exec \"$0\" \"$@\" - <&-", hostPath(), "--plugin", testPluginPath(),
                      "-e", "de_info(\"before\");"},
                     "/bin/sh");
    const HostRun run = host.finish();
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.texts("info"), QStringList{"before"});
}

} // namespace
