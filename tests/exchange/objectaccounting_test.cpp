// A mixed run of received messages and sends: every library object handed out
// is destroyed exactly once, and the only script values left unreleased are
// the ones the commands keep on purpose.

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "exchangeseams.h"

namespace {

using namespace ExchangeSeams;
using RFMsgExp::MessageContent;

MessageContent received(int kind, const std::string& netlist, int portType, int ports = 3)
{
    MessageContent content;
    content.kind = kind;
    content.text = "IFF text";
    content.document.emplace();
    content.document->name = "d.sch";
    content.document->portTypes = {{1, 0, "internal"}};
    content.document->regions.resize(2);
    content.document->regions[0].name = "r";
    content.document->regions[0].netlist = netlist;
    content.document->regions[0].egs = "egs";
    content.document->regions[0].ports.resize(ports);
    for (RFMsgExp::PortContent& port : content.document->regions[0].ports)
        port.type = portType;
    return content;
}

class ObjectAccounting : public SeamTest
{
};

TEST_F(ObjectAccounting, AMixedRunDestroysEveryObjectAndKeepsOnlyTheDeliberateValues)
{
    QTemporaryDir workspace;
    ASSERT_TRUE(workspace.isValid());
    const std::string path = workspace.path().toStdString();
    std::ofstream(path + "/s.iff") << "S";
    const std::string iff = path + "/s.iff";
    const long created = RFMsgExp::Testing::createdObjects();

    // Handled, throwing, failing, ignored, empty and document-less messages.
    test.answerPaths(path, path, {"mgclink_create_design"});
    MessageContent noDocument = received(212, "", 1);
    noDocument.document.reset();
    MessageContent noRegions = received(222, "", 1);
    noRegions.document->regions.clear();
    for (const MessageContent& content :
         {received(212, "( a b )", 1), received(212, "x) (", 1, 0), received(213, "", 1),
          received(213, "", 9), received(222, "", 1), received(40, "", 1), noDocument, noRegions}) {
        SCOPED_TRACE(content.kind);
        receive(test, content);
    }
    const std::vector<HostStatement> ran = statements();
    EXPECT_EQ(
        std::count(ran.begin(), ran.end(),
                   message("fprintf(stderr,\"Tessel:Exception detected in OnReceive()\n\");")),
        3);

    // Sends and queries through the commands.
    RFMsgExp::Testing::simulatePeers(test.server(), {{"DXD", 1}, {"BSXE", 2}});
    const std::vector<std::pair<const char*, std::vector<BRIOValue>>> calls = {
        {"mgcconnect_designsend_command", {iff, "none", "d", "r", "p"}},
        {"mgcconnect_layoutsend_command", {iff, iff, "d", "r", "p"}},
        {"mgcconnect_layoutsend_command", {iff, path + "/missing", "d", "r", "p"}},
        {"mgcconnect_netlist_command", {"a", "b", "c", "d"}},
        {"mgcconnect_push_command", {"a", "b", "c"}},
        {"mgcconnect_send_push_into_message", {"a", "b", "c"}},
        {"mgcconnect_instance_command", {}},
        {"mgcconnect_is_connected_to_schematic", {}},
        {"mgcconnect_is_connected_to_layout", {}},
        {"mgcconnect_show_connections", {}},
        {"mgcconnect_set_IFF_project_list", {"p"}},
        {"mgcconnect_write_IFF_options_file", {path + "/options.txt"}},
    };
    testing::internal::CaptureStderr();
    for (const auto& [command, arguments] : calls)
        callCommand(test, command, arguments);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(sent().size(), 5u);

    EXPECT_GT(RFMsgExp::Testing::createdObjects(), created);
    // Two layout sends keep one value each; the two option commands keep theirs.
    unreleasedHandles = 4;
    // The fixture checks that the live objects are back where they started.
}

} // namespace
