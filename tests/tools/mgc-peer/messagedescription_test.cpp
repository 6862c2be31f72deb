#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "messagedescription.h"

using RFMsgExp::MessageContent;

namespace {

const std::string kExamples = KIVA_EXAMPLES_DIR;

std::string fileText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

MessageContent parse(const std::string& json)
{
    return MessageDescription::parse(json, "msg.json", kExamples);
}

} // namespace

TEST(MessageDescriptionExamples, EachExampleReadsAsItsKind)
{
    const MessageContent netlist = MessageDescription::read(kExamples + "/netlist.json");
    EXPECT_EQ(netlist.kind, 212);
    ASSERT_TRUE(netlist.document);
    EXPECT_EQ(netlist.document->name, "lna_top.sch");
    ASSERT_EQ(netlist.document->regions.size(), 1u);
    EXPECT_EQ(netlist.document->regions[0].netlist, fileText(kExamples + "/lna.net"));
    EXPECT_NE(netlist.document->regions[0].netlist.find('('), std::string::npos);
    ASSERT_EQ(netlist.document->regions[0].ports.size(), 3u);
    EXPECT_EQ(netlist.document->regions[0].ports[1].label, "RFOUT");
    EXPECT_EQ(netlist.document->regions[0].ports[1].x, 412.25);
    EXPECT_EQ(netlist.document->regions[0].ports[2].enabled, 0);

    const MessageContent iff = MessageDescription::read(kExamples + "/iff.json");
    EXPECT_EQ(iff.kind, 222);
    EXPECT_EQ(iff.text, fileText(kExamples + "/pa_layout.iff"));
    ASSERT_TRUE(iff.document);
    EXPECT_FALSE(iff.document->regions.empty()) << "an IFF import needs a region";
    ASSERT_EQ(iff.properties.size(), 3u);
    EXPECT_EQ(iff.properties[0].first, "RFDESIGN");
    EXPECT_EQ(iff.properties[1].first, "RFREGION");
    EXPECT_EQ(iff.properties[2].first, "RFDESIGNPATH");
    EXPECT_EQ(iff.properties[2].second, "C:\\designs\\rf_frontend");

    const MessageContent em = MessageDescription::read(kExamples + "/em_data.json");
    EXPECT_EQ(em.kind, 213);
    ASSERT_TRUE(em.document);
    EXPECT_EQ(em.document->regions[0].egs, fileText(kExamples + "/coupler.egs"));
    ASSERT_EQ(em.document->portTypes.size(), 3u);
    // Every port's type is one the receiver can name (a flag-0 port type).
    for (const RFMsgExp::PortContent& port : em.document->regions[0].ports) {
        bool named = false;
        for (const RFMsgExp::PortTypeContent& type : em.document->portTypes)
            named = named || (type.id == port.type && type.flag == 0);
        EXPECT_TRUE(named) << port.name;
    }
}

TEST(MessageDescriptionFields, PropertiesKeepTheirWrittenOrder)
{
    const MessageContent content = parse(
        R"({"kind": 224, "properties": {"Z": "1", "A": "2", "M": "", "HIGLIGHT_RFREGION": "lna"}})");
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"Z", "1"}, {"A", "2"}, {"M", ""}, {"HIGLIGHT_RFREGION", "lna"}};
    EXPECT_EQ(content.properties, expected);
}

TEST(MessageDescriptionFields, KindIsANumberOrAName)
{
    const std::vector<std::pair<std::string, int>> rows = {
        {"212", 212},
        {"\"eDoc_LUMONetList\"", 212},
        {"\"edoc_lumonetlist\"", 212},
        {"\"213\"", 213},
        {"\"eDoc_libExecuteMacro\"", 226},
        {"\"e_Doc_Analysis\"", 229},
        {"70", 70},
        {"-5", -5},
    };
    for (const auto& [kind, value] : rows) {
        SCOPED_TRACE(kind);
        EXPECT_EQ(parse("{\"kind\": " + kind + "}").kind, value);
    }
}

