#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "journalrecord.h"

namespace {

TEST(JournalRecord, QuotesEveryByteSafelyAndOnlyValidUtf8AsItIs)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"a\"b\\c", "\"a\\\"b\\\\c\""},
        {"x\n\t\r", "\"x\\n\\t\\r\""},
        {std::string("\x01\x1f\x7f\0~", 5), "\"\\u0001\\u001f\\u007f\\u0000~\""},
        {"\xc3\xa9t\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80",
         "\"\xc3\xa9t\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\""},
        {"caf\xe9", "\"caf\\u00e9\""},                            // Latin-1
        {"\xe2\x82", "\"\\u00e2\\u0082\""},                       // truncated
        {"\xc0\xaf", "\"\\u00c0\\u00af\""},                       // overlong
        {"\xed\xa0\x80", "\"\\u00ed\\u00a0\\u0080\""},            // surrogate half
        {"\xf4\x90\x80\x80", "\"\\u00f4\\u0090\\u0080\\u0080\""}, // past U+10FFFF
    };
    for (const auto& [text, quoted] : cases) {
        SCOPED_TRACE(quoted);
        EXPECT_EQ(JournalRecord::quote(text), quoted);
    }
}

} // namespace
