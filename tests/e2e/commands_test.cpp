// Script commands of the plug-in run by the host, with a listening peer
// process receiving what they send. What each command answers and sends is
// shown with a stand-in host and bridge in tests/exchange and tests/plugin;
// here, that it arrives.

#include <gtest/gtest.h>

#include <memory>

#include "e2e.h"
#include "peerprocess.h"

namespace {

TEST(ScriptCommands, WhatTheCommandsSendReachesThePeerAndWhatTheyKeepTheHostCounts)
{
    HostProcess host(E2E::hostArguments());
    const int port = E2E::startBridge(host);
    ASSERT_GT(port, 0) << host.dump();
    const std::unique_ptr<PeerProcess> peer = PeerProcess::listen(port, "DXD");
    const QString schematic = writeFile(host.path("amp.sch.iff"), "IFF 2.1\nCELL amp_top\nEND\n");
    const QString layout = writeFile(host.path("amp.lay.iff"), "IFF 2.1\nLAYOUT amp_top\nEND");
    struct Row
    {
        QString statement;
        QJsonValue result;
        int unreleased;
        QJsonObject properties; // of the message the peer receives; none when empty
        QString text;
    };
    // Those that send nothing come first: anything they sent would come
    // before the expected messages.
    const std::vector<Row> rows = {
        // The option commands deliberately keep their text's value.
        {"mgcconnect_set_IFF_project_list(\"rf_frontend;pa_lib\");", 1, 1, {}, {}},
        {"mgcconnect_send_push_into_message(\"a\", \"b\", \"pa2\");",
         {},
         0,
         {{"HIGLIGHT_RFREGION", "pa2"}},
         {}},
        // Each line gains a line feed, and a file ending in one gains another.
        {"mgcconnect_designsend_command(\"" + schematic + "\", \"" + layout +
             R"(", "amp_top", "lna", "C:\\designs\\amp");)",
         1,
         0,
         {{"RFDESIGN", "amp_top"}, {"RFREGION", "lna"}, {"RFDESIGNPATH", "C:\\designs\\amp"}},
         "IFF 2.1\nCELL amp_top\nEND\n\nIFF 2.1\nLAYOUT amp_top\nEND\n"},
    };
    std::vector<const Row*> sending;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.statement.toStdString());
        const QJsonObject record = E2E::command(host, row.statement);
        EXPECT_EQ(record.value("result"), row.result);
        EXPECT_EQ(record.value("unreleased").toInt(), row.unreleased);
        if (!row.properties.isEmpty())
            sending.push_back(&row);
    }
    const std::vector<QJsonObject> messages =
        peer->waitForMessages(static_cast<int>(sending.size()));
    ASSERT_EQ(messages.size(), sending.size());
    for (std::size_t i = 0; i < sending.size(); ++i) {
        SCOPED_TRACE(sending[i]->statement.toStdString());
        EXPECT_EQ(messages[i].value("kind").toInt(), sending[i]->text.isEmpty() ? 224 : 222);
        EXPECT_EQ(messages[i].value("properties").toObject(), sending[i]->properties);
        EXPECT_EQ(messages[i].value("text").toString(), sending[i]->text);
    }
    EXPECT_EQ(host.finish().exitCode, 0) << host.seen().err.toStdString();
}

} // namespace
