#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "hostrun.h"

namespace {

TEST(HostStandardInput, StatementsMaySpanLinesAndAFailureDoesNotStopTheRest)
{
    QTemporaryDir workspace;
    // The last line has no line feed.
    const QByteArray input = "x=\n"
                             "mgclink_get_workspace_path();\n"
                             "de_info(x);\n"
                             "bogus(;\n"
                             "nope();\n"
                             "de_info(\"two\n"
                             "lines\"); de_info(\"after\");";
    // Standard input takes its place where the dash stands.
    const HostRun run = runHost({"--workspace", workspace.path(), "-e", "de_info(\"first\");", "-",
                                 "-e", "de_info(\"last\");"},
                                input);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.texts("info"),
              (QStringList{"first", workspace.path(), "two\nlines", "after", "last"}));
    EXPECT_TRUE(run.err.contains("stdin:4:7: syntax error: expected an expression, found ';'"))
        << run.err.toStdString();
    EXPECT_TRUE(run.err.contains("stdin:5: error: unknown function nope"));

    const std::vector<QJsonObject> scripts = run.records({"script", "source", "stdin"});
    ASSERT_EQ(scripts.size(), 6u);
    EXPECT_EQ(scripts[0].value("text").toString(), "x=\nmgclink_get_workspace_path();");
    QList<int> lines;
    for (const QJsonObject& script : scripts)
        lines << script.value("line").toInt();
    EXPECT_EQ(lines, (QList<int>{1, 3, 4, 5, 6, 7}));
    EXPECT_FALSE(scripts[2].value("ok").toBool());
}

TEST(HostStandardInput, AnUnfinishedStatementAtTheEndIsReported)
{
    const HostRun run = runHost({"-"}, "de_info(\"middle\");\nde_info(\"b\"\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.texts("info"), QStringList{"middle"});
    EXPECT_TRUE(run.err.contains(
        "stdin:3:1: syntax error: expected ',' or ')' in the argument list at the end of the text"))
        << run.err.toStdString();
}

TEST(HostStandardInput, AClosedStandardInputEndsAtOnce)
{
    // Through a shell, which can start the host with its standard input closed.
    HostProcess host({"-c", "exec \"$0\" \"$@\" - <&-", QStringLiteral(LUMO_HOST_PATH), "--plugin",
                      QStringLiteral(PLUGIN_PATH), "-e", "de_info(\"before\");"},
                     "/bin/sh");
    const HostRun run = host.finish();
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.texts("info"), QStringList{"before"});
}

} // namespace
