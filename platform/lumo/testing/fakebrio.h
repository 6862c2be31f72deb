#pragma once
// A scriptable BRIO interface for unit tests: arguments set up by the test,
// every evaluated statement recorded with its thread, value handles counted.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "lumo/brio.h"
#include "lumo/brioscript.h"

class FakeBRIO final : public BRIOInterface
{
public:
    static constexpr BRIOTypeCode StringType = 3;
    static constexpr BRIOTypeCode IntegerType = 1;
    static constexpr BRIOTypeCode RealType = 2;

    struct Statement
    {
        std::string vocabulary;
        std::string text;
        std::thread::id thread;
    };
    // Decides the result of evaluate_text; may call setVariable.
    using Evaluator = std::function<bool(const std::string& vocabulary, const std::string& text)>;

    FakeBRIO();
    ~FakeBRIO();

    // --- set up by the test ---
    void setVersion(int version) { m_version = version; }
    // The arguments of the next command call (Integer, Real or String values).
    void setArguments(std::vector<BRIOValue> arguments);
    // get_argument at this 0-based index answers false.
    void failGetArgumentAt(int index) { m_failingArgument = index; }
    void setEvaluator(Evaluator evaluator);
    void setRegisterResult(bool accepted) { m_registerResult = accepted; }
    void setVariable(const std::string& vocabulary, const std::string& name,
                     std::optional<std::string> value);

    // --- read by the test ---
    std::vector<Statement> statements() const;
    void clearStatements();
    // The integer a command returned through return_integer, or nothing for null.
    std::optional<int> resultOf(BRIOValueHandle result) const;
    int liveHandles() const;  // handles handed out and not yet freed
    int invalidFrees() const; // free_value of an unknown or already freed handle
    int getArgumentCalls() const { return m_getArgumentCalls; }
    int versionQueries() const { return m_versionQueries; }
    const BRIOLibraryBlock* registeredBlock() const { return m_block; }
    int registrations() const { return m_registrations; }
    std::vector<std::uint64_t> registrationWords() const { return m_registrationWords; }

    // --- BRIOInterface ---
    int interface_version() override;
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
    BRIOValueHandle newHandle(const BRIOValue& value);

    mutable std::mutex m_mutex;
    int m_version = 1500;
    std::vector<BRIOValue> m_arguments;
    int m_failingArgument = -1;
    Evaluator m_evaluator;
    bool m_registerResult = true;
    std::map<std::pair<std::string, std::string>, std::string> m_variables;
    std::vector<Statement> m_statements;
    std::set<BRIOValueS*> m_live;
    std::vector<std::unique_ptr<BRIOValueS>> m_all;
    std::map<BRIOValueS*, int> m_results;
    int m_invalidFrees = 0;
    int m_getArgumentCalls = 0;
    int m_versionQueries = 0;
    const BRIOLibraryBlock* m_block = nullptr;
    int m_registrations = 0;
    std::vector<std::uint64_t> m_registrationWords;
};
