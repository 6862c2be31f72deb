#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "journalrecord.h"
#include "lumo/brioscript.h"

namespace {

TEST(JournalRecord, KeepsFieldsInTheOrderAdded)
{
    JournalRecord record("command");
    record.add("name", "mgcconnect_initialize")
        .add("args", std::vector<BRIOValue>{BRIOValue(0), BRIOValue(0)})
        .add("result", BRIOValue(1))
        .add("unreleased", 0);
    EXPECT_EQ(record.text(), "{\"event\":\"command\",\"name\":\"mgcconnect_initialize\","
                             "\"args\":[0,0],\"result\":1,\"unreleased\":0}");
}

TEST(JournalRecord, WritesScriptValuesAsJson)
{
    struct Case
    {
        const char* name;
        BRIOValue value;
        std::string json;
    };
    const std::vector<Case> cases = {
        {"null", BRIOValue(), "null"},
        {"negative integer", BRIOValue(-7), "-7"},
        {"real", BRIOValue(1.5), "1.5"},
        {"whole real", BRIOValue(90.0), "90"},
        {"nested list",
         BRIOValue::list({BRIOValue("P1"), BRIOValue::list({BRIOValue(), BRIOValue(2)})}),
         "[\"P1\",[null,2]]"},
        {"empty list", BRIOValue::list({}), "[]"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(JournalRecord::json(row.value), row.json);
    }
}

TEST(JournalRecord, QuotesEveryByteSafely)
{
    struct Case
    {
        const char* name;
        std::string text;
        std::string quoted;
    };
    const std::vector<Case> cases = {
        {"quote and backslash", "a\"b\\c", "\"a\\\"b\\\\c\""},
        {"line feed, tab, carriage return", "x\n\t\r", "\"x\\n\\t\\r\""},
        {"other control bytes", std::string("\x01\x1f\x7f", 3), "\"\\u0001\\u001f\\u007f\""},
        {"NUL byte", std::string("a\0b", 3), "\"a\\u0000b\""},
        {"UTF-8 kept as it is", "\xc3\xa9t\xc3\xa9 \xe2\x82\xac",
         "\"\xc3\xa9t\xc3\xa9 \xe2\x82\xac\""},
        {"Latin-1 byte is not UTF-8", "caf\xe9", "\"caf\\u00e9\""},
        {"truncated sequence", "\xe2\x82", "\"\\u00e2\\u0082\""},
        {"overlong encoding", "\xc0\xaf", "\"\\u00c0\\u00af\""},
        {"surrogate half", "\xed\xa0\x80", "\"\\u00ed\\u00a0\\u0080\""},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(JournalRecord::quote(row.text), row.quoted);
    }
}

} // namespace