TEST(MessageDescriptionFields, MissingListsAndTextsAreEmpty)
{
    const MessageContent bare = parse(R"({"kind": 212})");
    EXPECT_FALSE(bare.document);
    EXPECT_TRUE(bare.text.empty());
    EXPECT_TRUE(bare.properties.empty());

    const MessageContent content =
        parse(R"({"kind": 212, "document": {"regions": [{"ports": [{}]}]}})");
    ASSERT_TRUE(content.document);
    EXPECT_TRUE(content.document->portTypes.empty());
    ASSERT_EQ(content.document->regions.size(), 1u);
    EXPECT_TRUE(content.document->regions[0].netlist.empty());
    ASSERT_EQ(content.document->regions[0].ports.size(), 1u);
    EXPECT_EQ(content.document->regions[0].ports[0].enabled, 1);
    EXPECT_EQ(parse(R"({"kind": 212, "document": {"regions": [{"ports": [{"enabled": false}]}]}})")
                  .document->regions[0]
                  .ports[0]
                  .enabled,
              0);
}

TEST(MessageDescriptionErrors, MistakesAreNamedWithFileLineAndReason)
{
    struct Row
    {
        const char* name;
        std::string json;
        std::string error;
    };
    const std::vector<Row> rows = {
        {"a trailing comma", "{\"kind\": 212,\n}",
         "msg.json:2:1: expected a member name in double quotes, found '}' (not valid JSON)"},
        {"not closed", "{\"kind\": 212", "msg.json:1:13: expected '}' or ',' after a member"},
        {"not JSON at all", "kind=212", "msg.json:1:1: expected a value, found 'k'"},
        {"an empty file", "", "msg.json:1:1: expected a value, found the end of the text"},
        {"no kind", "{\"text\": \"x\"}", "msg.json:1:1: the description has no \"kind\""},
        {"an unknown kind name", "{\"kind\": \"eDoc_Netlist\"}",
         "msg.json:1:10: unknown kind \"eDoc_Netlist\" (use a number or a name"},
        {"a fractional kind", "{\"kind\": 212.5}",
         "msg.json:1:10: \"kind\" must be a whole number of 32 bits"},
        {"a misspelt field", "{\"kind\": 212, \"txt\": \"x\"}",
         "msg.json:1:22: unknown field \"txt\" in the description (known: kind, text, text_file, "
         "properties, document)"},
        {"text and text file", "{\"kind\": 222, \"text\": \"a\", \"text_file\": \"lna.net\"}",
         "msg.json:1:41: give either \"text\" or \"text_file\" in the description, not both"},
        {"a missing text file", "{\"kind\": 222, \"text_file\": \"nope.iff\"}",
         "msg.json:1:28: cannot read text_file \"nope.iff\" (" + kExamples +
             "/nope.iff): No such file or directory"},
        {"a property that is a number", "{\"kind\": 222, \"properties\": {\"N\": 5}}",
         "msg.json:1:35: property \"N\" must be a string, found a number"},
        {"a coordinate as text",
         "{\"kind\": 212, \"document\": {\"regions\": [{\"ports\": [{\"x\": \"10\"}]}]}}",
         "msg.json:1:57: \"x\" of port 1 of region 1 must be a finite number, found a string"},
        {"enabled as a word",
         "{\"kind\": 212, \"document\": {\"regions\": [{\"ports\": [{\"enabled\": \"yes\"}]}]}}",
         "msg.json:1:63: \"enabled\" of port 1 of region 1 must be a whole number or a boolean, "
         "found a "
         "string"},
        {"regions as an object", "{\"kind\": 212, \"document\": {\"regions\": {}}}",
         "msg.json:1:39: \"regions\" of the document must be an array, found an object"},
        {"a name given twice", "{\"kind\": 212, \"kind\": 213}",
         "msg.json:1:15: the member \"kind\" appears twice"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        try {
            parse(row.json);
            ADD_FAILURE() << "accepted";
        } catch (const MessageDescription::Error& error) {
            EXPECT_EQ(std::string(error.what()).find(row.error), 0u) << error.what();
        }
    }
}

TEST(MessageDescriptionErrors, UnreadableFileIsNamed)
{
    try {
        MessageDescription::read("/nonexistent/msg.json");
        FAIL() << "read";
    } catch (const MessageDescription::Error& error) {
        EXPECT_STREQ(error.what(), "/nonexistent/msg.json: cannot read the message description: No "
                                   "such file or directory");
    }
}
