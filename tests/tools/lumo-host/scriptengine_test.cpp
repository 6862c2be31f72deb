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

TEST(ScriptEngine, VariablesLiveInTheirVocabularyAndCallsStopAtTheFirstFailure)
{
    RecordingFunctions functions;
    ScriptEngine engine;
    engine.setFunctions(&functions);
    engine.setConstant("stderr", BRIOValue(2));
    ASSERT_TRUE(
        engine.evaluate("V", "x=\"a\"; y=echo(x, list(,1, list()), NULL, 2.5, stderr);").ok);
    EXPECT_EQ(engine.variable("V", "y"),
              BRIOValue::list({BRIOValue("a"), BRIOValue::list({BRIOValue(1), BRIOValue::list({})}),
                               BRIOValue(), BRIOValue(2.5), BRIOValue(2)}));
    EXPECT_FALSE(engine.variable("W", "x").has_value());
    EXPECT_FALSE(engine.variable("V", "stderr").has_value());
    EXPECT_NE(engine.evaluate("W", "echo(x);").reason.find("unknown variable x"),
              std::string::npos);
    // A variable of a constant's name wins in its own vocabulary.
    ASSERT_TRUE(engine.evaluate("V", "stderr=\"mine\"; z=echo(stderr);").ok);
    EXPECT_EQ(engine.variable("V", "z"), BRIOValue::list({BRIOValue("mine")}));
    // An unknown function fails before its arguments are evaluated, and a
    // failing statement ends the text.
    functions.calls.clear();
    EXPECT_EQ(engine.evaluate("V", "nope(answer());").reason, "unknown function nope");
    EXPECT_EQ(engine.evaluate("V", "answer(); fails(); answer();").reason, "fails: refused");
    EXPECT_EQ(functions.calls, (std::vector<std::string>{"answer", "fails"}));
}

} // namespace
