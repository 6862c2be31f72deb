#include "hostinterface.h"

#include <cstring>

#include "journal.h"
#include "journalrecord.h"
#include "terminal.h"

// The host's script value behind a handle. value_data points into it.
struct BRIOValueS
{
    BRIOValue value;
    int integer = 0;
    double real = 0.0;
};

namespace {

BRIOTypeCode typeOf(const BRIOValue& value)
{
    switch (value.kind()) {
    case BRIOValue::Kind::Null:
        return HostInterface::NullType;
    case BRIOValue::Kind::Integer:
        return HostInterface::IntegerType;
    case BRIOValue::Kind::Real:
        return HostInterface::RealType;
    case BRIOValue::Kind::String:
        return HostInterface::StringType;
    case BRIOValue::Kind::List:
        return HostInterface::ListType;
    }
    return HostInterface::NullType;
}

// An argument can be delivered as its own type, and an integer also as a real.
bool convert(const BRIOValue& value, BRIOTypeCode type, BRIOValue& converted)
{
    if (typeOf(value) == type) {
        converted = value;
        return true;
    }
    if (type == HostInterface::RealType && value.kind() == BRIOValue::Kind::Integer) {
        converted = BRIOValue(static_cast<double>(value.toInt()));
        return true;
    }
    return false;
}

} // namespace

HostInterface::HostInterface(ScriptEngine& engine, Journal& journal, int version)
    : m_engine(engine), m_journal(journal), m_version(version),
      m_mainThread(std::this_thread::get_id())
{
}

HostInterface::~HostInterface()
{
    std::lock_guard<std::mutex> lock(m_handleMutex);
    for (const auto& live : m_live)
        delete live.first;
    for (BRIOValueS* result : m_results)
        delete result;
}

ScriptEngine::CallResult HostInterface::callCommand(const std::string& name,
                                                    const std::vector<BRIOValue>& args)
{
    auto found = m_commands.find(name);
    if (found == m_commands.end())
        return {false, BRIOValue(), "not a registered command"};
    const std::uint64_t frame = m_nextFrame++;
    m_frames.push_back({frame, name, &args});
    m_context.push_back(Via::Direct);
    BRIOValueHandle returned = found->second.function();
    m_context.pop_back();
    m_frames.pop_back();

    BRIOValue result;
    int unreleased = 0;
    bool badResult = false;
    {
        std::lock_guard<std::mutex> lock(m_handleMutex);
        if (returned) {
            // The result handle passes to the host, which reads and releases it.
            if (m_results.erase(returned) > 0 || m_live.erase(returned) > 0) {
                result = returned->value;
                delete returned;
            } else {
                badResult = true;
            }
        }
        for (const auto& live : m_live)
            unreleased += live.second == frame ? 1 : 0;
    }
    if (badResult)
        reportBadHandle("the result of a command");

    if (m_journal.isOpen()) {
        JournalRecord record("command");
        record.add("name", name).add("args", args).add("result", result);
        m_journal.write(record.add("unreleased", unreleased));
    }
    return {true, result, {}};
}

int HostInterface::liveHandles() const
{
    std::lock_guard<std::mutex> lock(m_handleMutex);
    return static_cast<int>(m_live.size());
}

bool HostInterface::get_argument(int index, BRIOTypeCode type, BRIOValueHandle* value)
{
    if (refuseOffMainThread("get_argument") || m_frames.empty() || !value)
        return false;
    const std::vector<BRIOValue>& args = *m_frames.back().args;
    if (index < 0 || index >= static_cast<int>(args.size()))
        return false;
    BRIOValue converted;
    if (!convert(args[static_cast<std::size_t>(index)], type, converted))
        return false;
    *value = newHandle(converted, m_frames.back().id);
    return true;
}

BRIOTypeCode HostInterface::argument_type(int index)
{
    if (refuseOffMainThread("argument_type") || m_frames.empty())
        return NoArgument;
    const std::vector<BRIOValue>& args = *m_frames.back().args;
    if (index < 0 || index >= static_cast<int>(args.size()))
        return NoArgument;
    return typeOf(args[static_cast<std::size_t>(index)]);
}

