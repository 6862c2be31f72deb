#include "scriptengine.h"

#include "brioparser.h"

ScriptEngine::Outcome ScriptEngine::evaluate(const std::string& vocabulary, const std::string& text)
{
    const BRIOParser::Result parsed = BRIOParser::parse(text);
    if (parsed.error) {
        const BRIOParser::Error& error = *parsed.error;
        return {false, "syntax error at line " + std::to_string(error.line) + ", column " +
                           std::to_string(error.column) + ": " + error.message +
                           (error.atEnd ? " at the end of the text" : "")};
    }
    if (parsed.statements.empty())
        return {false, "no statement to run"};
    for (const BRIOStatement& statement : parsed.statements) {
        Outcome outcome = run(vocabulary, statement);
        if (!outcome.ok)
            return outcome;
    }
    return {};
}

ScriptEngine::Outcome ScriptEngine::run(const std::string& vocabulary,
                                        const BRIOStatement& statement)
{
    BRIOValue value;
    std::string reason;
    if (!evaluateExpression(vocabulary, statement.expression, value, reason))
        return {false, reason};
    if (!statement.target.empty())
        setVariable(vocabulary, statement.target, std::move(value));
    return {};
}

bool ScriptEngine::evaluateExpression(const std::string& vocabulary,
                                      const BRIOExpression& expression, BRIOValue& value,
                                      std::string& reason)
{
    switch (expression.kind) {
    case BRIOExpression::Kind::Literal:
        value = expression.literal;
        return true;
    case BRIOExpression::Kind::Variable: {
        std::optional<BRIOValue> found = variable(vocabulary, expression.name);
        if (!found)
            found = constant(expression.name);
        if (!found) {
            reason =
                "unknown variable " + expression.name + " in vocabulary \"" + vocabulary + "\"";
            return false;
        }
        value = std::move(*found);
        return true;
    }
    case BRIOExpression::Kind::List:
    case BRIOExpression::Kind::Call: {
        const bool isCall = expression.kind == BRIOExpression::Kind::Call;
        // An unknown function fails before any of its arguments is evaluated.
        if (isCall && (!m_functions || !m_functions->hasFunction(expression.name))) {
            reason = "unknown function " + expression.name;
            return false;
        }
        std::vector<BRIOValue> items;
        items.reserve(expression.items.size());
        for (const BRIOExpression& item : expression.items) {
            BRIOValue itemValue;
            if (!evaluateExpression(vocabulary, item, itemValue, reason))
                return false;
            items.push_back(std::move(itemValue));
        }
        if (!isCall) {
            value = BRIOValue::list(std::move(items));
            return true;
        }
        CallResult result = m_functions->callFunction(expression.name, items);
        if (!result.ok) {
            reason = expression.name + ": " + result.reason;
            return false;
        }
        value = std::move(result.value);
        return true;
    }
    }
    return false;
}

std::optional<BRIOValue> ScriptEngine::variable(const std::string& vocabulary,
                                                const std::string& name) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto found = m_variables.find({vocabulary, name});
    if (found != m_variables.end())
        return found->second;
    return std::nullopt;
}

std::optional<BRIOValue> ScriptEngine::constant(const std::string& name) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto found = m_constants.find(name);
    if (found != m_constants.end())
        return found->second;
    return std::nullopt;
}

void ScriptEngine::setVariable(const std::string& vocabulary, const std::string& name,
                               BRIOValue value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_variables[{vocabulary, name}] = std::move(value);
}

void ScriptEngine::setConstant(const std::string& name, BRIOValue value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_constants[name] = std::move(value);
}
