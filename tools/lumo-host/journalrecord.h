#pragma once
// One journal line: a JSON object whose fields keep the order they were added in.

#include <string>
#include <vector>

class BRIOValue;

class JournalRecord
{
public:
    explicit JournalRecord(const char* event);

    JournalRecord& add(const char* key, const std::string& text);
    JournalRecord& add(const char* key, const char* text);
    JournalRecord& add(const char* key, int number);
    JournalRecord& add(const char* key, bool flag);
    // Strings, numbers, null, and arrays for lists.
    JournalRecord& add(const char* key, const BRIOValue& value);
    JournalRecord& add(const char* key, const std::vector<BRIOValue>& values);
    JournalRecord& add(const char* key, const std::vector<std::string>& texts);
    JournalRecord& addNull(const char* key);
    // `json` is taken as it is: an encoded JSON value.
    JournalRecord& addJson(const char* key, const std::string& json) { return addRaw(key, json); }

    // The object, without a line feed.
    std::string text() const { return m_text + "}"; }

    // A JSON string literal; bytes that are not UTF-8 are kept as \u00XX.
    static std::string quote(const std::string& text);
    static std::string json(const BRIOValue& value);
    // A JSON number, shortest round-trip form; null when not finite.
    static std::string number(double value);

private:
    JournalRecord& addRaw(const char* key, const std::string& json);

    std::string m_text;
};
