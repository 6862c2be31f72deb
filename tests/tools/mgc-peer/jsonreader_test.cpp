#include <gtest/gtest.h>

#include <string>

#include "jsonreader.h"
#include "jsonwriter.h"

TEST(JsonReading, StringsDecodeEveryEscape)
{
    const JsonValue value =
        JsonReader::parse(R"(["a\"b\\c\/d\b\f\n\r\t", "\u00e9\u20ac\ud83d\ude00", "caf\u00E9"])");
    ASSERT_EQ(value.items.size(), 3u);
    EXPECT_EQ(value.items[0].text, "a\"b\\c/d\b\f\n\r\t");
    EXPECT_EQ(value.items[1].text, "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80");
    EXPECT_EQ(value.items[2].text, "caf\xc3\xa9");
}

TEST(JsonReading, WholeNumbersAreToldApartFromFractions)
{
    const JsonValue value =
        JsonReader::parse("[0, -7, 1.5, 1e3, -0.25E-2, 9223372036854775807, 9223372036854775808]");
    ASSERT_EQ(value.items.size(), 7u);
    EXPECT_TRUE(value.items[0].integral);
    EXPECT_EQ(value.items[1].integer, -7);
    EXPECT_FALSE(value.items[2].integral);
    EXPECT_EQ(value.items[2].number, 1.5);
    EXPECT_FALSE(value.items[3].integral);
    EXPECT_EQ(value.items[3].number, 1000.0);
    EXPECT_EQ(value.items[4].number, -0.0025);
    EXPECT_TRUE(value.items[5].integral);
    EXPECT_FALSE(value.items[6].integral) << "beyond 64 bits";
}

TEST(JsonReading, ErrorsSayLineAndColumn)
{
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"{\n  \"a\": 1\n  \"b\": 2\n}", "3:3: expected '}' or ',' after a member, found '\"'"},
        {"[1, 2", "1:6: expected ']' or ',' after an array item, found the end of the text"},
        {"\"tab\there\"", "1:5: a control character in a string must be escaped"},
        {"\"\\x\"", "1:3: unknown escape \\x"},
        {"\"\\ud800\"", "1:8: a high surrogate \\u escape must be followed by a low one"},
        {"01", "1:2: unexpected '1' after the JSON value"},
        {"-", "1:2: expected a digit, found the end of the text"},
        {"tru", "1:4: expected true, found the end of the text"},
        {"\"\xc3\xa9\" x", "1:5: unexpected 'x' after the JSON value"},
        {std::string(300, '['), "1:202: nested more than 200 levels deep"},
    };
    for (const auto& [text, error] : rows) {
        SCOPED_TRACE(text.substr(0, 20));
        try {
            JsonReader::parse(text);
            ADD_FAILURE() << "accepted";
        } catch (const JsonReader::Error& thrown) {
            EXPECT_EQ(std::string(thrown.what()).find(error), 0u) << thrown.what();
        }
    }
}

TEST(JsonWriting, WrittenTextReadsBackTheSame)
{
    const std::string awkward = std::string("q\"b\\n\nt\tc\x01 \xc3\xa9 ok", 16);
    JsonWriter writer;
    writer.beginObject();
    writer.key("z");
    writer.string(awkward);
    writer.key("a");
    writer.beginArray();
    writer.integer(-3);
    writer.number(0.1);
    writer.boolean(true);
    writer.null();
    writer.endArray();
    writer.endObject();
    const JsonValue value = JsonReader::parse(writer.text());
    ASSERT_EQ(value.members.size(), 2u);
    EXPECT_EQ(value.members[0].first, "z");
    EXPECT_EQ(value.members[0].second.text, awkward);
    EXPECT_EQ(value.members[1].second.items[1].number, 0.1);
    EXPECT_EQ(writer.text().find('\n'), std::string::npos) << "one line per value";
}

TEST(JsonWriting, BytesThatAreNotUtf8AreEscaped)
{
    JsonWriter writer;
    writer.string(std::string("\xe9t\xc3\xa9\xff", 5));
    EXPECT_EQ(writer.text(), "\"\\u00e9t\xc3\xa9\\u00ff\"");
}
