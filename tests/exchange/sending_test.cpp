// What the commands send: a schematic or a layout as one kind-222 message
// (mgcconnect_designsend_command, mgcconnect_layoutsend_command), and requests
// about one RF region as kind-224 messages (the netlist and highlight
// commands); the instance and update commands send nothing.

#include <array>

#include <gtest/gtest.h>

#include "plugintest.h"
#include "server/xserverlumo.h"

namespace {

class DesignSending : public PluginTest
{
protected:
    // Calls the command, which returns 1 whatever happened, with get_argument
    // refusing the argument at `refused`; the body of the one message it sent
    // (nullopt: none). Standard error goes to `standardError`.
    std::optional<std::string> send(const char* command, std::vector<BRIOValue> arguments,
                                    int refused = -1)
    {
        test.brio.clearStatements();
        RFMsgExp::Testing::clearSentMessages(test.server());
        testing::internal::CaptureStderr();
        EXPECT_EQ(test.call(command, std::move(arguments), refused), 1);
        standardError = testing::internal::GetCapturedStderr();
        const auto messages = sent();
        EXPECT_LE(messages.size(), 1u);
        return messages.empty() ? std::nullopt : std::optional(messages.front().content.text);
    }
    std::string standardError;
};

TEST_F(DesignSending, OneMessageCarriesKindPropertiesInOrderAndBothTexts)
{
    const std::string schematic = file("s.iff", "S1\nS2");
    const std::string layout = file("l.iff", "L1\n");
    const std::string path = "C:\\designs\\amp \"x\"";
    for (const auto& [command, first, second] :
         {std::tuple{"mgcconnect_designsend_command", schematic, layout},
          std::tuple{"mgcconnect_layoutsend_command", layout, schematic}}) {
        SCOPED_TRACE(command);
        // Each line gains its line feed, the end one more: schematic first, nothing between.
        EXPECT_EQ(send(command, {first, second, "amp top", "", path}), "S1\nS2\nL1\n\n");
        const RFMsgExp::Testing::SentMessage message = sent().at(0);
        EXPECT_EQ(message.content.kind, 222);
        EXPECT_EQ(message.content.properties,
                  (std::vector<std::pair<std::string, std::string>>{
                      {"RFDESIGN", "amp top"}, {"RFREGION", ""}, {"RFDESIGNPATH", path}}));
        // Prepared once, right after the kind, before any property.
        EXPECT_EQ(message.content.prepareCalls, 1);
        EXPECT_EQ(message.content.propertiesAtPrepare, 0);
        EXPECT_FALSE(message.content.document.has_value());
        EXPECT_EQ(message.target, "");
    }
    EXPECT_TRUE(statements().empty());
    unreleasedHandles = 1; // the layout send keeps its second argument's value
}

// The design send goes on with what it could read ("none", exactly, names no
// layout); the layout send sends nothing when a file is missing, and shows
// only a missing schematic, whose absence also leaves the layout unread.
TEST_F(DesignSending, DesignSendGoesOnWithWhatItCouldReadLayoutSendStops)
{
    file("None", "capitalised none is a file");
    const std::string unreadable = "Unable to open IFF file ";
    const std::string schematicError = "Unable to open schematic IFF file to send to Mentor: ";
    // command, first and second file, body sent (empty: none), standard error
    const std::array<std::string, 5> rows[] = {
        // clang-format off
        {"designsend", file("s", "S"), "none", "S\n", ""},
        {"designsend", file("s"), "None", "S\ncapitalised none is a file\n", ""},
        {"designsend", file("s0", ""), file("l0", ""), "\n\n", ""},
        {"designsend", file("missing"), file("l", "L"), "L\n", unreadable + file("missing") + "\n"},
        {"layoutsend", file("l", "L"), file("missing"), "", unreadable + file("missing") + "\n"},
        {"layoutsend", file("missing"), file("s", "S"), "", unreadable + file("missing") + "\n"},
        // clang-format on
    };
    for (const auto& [command, first, second, body, error] : rows) {
        SCOPED_TRACE(command + " " + first + " + " + second);
        const std::optional<std::string> sentBody =
            send(("mgcconnect_" + command + "_command").c_str(), {first, second, "d", "r", "p"});
        EXPECT_EQ(sentBody.value_or(""), body);
        EXPECT_EQ(standardError, error);
        EXPECT_EQ(statements(), command == "layoutsend" && second == file("missing")
                                    ? reported(schematicError + second)
                                    : std::vector<std::string>{});
    }
    unreleasedHandles = 2; // the layout send keeps its second argument's value
    // Refused values: no schematic value, nothing read or sent; no value kept.
    EXPECT_EQ(send("mgcconnect_designsend_command", {file("s"), "none", "d", "r", "p"}, 0),
              std::nullopt);
    EXPECT_EQ(standardError, "");
    send("mgcconnect_layoutsend_command", {file("l"), file("s"), "d", "r", "p"}, 1);
    EXPECT_EQ(standardError, unreadable + "(null)\n");
    EXPECT_EQ(statements(), reported(schematicError));
}

using RFRegionRequests = PluginTest;

// The netlist request is prepared after its property is set; a highlight
// ignores its first two arguments and is never prepared.
TEST_F(RFRegionRequests, EachRequestCarriesOnePropertyNamingTheRegion)
{
    // command, arguments, property, region, properties at Prepare (-1: not prepared)
    const std::tuple<const char*, std::vector<BRIOValue>, std::string, std::string, int> rows[] = {
        // clang-format off
        {"mgcconnect_netlist_command", {"design", "lna 1", "view", "path"}, "NETLIST_RFREGION", "lna 1", 1},
        {"mgcconnect_push_command", {"design", "cell", "C:\\r \"2\""}, "HIGLIGHT_RFREGION", "C:\\r \"2\"", -1},
        {"mgcconnect_send_push_into_message", {"design", "cell", "pa"}, "HIGLIGHT_RFREGION", "pa", -1},
        // clang-format on
    };
    for (const auto& [command, arguments, property, region, propertiesAtPrepare] : rows) {
        SCOPED_TRACE(command);
        RFMsgExp::Testing::clearSentMessages(test.server());
        test.call(command, arguments);
        const std::vector<RFMsgExp::Testing::SentMessage> messages = sent();
        ASSERT_EQ(messages.size(), 1u);
        const RFMsgExp::MessageContent& content = messages.front().content;
        EXPECT_EQ(content.kind, 224);
        EXPECT_EQ(content.properties,
                  (std::vector<std::pair<std::string, std::string>>{{property, region}}));
        EXPECT_EQ(content.text, "");
        EXPECT_FALSE(content.document.has_value());
        EXPECT_EQ(messages.front().target, "");
        EXPECT_EQ(content.prepareCalls, propertiesAtPrepare < 0 ? 0 : 1);
        EXPECT_EQ(content.propertiesAtPrepare, propertiesAtPrepare);
    }
    const long created = RFMsgExp::Testing::createdObjects();
    EXPECT_EQ(test.call("mgcconnect_instance_command"), 1);
    EXPECT_EQ(test.call("mgcconnect_update_command"), 1);
    EXPECT_EQ(RFMsgExp::Testing::createdObjects(), created) << "instance or update made a message";
    EXPECT_TRUE(statements().empty());
}

} // namespace
