// Script commands of the plug-in run by the host, with a listening peer
// process receiving what they send.

#include <gtest/gtest.h>

#include <QDateTime>
#include <QFile>
#include <QJsonArray>

#include <memory>

#include "hostsession.h"
#include "peerprocess.h"

namespace {

class ScriptCommands : public ::testing::Test
{
protected:
    void SetUp() override
    {
        port = host.startBridge();
        ASSERT_GT(port, 0) << E2E::journalDump(host);
        peer = PeerProcess::listen(port, "DXD");
    }

    // Runs one command statement and returns its record.
    QJsonObject command(const QString& name, const QString& statement)
    {
        const std::size_t before = host.records(RecordMatch::command(name)).size();
        host.run(statement);
        const std::vector<QJsonObject> records =
            host.waitFor(RecordMatch::command(name), static_cast<int>(before) + 1);
        return records.size() > before ? records.back() : QJsonObject();
    }

    // The next message at the peer.
    QJsonObject nextMessage()
    {
        const std::size_t wanted = peer->messages().size() + 1;
        const std::vector<QJsonObject> messages = peer->waitForMessages(static_cast<int>(wanted));
        return messages.size() >= wanted ? messages[wanted - 1] : QJsonObject();
    }

    // Sends a netlist request for `region` and checks that it is the next
    // message at the peer: whatever ran before it sent nothing.
    void expectNothingSentBefore(const QString& region)
    {
        command("mgcconnect_netlist_command",
                "mgcconnect_netlist_command(\"\", \"" + region + "\", \"\", \"\");");
        EXPECT_EQ(nextMessage().value("properties").toObject().value("NETLIST_RFREGION"), region);
    }

