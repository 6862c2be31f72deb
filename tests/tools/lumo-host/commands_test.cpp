#include <gtest/gtest.h>

#include <QJsonArray>
#include <QTemporaryDir>

#include "hostrun.h"

namespace {

QJsonArray array(std::initializer_list<QJsonValue> values)
{
    return QJsonArray(values);
}

TEST(HostCommands, RecordsCarryArgumentsResultAndTheHandlesLeftUnreleased)
{
    const HostRun run = runHost({"-e", "tp_integer(7); tp_length(\"abcd\"); tp_null();", "-e",
                                 "tp_leak(\"kept\"); tp_integer(-2);"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    const std::vector<QJsonObject> commands = run.records("command");
    ASSERT_EQ(commands.size(), 5u);
    struct Expected
    {
        const char* name;
        QJsonArray args;
        QJsonValue result;
        int unreleased;
    };
    const std::vector<Expected> expected = {
        {"tp_integer", array({7}), 7, 0},
        {"tp_length", array({"abcd"}), 4, 0},
        {"tp_null", array({}), QJsonValue::Null, 0},
        {"tp_leak", array({"kept"}), 1, 1},
        {"tp_integer", array({-2}), -2, 0},
    };
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(expected[i].name);
        EXPECT_EQ(commands[i].value("name").toString(), expected[i].name);
        EXPECT_EQ(commands[i].value("args").toArray(), expected[i].args);
        EXPECT_EQ(commands[i].value("result"), expected[i].result);
        EXPECT_EQ(commands[i].value("unreleased").toInt(), expected[i].unreleased);
    }
    // The kept handle is still live when the host ends.
    EXPECT_EQ(run.records("exit").at(0).value("unreleased").toInt(), 1);
}

TEST(HostCommands, ReleasingAHandleTwiceIsReported)
{
    const HostRun run = runHost({"-e", "tp_double_free(\"x\");"});
    ASSERT_EQ(run.records("bad_handle").size(), 1u);
    EXPECT_EQ(run.records("bad_handle")[0].value("operation").toString(), "free_value");
    EXPECT_TRUE(run.err.contains("free_value given a handle that is not live"));
    EXPECT_EQ(run.records("command").at(0).value("unreleased").toInt(), 0);
}

TEST(HostCommands, ArgumentsArriveWithTheirTypes)
{
    const HostRun run =
        runHost({"-e", "tp_types(\"s\", 1, 2.5, list(1, list()), NULL); tp_types();", "-e",
                 "tp_real(3); tp_real(0.25); tp_integer(\"7\"); tp_integer(2.0); tp_length(5);"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.texts("info"), (QStringList{"types: 3 1 2 4[2] 0", "types:"}));
    QJsonArray results;
    for (const QJsonObject& command : run.records("command"))
        results.append(command.value("result"));
    // An integer is delivered as a real; no other type is converted.
    EXPECT_EQ(results, array({5, 0, 30, 2, QJsonValue::Null, QJsonValue::Null, QJsonValue::Null}));
}

TEST(HostCommands, ResultsCanBeAssignedAndPassedOn)
{
    const HostRun run =
        runHost({"-e", "x=tp_integer(5); tp_integer(x); y=tp_null(); tp_types(y);"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    const std::vector<QJsonObject> commands = run.records("command");
    ASSERT_EQ(commands.size(), 4u);
    EXPECT_EQ(commands[1].value("args").toArray(), array({5}));
    EXPECT_EQ(run.texts("info"), QStringList{"types: 0"});
}

TEST(HostCommands, VariablesAreFoundOnlyInTheVocabularyThatSetThem)
{
    QTemporaryDir workspace;
    const HostRun run = runHost(
        {"--workspace", workspace.path(), "-e",
         "tp_eval(\"Tessel_Voc\", \"mgcIntermediate=mgclink_get_workspace_path();\");", "-e",
         "tp_find(\"Tessel_Voc\", \"mgcIntermediate\"); tp_find(\"CmdOp\", \"mgcIntermediate\"); "
         "tp_find(\"User_Voc\", \"mgcIntermediate\");"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    const std::vector<QJsonObject> evals = run.records("eval");
    ASSERT_GE(evals.size(), 1u);
    EXPECT_EQ(evals[0].value("vocabulary").toString(), "Tessel_Voc");
    EXPECT_EQ(evals[0].value("text").toString(), "mgcIntermediate=mgclink_get_workspace_path();");
    EXPECT_TRUE(evals[0].value("ok").toBool());
    EXPECT_EQ(evals[0].value("via").toString(), "direct");
    EXPECT_EQ(run.texts("info"), QStringList{"found: " + workspace.path()});
    QJsonArray results;
    for (const QJsonObject& command : run.records("command"))
        results.append(command.value("result"));
    EXPECT_EQ(results, array({1, 1, 0, 0}));
}

TEST(HostCommands, EvaluateTextThatFailsIsJournalledWithTheReason)
{
    const HostRun run =
        runHost({"-e", "tp_eval(\"V\", \"nope();\"); tp_eval(\"V\", \"de_info(\\\"x\\\")\");"
                       "tp_eval(\"V\", \"\");"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    const std::vector<QJsonObject> evals = run.records("eval");
    ASSERT_EQ(evals.size(), 3u);
    for (const QJsonObject& eval : evals)
        EXPECT_FALSE(eval.value("ok").toBool());
    EXPECT_EQ(evals[0].value("reason").toString(), "unknown function nope");
    EXPECT_EQ(evals[1].value("text").toString(), "de_info(\"x\")");
    EXPECT_TRUE(evals[1].value("reason").toString().contains("syntax error at line 1"));
    EXPECT_EQ(evals[2].value("reason").toString(), "no statement to run");
    EXPECT_TRUE(run.records("info").empty());
    for (const QJsonObject& command : run.records("command"))
        EXPECT_EQ(command.value("result").toInt(), 0);
}

TEST(HostCommands, FailMakesEveryStatementCallingTheFunctionFail)
{
    const HostRun run = runHost({"--fail", "de_info", "-e",
                                 "tp_eval(\"CmdOp\", \"de_info(\\\"x\\\");\"); tp_integer(1);",
                                 "-e", "de_info(\"y\");", "-e", "tp_integer(2);"});
    EXPECT_EQ(run.exitCode, 1);
    const std::vector<QJsonObject> evals = run.records("eval");
    ASSERT_EQ(evals.size(), 1u);
    EXPECT_FALSE(evals[0].value("ok").toBool());
    EXPECT_TRUE(evals[0].value("reason").toString().contains("--fail de_info"));
    const std::vector<QJsonObject> calls = run.records("call");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_FALSE(calls[0].value("ok").toBool());
    EXPECT_EQ(calls[1].value("args").toArray(), array({"y"}));
    EXPECT_TRUE(run.records("info").empty());
    EXPECT_TRUE(run.out.isEmpty()) << run.out.toStdString();
    // The script statement failed, so the third -e never ran.
    EXPECT_EQ(run.records("command").size(), 2u);
    EXPECT_TRUE(run.err.contains("-e 2:1: error: de_info: fails as asked (--fail de_info)"));
}

TEST(HostCommands, FailAppliesToPluginCommandsToo)
{
    const HostRun run = runHost({"--fail", "tp_integer", "-e", "tp_null(); tp_integer(1);"});
    EXPECT_EQ(run.exitCode, 1);
    const std::vector<QJsonObject> commands = run.records("command");
    ASSERT_EQ(commands.size(), 2u);
    EXPECT_FALSE(commands[1].value("ok").toBool());
    EXPECT_EQ(commands[1].value("result"), QJsonValue(QJsonValue::Null));
}

} // namespace
