#pragma once
// Runs parsed BRIO statements: variables per vocabulary, calls through a
// function table that the host provides.

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "briostatement.h"
#include "lumo/brioscript.h"

class ScriptEngine
{
public:
    struct Outcome
    {
        bool ok = true;
        std::string reason; // why it failed, for a person
    };

    struct CallResult
    {
        bool ok = true;
        BRIOValue value;
        std::string reason;
    };

    // The functions a statement may call. Called on the main thread only.
    class Functions
    {
    public:
        virtual bool hasFunction(const std::string& name) const = 0;
        virtual CallResult callFunction(const std::string& name,
                                        const std::vector<BRIOValue>& args) = 0;

    protected:
        ~Functions() = default;
    };

    ScriptEngine() = default;
    // The functions statements may call; none until set. Not owned.
    void setFunctions(Functions* functions) { m_functions = functions; }

    // Main thread. Parses and runs `text` in `vocabulary`, statement by
    // statement, stopping at the first that fails; nothing runs if it does not parse.
    Outcome evaluate(const std::string& vocabulary, const std::string& text);
    // Main thread. Runs one parsed statement.
    Outcome run(const std::string& vocabulary, const BRIOStatement& statement);

    // Any thread. Variables of the vocabulary only, never the constants.
    std::optional<BRIOValue> variable(const std::string& vocabulary, const std::string& name) const;
    void setVariable(const std::string& vocabulary, const std::string& name, BRIOValue value);
    // A name every vocabulary sees when it has no variable of that name (stderr).
    void setConstant(const std::string& name, BRIOValue value);

private:
    std::optional<BRIOValue> constant(const std::string& name) const;
    bool evaluateExpression(const std::string& vocabulary, const BRIOExpression& expression,
                            BRIOValue& value, std::string& reason);

    Functions* m_functions = nullptr;
    mutable std::mutex m_mutex;
    std::map<std::pair<std::string, std::string>, BRIOValue> m_variables;
    std::map<std::string, BRIOValue> m_constants;
};
