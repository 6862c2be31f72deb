#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "messagedescription.h"

using RFMsgExp::MessageContent;

namespace {

const std::string kExamples = KIVA_EXAMPLES_DIR;

MessageContent parse(const std::string& json)
{
    return MessageDescription::parse(json, "msg.json", kExamples);
}

TEST(MessageDescription, PropertiesKeepTheirOrderEscapesAreReadAndPortsAreEnabledUnlessSaid)
{
    const MessageContent content = parse(R"({"kind": 224, "properties": {"Z": "1", "A": "",
        "E": "a\"b\\c\/d\b\f\n\r\t\u00e9\u20AC\ud83d\ude00"}})");
    EXPECT_EQ(content.properties,
              (std::vector<std::pair<std::string, std::string>>{
                  {"Z", "1"},
                  {"A", ""},
                  {"E", "a\"b\\c/d\b\f\n\r\t\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"}}));

    const MessageContent ports = parse(R"({"kind": 212, "document": {"regions": [{"ports": [{},
        {"enabled": false, "x": -0.25E-2}]}]}})");
    // value() and at() throw, failing the test, where something is missing.
    const auto& region = ports.document.value().regions.at(0);
    EXPECT_EQ(region.ports.at(0).enabled, 1);
    EXPECT_EQ(region.ports.at(1).enabled, 0);
    EXPECT_EQ(region.ports.at(1).x, -0.0025);
}

TEST(MessageDescription, KindIsANumberOrAName)
{
    for (const auto& [kind, value] : std::vector<std::pair<std::string, int>>{
             {"212", 212}, {"\"edoc_lumonetlist\"", 212}, {"\"213\"", 213}, {"-5", -5}})
        EXPECT_EQ(parse("{\"kind\": " + kind + "}").kind, value) << kind;
}

TEST(MessageDescription, MistakesAreNamedWithFileLineAndReason)
{
    const std::vector<std::pair<std::string, std::string>> rows = {
        // Not JSON.
        {"{\"kind\": 212,\n}",
         "2:1: expected a member name in double quotes, found '}' (not valid JSON)"},
        {"\"tab\there\"", "1:5: a control character in a string must be escaped"},
        {"\"\\ud800\"", "1:8: a high surrogate \\u escape must be followed by a low one"},
        {std::string(300, '['), "1:202: nested more than 200 levels deep"},
        // Not a description.
        {"{\"text\": \"x\"}", "1:1: the description has no \"kind\""},
        {"{\"kind\": \"eDoc_Netlist\"}",
         "1:10: unknown kind \"eDoc_Netlist\" (use a number or a name"},
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
        {"{\"kind\": 212, \"kind\": 213}", "1:15: the member \"kind\" appears twice"},
    };
    for (const auto& [json, error] : rows) {
        try {
            parse(json);
            ADD_FAILURE() << json << " accepted";
        } catch (const MessageDescription::Error& thrown) {
            EXPECT_EQ(std::string(thrown.what()).find("msg.json:" + error), 0u) << thrown.what();
        }
    }
}

} // namespace
