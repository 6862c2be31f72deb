// OnReceive's dispatch by event kind, its guard against exceptions, and
// OnError: all on a messaging thread, with the host's main thread performing.
// Then mgcconnect_show_connections: one mgclink_show_connected_servers
// statement with the server's address, port, versions and the connected peers.

#include <QDir>
#include <gtest/gtest.h>

#include "plugintest.h"
#include "server/eventkindname.h"
#include "server/xserverlumo.h"

namespace {

using RFMsgExp::MessageContent;

// A script in the text, which no kind may run.
MessageContent messageOfKind(int kind)
{
    return PluginTest::message(
        kind, {PluginTest::region("r")},
        "mgclink_create_design(\"\", \"x\", \"x\", \"x\", \"x\", 0, NULL, 0);");
}

using MessageReceipt = PluginTest;
using ConnectionListing = PluginTest;

TEST_F(MessageReceipt, EveryKindHasItsNameAndOnlyTheHandledOnesAreActedOn)
{
    // The gaps of the protocol and anything beyond it have no name.
    // clang-format off
    const std::pair<int, std::string> rows[] = {
        {0, "eSys_OnUndef"}, {10, "eSys_Info"}, {20, "eSys_Answer"}, {30, "eSys_OnClose"},
        {40, "eSys_Connect"}, {50, "eSys_Disconnect"}, {60, "eSys_Exit"}, {80, "eSys_Internal"},
        {90, "eSys_TuneOpt"}, {100, "eSys_TuneOptRsvS"}, {200, "eSys_TuneOptRsvE"},
        {201, "eApp_OnStart"}, {202, "eApp_OnOpenDocument"}, {203, "eApp_OnCloseDocument"},
        {204, "eApp_OnQuit"}, {205, "eDoc_Modify"}, {206, "eDoc_OnSelectionChange"},
        {207, "eDoc_OnDatabaseChanged"}, {208, "eDoc_OnChange"}, {209, "eDoc_Change"},
        {210, "eDoc_OnPropertyChange"}, {211, "eDoc_OnPreClose"}, {212, "eDoc_LUMONetList"},
        {213, "eDoc_FathomData"}, {214, "eDoc_BRIOScript"}, {215, "eDoc_VBScript"},
        {216, "eDoc_ANF"}, {217, "eDoc_LibCategories"}, {218, "eDoc_LibElements"},
        {219, "eDoc_LibElemSymbols"}, {220, "eDoc_LibElemParams"}, {221, "eDoc_LibElemMacro"},
        {222, "eDoc_LibIFF"}, {223, "eDoc_Lib"}, {224, "eDoc_UserDefined"},
        {225, "eDoc_Synthesize"}, {226, "eDoc_libExecuteMacro"}, {227, "eDoc_CrossProbe"},
        {228, "eDoc_Binary"}, {229, "e_Doc_Analysis"},
        {70, "unknown event type"}, {101, "unknown event type"}, {199, "unknown event type"},
        {230, "unknown event type"}, {-1, "unknown event type"}, {2147483647, "unknown event type"},
    };
    // clang-format on
    for (const auto& [kind, name] : rows) {
        SCOPED_TRACE(kind);
        EXPECT_EQ(EventKindName(kind), name);
        const std::vector<std::string> ran = received(messageOfKind(kind));
        // The handled kinds ask for the workspace, which is unset here.
        if (kind == 212 || kind == 213 || kind == 222) {
            EXPECT_EQ(ran.at(0), WorkspaceQuery);
        } else {
            EXPECT_EQ(ran,
                      std::vector<std::string>{logged("Message type " + name + " is ignored")});
        }
    }
}

TEST_F(MessageReceipt, AHandledKindWithoutDocumentIsLoggedAndTheNextMessageHandled)
{
    test.answerPaths(dir.path().toStdString(), dir.path().toStdString());
    const std::string exception = logged("Exception detected in OnReceive()");
    const std::pair<int, std::vector<std::string>> rows[] = {
        {212, {WorkspaceQuery, NetlistsQuery, exception}},
        {222, {exception}},
        {40, {logged("Message type eSys_Connect is ignored")}},
    };
    for (const auto& [kind, ran] : rows) {
        SCOPED_TRACE(kind);
        MessageContent content = messageOfKind(kind);
        content.document.reset();
        EXPECT_EQ(received(content), ran);
    }
    EXPECT_TRUE(QDir(dir.path()).isEmpty());

    test.brio.clearStatements();
    // An exception of the messaging library (here from the host, on its own
    // thread) is logged and destroyed; the fixture counts the objects.
    test.brio.setEvaluator([](const std::string&, const std::string& text) -> bool {
        if (text.find("mgclink_get_workspace_path") != std::string::npos)
            throw RFMsgExp::IXException::Create("no host");
        return true;
    });
    EXPECT_FALSE(test.server().OnReceive(RFMsgExp::Testing::makeMessage(messageOfKind(212))));
    EXPECT_EQ(statements(), (std::vector<std::string>{WorkspaceQuery, exception}));
}

TEST_F(MessageReceipt, ACommunicationErrorIsShownWithTheLibraryText)
{
    ASSERT_TRUE(test.runOnMessagingThread([&] {
        RFMsgExp::IXException* error = RFMsgExp::IXException::Create("reset by \"peer\" 5000");
        test.server().OnError(*error);
        error->Destroy();
    }));
    EXPECT_EQ(statements(), reported("Problem with communications with Mentor - MGCC XServer "
                                     "Error, value is reset by \"peer\" 5000"));
}

TEST_F(ConnectionListing, ListsThePeersWithALeadingComma)
{
    // The port unquoted, the host name and both versions quoted.
    const std::string lead = "mgclink_show_connected_servers(\"" +
                             std::string(test.server().GetMachineName().c_str()) +
                             "\",0,\"390.001\", \"" + test.server().GetVersion().c_str() + "\",";
    const std::pair<std::vector<RFMsgExp::Testing::Peer>, std::string> rows[] = {
        {{}, "NULL"},
        {{{"DXD", 1}, {"BSXE", 2}}, "list(,list(\"DXD\",1),list(\"BSXE\",2))"},
        {{{"a \"q\" \\", -4}}, "list(,list(\"a \"q\" \\\",-4))"},
    };
    for (const auto& [peers, list] : rows) {
        SCOPED_TRACE(list);
        test.brio.clearStatements();
        RFMsgExp::Testing::simulatePeers(test.server(), peers);
        EXPECT_EQ(test.call("mgcconnect_show_connections"), std::nullopt);
        EXPECT_EQ(statements(), std::vector<std::string>{host(lead + list + ");")});
    }
    // An exception of the messaging library stops at the command, destroyed
    // (the fixture counts the objects).
    test.brio.setEvaluator([](const std::string&, const std::string&) -> bool {
        throw RFMsgExp::IXException::Create("x");
    });
    EXPECT_EQ(test.call("mgcconnect_show_connections"), std::nullopt);
}

} // namespace
