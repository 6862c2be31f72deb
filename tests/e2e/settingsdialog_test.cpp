// The settings dialog as the host's --dialogs answers it: each way out keeps,
// saves or restores the edits in memory and in ./Tessel.opt as a person's
// would; and a dialog left open still lets messages be handled.

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QXmlStreamReader>

#include <map>

#include "e2e.h"
#include "peerprocess.h"

namespace {

const RecordMatch OpenCommand{"command", "name", "mgcconnect_open_options_dialog"};

// The general and IFF options of an options file, by name.
std::map<QString, QString> optionsInFile(const QString& path)
{
    std::map<QString, QString> values;
    QXmlStreamReader reader(E2E::readFile(path));
    while (reader.readNextStartElement() || !reader.atEnd())
        if (reader.isStartElement() && reader.name() == QLatin1String("Option"))
            values[reader.attributes().value("name").toString()] =
                reader.attributes().value("value").toString();
    return values;
}

// What the plug-in holds in memory, as the IFF options file shows it.
QString overwriteInMemory(HostProcess& host)
{
    const QString path = host.path("iff_options.txt");
    E2E::command(host, "mgcconnect_write_IFF_options_file(\"" + path + "\");");
    const QByteArray content = E2E::readFile(path);
    const int at = content.indexOf("ImportOverwriteExistingDesign = ");
    return at < 0 ? QString() : QString(content.mid(at).split('\n').front().split(' ').back());
}

// Width and height from a PNG's header; {0, 0} when it is none.
std::pair<int, int> pngSize(const QByteArray& png)
{
    if (!png.startsWith("\x89PNG\r\n\x1a\n") || png.size() < 24)
        return {0, 0};
    const auto word = [&png](int at) {
        return (static_cast<uchar>(png[at]) << 24) | (static_cast<uchar>(png[at + 1]) << 16) |
               (static_cast<uchar>(png[at + 2]) << 8) | static_cast<uchar>(png[at + 3]);
    };
    return {word(16), word(20)};
}

TEST(SettingsDialog, EachWayOutKeepsSavesOrRestoresTheEditsAsAPersonsWould)
{
    struct Row
    {
        const char* answer;
        QStringList edits;
        // The closed dialog's controls after the edits.
        QJsonObject closedControls;
        // OverwriteDesigns and TargetLib in the file, ImportOverwriteExistingDesign in memory,
        // then after the next load.
        QString fileOverwrite;
        QString fileTarget;
        QString memory;
        QString reloaded;
        int errors;
    };
    const QJsonArray bothLibraries{"alib", "rflib"};
    const auto controls = [](const QJsonArray& entries, const char* current, const char* excluded,
                             bool overwrite) {
        return QJsonObject{
            {"comboBoxTargetLibrary", QJsonObject{{"entries", entries}, {"current", current}}},
            {"lineEditExcludeLibrary", excluded},
            {"checkBoxOverwriteDesigns", overwrite}};
    };
    const QJsonObject atOpening = controls(bothLibraries, "alib", "Local_Components_lib", false);
    const std::vector<Row> rows = {
        {"ok",
         {"checkBoxOverwriteDesigns=true", "comboBoxTargetLibrary=rflib"},
         controls(bothLibraries, "rflib", "Local_Components_lib", true),
         "true",
         "rflib",
         "TRUE",
         "TRUE",
         0},
        {"cancel",
         {"checkBoxOverwriteDesigns=true", "lineEditExcludeLibrary=alib"},
         controls({"Local_Components_lib", "rflib"}, "Local_Components_lib", "alib", true),
         "false",
         "alib",
         "FALSE",
         "FALSE",
         0},
        {"close",
         {"checkBoxOverwriteDesigns=true"},
         controls(bothLibraries, "alib", "Local_Components_lib", true),
         "false",
         "alib",
         "TRUE",
         "FALSE",
         0},
        // Each edit that cannot be applied is an error; the dialog is answered all the same.
        {"cancel",
         {"noSuchControl=1", "checkBoxOverwriteDesigns=yes", "comboBoxTargetLibrary=closed_lib"},
         atOpening,
         "false",
         "alib",
         "FALSE",
         "FALSE",
         3},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.answer + (" " + row.edits.join(' ')).toStdString());
        QStringList arguments{"--library",         "alib",          "--dialogs", row.answer,
                              "--dialog-snapshot", "{dir}/pictures"};
        for (const QString& edit : row.edits)
            arguments << "--dialog-edit" << edit;
        HostProcess host(E2E::hostArguments(arguments));
        ASSERT_GT(E2E::startBridge(host), 0) << host.dump();

        const QJsonObject command = E2E::command(host, "mgcconnect_open_options_dialog();");
        EXPECT_TRUE(command.value("result").isNull()) << host.dump();
        const std::vector<QJsonObject> dialog = host.seen().records("dialog");
        ASSERT_EQ(dialog.size(), 2u) << host.dump();
        EXPECT_EQ(dialog[0].value("when"), "opened");
        EXPECT_TRUE(dialog[0].value("answer").isNull());
        EXPECT_EQ(dialog[0].value("controls").toObject(), atOpening);
        EXPECT_EQ(dialog[1].value("when"), "closed");
        EXPECT_EQ(dialog[1].value("answer"), row.answer);
        EXPECT_EQ(dialog[1].value("controls").toObject(), row.closedControls);
        EXPECT_EQ(host.seen().records("dialog_error").size(), std::size_t(row.errors));
        EXPECT_EQ(pngSize(E2E::readFile(host.path("pictures/dialog-1.png"))),
                  std::make_pair(376, 275));

        std::map<QString, QString> file = optionsInFile(host.path("Tessel.opt"));
        EXPECT_EQ(file["OverwriteDesigns"], row.fileOverwrite);
        EXPECT_EQ(file["TargetLib"], row.fileTarget);
        EXPECT_EQ(file["ExcludeLibrary"], "Local_Components_lib");
        EXPECT_EQ(overwriteInMemory(host), row.memory);

        E2E::command(host, "mgcconnect_disconnect();");
        E2E::command(host, "mgcconnect_initialize(0, 0);");
        EXPECT_EQ(overwriteInMemory(host), row.reloaded);
        EXPECT_EQ(host.finish().exitCode, row.errors ? 1 : 0) << host.seen().err.toStdString();
    }
}

