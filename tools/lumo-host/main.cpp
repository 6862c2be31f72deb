// lumo-host: the stand-in host. See README.md and --help.

#include <QApplication>
#include <QByteArray>
#include <QDir>
#include <QFileInfo>
#include <QStringList>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "hostoptions.h"
#include "session.h"
#include "terminal.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace {

// A closed standard stream would be taken over by the next file opened (the
// journal, a socket): keep 0, 1 and 2 taken, by /dev/null if need be.
void occupyStandardStreams()
{
    for (int stream = 0; stream <= 2; ++stream) {
        if (::fcntl(stream, F_GETFD) != -1)
            continue;
        const int opened = ::open("/dev/null", stream == 0 ? O_RDONLY : O_WRONLY);
        if (opened >= 0 && opened != stream) {
            ::dup2(opened, stream);
            ::close(opened);
        }
    }
}

// The plug-in beside the host (the build tree), else in the library folder of
// its installation. Empty if neither has one; *error then says where it looked.
std::string defaultPlugin(std::string* error)
{
    const QDir folder(QCoreApplication::applicationDirPath());
    const QStringList candidates = {
        folder.filePath("libkiva51.so"),
        QDir::cleanPath(folder.filePath(KIVA_BIN_TO_LIB "/libkiva51.so"))};
    for (const QString& candidate : candidates) {
        if (QFileInfo::exists(candidate))
            return candidate.toStdString();
    }
    *error = "no plug-in given and none found at " + candidates.join(" or ").toStdString() +
             "; name one with --plugin";
    return {};
}

} // namespace

int main(int argc, char** argv)
{
    occupyStandardStreams();
    HostOptions options;
    std::string error;
    if (!HostOptions::parse(std::vector<std::string>(argv + 1, argv + argc), options, &error)) {
        std::fprintf(stderr, "lumo-host: %s\nTry 'lumo-host --help' for more information.\n",
                     error.c_str());
        return Session::Usage;
    }
    if (options.help) {
        std::fputs(HostOptions::helpText().c_str(), stdout);
        return Session::Done;
    }

    // The plug-in opens a modal dialog: widgets need a platform even without a display.
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Qt sees no arguments of ours: they were parsed above.
    int qtArgc = 1;
    QApplication application(qtArgc, argv);
    // The plug-in's settings dialog is often the only window: closing it must not end the host.
    QApplication::setQuitOnLastWindowClosed(false);
    if (options.plugin.empty()) {
        options.plugin = defaultPlugin(&error);
        if (options.plugin.empty()) {
            Terminal::printMessage(error);
            return Session::PluginUnusable;
        }
    }

    // Never deleted: threads of the plug-in may still reach the host while the process ends.
    auto* session = new Session(options);
    int status = Session::Done;
    if (session->prepare(&status)) {
        QMetaObject::invokeMethod(session, &Session::start, Qt::QueuedConnection);
        status = application.exec();
        session->finish(status);
    }
    // Threads of the plug-in (its messaging library's) may still run: end here
    // rather than tear static objects and Qt down under them.
    std::fflush(nullptr);
#ifdef __SANITIZE_ADDRESS__
    // _Exit skips the leak check that would run at exit.
    __lsan_do_leak_check();
#endif
    std::_Exit(status);
}
