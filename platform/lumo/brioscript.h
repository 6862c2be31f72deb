#pragma once
// Calling a host script function by name from plug-in code.

#include <string>
#include <vector>

#include "lumo/lumoexport.h"

class LUMO_SDK_EXPORT BRIOValue
{
public:
    enum class Kind { Null, Integer, Real, String, List };

    BRIOValue() = default;
    BRIOValue(int value);
    BRIOValue(double value);
    BRIOValue(const char* value);
    BRIOValue(std::string value);
    static BRIOValue list(std::vector<BRIOValue> items);

    Kind kind() const { return m_kind; }
    bool isNull() const { return m_kind == Kind::Null; }
    int toInt() const { return m_integer; }
    double toReal() const { return m_real; }
    const std::string& toString() const { return m_string; }
    const std::vector<BRIOValue>& items() const { return m_items; }

    bool operator==(const BRIOValue& other) const;
    bool operator!=(const BRIOValue& other) const { return !(*this == other); }

private:
    Kind m_kind = Kind::Null;
    int m_integer = 0;
    double m_real = 0.0;
    std::string m_string;
    std::vector<BRIOValue> m_items;
};

class LUMO_SDK_EXPORT CallBRIO
{
public:
    explicit CallBRIO(std::string function);
    void add_arg(BRIOValue value);
    // Runs the function through the host; the null value when no host answers.
    BRIOValue execute();

private:
    std::string m_function;
    std::vector<BRIOValue> m_args;
};
