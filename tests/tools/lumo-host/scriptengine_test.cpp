#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "scriptengine.h"

namespace {

// Records calls; "fails" always fails, "answer" gives 42, "echo" its arguments as a list.
class RecordingFunctions : public ScriptEngine::Functions
{
public:
    bool hasFunction(const std::string& name) const override
    {
        return name == "fails" || name == "answer" || name == "echo";
    }
    ScriptEngine::CallResult callFunction(const std::string& name,
                                          const std::vector<BRIOValue>& args) override
    {
        calls.push_back(name);
        if (name == "fails")
            return {false, BRIOValue(), "refused"};
        if (name == "answer")
            return {true, BRIOValue(42), {}};
        return {true, BRIOValue::list(args), {}};
    }
    std::vector<std::string> calls;
};

class ScriptEngineTest : public ::testing::Test
{
protected:
    void SetUp() override { engine.setFunctions(&functions); }
    RecordingFunctions functions;
    ScriptEngine engine;
};

TEST_F(ScriptEngineTest, VariablesLiveInTheVocabularyThatSetThem)
{
    ASSERT_TRUE(engine.evaluate("Tessel_Voc", "mgcIntermediate=answer();").ok);
    EXPECT_EQ(engine.variable("Tessel_Voc", "mgcIntermediate"), BRIOValue(42));
    EXPECT_FALSE(engine.variable("CmdOp", "mgcIntermediate").has_value());

    const ScriptEngine::Outcome elsewhere = engine.evaluate("CmdOp", "echo(mgcIntermediate);");
    EXPECT_FALSE(elsewhere.ok);
    EXPECT_NE(elsewhere.reason.find("unknown variable mgcIntermediate"), std::string::npos);
}

TEST_F(ScriptEngineTest, StopsAtTheFirstFailingStatement)
{
    const ScriptEngine::Outcome outcome = engine.evaluate("V", "answer(); fails(); answer();");
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.reason, "fails: refused");
    EXPECT_EQ(functions.calls, (std::vector<std::string>{"answer", "fails"}));
}

TEST_F(ScriptEngineTest, UnknownFunctionFailsBeforeItsArgumentsAreEvaluated)
{
    const ScriptEngine::Outcome outcome = engine.evaluate("V", "nope(answer());");
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.reason, "unknown function nope");
    EXPECT_TRUE(functions.calls.empty());
}

TEST_F(ScriptEngineTest, TextThatDoesNotParseRunsNothing)
{
    const ScriptEngine::Outcome outcome = engine.evaluate("V", "answer(); answer(");
    EXPECT_FALSE(outcome.ok);
    EXPECT_NE(outcome.reason.find("syntax error at line 1"), std::string::npos);
    EXPECT_TRUE(functions.calls.empty());
}

TEST_F(ScriptEngineTest, EmptyTextIsAFailure)
{
    EXPECT_FALSE(engine.evaluate("V", "").ok);
}

TEST_F(ScriptEngineTest, ArgumentsArriveEvaluatedAndListsSkipTheEmptyFirstElement)
{
    ASSERT_TRUE(engine.evaluate("V", "x=\"a\"; y=echo(x, list(,1, list()), NULL, 2.5);").ok);
    const BRIOValue expected =
        BRIOValue::list({BRIOValue("a"), BRIOValue::list({BRIOValue(1), BRIOValue::list({})}),
                         BRIOValue(), BRIOValue(2.5)});
    EXPECT_EQ(engine.variable("V", "y"), expected);
}

TEST_F(ScriptEngineTest, ConstantsAreSeenByStatementsButAreNoVariables)
{
    engine.setConstant("stderr", BRIOValue(2));
    ASSERT_TRUE(engine.evaluate("V", "z=echo(stderr);").ok);
    EXPECT_EQ(engine.variable("V", "z"), BRIOValue::list({BRIOValue(2)}));
    EXPECT_FALSE(engine.variable("V", "stderr").has_value());
    // A variable of that name wins in its own vocabulary.
    ASSERT_TRUE(engine.evaluate("V", "stderr=\"mine\"; z=echo(stderr);").ok);
    EXPECT_EQ(engine.variable("V", "z"), BRIOValue::list({BRIOValue("mine")}));
}

TEST_F(ScriptEngineTest, WithoutFunctionsEveryCallIsUnknown)
{
    ScriptEngine bare;
    EXPECT_EQ(bare.evaluate("V", "answer();").reason, "unknown function answer");
    EXPECT_TRUE(bare.evaluate("V", "x=1;").ok);
}

} // namespace
