// lumo-host: the stand-in host. See README.md and --help.

#include <QApplication>
#include <QByteArray>

#include <cstdio>
#include <string>
#include <vector>

#include "hostoptions.h"
#include "session.h"

int main(int argc, char** argv)
{
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
    if (options.plugin.empty())
        options.plugin = QCoreApplication::applicationDirPath().toStdString() + "/libkiva51.so";

    // Never deleted: threads of the plug-in may still reach the host while the process ends.
    auto* session = new Session(options);
    int status = Session::Done;
    if (!session->prepare(&status))
        return status;
    QMetaObject::invokeMethod(session, &Session::start, Qt::QueuedConnection);
    status = application.exec();
    session->finish(status);
    return status;
}
