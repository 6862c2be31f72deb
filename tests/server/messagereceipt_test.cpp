// OnReceive's dispatch by event kind, its guard against exceptions, and
// OnError: all on a messaging thread, with the host's main thread performing.

#include <string>
#include <vector>

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "exchangeseams.h"
#include "server/eventkindname.h"

namespace {

using namespace ExchangeSeams;
using RFMsgExp::MessageContent;

MessageContent messageOfKind(int kind)
{
    MessageContent content;
    content.kind = kind;
    content.text = "mgclink_create_design(\"\", \"x\", \"x\", \"x\", \"x\", 0, NULL, 0);";
    content.document.emplace();
    content.document->name = "d.sch";
    content.document->regions.resize(1);
    content.document->regions[0].name = "r";
    return content;
}

HostStatement logLine(const std::string& text)
{
    return message("fprintf(stderr,\"Tessel:" + text + "\n\");");
}

class MessageReceipt : public SeamTest
{
};

TEST_F(MessageReceipt, EveryKindHasItsNameAndOnlyTheHandledOnesAreActedOn)
{
    struct Row
    {
        int kind;
        const char* name;
    };
    const std::vector<Row> rows = {
        {0, "eSys_OnUndef"},
        {10, "eSys_Info"},
        {20, "eSys_Answer"},
        {30, "eSys_OnClose"},
        {40, "eSys_Connect"},
        {50, "eSys_Disconnect"},
        {60, "eSys_Exit"},
        {80, "eSys_Internal"},
        {90, "eSys_TuneOpt"},
        {100, "eSys_TuneOptRsvS"},
        {200, "eSys_TuneOptRsvE"},
        {201, "eApp_OnStart"},
        {202, "eApp_OnOpenDocument"},
        {203, "eApp_OnCloseDocument"},
        {204, "eApp_OnQuit"},
        {205, "eDoc_Modify"},
        {206, "eDoc_OnSelectionChange"},
        {207, "eDoc_OnDatabaseChanged"},
        {208, "eDoc_OnChange"},
        {209, "eDoc_Change"},
        {210, "eDoc_OnPropertyChange"},
        {211, "eDoc_OnPreClose"},
        {212, "eDoc_LUMONetList"},
        {213, "eDoc_FathomData"},
        {214, "eDoc_BRIOScript"},
        {215, "eDoc_VBScript"},
        {216, "eDoc_ANF"},
        {217, "eDoc_LibCategories"},
        {218, "eDoc_LibElements"},
        {219, "eDoc_LibElemSymbols"},
        {220, "eDoc_LibElemParams"},
        {221, "eDoc_LibElemMacro"},
        {222, "eDoc_LibIFF"},
        {223, "eDoc_Lib"},
        {224, "eDoc_UserDefined"},
        {225, "eDoc_Synthesize"},
        {226, "eDoc_libExecuteMacro"},
        {227, "eDoc_CrossProbe"},
        {228, "eDoc_Binary"},
        {229, "e_Doc_Analysis"},
        // The gaps of the protocol and anything beyond it.
        {70, "unknown event type"},
        {101, "unknown event type"},
        {199, "unknown event type"},
        {230, "unknown event type"},
        {-1, "unknown event type"},
        {2147483647, "unknown event type"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.kind);
        EXPECT_EQ(EventKindName(row.kind), row.name);
        test.brio.clearStatements();
        receive(test, messageOfKind(row.kind));
        const std::vector<HostStatement> ran = statements();
        if (row.kind == 212 || row.kind == 213 || row.kind == 222) {
            // Their handlers start by asking for the workspace (the IFF handler
            // after the regions), which is unset here.
            ASSERT_FALSE(ran.empty());
            EXPECT_EQ(ran.front(), workspaceQuery());
        } else {
            // A script in the message is never run: the kind is only logged.
            EXPECT_EQ(ran, std::vector<HostStatement>{
                               logLine(std::string("Message type ") + row.name + " is ignored")});
        }
    }
}

TEST_F(MessageReceipt, AHandledKindWithoutDocumentIsLoggedAsException)
{
    QTemporaryDir workspace;
    ASSERT_TRUE(workspace.isValid());
    test.answerPaths(workspace.path().toStdString(), workspace.path().toStdString());
    const HostStatement exception = logLine("Exception detected in OnReceive()");
    struct Row
    {
        int kind;
        std::vector<HostStatement> statements;
    };
    const std::vector<Row> rows = {
        {212, {workspaceQuery(), netlistsQuery(), exception}},
        {213, {workspaceQuery(), exception}},
        {222, {exception}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.kind);
        test.brio.clearStatements();
        MessageContent content = messageOfKind(row.kind);
        content.document.reset();
        receive(test, content);
        EXPECT_EQ(statements(), row.statements);
    }
    EXPECT_TRUE(QDir(workspace.path()).isEmpty());
}

TEST_F(MessageReceipt, AfterAnExceptionTheNextMessageIsHandledNormally)
{
    MessageContent throwing = messageOfKind(212);
    throwing.document->regions[0].netlist = "a) (";
    MessageContent ignored = messageOfKind(40);
    QTemporaryDir netlists;
    ASSERT_TRUE(netlists.isValid());
    test.answerPaths("/ws", netlists.path().toStdString());

    receive(test, throwing);
    receive(test, ignored);
    EXPECT_EQ(statements(),
              (std::vector<HostStatement>{workspaceQuery(), netlistsQuery(),
                                          logLine("Exception detected in OnReceive()"),
                                          logLine("Message type eSys_Connect is ignored")}));
}

TEST_F(MessageReceipt, ANullMessageIsNoWorkAndNoReply)
{
    bool replied = true;
    ASSERT_TRUE(test.runOnMessagingThread([&] {
        replied = static_cast<bool>(
            test.server().OnReceive(RFMsgExp::msg_auto_ptr<RFMsgExp::IRFMessage>()));
    }));
    EXPECT_FALSE(replied);
    EXPECT_TRUE(statements().empty());
}

TEST_F(MessageReceipt, ACommunicationErrorIsShownWithTheLibraryText)
{
    for (const std::string info : {"connection reset by peer 5000", "", "say \"no\""}) {
        SCOPED_TRACE(info);
        test.brio.clearStatements();
        ASSERT_TRUE(test.runOnMessagingThread([&] {
            RFMsgExp::IXException* error = RFMsgExp::IXException::Create(info);
            test.server().OnError(*error);
            error->Destroy();
        }));
        const std::string text =
            "Problem with communications with Mentor - MGCC XServer Error, value is " + info;
        EXPECT_EQ(statements(),
                  (std::vector<HostStatement>{message("de_info(\"Tessel Error: " + text + "\");"),
                                              logLine("Error: " + text)}));
    }
}

} // namespace
