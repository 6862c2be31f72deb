// Requests about one RF region, sent as kind-224 messages by the netlist and
// highlight commands; the instance and update commands send nothing.

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "exchangeseams.h"

namespace {

using namespace ExchangeSeams;
using Property = std::pair<std::string, std::string>;

class RFRegionRequests : public SeamTest
{
};

TEST_F(RFRegionRequests, EachRequestCarriesOnePropertyNamingTheRegion)
{
    struct Row
    {
        const char* command;
        std::vector<BRIOValue> arguments;
        std::optional<int> result;
        Property property;
        int prepareCalls;
    };
    const std::vector<Row> rows = {
        {"mgcconnect_netlist_command",
         {"design", "lna 1", "view", "path"},
         1,
         {"NETLIST_RFREGION", "lna 1"},
         1},
        {"mgcconnect_netlist_command",
         {"design", "", "view", "path"},
         1,
         {"NETLIST_RFREGION", ""},
         1},
        // The first two arguments of a highlight are ignored; only the third reaches the peer.
        {"mgcconnect_push_command",
         {"design", "cell", "C:\\r \"2\""},
         1,
         {"HIGLIGHT_RFREGION", "C:\\r \"2\""},
         0},
        {"mgcconnect_send_push_into_message",
         {"design", "cell", "pa"},
         std::nullopt,
         {"HIGLIGHT_RFREGION", "pa"},
         0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.command) + " " + row.property.second);
        RFMsgExp::Testing::clearSentMessages(test.server());
        EXPECT_EQ(callCommand(test, row.command, row.arguments), row.result);
        const auto messages = sent();
        ASSERT_EQ(messages.size(), 1u);
        const RFMsgExp::MessageContent& content = messages.front().content;
        EXPECT_EQ(content.kind, 224);
        EXPECT_EQ(content.properties, std::vector<Property>{row.property});
        EXPECT_EQ(content.text, "");
        EXPECT_FALSE(content.document.has_value());
        EXPECT_EQ(messages.front().target, "");
        // The netlist request is prepared after its property is set.
        EXPECT_EQ(content.prepareCalls, row.prepareCalls);
        if (row.prepareCalls) {
            EXPECT_EQ(content.propertiesAtPrepare, 1);
        }
    }
    EXPECT_TRUE(statements().empty());
}

TEST_F(RFRegionRequests, InstanceAndUpdateCommandsReturnOneAndSendNothing)
{
    for (const char* command : {"mgcconnect_instance_command", "mgcconnect_update_command"}) {
        SCOPED_TRACE(command);
        const long created = RFMsgExp::Testing::createdObjects();
        EXPECT_EQ(callCommand(test, command, {}), 1);
        EXPECT_EQ(RFMsgExp::Testing::createdObjects(), created) << "a message was made";
    }
    EXPECT_TRUE(sent().empty());
    EXPECT_TRUE(statements().empty());
}

} // namespace
