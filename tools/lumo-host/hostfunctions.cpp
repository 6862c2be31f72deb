#include "hostfunctions.h"

#include "journal.h"
#include "journalrecord.h"
#include "terminal.h"
#include "workspace.h"

namespace {

const char* kindName(const BRIOValue& value)
{
    switch (value.kind()) {
    case BRIOValue::Kind::Null:
        return "NULL";
    case BRIOValue::Kind::Integer:
        return "an integer";
    case BRIOValue::Kind::Real:
        return "a real";
    case BRIOValue::Kind::String:
        return "a string";
    case BRIOValue::Kind::List:
        return "a list";
    }
    return "a value";
}

bool isNumber(const BRIOValue& value)
{
    return value.kind() == BRIOValue::Kind::Integer || value.kind() == BRIOValue::Kind::Real;
}

double toNumber(const BRIOValue& value)
{
    return value.kind() == BRIOValue::Kind::Integer ? value.toInt() : value.toReal();
}

std::string numberText(const BRIOValue& value)
{
    return JournalRecord::json(value);
}

ScriptEngine::CallResult failure(std::string reason)
{
    return {false, BRIOValue(), reason};
}

ScriptEngine::CallResult effect(const Workspace::Result& result, const std::string& what)
{
    if (!result.ok)
        return failure(result.reason);
    Terminal::printLines("[host] ", what + ": " + result.path);
    return {true, BRIOValue(1), {}};
}

// Each item of `list` must be a list matching `shape` ("sNNii": string, number, integer).
bool checkEntries(const BRIOValue& list, const std::string& shape, const char* what,
                  std::string& reason)
{
    int index = 0;
    for (const BRIOValue& entry : list.items()) {
        ++index;
        bool ok = entry.kind() == BRIOValue::Kind::List && entry.items().size() == shape.size();
        for (std::size_t i = 0; ok && i < shape.size(); ++i) {
            const BRIOValue& field = entry.items()[i];
            if (shape[i] == 's')
                ok = field.kind() == BRIOValue::Kind::String;
            else if (shape[i] == 'i')
                ok = field.kind() == BRIOValue::Kind::Integer;
            else
                ok = isNumber(field);
        }
        if (!ok) {
            reason = std::string(what) + " " + std::to_string(index) + " must be " +
                     (shape == "sNNii" ? "list(label, x, y, number, type)" : "list(name, number)") +
                     ", got " + JournalRecord::json(entry);
            return false;
        }
    }
    return true;
}

} // namespace

HostFunctions::HostFunctions(Workspace& workspace, Journal& journal)
    : m_workspace(workspace), m_journal(journal)
{
    using A = Argument;
    m_signatures = {
        {"mgclink_get_workspace_path", {{}, &HostFunctions::workspacePath}},
        {"mgclink_get_netlists_path", {{}, &HostFunctions::netlistsPath}},
        {"mgclink_create_design",
         {{A::String, A::String, A::String, A::String, A::String, A::Integer, A::ListOrNull,
           A::Integer},
          &HostFunctions::createDesign}},
        {"mgclink_import_iff_file", {{A::String, A::String, A::String}, &HostFunctions::importIff}},
        {"mgclink_import_egs_file",
         {{A::String, A::String, A::Null, A::String, A::String, A::String},
          &HostFunctions::importEgs}},
        {"mgclink_add_port_to_fathom_view",
         {{A::String, A::Integer, A::String, A::Number, A::Number, A::Number},
          &HostFunctions::addPort}},
        {"mgclink_show_connected_servers",
         {{A::String, A::Integer, A::String, A::String, A::ListOrNull},
          &HostFunctions::showConnectedServers}},
        {"de_info", {{A::String}, &HostFunctions::info}},
        {"fprintf", {{A::Stream, A::String}, &HostFunctions::print}},
    };
}

bool HostFunctions::has(const std::string& name) const
{
    return m_signatures.count(name) > 0;
}

std::vector<std::string> HostFunctions::names() const
{
    std::vector<std::string> names;
    for (const auto& entry : m_signatures)
        names.push_back(entry.first);
    return names;
}

ScriptEngine::CallResult HostFunctions::call(const std::string& name,
                                             const std::vector<BRIOValue>& args)
{
    auto found = m_signatures.find(name);
    if (found == m_signatures.end())
        return failure("not a host function");
    std::string reason;
    ScriptEngine::CallResult result;
    if (!checkArguments(found->second, args, reason))
        result = failure(reason);
    else
        result = (this->*found->second.handler)(args);
    journalCall(name, args, result.ok, result.reason);
    return result;
}

void HostFunctions::journalCall(const std::string& name, const std::vector<BRIOValue>& args,
                                bool ok, const std::string& reason)
{
    if (!m_journal.isOpen())
        return;
    JournalRecord record("call");
    record.add("function", name).add("args", args).add("ok", ok);
    if (!ok)
        record.add("reason", reason);
    m_journal.write(record);
}

