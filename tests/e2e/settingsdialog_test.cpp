// The settings dialog as the host's --dialogs answers it: each way out keeps,
// saves or restores the edits in memory and in ./Tessel.opt as a person's
// would. (A dialog nobody answers is in receipt_test.cpp.)

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QRegularExpression>

#include "e2e.h"

namespace {

// The value of the option `name` in ./Tessel.opt, its attributes in any order.
QString optionInFile(E2E::BridgedHost& host, const QString& name)
{
    const QString element = QRegularExpression("<Option[^>]* name=\"" + name + "\"[^>]*>")
                                .match(readFile(host.path("Tessel.opt")))
                                .captured();
    return QRegularExpression(" value=\"([^\"]*)\"").match(element).captured(1);
}

// What the plug-in holds in memory, as the IFF options file shows it.
QString overwriteInMemory(E2E::BridgedHost& host)
{
    const QString path = host.path("iff_options.txt");
    host.command("mgcconnect_write_IFF_options_file(\"" + path + "\");");
    return QRegularExpression("ImportOverwriteExistingDesign = (\\w+)")
        .match(readFile(path))
        .captured(1);
}

TEST(SettingsDialog, EachWayOutKeepsSavesOrRestoresTheEditsAsAPersonsWould)
{
    struct Row
    {
        const char* answer;
        QStringList edits;
        // OverwriteDesigns and TargetLib in the file, ImportOverwriteExistingDesign in
        // memory, then after the next load; the edits that could not be applied.
        QString outcome;
    };
    const std::vector<Row> rows = {
        {"ok",
         {"checkBoxOverwriteDesigns=true", "comboBoxTargetLibrary=rflib"},
         "true rflib TRUE TRUE 0"},
        {"cancel",
         {"checkBoxOverwriteDesigns=true", "lineEditExcludeLibrary=alib"},
         "false alib FALSE FALSE 0"},
        {"close", {"checkBoxOverwriteDesigns=true"}, "false alib TRUE FALSE 0"},
        // The dialog is answered all the same.
        {"cancel",
         {"noSuchControl=1", "checkBoxOverwriteDesigns=yes", "comboBoxTargetLibrary=closed_lib"},
         "false alib FALSE FALSE 3"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.answer + (" " + row.edits.join(' ')).toStdString());
        QStringList arguments{"--library", "alib", "--dialogs", row.answer};
        for (const QString& edit : row.edits)
            arguments << "--dialog-edit" << edit;
        E2E::BridgedHost host(arguments);
        EXPECT_TRUE(host.command("mgcconnect_open_options_dialog();")["result"].isNull());
        const std::vector<QJsonObject> dialog = host.seen().records("dialog");
        ASSERT_EQ(dialog.size(), 2u);
        // Filled from the host's open libraries but the excluded one.
        EXPECT_EQ(dialog[0]["controls"].toObject(),
                  QJsonObject(
                      {{"comboBoxTargetLibrary",
                        QJsonObject{{"entries", QJsonArray{"alib", "rflib"}}, {"current", "alib"}}},
                       {"lineEditExcludeLibrary", "Local_Components_lib"},
                       {"checkBoxOverwriteDesigns", false}}));
        EXPECT_EQ(dialog[1]["answer"], row.answer);
        EXPECT_EQ(optionInFile(host, "ExcludeLibrary"), "Local_Components_lib");
        QStringList outcome{optionInFile(host, "OverwriteDesigns"), optionInFile(host, "TargetLib"),
                            overwriteInMemory(host)};
        host.command("mgcconnect_disconnect();");
        host.command("mgcconnect_initialize(0, 0);");
        outcome << overwriteInMemory(host)
                << QString::number(host.seen().records("dialog_error").size());
        EXPECT_EQ(outcome.join(' '), row.outcome);
        EXPECT_EQ(host.finish().exitCode, row.outcome.endsWith(" 0") ? 0 : 1);
    }
}

} // namespace
