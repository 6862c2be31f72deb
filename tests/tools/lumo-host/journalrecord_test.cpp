#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "journalrecord.h"

namespace {

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