bool HostFunctions::checkArguments(const Signature& signature, const std::vector<BRIOValue>& args,
                                   std::string& reason)
{
    const std::size_t wanted = signature.arguments.size();
    if (args.size() != wanted) {
        reason = "takes " + std::to_string(wanted) + (wanted == 1 ? " argument" : " arguments") +
                 ", got " + std::to_string(args.size());
        return false;
    }
    for (std::size_t i = 0; i < wanted; ++i) {
        const BRIOValue& arg = args[i];
        const char* expected = nullptr;
        switch (signature.arguments[i]) {
        case Argument::String:
            if (arg.kind() != BRIOValue::Kind::String)
                expected = "a string";
            break;
        case Argument::Integer:
            if (arg.kind() != BRIOValue::Kind::Integer)
                expected = "an integer";
            break;
        case Argument::Number:
            if (!isNumber(arg))
                expected = "a number";
            break;
        case Argument::ListOrNull:
            if (arg.kind() != BRIOValue::Kind::List && !arg.isNull())
                expected = "a list or NULL";
            break;
        case Argument::Null:
            if (!arg.isNull())
                expected = "NULL";
            break;
        case Argument::Stream:
            if (arg.kind() != BRIOValue::Kind::Integer ||
                (arg.toInt() != StandardOutput && arg.toInt() != StandardError))
                expected = "stdout or stderr";
            break;
        }
        if (expected) {
            reason = "argument " + std::to_string(i + 1) + " must be " + expected + ", got " +
                     kindName(arg);
            return false;
        }
    }
    return true;
}

ScriptEngine::CallResult HostFunctions::workspacePath(const std::vector<BRIOValue>&)
{
    return {true, BRIOValue(m_workspace.path()), {}};
}

ScriptEngine::CallResult HostFunctions::netlistsPath(const std::vector<BRIOValue>&)
{
    return {true, BRIOValue(m_workspace.netlistsPath()), {}};
}

ScriptEngine::CallResult HostFunctions::createDesign(const std::vector<BRIOValue>& args)
{
    Workspace::Design design;
    design.first = args[0].toString();
    design.cell = args[1].toString();
    design.design = args[2].toString();
    design.designPath = args[3].toString();
    design.region = args[4].toString();
    design.portCount = args[5].toInt();
    design.last = args[7].toInt();
    if (!args[6].isNull()) {
        std::string reason;
        if (!checkEntries(args[6], "sNNii", "port", reason))
            return failure(reason);
        std::vector<Workspace::DesignPort> ports;
        for (const BRIOValue& entry : args[6].items()) {
            const auto& field = entry.items();
            ports.push_back({field[0].toString(), toNumber(field[1]), toNumber(field[2]),
                             field[3].toInt(), field[4].toInt()});
        }
        design.ports = std::move(ports);
    }
    return effect(m_workspace.createDesign(design), "design " + design.cell + " created");
}

ScriptEngine::CallResult HostFunctions::importIff(const std::vector<BRIOValue>& args)
{
    const std::string& overwrite = args[2].toString();
    if (overwrite != "TRUE" && overwrite != "FALSE")
        return failure("argument 3 must be \"TRUE\" or \"FALSE\", got \"" + overwrite + "\"");
    return effect(
        m_workspace.importIff(args[0].toString(), args[1].toString(), overwrite == "TRUE"),
        "IFF file " + args[1].toString() + " imported into library " + args[0].toString());
}

ScriptEngine::CallResult HostFunctions::importEgs(const std::vector<BRIOValue>& args)
{
    return effect(m_workspace.importEgs(args[0].toString(), args[1].toString(), args[3].toString(),
                                        args[4].toString(), args[5].toString()),
                  "EGS file " + args[1].toString() + " imported into library " +
                      args[0].toString() + " as an EM view");
}

ScriptEngine::CallResult HostFunctions::addPort(const std::vector<BRIOValue>& args)
{
    Workspace::EmPort port{args[0].toString(), args[1].toInt(),   args[2].toString(),
                           toNumber(args[3]),  toNumber(args[4]), toNumber(args[5])};
    return effect(m_workspace.addEmPort(port), "port " + port.name + " (" +
                                                   std::to_string(port.number) +
                                                   ") added to the EM view");
}

ScriptEngine::CallResult HostFunctions::showConnectedServers(const std::vector<BRIOValue>& args)
{
    std::string reason;
    if (args[4].kind() == BRIOValue::Kind::List && !checkEntries(args[4], "si", "peer", reason))
        return failure(reason);
    std::string text = "host " + args[0].toString() + ", port " + numberText(args[1]) +
                       ", plug-in " + args[2].toString() + ", messaging " + args[3].toString() +
                       ": ";
    if (args[4].isNull() || args[4].items().empty()) {
        text += "no peer connected";
    } else {
        bool first = true;
        for (const BRIOValue& peer : args[4].items()) {
            text += first ? "" : ", ";
            first = false;
            text += peer.items()[0].toString() + " (" + numberText(peer.items()[1]) + ")";
        }
    }
    Terminal::printLines("[servers] ", text);
    return {true, BRIOValue(1), {}};
}

ScriptEngine::CallResult HostFunctions::info(const std::vector<BRIOValue>& args)
{
    const std::string& text = args[0].toString();
    m_journal.write(JournalRecord("info").add("text", text));
    Terminal::printLines("[info] ", text);
    return {true, BRIOValue(), {}};
}

ScriptEngine::CallResult HostFunctions::print(const std::vector<BRIOValue>& args)
{
    const std::string& text = args[1].toString();
    if (args[0].toInt() == StandardError) {
        m_journal.write(JournalRecord("stderr").add("text", text));
        Terminal::writeError(text);
    } else {
        m_journal.write(JournalRecord("stdout").add("text", text));
        Terminal::writeOut(text);
    }
    return {true, BRIOValue(static_cast<int>(text.size())), {}};
}