// Nobody answers: the dialog stays open while a peer's design is received and
// imported through idle requests, and a signal still ends the host.
TEST(SettingsDialog, MessagesArrivingWhileItIsOpenAreHandledBeforeItCloses)
{
    HostProcess host(E2E::hostArguments());
    const int port = E2E::startBridge(host);
    ASSERT_GT(port, 0) << host.dump();
    host.write("mgcconnect_open_options_dialog();");
    host.waitFor({"dialog", "when", "opened"});

    ASSERT_EQ(
        PeerProcess::send(port, "DXD", {E2E::example("netlist.json"), E2E::example("iff.json")}),
        0);
    ASSERT_EQ(host.waitFor({"call", "function", "mgclink_import_iff_file"}).size(), 1u);
    const std::vector<QJsonObject> creates =
        host.seen().records({"call", "function", "mgclink_create_design"});
    ASSERT_EQ(creates.size(), 1u);
    EXPECT_TRUE(creates[0].value("ok").toBool());
    for (const QJsonObject& eval : host.seen().records({"eval", "text", "mgclink_"}))
        if (!eval.value("text").toString().startsWith("mgclink_show_connected_servers")) {
            EXPECT_EQ(eval.value("via").toString(), "idle");
        }
    // Still open: the command has not returned.
    EXPECT_TRUE(host.seen().records(OpenCommand).empty());
    EXPECT_EQ(host.seen().records({"dialog", "when", "closed"}).size(), 0u);

    host.process().terminate();
    const HostRun run = host.finish();
    EXPECT_EQ(run.exitCode, 128 + 15) << run.err.toStdString();
    const std::vector<QJsonObject> closed = run.records({"dialog", "when", "closed"});
    ASSERT_EQ(closed.size(), 1u) << host.dump();
    EXPECT_TRUE(closed[0].value("answer").isNull());
}

} // namespace
