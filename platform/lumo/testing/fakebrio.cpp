#include "fakebrio.h"

struct BRIOValueS
{
    BRIOValue value;
    int integer = 0;
};

FakeBRIO::FakeBRIO() : m_evaluator([](const std::string&, const std::string&) { return true; }) {}

FakeBRIO::~FakeBRIO() = default;

void FakeBRIO::setArguments(std::vector<BRIOValue> arguments)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_arguments = std::move(arguments);
    m_failingArgument = -1;
}

void FakeBRIO::setEvaluator(Evaluator evaluator)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_evaluator = std::move(evaluator);
}

void FakeBRIO::setVariable(const std::string& vocabulary, const std::string& name,
                           std::optional<std::string> value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (value)
        m_variables[{vocabulary, name}] = *value;
    else
        m_variables.erase({vocabulary, name});
}

std::vector<FakeBRIO::Statement> FakeBRIO::statements() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_statements;
}

void FakeBRIO::clearStatements()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_statements.clear();
}

std::optional<int> FakeBRIO::resultOf(BRIOValueHandle result) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto found = m_results.find(result);
    if (found == m_results.end())
        return std::nullopt;
    return found->second;
}

int FakeBRIO::liveHandles() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(m_live.size());
}

int FakeBRIO::invalidFrees() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_invalidFrees;
}

int FakeBRIO::interface_version()
{
    ++m_versionQueries;
    return m_version;
}

static BRIOTypeCode typeOf(const BRIOValue& value)
{
    switch (value.kind()) {
    case BRIOValue::Kind::Integer:
        return FakeBRIO::IntegerType;
    case BRIOValue::Kind::Real:
        return FakeBRIO::RealType;
    case BRIOValue::Kind::String:
        return FakeBRIO::StringType;
    default:
        return 0;
    }
}

bool FakeBRIO::get_argument(int index, BRIOTypeCode type, BRIOValueHandle* value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_getArgumentCalls;
    if (index < 0 || index >= static_cast<int>(m_arguments.size()) || index == m_failingArgument)
        return false;
    const BRIOValue& argument = m_arguments[static_cast<std::size_t>(index)];
    if (typeOf(argument) != type)
        return false;
    *value = newHandle(argument);
    return true;
}

BRIOTypeCode FakeBRIO::argument_type(int index)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (index < 0 || index >= static_cast<int>(m_arguments.size()))
        return 0;
    return typeOf(m_arguments[static_cast<std::size_t>(index)]);
}

bool FakeBRIO::register_library(std::uint64_t zero1, std::uint64_t zero2, std::uint64_t zero3,
                                int one, BRIOLibraryBlock* block)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_registrations;
    m_registrationWords = {zero1, zero2, zero3, static_cast<std::uint64_t>(one)};
    m_block = block;
    return m_registerResult;
}

bool FakeBRIO::evaluate_text(const char* vocabulary, const char* text)
{
    Evaluator evaluator;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_statements.push_back(
            {vocabulary ? vocabulary : "", text ? text : "", std::this_thread::get_id()});
        evaluator = m_evaluator;
    }
    return evaluator(vocabulary ? vocabulary : "", text ? text : "");
}

void FakeBRIO::free_value(BRIOValueHandle value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_live.erase(value) == 0)
        ++m_invalidFrees;
}

void* FakeBRIO::value_data(BRIOValueHandle value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!value || m_live.count(value) == 0)
        return nullptr;
    if (value->value.kind() == BRIOValue::Kind::Integer)
        return &value->integer;
    return const_cast<char*>(value->value.toString().c_str());
}

BRIOValueHandle FakeBRIO::return_integer(int value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_all.push_back(std::make_unique<BRIOValueS>());
    BRIOValueS* result = m_all.back().get();
    result->value = BRIOValue(value);
    result->integer = value;
    m_results[result] = value;
    return result;
}

BRIOValueHandle FakeBRIO::find_variable(const char* vocabulary, const char* name)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto found = m_variables.find({vocabulary ? vocabulary : "", name ? name : ""});
    if (found == m_variables.end())
        return nullptr;
    return newHandle(BRIOValue(found->second));
}

BRIOValueHandle FakeBRIO::newHandle(const BRIOValue& value)
{
    m_all.push_back(std::make_unique<BRIOValueS>());
    BRIOValueS* handle = m_all.back().get();
    handle->value = value;
    handle->integer = value.toInt();
    m_live.insert(handle);
    return handle;
}
