// mgcconnect_show_connections: one mgclink_show_connected_servers statement
// with the server's address, port, versions and the connected peers.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "exchangeseams.h"

namespace {

using namespace ExchangeSeams;
using RFMsgExp::Testing::Peer;

class ConnectionListing : public SeamTest
{
protected:
    // Everything up to the peer list, from what the bridge reports.
    std::string lead()
    {
        return "mgclink_show_connected_servers(\"" +
               std::string(test.server().GetMachineName().c_str()) + "\"," +
               std::to_string(test.server().GetPort()) + ",\"390.001\", \"" +
               test.server().GetVersion().c_str() + "\",";
    }
};

TEST_F(ConnectionListing, ListsThePeersWithALeadingComma)
{
    struct Row
    {
        const char* name;
        std::vector<Peer> peers;
        std::string list;
    };
    const std::vector<Row> rows = {
        {"none", {}, "NULL"},
        {"one", {{"DXD", 3}}, "list(,list(\"DXD\",3))"},
        {"two", {{"DXD", 1}, {"BSXE", 2}}, "list(,list(\"DXD\",1),list(\"BSXE\",2))"},
        {"unescaped name", {{"a \"q\" \\", -4}}, "list(,list(\"a \"q\" \\\",-4))"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        test.brio.clearStatements();
        RFMsgExp::Testing::simulatePeers(test.server(), row.peers);
        EXPECT_EQ(callCommand(test, "mgcconnect_show_connections", {}), std::nullopt);
        EXPECT_EQ(statements(), std::vector<HostStatement>{host(lead() + row.list + ");")});
    }
}

TEST_F(ConnectionListing, APortOfZeroIsPrintedUnquoted)
{
    ASSERT_EQ(test.server().GetPort(), 0) << "the bridge is not listening in this test";
    callCommand(test, "mgcconnect_show_connections", {});
    const std::vector<HostStatement> ran = statements();
    ASSERT_EQ(ran.size(), 1u);
    EXPECT_NE(ran[0].text.find("\",0,\"390.001\", \""), std::string::npos) << ran[0].text;
}

TEST_F(ConnectionListing, FromAnotherThreadNothingReachesTheHost)
{
    RFMsgExp::Testing::simulatePeers(test.server(), {{"DXD", 1}});
    const int performed = test.host.performed();
    ASSERT_TRUE(
        test.runOnMessagingThread([&] { callCommand(test, "mgcconnect_show_connections", {}); }));
    EXPECT_TRUE(statements().empty());
    EXPECT_EQ(test.host.performed(), performed) << "posted as an idle request";
}

} // namespace
