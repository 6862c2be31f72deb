// Script commands of the plug-in run by the host, with a listening peer
// process receiving what they send.

#include <gtest/gtest.h>

#include <QDateTime>

#include <memory>

#include "e2e.h"
#include "peerprocess.h"

namespace {

TEST(ScriptCommands, EachCommandAnswersTheHostAndSendsOnlyWhatItShould)
{
    HostProcess host(E2E::hostArguments());
    const int port = E2E::startBridge(host);
    ASSERT_GT(port, 0) << host.dump();
    const std::unique_ptr<PeerProcess> peer = PeerProcess::listen(port, "DXD");
    const QString schematic = writeFile(host.path("amp.sch.iff"), "IFF 2.1\nCELL amp_top\nEND\n");
    const QString layout = writeFile(host.path("amp.lay.iff"), "IFF 2.1\nLAYOUT amp_top\nEND");
    const QString options = host.path("iff_options.txt");
    // Each line gains a line feed, and a file ending in one gains another.
    const QString both = "IFF 2.1\nCELL amp_top\nEND\n\nIFF 2.1\nLAYOUT amp_top\nEND\n";
    const auto sendFiles = [](const QString& first, const QString& second) {
        return "\"" + first + "\", \"" + second + R"(", "amp_top", "lna", "C:\\designs\\amp");)";
    };
    const QJsonObject design{
        {"RFDESIGN", "amp_top"}, {"RFREGION", "lna"}, {"RFDESIGNPATH", "C:\\designs\\amp"}};
    const QString netlist = "NETLIST_RFREGION";
    const QString push = "HIGLIGHT_RFREGION";
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
        {"mgcconnect_instance_command();", 1, 0, {}, {}},
        {"mgcconnect_update_command();", 1, 0, {}, {}},
        // The option commands deliberately keep their text's value.
        {"mgcconnect_set_IFF_project_list(\"rf_frontend;pa_lib\");", 1, 1, {}, {}},
        {"mgcconnect_write_IFF_options_file(\"" + options + "\");", 1, 1, {}, {}},
        {"mgcconnect_write_IFF_options_file(\"/no/such/o.txt\");", 0, 1, {}, {}},
        {"mgcconnect_netlist_command(\"a\", \"lna\", \"c\", \"d\");", 1, 0, {{netlist, "lna"}}, {}},
        // Only the third argument reaches the peer.
        {"mgcconnect_push_command(\"a\", \"b\", \"pa\");", 1, 0, {{push, "pa"}}, {}},
        {"mgcconnect_send_push_into_message(\"a\", \"b\", \"pa2\");", {}, 0, {{push, "pa2"}}, {}},
        {"mgcconnect_designsend_command(" + sendFiles(schematic, layout), 1, 0, design, both},
        // The layout first on the command line, still the schematic first in
        // the message; the second argument's value is deliberately kept.
        {"mgcconnect_layoutsend_command(" + sendFiles(layout, schematic), 1, 1, design, both},
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

    const QStringList lines = QString::fromUtf8(readFile(options)).split('\n');
    EXPECT_EQ(lines.size(), 28); // 27 options, and after the last line feed nothing
    EXPECT_TRUE(lines.contains("ExportProjects = rf_frontend;pa_lib;"))
        << lines.join('|').toStdString();

    // Only the low 32 bits reach the script; until 2038 that is the whole time.
    const qint64 before = QDateTime::currentSecsSinceEpoch();
    const QJsonObject stamp = E2E::command(host, "t=mgcconnect_get_current_timestamp();");
    EXPECT_GE(stamp.value("result").toInt(), before);
    EXPECT_LE(stamp.value("result").toInt(), QDateTime::currentSecsSinceEpoch());
    EXPECT_EQ(host.finish().exitCode, 0) << host.seen().err.toStdString();
}

} // namespace
