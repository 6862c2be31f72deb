#pragma once
// The host's own BRIO functions (mgclink_*, de_info, fprintf): argument
// checks, effects in the workspace or on the terminal, journal records.
// Main thread only.

#include <map>
#include <string>
#include <vector>

#include "scriptengine.h"

class Journal;
class Workspace;

class HostFunctions
{
public:
    // The value of the BRIO names stdout and stderr (fprintf's first argument).
    static constexpr int StandardOutput = 1;
    static constexpr int StandardError = 2;

    HostFunctions(Workspace& workspace, Journal& journal);

    bool has(const std::string& name) const;
    std::vector<std::string> names() const;

    // Checks the arguments, runs the function and journals the call.
    ScriptEngine::CallResult call(const std::string& name, const std::vector<BRIOValue>& args);
    void journalCall(const std::string& name, const std::vector<BRIOValue>& args, bool ok,
                     const std::string& reason);

private:
    enum class Argument { String, Integer, Number, ListOrNull, Null, Stream };
    using Handler = ScriptEngine::CallResult (HostFunctions::*)(const std::vector<BRIOValue>&);
    struct Signature
    {
        std::vector<Argument> arguments;
        Handler handler;
    };

    static bool checkArguments(const Signature& signature, const std::vector<BRIOValue>& args,
                               std::string& reason);

    ScriptEngine::CallResult workspacePath(const std::vector<BRIOValue>& args);
    ScriptEngine::CallResult netlistsPath(const std::vector<BRIOValue>& args);
    ScriptEngine::CallResult createDesign(const std::vector<BRIOValue>& args);
    ScriptEngine::CallResult importIff(const std::vector<BRIOValue>& args);
    ScriptEngine::CallResult importEgs(const std::vector<BRIOValue>& args);
    ScriptEngine::CallResult addPort(const std::vector<BRIOValue>& args);
    ScriptEngine::CallResult showConnectedServers(const std::vector<BRIOValue>& args);
    ScriptEngine::CallResult info(const std::vector<BRIOValue>& args);
    ScriptEngine::CallResult print(const std::vector<BRIOValue>& args);

    Workspace& m_workspace;
    Journal& m_journal;
    std::map<std::string, Signature> m_signatures;
};
