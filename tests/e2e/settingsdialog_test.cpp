// The settings dialog is modal, yet messages that arrive while it is open are
// handled while it stays open: their host statements are performed inside the
// dialog's own event loop. The dialog is shown and its buttons pressed by a
// small driver loaded into the host (dialogdriver.cpp).

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QProcessEnvironment>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "hostsession.h"
#include "messagefiles.h"
#include "peerprocess.h"

namespace {

class SettingsDialog : public ::testing::Test
{
protected:
    static HostSetup driven(const QString& fifo)
    {
        HostSetup setup;
        setup.environment.insert("LD_PRELOAD", QStringLiteral(DIALOG_DRIVER_PATH));
        setup.environment.insert("E2E_DIALOG_FIFO", fifo);
        return setup;
    }

    void SetUp() override
    {
        ASSERT_EQ(::mkfifo(fifo.toLocal8Bit().constData(), 0600), 0);
        host = std::make_unique<HostSession>(driven(fifo));
    }

    void press(const QByteArray& button)
    {
        const int out = ::open(fifo.toLocal8Bit().constData(), O_WRONLY | O_NONBLOCK);
        ASSERT_GE(out, 0) << "the driver does not hold the FIFO open";
        const QByteArray line = button + "\n";
        EXPECT_EQ(::write(out, line.constData(), static_cast<std::size_t>(line.size())),
                  line.size());
        ::close(out);
    }

    QTemporaryDir dir;
    QString fifo = dir.filePath("dialog");
    std::unique_ptr<HostSession> host;
};

TEST_F(SettingsDialog, MessagesArrivingWhileItIsOpenAreHandledBeforeItCloses)
{
    const int port = host->startBridge();
    ASSERT_GT(port, 0);
    host->run("mgcconnect_open_options_dialog();");
    ASSERT_TRUE(host->waitForError("dialog driver: shown Tessel Settings"))
        << host->errors().toStdString();

    MessageFiles files;
    ASSERT_EQ(
        PeerProcess::send(port, "DXD", {files.example("netlist.json"), files.example("iff.json")}),
        0);
    const std::vector<QJsonObject> imports =
        host->waitFor(RecordMatch::call("mgclink_import_iff_file"));
    ASSERT_EQ(imports.size(), 1u);
    EXPECT_TRUE(imports[0].value("ok").toBool());
    ASSERT_EQ(host->records(RecordMatch::call("mgclink_create_design")).size(), 1u);
    EXPECT_TRUE(host->records(RecordMatch::call("mgclink_create_design"))[0].value("ok").toBool());
    // Still open: the command has not returned.
    EXPECT_TRUE(host->records(RecordMatch::command("mgcconnect_open_options_dialog")).empty());

    press("cancel");
    const std::vector<QJsonObject> closed =
        host->waitFor(RecordMatch::command("mgcconnect_open_options_dialog"));
    ASSERT_EQ(closed.size(), 1u);
    EXPECT_TRUE(closed[0].value("result").isNull());
    EXPECT_LT(host->indexOf(RecordMatch::call("mgclink_import_iff_file")),
              host->indexOf(RecordMatch::command("mgcconnect_open_options_dialog")));
    for (const QJsonObject& eval : host->records(RecordMatch::eval("mgclink_"))) {
        if (!eval.value("text").toString().startsWith("mgclink_show_connected_servers")) {
            EXPECT_EQ(eval.value("via").toString(), "idle");
        }
    }

    // The host goes on as before.
    host->run("mgcconnect_is_connected_to_schematic();");
    EXPECT_EQ(host->waitFor(RecordMatch::command("mgcconnect_is_connected_to_schematic")).size(),
              1u);
    EXPECT_EQ(host->finish(), 0) << host->errors().toStdString();
}

} // namespace
