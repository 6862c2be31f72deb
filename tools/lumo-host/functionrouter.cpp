#include "functionrouter.h"

#include "hostfunctions.h"
#include "hostinterface.h"
#include "journal.h"
#include "journalrecord.h"

FunctionRouter::FunctionRouter(HostFunctions& hostFunctions, HostInterface& commands,
                               Journal& journal, std::set<std::string> failing)
    : m_hostFunctions(hostFunctions), m_commands(commands), m_journal(journal),
      m_failing(std::move(failing))
{
}

int FunctionRouter::callCount(const std::string& name) const
{
    auto found = m_counts.find(name);
    return found == m_counts.end() ? 0 : found->second;
}

bool FunctionRouter::hasFunction(const std::string& name) const
{
    return m_hostFunctions.has(name) || m_commands.hasCommand(name);
}

ScriptEngine::CallResult FunctionRouter::callFunction(const std::string& name,
                                                      const std::vector<BRIOValue>& args)
{
    const bool isHostFunction = m_hostFunctions.has(name);
    if (!isHostFunction && !m_commands.hasCommand(name))
        return {false, BRIOValue(), "unknown function"};

    const int count = ++m_counts[name];
    if (m_failing.count(name) > 0) {
        const std::string reason = "fails as asked (--fail " + name + ")";
        if (isHostFunction) {
            m_hostFunctions.journalCall(name, args, false, reason);
        } else {
            JournalRecord record("command");
            record.add("name", name).add("args", args).addNull("result").add("unreleased", 0);
            record.add("ok", false).add("reason", reason);
            m_journal.write(record);
        }
        if (m_observer)
            m_observer(name, count);
        return {false, BRIOValue(), reason};
    }
    ScriptEngine::CallResult result =
        isHostFunction ? m_hostFunctions.call(name, args) : m_commands.callCommand(name, args);
    if (m_observer)
        m_observer(name, count);
    return result;
}
