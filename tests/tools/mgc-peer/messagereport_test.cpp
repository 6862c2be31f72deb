#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include <QTemporaryDir>

#include "jsonreader.h"
#include "messagereport.h"

using RFMsgExp::MessageContent;

namespace {

MessageContent emMessage()
{
    MessageContent content;
    content.kind = 213;
    content.properties = {{"RFREGION", "coupler"}, {"RFDESIGN", "coupler_top"}};
    RFMsgExp::RegionContent region{"coupler/main",
                                   "( IN THRU )",
                                   "EGS 1.3\nEND\n",
                                   {{"P1", 1, 1, "IN", "", 50.0, 0.0, 550.5}}};
    content.document =
        RFMsgExp::DocumentContent{"", "coupler_top.sch", "", {region}, {{1, 0, "external"}}};
    return content;
}

std::string fileText(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

} // namespace

TEST(MessageReportLine, DocumentIsShownInTheDescriptionsOwnShape)
{
    const JsonValue line = JsonReader::parse(MessageReport::line(emMessage(), 1, ""));
    EXPECT_EQ(line.find("kind_name")->text, "eDoc_FathomData");
    ASSERT_EQ(line.find("properties")->members.size(), 2u);
    EXPECT_EQ(line.find("properties")->members[0].first, "RFREGION");
    const JsonValue* document = line.find("document");
    ASSERT_TRUE(document);
    const JsonValue& region = document->find("regions")->items.at(0);
    EXPECT_EQ(region.find("egs")->text, "EGS 1.3\nEND\n");
    const JsonValue& port = region.find("ports")->items.at(0);
    EXPECT_EQ(port.find("label")->text, "IN");
    EXPECT_EQ(port.find("y")->number, 550.5);
    EXPECT_EQ(document->find("port_types")->items.at(0).find("name")->text, "external");

    // Text that needs escaping, bytes that are not UTF-8 among it, all on one line.
    MessageContent unknown;
    unknown.kind = 70;
    unknown.text = "q\"b\\\n\t\x01 \xe9t\xc3\xa9";
    EXPECT_EQ(MessageReport::line(unknown, 1, ""),
              R"({"event":"message","kind":70,"kind_name":"unknown event type","properties":{},)"
              "\"text\":\"q\\\"b\\\\\\n\\t\\u0001 \\u00e9t\xc3\xa9\"}");
}

TEST(MessageReportSaving, TextsGoToFilesNamedAfterTheMessageAndRegion)
{
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    MessageContent content = emMessage();
    content.text = "body\n";
    const JsonValue line =
        JsonReader::parse(MessageReport::line(content, 3, folder.path().toStdString()));
    const std::string base = folder.path().toStdString() + "/message-3";
    EXPECT_EQ(line.find("text_file")->text, base + ".txt");
    EXPECT_EQ(fileText(base + ".txt"), "body\n");
    const JsonValue& region = line.find("document")->find("regions")->items.at(0);
    // A region name is made safe for a file name.
    EXPECT_EQ(region.find("egs_file")->text, base + "-1-coupler_main.egs");
    EXPECT_EQ(region.find("egs_size")->integer, 12);
    EXPECT_EQ(fileText(base + "-1-coupler_main.egs"), "EGS 1.3\nEND\n");
    EXPECT_EQ(fileText(base + "-1-coupler_main.net"), "( IN THRU )");
}

TEST(MessageReportSaving, UnwritableFolderIsNamed)
{
    try {
        MessageReport::line(emMessage(), 1, "/proc/no-such-folder");
        FAIL() << "wrote";
    } catch (const MessageReport::Error& error) {
        EXPECT_EQ(
            std::string(error.what()).find("cannot write /proc/no-such-folder/message-1.txt: "), 0u)
            << error.what();
    }
}
