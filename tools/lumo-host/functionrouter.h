#pragma once
// Every function a statement can call: the host's own and the plug-in's
// registered commands. Counts the calls and fails those named by --fail.
// Main thread only.

#include <functional>
#include <map>
#include <set>
#include <string>

#include "scriptengine.h"

class HostFunctions;
class HostInterface;
class Journal;

class FunctionRouter : public ScriptEngine::Functions
{
public:
    // Told of every call once it has run (or failed), with the calls of that name so far.
    using CallObserver = std::function<void(const std::string& name, int count)>;

    FunctionRouter(HostFunctions& hostFunctions, HostInterface& commands, Journal& journal,
                   std::set<std::string> failing);

    void setCallObserver(CallObserver observer) { m_observer = std::move(observer); }
    int callCount(const std::string& name) const;

    bool hasFunction(const std::string& name) const override;
    ScriptEngine::CallResult callFunction(const std::string& name,
                                          const std::vector<BRIOValue>& args) override;

private:
    HostFunctions& m_hostFunctions;
    HostInterface& m_commands;
    Journal& m_journal;
    std::set<std::string> m_failing;
    std::map<std::string, int> m_counts;
    CallObserver m_observer;
};
