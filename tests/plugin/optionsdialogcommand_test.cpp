// The settings dialog reached through its script command.

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <gtest/gtest.h>

#include "options/optionnames.h"
#include "plugintesthost.h"
#include "server/xserverlumo.h"
#include "ui/kivasettingsdialog.h"

namespace {

constexpr int OpenOptionsDialogRow = 15;

TEST(OptionsDialogCommand, RunsModallyOnTheServersOptionsAndGivesTheScriptNoValue)
{
    int argc = 1;
    char name[] = "optionsdialogcommand_test";
    char* argv[] = {name, nullptr};
    QApplication application(argc, argv);
    PluginTestHost& test = PluginTestHost::instance();
    test.reset();
    test.host.setLibraries({"rflib", "Local_Components_lib"});

    QTemporaryDir dir;
    const QString file = QDir(dir.path()).filePath("Tessel.opt");
    Tessel::TesselOptions& options = test.server().GetOptions();
    options.set_option_file_name(file.toStdString());
    options.set_options_to_default();

    const BRIOCommandRow& row = test.brio.registeredBlock()->commands[OpenOptionsDialogRow];
    ASSERT_STREQ(row.name, "mgcconnect_open_options_dialog");

    // Once the dialog runs, type an exclusion (edits the live options) and close it with Escape's
    // reject().
    bool sawDialog = false;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto* dialog = qobject_cast<KivaSettingsDialog*>(QApplication::activeModalWidget());
        if (!dialog)
            return;
        sawDialog = true;
        EXPECT_TRUE(dialog->isModal());
        EXPECT_EQ(dialog->parentWidget(), nullptr);
        dialog->update_exclude_library("rflib");
        dialog->reject();
    });
    poll.start(10);
    QTimer::singleShot(10000, [] {
        if (QWidget* stuck = QApplication::activeModalWidget())
            stuck->close();
    });

    BRIOValueHandle result = row.function();
    poll.stop();

    EXPECT_TRUE(sawDialog);
    EXPECT_EQ(result, nullptr);
    EXPECT_TRUE(QFile::exists(file)) << "opening the dialog saves the options";
    EXPECT_EQ(options.general().get_option_value(Tessel::OptionName::ExcludeLibrary), "rflib")
        << "the dialog edited the server's own options";
    EXPECT_EQ(QApplication::topLevelWidgets().size(), 0) << "the dialog was destroyed";
}

} // namespace
