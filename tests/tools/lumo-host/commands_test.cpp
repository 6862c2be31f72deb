// Commands of the test plug-in run by lumo-host: what they are given, what
// they return and keep, and the idle requests they post.

#include <gtest/gtest.h>

#include <QJsonDocument>

#include "hostrun.h"

namespace {

TEST(HostCommands, RecordsCarryArgumentsAsTypedResultAndTheHandlesLeftUnreleased)
{
    const HostRun run =
        runHost({"-e", "x=tp_integer(5, 1); tp_integer(x, 1); tp_integer(4, 0); tp_integer(3, 2);",
                 "-e", "tp_integer(\"7\", 1); tp_integer(2.0, 1); tp_integer(list(1), NULL);"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    QStringList commands;
    for (const QJsonObject& command : run.records({"command", "name", "tp_integer"}))
        commands << QJsonDocument(command.value("args").toArray()).toJson(QJsonDocument::Compact) +
                        QString::number(command.value("unreleased").toInt());
    EXPECT_EQ(commands, (QStringList{"[5,1]0", "[5,1]0", "[4,0]1", "[3,2]0", "[\"7\",1]0", "[2,1]0",
                                     "[[1],null]0"}));
    // Nothing else is taken for an integer.
    EXPECT_EQ(run.results(),
              QJsonArray({5, 5, 4, 3, QJsonValue::Null, QJsonValue::Null, QJsonValue::Null}));
    EXPECT_EQ(run.records({"bad_handle", "operation", "free_value"}).size(), 1u);
    EXPECT_TRUE(run.err.contains("free_value given a handle that is not live"));
    // The kept handle is still live when the host ends.
    EXPECT_EQ(run.records("exit").at(0).value("unreleased").toInt(), 1);
}

TEST(HostCommands, FailStopsHostFunctionsAndPluginCommandsWithoutRunningThem)
{
    const HostRun run = runHost({"--fail", "de_info", "--fail=tp_integer", "-"},
                                "de_info(\"x\");\ntp_integer(1, 1);\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.records("info").empty());
    EXPECT_EQ(run.results(), QJsonArray({QJsonValue::Null}));
    EXPECT_TRUE(run.err.contains("stdin:1: error: de_info: fails as asked (--fail de_info)"));
    EXPECT_TRUE(run.err.contains("stdin:2: error: tp_integer: fails as asked (--fail tp_integer)"));
}

// The requests come after the command has returned, while the host serves;
// a statement evaluated directly from the plug-in's thread is refused.
TEST(HostIdleRequests, ArePerformedOnTheMainThreadAndOneThatThrowsFailsOnlyToItsPoster)
{
    const HostRun run =
        runHost({"-", "--serve", "--until=de_info:3", "--timeout=60"}, "tp_post(3, 2);\n");
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.texts("info"),
              (QStringList{"idle request 1 ran", "idle request 2 failed to its poster, which ran",
                           "idle request 3 ran"}));
    EXPECT_TRUE(run.err.contains("idle request failed: idle request 2 threw"))
        << run.err.toStdString();
    EXPECT_EQ(run.records({"eval", "via", "idle"}).size(), 3u);
    EXPECT_EQ(
        run.records({"eval", "reason", "evaluate_text called off the host's main thread"}).size(),
        1u);
}

} // namespace
