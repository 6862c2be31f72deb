#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "messagedescription.h"

using RFMsgExp::MessageContent;

namespace {

const std::string kExamples = KIVA_EXAMPLES_DIR;

MessageContent parse(const std::string& json)
{
    return MessageDescription::parse(json, "msg.json", kExamples);
}

} // namespace

TEST(MessageDescriptionFields, PropertiesKeepTheirOrderEscapesAreReadAndWhatIsMissingIsEmpty)
{
    const MessageContent content = parse(R"({"kind": 224, "properties": {"Z": "1", "A": "",
        "E": "a\"b\\c\/d\b\f\n\r\t\u00e9\u20AC\ud83d\ude00"}})");
    EXPECT_EQ(content.properties,
              (std::vector<std::pair<std::string, std::string>>{
                  {"Z", "1"},
                  {"A", ""},
                  {"E", "a\"b\\c/d\b\f\n\r\t\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"}}));
    EXPECT_FALSE(content.document);
    EXPECT_TRUE(content.text.empty());

    const MessageContent ports = parse(R"({"kind": 212, "document": {"regions": [{"ports": [{},
        {"enabled": false, "x": -0.25E-2, "y": 1e3}]}]}})");
    ASSERT_TRUE(ports.document);
    EXPECT_TRUE(ports.properties.empty());
    EXPECT_TRUE(ports.document->portTypes.empty());
    ASSERT_EQ(ports.document->regions.size(), 1u);
    EXPECT_TRUE(ports.document->regions[0].netlist.empty());
    ASSERT_EQ(ports.document->regions[0].ports.size(), 2u);
    EXPECT_EQ(ports.document->regions[0].ports[0].enabled, 1);
    EXPECT_EQ(ports.document->regions[0].ports[1].enabled, 0);
    EXPECT_EQ(ports.document->regions[0].ports[1].x, -0.0025);
    EXPECT_EQ(ports.document->regions[0].ports[1].y, 1000.0);
}

TEST(MessageDescriptionFields, KindIsANumberOrAName)
{
    const std::vector<std::pair<std::string, int>> rows = {
        {"212", 212},     {"\"eDoc_LUMONetList\"", 212}, {"\"edoc_lumonetlist\"", 212},
        {"\"213\"", 213}, {"\"e_Doc_Analysis\"", 229},   {"-5", -5},
    };
    for (const auto& [kind, value] : rows) {
        SCOPED_TRACE(kind);
        EXPECT_EQ(parse("{\"kind\": " + kind + "}").kind, value);
    }
}

TEST(MessageDescriptionErrors, MistakesAreNamedWithFileLineAndReason)
{
    const std::vector<std::pair<std::string, std::string>> rows = {
        // Not JSON.
        {"{\"kind\": 212,\n}",
         "2:1: expected a member name in double quotes, found '}' (not valid JSON)"},
        {"[1, 2", "1:6: expected ']' or ',' after an array item, found the end of the text"},
        {"\"tab\there\"", "1:5: a control character in a string must be escaped"},
        {"\"\\x\"", "1:3: unknown escape \\x"},
        {"\"\\ud800\"", "1:8: a high surrogate \\u escape must be followed by a low one"},
        {"01", "1:2: unexpected '1' after the JSON value"},
        {"\"\xc3\xa9\" x", "1:5: unexpected 'x' after the JSON value"},
        {std::string(300, '['), "1:202: nested more than 200 levels deep"},
        // Not a description.
        {"{\"text\": \"x\"}", "1:1: the description has no \"kind\""},
        {"{\"kind\": \"eDoc_Netlist\"}",
         "1:10: unknown kind \"eDoc_Netlist\" (use a number or a name"},
        {"{\"kind\": 212.5}", "1:10: \"kind\" must be a whole number of 32 bits"},
        {"{\"kind\": 9223372036854775808}", "1:10: \"kind\" must be a whole number of 32 bits"},
        {"{\"kind\": 212, \"txt\": \"x\"}",
         "1:22: unknown field \"txt\" in the description (known: kind, text, text_file, "
         "properties, document)"},
        {"{\"kind\": 222, \"text\": \"a\", \"text_file\": \"lna.net\"}",
         "1:41: give either \"text\" or \"text_file\" in the description, not both"},
        {"{\"kind\": 222, \"text_file\": \"nope.iff\"}",
         "1:28: cannot read text_file \"nope.iff\" (" + kExamples +
             "/nope.iff): No such file or directory"},
        {"{\"kind\": 222, \"properties\": {\"N\": 5}}",
         "1:35: property \"N\" must be a string, found a number"},
        {"{\"kind\": 212, \"document\": {\"regions\": [{\"ports\": [{\"x\": \"10\"}]}]}}",
         "1:57: \"x\" of port 1 of region 1 must be a finite number, found a string"},
        {"{\"kind\": 212, \"document\": {\"regions\": {}}}",
         "1:39: \"regions\" of the document must be an array, found an object"},
        {"{\"kind\": 212, \"kind\": 213}", "1:15: the member \"kind\" appears twice"},
    };
    for (const auto& [json, error] : rows) {
        SCOPED_TRACE(json.substr(0, 40));
        try {
            parse(json);
            ADD_FAILURE() << "accepted";
        } catch (const MessageDescription::Error& thrown) {
            EXPECT_EQ(std::string(thrown.what()).find("msg.json:" + error), 0u) << thrown.what();
        }
    }
}
