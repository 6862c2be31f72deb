// The settings dialog is modal, yet messages that arrive while it is open are
// handled while it stays open: their host statements are performed inside the
// dialog's own event loop. The dialog is shown and its buttons pressed by a
// small driver loaded into the host (dialogdriver.cpp).

#include <gtest/gtest.h>

#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "e2e.h"
#include "peerprocess.h"

namespace {

TEST(SettingsDialog, MessagesArrivingWhileItIsOpenAreHandledBeforeItCloses)
{
    QTemporaryDir dir;
    const QByteArray fifo = dir.filePath("dialog").toLocal8Bit();
    ASSERT_EQ(::mkfifo(fifo.constData(), 0600), 0);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LD_PRELOAD", QStringLiteral(DIALOG_DRIVER_PATH));
    environment.insert("E2E_DIALOG_FIFO", fifo);
    HostProcess host(E2E::hostArguments(), {}, environment);

    const int port = E2E::startBridge(host);
    ASSERT_GT(port, 0);
    host.write("mgcconnect_open_options_dialog();");
    ASSERT_TRUE(host.waitForError("dialog driver: shown Tessel Settings")) << host.dump();

    ASSERT_EQ(
        PeerProcess::send(port, "DXD", {E2E::example("netlist.json"), E2E::example("iff.json")}),
        0);
    ASSERT_EQ(host.waitFor({"call", "function", "mgclink_import_iff_file"}).size(), 1u);
    const std::vector<QJsonObject> creates =
        host.seen().records({"call", "function", "mgclink_create_design"});
    ASSERT_EQ(creates.size(), 1u);
    EXPECT_TRUE(creates[0].value("ok").toBool());
    // Still open: the command has not returned.
    const RecordMatch dialog{"command", "name", "mgcconnect_open_options_dialog"};
    EXPECT_TRUE(host.seen().records(dialog).empty());
    for (const QJsonObject& eval : host.seen().records({"eval", "text", "mgclink_"}))
        if (!eval.value("text").toString().startsWith("mgclink_show_connected_servers")) {
            EXPECT_EQ(eval.value("via").toString(), "idle");
        }

    // The user cancels; the command returns no value and the host goes on.
    const int out = ::open(fifo.constData(), O_WRONLY | O_NONBLOCK);
    ASSERT_GE(out, 0) << "the driver does not hold the FIFO open";
    EXPECT_EQ(::write(out, "cancel\n", 7), 7);
    ::close(out);
    const std::vector<QJsonObject> closed = host.waitFor(dialog);
    ASSERT_EQ(closed.size(), 1u);
    EXPECT_TRUE(closed[0].value("result").isNull());
    EXPECT_EQ(E2E::command(host, "mgcconnect_instance_command();").value("result").toInt(), 1);
    EXPECT_EQ(host.finish().exitCode, 0) << host.seen().err.toStdString();
}

} // namespace
