// Test-only, loaded into lumo-host with LD_PRELOAD: plays the user of the
// host's modal dialogs. It says on standard error when a modal dialog is shown
// ("dialog driver: shown TITLE"), and presses the dialog's Ok or Cancel button
// when the line "ok" or "cancel" is written to the FIFO named by
// E2E_DIALOG_FIFO. Everything runs in the host's own event loops, the
// dialog's included, so it sees the dialog exactly as the plug-in runs it.

#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QEvent>
#include <QPushButton>
#include <QSocketNotifier>

#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

void say(const std::string& text)
{
    const std::string line = "dialog driver: " + text + "\n";
    const ssize_t written = ::write(2, line.data(), line.size());
    static_cast<void>(written);
}

class DialogDriver : public QObject
{
public:
    DialogDriver(int fifo, QObject* parent) : QObject(parent), m_fifo(fifo)
    {
        auto* notifier = new QSocketNotifier(fifo, QSocketNotifier::Read, this);
        connect(notifier, &QSocketNotifier::activated, this, [this] { readCommands(); });
        qApp->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Show) {
            auto* dialog = qobject_cast<QDialog*>(watched);
            if (dialog && dialog->isModal())
                say("shown " + dialog->windowTitle().toStdString());
        }
        return false;
    }

private:
    void readCommands()
    {
        char buffer[256];
        const ssize_t count = ::read(m_fifo, buffer, sizeof buffer);
        if (count <= 0)
            return;
        m_pending.append(buffer, static_cast<std::size_t>(count));
        std::size_t end = 0;
        while ((end = m_pending.find('\n')) != std::string::npos) {
            const std::string command = m_pending.substr(0, end);
            m_pending.erase(0, end + 1);
            press(command);
        }
    }

    void press(const std::string& command)
    {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        auto* buttons = dialog ? dialog->findChild<QDialogButtonBox*>() : nullptr;
        const QDialogButtonBox::StandardButton which =
            command == "ok" ? QDialogButtonBox::Ok : QDialogButtonBox::Cancel;
        QPushButton* button = buttons ? buttons->button(which) : nullptr;
        if (!button || (command != "ok" && command != "cancel")) {
            say("cannot press " + command + (dialog ? "" : ": no modal dialog is open"));
            return;
        }
        say("pressed " + command);
        button->click();
    }

    int m_fifo;
    std::string m_pending;
};

void startDriver()
{
    const QByteArray path = qgetenv("E2E_DIALOG_FIFO");
    if (path.isEmpty())
        return;
    // Read and write, so that the FIFO never reads as ended while no test
    // has it open.
    const int fifo = ::open(path.constData(), O_RDWR | O_NONBLOCK);
    if (fifo < 0) {
        say("cannot open " + path.toStdString());
        return;
    }
    new DialogDriver(fifo, qApp);
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(startDriver)
