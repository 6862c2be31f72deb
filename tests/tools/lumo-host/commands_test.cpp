#include <gtest/gtest.h>

#include "hostrun.h"

namespace {

TEST(HostCommands, RecordsCarryArgumentsResultAndTheHandlesLeftUnreleased)
{
    const HostRun run = runHost({"-e",
                                 "tp_integer(7); tp_release(\"abcd\", 1); tp_null(); "
                                 "x=tp_integer(5); tp_integer(x);",
                                 "-e", "tp_release(\"kept\", 0); tp_release(\"twice\", 2);"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    struct Expected
    {
        const char* name;
        QJsonArray args;
        QJsonValue result;
        int unreleased;
    };
    const std::vector<Expected> expected = {
        {"tp_integer", {7}, 7, 0},
        {"tp_release", {"abcd", 1}, 4, 0},
        {"tp_null", {}, QJsonValue::Null, 0},
        {"tp_integer", {5}, 5, 0},
        {"tp_integer", {5}, 5, 0}, // a result assigned and passed on
        {"tp_release", {"kept", 0}, 4, 1},
        {"tp_release", {"twice", 2}, 5, 0},
    };
    const std::vector<QJsonObject> commands = run.records("command");
    ASSERT_EQ(commands.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(commands[i].value("name").toString(), expected[i].name);
        EXPECT_EQ(commands[i].value("args").toArray(), expected[i].args);
        EXPECT_EQ(commands[i].value("result"), expected[i].result);
        EXPECT_EQ(commands[i].value("unreleased").toInt(), expected[i].unreleased);
    }
    ASSERT_EQ(run.records("bad_handle").size(), 1u);
    EXPECT_EQ(run.records("bad_handle")[0].value("operation").toString(), "free_value");
    EXPECT_TRUE(run.err.contains("free_value given a handle that is not live"));
    // The kept handle is still live when the host ends.
    EXPECT_EQ(run.records("exit").at(0).value("unreleased").toInt(), 1);
}

TEST(HostCommands, ArgumentsArriveWithTheirTypesAndAreNotConverted)
{
    const HostRun run =
        runHost({"-e", "tp_types(\"s\", 1, 2.5, list(1, list()), NULL); y=tp_null(); "
                       "tp_types(y); tp_integer(\"7\"); tp_integer(2.0);"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.texts("info"), (QStringList{"types: 3 1 2 4[2] 0", "types: 0"}));
    EXPECT_EQ(run.results(),
              QJsonArray({5, QJsonValue::Null, 1, QJsonValue::Null, QJsonValue::Null}));
}

TEST(HostCommands, FailStopsHostFunctionsAndPluginCommandsWithoutRunningThem)
{
    const HostRun run = runHost({"--fail", "de_info", "--fail=tp_integer", "-"},
                                "de_info(\"x\");\ntp_integer(1);\ntp_null();\n");
    EXPECT_EQ(run.exitCode, 1);
    const std::vector<QJsonObject> calls = run.records("call");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].value("reason").toString(), "fails as asked (--fail de_info)");
    EXPECT_TRUE(run.records("info").empty());
    EXPECT_TRUE(run.out.isEmpty()) << run.out.toStdString();
    const std::vector<QJsonObject> commands = run.records("command");
    ASSERT_EQ(commands.size(), 2u);
    EXPECT_EQ(commands[0].value("reason").toString(), "fails as asked (--fail tp_integer)");
    EXPECT_TRUE(commands[0].value("result").isNull());
    EXPECT_TRUE(run.err.contains("stdin:1: error: de_info: fails as asked (--fail de_info)"));
    EXPECT_TRUE(run.err.contains("stdin:2: error: tp_integer: fails as asked (--fail tp_integer)"));
}

} // namespace
