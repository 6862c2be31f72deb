#include "lumo/brioscript.h"

#include <utility>

#include "lumo/hostbackend.h"

BRIOValue::BRIOValue(int value) : m_kind(Kind::Integer), m_integer(value) {}
BRIOValue::BRIOValue(double value) : m_kind(Kind::Real), m_real(value) {}
BRIOValue::BRIOValue(const char* value)
    : m_kind(value ? Kind::String : Kind::Null), m_string(value ? value : "")
{
}
BRIOValue::BRIOValue(std::string value) : m_kind(Kind::String), m_string(std::move(value)) {}

BRIOValue BRIOValue::list(std::vector<BRIOValue> items)
{
    BRIOValue value;
    value.m_kind = Kind::List;
    value.m_items = std::move(items);
    return value;
}

bool BRIOValue::operator==(const BRIOValue& other) const
{
    if (m_kind != other.m_kind)
        return false;
    switch (m_kind) {
    case Kind::Null:
        return true;
    case Kind::Integer:
        return m_integer == other.m_integer;
    case Kind::Real:
        return m_real == other.m_real;
    case Kind::String:
        return m_string == other.m_string;
    case Kind::List:
        return m_items == other.m_items;
    }
    return false;
}

CallBRIO::CallBRIO(std::string function) : m_function(std::move(function)) {}

void CallBRIO::add_arg(BRIOValue value)
{
    m_args.push_back(std::move(value));
}

BRIOValue CallBRIO::execute()
{
    HostBackend* host = LumoHost::backend();
    return host ? host->callFunction(m_function, m_args) : BRIOValue();
}
