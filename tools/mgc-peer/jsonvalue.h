#pragma once
// A JSON value that keeps the order of an object's members (message
// descriptions list properties in the order they are to be set) and where in
// its file it was written, for error messages.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

class JsonValue
{
public:
    enum class Type { Null, Boolean, Number, String, Array, Object };

    Type type = Type::Null;
    bool boolean = false;
    double number = 0.0;
    // Whether the number was written without fraction or exponent and fits 64 bits.
    bool integral = false;
    std::int64_t integer = 0;
    std::string text;
    std::vector<JsonValue> items;
    std::vector<std::pair<std::string, JsonValue>> members;
    int line = 0;
    int column = 0;

    // The member of that name, or null.
    const JsonValue* find(const std::string& key) const;
    // "a string", "an object", … for messages.
    const char* typeName() const;
};
