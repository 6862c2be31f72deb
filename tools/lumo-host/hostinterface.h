#pragma once
// The host's BRIO interface as the plug-in sees it: script values behind
// handles (each counted against the command call that made it), the
// arguments of the running command, registered command libraries, and
// evaluate_text on the script engine.
//
// Threads: find_variable, value_data and free_value may be called from any
// thread; everything else belongs to the main thread and is refused elsewhere.

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "lumo/brio.h"
#include "scriptengine.h"

class Journal;

class HostInterface : public BRIOInterface
{
public:
    // Type codes of script values; NoArgument for an index past the last argument.
    enum TypeCode : BRIOTypeCode {
        NoArgument = -1,
        NullType = 0,
        IntegerType = 1,
        RealType = 2,
        StringType = 3,
        ListType = 4
    };

    // Constructed on the main thread, which it remembers.
    HostInterface(ScriptEngine& engine, Journal& journal, int version);
    ~HostInterface();
    HostInterface(const HostInterface&) = delete;
    HostInterface& operator=(const HostInterface&) = delete;

    // Names that a command may not take (the host's own functions).
    void setReservedNames(std::set<std::string> names) { m_reserved = std::move(names); }

    bool isMainThread() const { return std::this_thread::get_id() == m_mainThread; }
    bool hasCommand(const std::string& name) const { return m_commands.count(name) > 0; }
    // Main thread: calls the command with `args` as its script arguments and
    // journals it with its result and the handles it left unreleased.
    ScriptEngine::CallResult callCommand(const std::string& name,
                                         const std::vector<BRIOValue>& args);

    // Main thread: evaluate_text journals "via":"idle" between these two.
    void beginIdleRequest() { m_context.push_back(Via::Idle); }
    void endIdleRequest() { m_context.pop_back(); }

    // Handles handed out and never released, whoever made them.
    int liveHandles() const;

    // --- BRIOInterface ---
    int interface_version() override { return m_version; }
    bool get_argument(int index, BRIOTypeCode type, BRIOValueHandle* value) override;
    BRIOTypeCode argument_type(int index) override;
    bool register_library(std::uint64_t zero1, std::uint64_t zero2, std::uint64_t zero3, int one,
                          BRIOLibraryBlock* block) override;
    bool evaluate_text(const char* vocabulary, const char* text) override;
    void free_value(BRIOValueHandle value) override;
    void* value_data(BRIOValueHandle value) override;
    BRIOTypeCode string_type() override { return StringType; }
    BRIOTypeCode integer_type() override { return IntegerType; }
    BRIOValueHandle return_integer(int value) override;
    BRIOValueHandle find_variable(const char* vocabulary, const char* name) override;

private:
    enum class Via { Direct, Idle };
    struct Frame
    {
        std::uint64_t id;
        std::string name;
        const std::vector<BRIOValue>* args;
    };
    struct Command
    {
        std::string library;
        BRIOCommandFunction function;
    };

    BRIOValueHandle newHandle(const BRIOValue& value, std::uint64_t frame);
    void reportBadHandle(const char* operation);
    bool refuseOffMainThread(const char* operation);

    ScriptEngine& m_engine;
    Journal& m_journal;
    const int m_version;
    const std::thread::id m_mainThread;
    std::set<std::string> m_reserved;

    // Main thread only.
    std::map<std::string, Command> m_commands;
    std::vector<Frame> m_frames;
    std::vector<Via> m_context;
    std::uint64_t m_nextFrame = 1;

    mutable std::mutex m_handleMutex;
    std::map<BRIOValueS*, std::uint64_t> m_live; // handle -> frame that made it (0: none)
    std::set<BRIOValueS*> m_results;             // made by return_integer, owned by the host
};
