// The settings dialog as the host's --dialogs answers it: each way out keeps,
// saves or restores the edits in memory and in ./Tessel.opt as a person's
// would. (A dialog nobody answers is in receipt_test.cpp.)

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QXmlStreamReader>

#include <map>

#include "e2e.h"

namespace {

// The general and IFF options of an options file, by name.
std::map<QString, QString> optionsInFile(const QString& path)
{
    std::map<QString, QString> values;
    QXmlStreamReader reader(readFile(path));
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
    const QByteArray content = readFile(path);
    const int at = content.indexOf("ImportOverwriteExistingDesign = ");
    return at < 0 ? QString() : QString(content.mid(at).split('\n').front().split(' ').back());
}

QJsonObject controls(const QJsonArray& entries, const char* current, const char* excluded,
                     bool overwrite)
{
    return QJsonObject{
        {"comboBoxTargetLibrary", QJsonObject{{"entries", entries}, {"current", current}}},
        {"lineEditExcludeLibrary", excluded},
        {"checkBoxOverwriteDesigns", overwrite}};
}

TEST(SettingsDialog, EachWayOutKeepsSavesOrRestoresTheEditsAsAPersonsWould)
{
    struct Row
    {
        const char* answer;
        QStringList edits;
        QJsonObject closedControls; // after the edits
        // OverwriteDesigns and TargetLib in the file, ImportOverwriteExistingDesign in
        // memory, then after the next load.
        QString outcome;
        int errors;
    };
    const QJsonArray both{"alib", "rflib"};
    const QJsonObject atOpening = controls(both, "alib", "Local_Components_lib", false);
    const std::vector<Row> rows = {
        {"ok",
         {"checkBoxOverwriteDesigns=true", "comboBoxTargetLibrary=rflib"},
         controls(both, "rflib", "Local_Components_lib", true),
         "true rflib TRUE TRUE",
         0},
        {"cancel",
         {"checkBoxOverwriteDesigns=true", "lineEditExcludeLibrary=alib"},
         controls({"Local_Components_lib", "rflib"}, "Local_Components_lib", "alib", true),
         "false alib FALSE FALSE",
         0},
        {"close",
         {"checkBoxOverwriteDesigns=true"},
         controls(both, "alib", "Local_Components_lib", true),
         "false alib TRUE FALSE",
         0},
        // Each edit that cannot be applied is an error; the dialog is answered all the same.
        {"cancel",
         {"noSuchControl=1", "checkBoxOverwriteDesigns=yes", "comboBoxTargetLibrary=closed_lib"},
         atOpening,
         "false alib FALSE FALSE",
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
        // A PNG of 376 x 275 pixels: its signature, then width and height in its header.
        const QByteArray picture = readFile(host.path("pictures/dialog-1.png"));
        EXPECT_TRUE(picture.startsWith("\x89PNG\r\n\x1a\n"));
        EXPECT_EQ(picture.mid(16, 8).toHex(), "0000017800000113");

        std::map<QString, QString> file = optionsInFile(host.path("Tessel.opt"));
        EXPECT_EQ(file["ExcludeLibrary"], "Local_Components_lib");
        QStringList outcome{file["OverwriteDesigns"], file["TargetLib"], overwriteInMemory(host)};
        E2E::command(host, "mgcconnect_disconnect();");
        E2E::command(host, "mgcconnect_initialize(0, 0);");
        outcome << overwriteInMemory(host);
        EXPECT_EQ(outcome.join(' '), row.outcome);
        EXPECT_EQ(host.finish().exitCode, row.errors ? 1 : 0) << host.seen().err.toStdString();
    }
}

} // namespace