    QString writeFile(const QString& name, const QByteArray& content)
    {
        QFile file(host.path(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        return file.fileName();
    }

    HostSession host;
    int port = 0;
    std::unique_ptr<PeerProcess> peer;
};

TEST_F(ScriptCommands, RegionRequestsReachThePeerAsUserDefinedMessagesWithOneProperty)
{
    struct Row
    {
        QString name;
        QString arguments;
        QJsonValue result;
        QString property;
        QString region;
    };
    const std::vector<Row> rows = {
        {"mgcconnect_netlist_command", R"("lna_top", "lna", "c", "d")", 1, "NETLIST_RFREGION",
         "lna"},
        {"mgcconnect_netlist_command", R"("", "", "", "")", 1, "NETLIST_RFREGION", ""},
        // Only the third argument reaches the peer.
        {"mgcconnect_push_command", R"("lna_top", "lna", "pa")", 1, "HIGLIGHT_RFREGION", "pa"},
        {"mgcconnect_send_push_into_message", R"("lna_top", "lna", "coupler")", QJsonValue(),
         "HIGLIGHT_RFREGION", "coupler"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE((row.name + "(" + row.arguments + ")").toStdString());
        const QJsonObject record = command(row.name, row.name + "(" + row.arguments + ");");
        EXPECT_EQ(record.value("result"), row.result);
        const QJsonObject message = nextMessage();
        EXPECT_EQ(message.value("kind").toInt(), 224);
        EXPECT_EQ(message.value("kind_name").toString(), "eDoc_UserDefined");
        EXPECT_EQ(message.value("properties").toObject(),
                  (QJsonObject{{row.property, row.region}}));
        EXPECT_EQ(message.value("text").toString(), "");
    }
}

TEST_F(ScriptCommands, DesignAndLayoutGoAsOneIffMessageSchematicFirst)
{
    const QString schematic = writeFile("amp.sch.iff", "IFF 2.1\nCELL amp_top\nEND\n");
    const QString layout = writeFile("amp.lay.iff", "IFF 2.1\nLAYOUT amp_top\nEND");
    // Each line gains a line feed, and a file ending in one gains another.
    const QString both = "IFF 2.1\nCELL amp_top\nEND\n\nIFF 2.1\nLAYOUT amp_top\nEND\n";
    struct Row
    {
        QString name;
        QString files;
        QString text;
        int unreleased;
    };
    const std::vector<Row> rows = {
        {"mgcconnect_designsend_command", "\"" + schematic + "\", \"" + layout + "\"", both, 0},
        {"mgcconnect_designsend_command", "\"" + schematic + "\", \"none\"",
         "IFF 2.1\nCELL amp_top\nEND\n\n", 0},
        // The layout first on the command line, still the schematic first in
        // the message; the second argument's value is deliberately kept.
        {"mgcconnect_layoutsend_command", "\"" + layout + "\", \"" + schematic + "\"", both, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE((row.name + " " + row.files).toStdString());
        const QJsonObject record = command(
            row.name, row.name + "(" + row.files + R"(, "amp_top", "lna", "C:\\designs\\amp");)");
        EXPECT_EQ(record.value("result").toInt(), 1);
        EXPECT_EQ(record.value("unreleased").toInt(), row.unreleased);
        const QJsonObject message = nextMessage();
        EXPECT_EQ(message.value("kind").toInt(), 222);
        EXPECT_EQ(message.value("kind_name").toString(), "eDoc_LibIFF");
        EXPECT_EQ(message.value("text").toString(), row.text);
        EXPECT_EQ(message.value("properties").toObject(),
                  (QJsonObject{{"RFDESIGN", "amp_top"},
                               {"RFREGION", "lna"},
                               {"RFDESIGNPATH", "C:\\designs\\amp"}}));
        const QByteArray line = peer->messageLines().back();
        EXPECT_LT(line.indexOf("\"RFDESIGN\""), line.indexOf("\"RFREGION\""));
        EXPECT_LT(line.indexOf("\"RFREGION\""), line.indexOf("\"RFDESIGNPATH\""));
    }
}

TEST_F(ScriptCommands, LayoutSendWithAMissingFileSendsNothingAndOnlyTheSchematicIsShown)
{
    const QString schematic = writeFile("amp.sch.iff", "IFF 2.1\n");
    const QString layout = writeFile("amp.lay.iff", "IFF 2.1\n");
    const QString missing = host.path("missing.iff");

    command("mgcconnect_layoutsend_command", "mgcconnect_layoutsend_command(\"" + layout +
                                                 "\", \"" + missing + "\", \"a\", \"b\", \"c\");");
    EXPECT_EQ(host.waitFor(RecordMatch::info("Tessel Error: ")).at(0).value("text").toString(),
              "Tessel Error: Unable to open schematic IFF file to send to Mentor: " + missing);
    command("mgcconnect_layoutsend_command", "mgcconnect_layoutsend_command(\"" + missing +
                                                 "\", \"" + schematic +
                                                 "\", \"a\", \"b\", \"c\");");
    expectNothingSentBefore("after the layout sends");

    EXPECT_EQ(host.records(RecordMatch::info("Tessel Error: ")).size(), 1u);
    EXPECT_TRUE(host.waitForError("Unable to open IFF file " + missing + "\n", 2));
    EXPECT_EQ(host.errors().count("Unable to open IFF file " + missing + "\n"), 2);
}

TEST_F(ScriptCommands, InstanceAndUpdateCommandsAnswerOneAndSendNothing)
{
    EXPECT_EQ(command("mgcconnect_instance_command", "mgcconnect_instance_command();")
                  .value("result")
                  .toInt(),
              1);
    EXPECT_EQ(command("mgcconnect_update_command", "mgcconnect_update_command();")
                  .value("result")
                  .toInt(),
              1);
    expectNothingSentBefore("after instance and update");
}

TEST_F(ScriptCommands, TimestampIsTheCurrentTimeInSeconds)
{
    const qint64 before = QDateTime::currentSecsSinceEpoch();
    const QJsonObject record =
        command("mgcconnect_get_current_timestamp", "t=mgcconnect_get_current_timestamp();");
    const qint64 after = QDateTime::currentSecsSinceEpoch();
    // Only the low 32 bits reach the script; until 2038 that is the whole time.
    const qint64 stamp = record.value("result").toVariant().toLongLong();
    EXPECT_GE(stamp, static_cast<qint32>(before));
    EXPECT_LE(stamp, static_cast<qint32>(after));
}

TEST_F(ScriptCommands, IffProjectListReachesTheIffOptionsFile)
{
    EXPECT_EQ(command("mgcconnect_set_IFF_project_list",
                      "mgcconnect_set_IFF_project_list(\"rf_frontend;pa_lib\");")
                  .value("result")
                  .toInt(),
              1);
    const QString options = host.path("iff_options.txt");
    EXPECT_EQ(command("mgcconnect_write_IFF_options_file",
                      "mgcconnect_write_IFF_options_file(\"" + options + "\");")
                  .value("result")
                  .toInt(),
              1);
    const QStringList lines = QString::fromUtf8(E2E::readFile(options)).split('\n');
    EXPECT_EQ(lines.size(), 28); // 27 options, and after the last line feed nothing
    EXPECT_TRUE(lines.contains("ExportProjects = rf_frontend;pa_lib;"))
        << lines.join('|').toStdString();
    EXPECT_TRUE(lines.contains("ImportShallowArcTolerance = 1.0"));

    EXPECT_EQ(
        command("mgcconnect_write_IFF_options_file",
                "mgcconnect_write_IFF_options_file(\"" + host.path("no/such/dir/o.txt") + "\");")
            .value("result")
            .toInt(),
        0);
}

} // namespace
