// Requests about one RF region, sent as kind-224 messages by the netlist and
// highlight commands; the instance and update commands send nothing.

#include <gtest/gtest.h>

#include "plugintest.h"
#include "server/xserverlumo.h"

namespace {

using RFRegionRequests = PluginTest;

// The netlist request is prepared after its property is set; a highlight
// ignores its first two arguments and is never prepared.
TEST_F(RFRegionRequests, EachRequestCarriesOnePropertyNamingTheRegion)
{
    struct Row
    {
        const char* command;
        std::vector<BRIOValue> arguments;
        std::string property, region;
        int propertiesAtPrepare; // -1: not prepared
    };
    // clang-format off
    const std::vector<Row> rows = {
        {"mgcconnect_netlist_command", {"design", "lna 1", "view", "path"}, "NETLIST_RFREGION", "lna 1", 1},
        {"mgcconnect_push_command", {"design", "cell", "C:\\r \"2\""}, "HIGLIGHT_RFREGION", "C:\\r \"2\"", -1},
        {"mgcconnect_send_push_into_message", {"design", "cell", "pa"}, "HIGLIGHT_RFREGION", "pa", -1},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.command);
        RFMsgExp::Testing::clearSentMessages(test.server());
        test.call(row.command, row.arguments);
        const std::vector<RFMsgExp::Testing::SentMessage> messages = sent();
        ASSERT_EQ(messages.size(), 1u);
        const RFMsgExp::MessageContent& content = messages.front().content;
        EXPECT_EQ(content.kind, 224);
        EXPECT_EQ(content.properties,
                  (std::vector<std::pair<std::string, std::string>>{{row.property, row.region}}));
        EXPECT_EQ(content.text, "");
        EXPECT_FALSE(content.document.has_value());
        EXPECT_EQ(messages.front().target, "");
        EXPECT_EQ(content.prepareCalls, row.propertiesAtPrepare < 0 ? 0 : 1);
        EXPECT_EQ(content.propertiesAtPrepare, row.propertiesAtPrepare);
    }
    const long created = RFMsgExp::Testing::createdObjects();
    EXPECT_EQ(test.call("mgcconnect_instance_command"), 1);
    EXPECT_EQ(test.call("mgcconnect_update_command"), 1);
    EXPECT_EQ(RFMsgExp::Testing::createdObjects(), created) << "instance or update made a message";
    EXPECT_TRUE(statements().empty());
}

} // namespace