bool HostInterface::register_library(std::uint64_t zero1, std::uint64_t zero2, std::uint64_t zero3,
                                     int one, BRIOLibraryBlock* block)
{
    std::string library;
    std::string interface;
    std::vector<std::string> names;
    std::string reason;
    if (!isMainThread())
        reason = "register_library called off the host's main thread";
    else if (zero1 != 0 || zero2 != 0 || zero3 != 0 || one != 1)
        reason = "register_library expects the words 0, 0, 0 and 1";
    else if (!block)
        reason = "no library block";
    if (reason.empty()) {
        library = block->libraryName ? block->libraryName : "";
        interface = block->interfaceName ? block->interfaceName : "";
        if (library.empty())
            reason = "the library has no name";
        else if (interface != "BRIO")
            reason = "the library is for interface \"" + interface + "\", not BRIO";
        else if (block->commandCount > 0 && !block->commands)
            reason = "the command table is missing";
    }
    if (reason.empty()) {
        for (std::uint64_t i = 0; i < block->commandCount && reason.empty(); ++i) {
            const BRIOCommandRow& row = block->commands[i];
            const std::string name = row.name ? row.name : "";
            auto registered = m_commands.find(name);
            if (name.empty() || !row.function)
                reason = "row " + std::to_string(i + 1) + " has no name or no function";
            else if (m_reserved.count(name) > 0)
                reason = "command " + name + " would hide the host function of that name";
            else if (registered != m_commands.end() && registered->second.library != library)
                reason = "command " + name + " is already registered by library " +
                         registered->second.library;
            names.push_back(name);
        }
    }
    const bool accepted = reason.empty();
    if (accepted) {
        // A library registered again replaces its former table.
        for (auto it = m_commands.begin(); it != m_commands.end();)
            it = it->second.library == library ? m_commands.erase(it) : std::next(it);
        for (std::uint64_t i = 0; i < block->commandCount; ++i)
            m_commands[block->commands[i].name] = {library, block->commands[i].function};
    }

    JournalRecord record("register");
    record.add("library", library).add("interface", interface).add("commands", names);
    record.add("accepted", accepted);
    if (!accepted) {
        record.add("reason", reason);
        Terminal::printMessage("command library \"" + library + "\" refused: " + reason);
    }
    m_journal.write(record);
    return accepted;
}

bool HostInterface::evaluate_text(const char* vocabulary, const char* text)
{
    const std::string voc = vocabulary ? vocabulary : "";
    const Via via = !isMainThread() || m_context.empty() ? Via::Direct : m_context.back();
    ScriptEngine::Outcome outcome;
    if (!isMainThread())
        outcome = {false, "evaluate_text called off the host's main thread"};
    else if (!text)
        outcome = {false, "no text (null pointer)"};
    else
        outcome = m_engine.evaluate(voc, text);

    if (m_journal.isOpen()) {
        JournalRecord record("eval");
        record.add("vocabulary", voc).add("text", text).add("ok", outcome.ok);
        record.add("via", via == Via::Idle ? "idle" : "direct");
        if (!outcome.ok)
            record.add("reason", outcome.reason);
        m_journal.write(record);
    }
    return outcome.ok;
}

void HostInterface::free_value(BRIOValueHandle value)
{
    {
        std::lock_guard<std::mutex> lock(m_handleMutex);
        if (value && m_live.erase(value) > 0) {
            delete value;
            return;
        }
    }
    reportBadHandle("free_value");
}

void* HostInterface::value_data(BRIOValueHandle value)
{
    {
        std::lock_guard<std::mutex> lock(m_handleMutex);
        if (value && (m_live.count(value) > 0 || m_results.count(value) > 0)) {
            switch (value->value.kind()) {
            case BRIOValue::Kind::Null:
                return nullptr;
            case BRIOValue::Kind::Integer:
                return &value->integer;
            case BRIOValue::Kind::Real:
                return &value->real;
            case BRIOValue::Kind::String:
                return const_cast<char*>(value->value.toString().c_str());
            case BRIOValue::Kind::List:
                return &value->value;
            }
        }
    }
    reportBadHandle("value_data");
    return nullptr;
}

BRIOValueHandle HostInterface::return_integer(int value)
{
    auto* result = new BRIOValueS{BRIOValue(value), value, static_cast<double>(value)};
    std::lock_guard<std::mutex> lock(m_handleMutex);
    m_results.insert(result);
    return result;
}

BRIOValueHandle HostInterface::find_variable(const char* vocabulary, const char* name)
{
    if (!vocabulary || !name)
        return nullptr;
    std::optional<BRIOValue> found = m_engine.variable(vocabulary, name);
    if (!found)
        return nullptr;
    // Off the main thread, or outside any command, the handle belongs to no call.
    const std::uint64_t frame = isMainThread() && !m_frames.empty() ? m_frames.back().id : 0;
    return newHandle(*found, frame);
}

BRIOValueHandle HostInterface::newHandle(const BRIOValue& value, std::uint64_t frame)
{
    auto* handle =
        new BRIOValueS{value, value.toInt(),
                       value.kind() == BRIOValue::Kind::Integer ? value.toInt() : value.toReal()};
    std::lock_guard<std::mutex> lock(m_handleMutex);
    m_live[handle] = frame;
    return handle;
}

void HostInterface::reportBadHandle(const char* operation)
{
    m_journal.write(JournalRecord("bad_handle").add("operation", operation));
    if (isMainThread())
        Terminal::printMessage(std::string("warning: ") + operation +
                               " given a handle that is not live");
}

bool HostInterface::refuseOffMainThread(const char* operation)
{
    if (isMainThread())
        return false;
    m_journal.write(JournalRecord("bad_thread").add("operation", operation));
    return true;
}
