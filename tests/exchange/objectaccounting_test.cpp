// A mixed run of received messages and commands: every library object handed
// out is destroyed exactly once, and the only script values left unreleased are
// the ones the commands keep on purpose.

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "plugintest.h"
#include "server/xserverlumo.h"

namespace {

using RFMsgExp::MessageContent;

MessageContent received(int kind, const std::string& netlist, int portType, int ports = 3)
{
    MessageContent content = PluginTest::message(
        kind, {PluginTest::region("r", netlist), PluginTest::region("r2")}, "IFF");
    content.document->name = "d.sch";
    content.document->portTypes = {{1, 0, "internal"}};
    content.document->regions[0].ports.resize(ports);
    for (RFMsgExp::PortContent& port : content.document->regions[0].ports)
        port.type = portType;
    return content;
}

class ObjectAccounting : public PluginTest
{
};

TEST_F(ObjectAccounting, AMixedRunDestroysEveryObjectAndKeepsOnlyTheDeliberateValues)
{
    const long created = RFMsgExp::Testing::createdObjects();
    // Handled, throwing, failing, ignored, empty and document-less messages.
    test.answerPaths(dir.path().toStdString(), dir.path().toStdString(), {"mgclink_create_design"});
    MessageContent noDocument = received(212, "", 1);
    noDocument.document.reset();
    MessageContent noRegions = received(222, "", 1);
    noRegions.document->regions.clear();
    for (const MessageContent& content :
         {received(212, "( a b )", 1), received(212, "x) (", 1, 0), received(213, "", 1),
          received(213, "", 9), received(222, "", 1), received(40, "", 1), noDocument, noRegions}) {
        SCOPED_TRACE(content.kind);
        test.receive(content);
    }
    const std::vector<std::string> ran = statements();
    EXPECT_EQ(std::count(ran.begin(), ran.end(), logged("Exception detected in OnReceive()")), 3);

    // Every command but the timestamp, the start and the dialog, with its result.
    RFMsgExp::Testing::simulatePeers(test.server(), {{"DXD", 1}, {"bsxe", 2}});
    const std::string iff = file("s.iff", "S");
    struct Row
    {
        const char* command;
        std::vector<BRIOValue> arguments;
        std::optional<int> result;
        int kept; // values the command leaves unreleased on purpose
    };
    const std::vector<Row> rows = {
        {"mgcconnect_send_push_into_message", {"a", "b", "c"}, std::nullopt, 0},
        {"mgcconnect_disconnect", {}, 1, 0},
        {"mgcconnect_show_connections", {}, std::nullopt, 0},
        {"mgcconnect_netlist_command", {"a", "b", "c", "d"}, 1, 0},
        {"mgcconnect_instance_command", {}, 1, 0},
        {"mgcconnect_update_command", {}, 1, 0},
        {"mgcconnect_push_command", {"a", "b", "c"}, 1, 0},
        {"mgcconnect_layoutsend_command", {iff, iff, "d", "r", "p"}, 1, 1},
        {"mgcconnect_layoutsend_command", {iff, "missing", "d", "r", "p"}, 1, 1},
        {"mgcconnect_designsend_command", {iff, "none", "d", "r", "p"}, 1, 0},
        {"mgcconnect_is_connected_to_schematic", {}, 1, 0},
        {"mgcconnect_is_connected_to_layout", {}, 1, 0},
        {"mgcconnect_set_IFF_project_list", {"p"}, 1, 1},
        {"mgcconnect_write_IFF_options_file", {"options.txt"}, 1, 1},
        {"mgcconnect_write_IFF_options_file", {"missing/options.txt"}, 0, 1},
    };
    testing::internal::CaptureStderr();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.command);
        const int handles = test.brio.liveHandles();
        EXPECT_EQ(test.call(row.command, row.arguments), row.result);
        EXPECT_EQ(test.brio.liveHandles() - handles, row.kept);
        unreleasedHandles += row.kept;
    }
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(sent().size(), 5u);
    EXPECT_GT(RFMsgExp::Testing::createdObjects(), created);
    // The fixture checks that the live objects are back where they started.
}

} // namespace
