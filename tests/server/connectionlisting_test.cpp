// mgcconnect_show_connections: one mgclink_show_connected_servers statement
// with the server's address, port, versions and the connected peers.

#include <gtest/gtest.h>

#include "plugintest.h"
#include "server/xserverlumo.h"

namespace {

using RFMsgExp::Testing::Peer;

using ConnectionListing = PluginTest;

TEST_F(ConnectionListing, ListsThePeersWithALeadingComma)
{
    ASSERT_EQ(test.server().GetPort(), 0) << "the bridge is not listening in this test";
    // The port unquoted, the host name and both versions quoted.
    const std::string lead = "mgclink_show_connected_servers(\"" +
                             std::string(test.server().GetMachineName().c_str()) +
                             "\",0,\"390.001\", \"" + test.server().GetVersion().c_str() + "\",";
    struct Row
    {
        std::vector<Peer> peers;
        std::string list;
    };
    const std::vector<Row> rows = {
        {{}, "NULL"},
        {{{"DXD", 1}, {"BSXE", 2}}, "list(,list(\"DXD\",1),list(\"BSXE\",2))"},
        {{{"a \"q\" \\", -4}}, "list(,list(\"a \"q\" \\\",-4))"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.list);
        test.brio.clearStatements();
        RFMsgExp::Testing::simulatePeers(test.server(), row.peers);
        EXPECT_EQ(test.call("mgcconnect_show_connections"), std::nullopt);
        EXPECT_EQ(statements(), std::vector<std::string>{host(lead + row.list + ");")});
    }
    // An exception of the messaging library stops at the command, destroyed
    // (the fixture counts the objects).
    test.brio.setEvaluator([](const std::string&, const std::string&) -> bool {
        throw RFMsgExp::IXException::Create("x");
    });
    EXPECT_EQ(test.call("mgcconnect_show_connections"), std::nullopt);
}

TEST_F(ConnectionListing, FromAnotherThreadNothingReachesTheHost)
{
    RFMsgExp::Testing::simulatePeers(test.server(), {{"DXD", 1}});
    const int performed = test.host.performed();
    ASSERT_TRUE(test.runOnMessagingThread([&] { test.call("mgcconnect_show_connections"); }));
    EXPECT_TRUE(statements().empty());
    EXPECT_EQ(test.host.performed(), performed) << "posted as an idle request";
}

} // namespace
