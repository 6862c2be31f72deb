#include "signalnotifier.h"

#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int* pipeEnds()
{
    static int ends[2] = {-1, -1};
    return ends;
}

} // namespace

SignalNotifier::SignalNotifier(std::function<void(int)> onSignal, QObject* parent)
    : QObject(parent), m_onSignal(std::move(onSignal))
{
    int* ends = pipeEnds();
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return;
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    ::fcntl(ends[1], F_SETFL, O_NONBLOCK);
    m_notifier = new QSocketNotifier(ends[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &SignalNotifier::readSignal);

    struct sigaction action = {};
    action.sa_handler = &SignalNotifier::handle;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

SignalNotifier::~SignalNotifier()
{
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

void SignalNotifier::handle(int signal)
{
    const char number = static_cast<char>(signal);
    // Only async-signal-safe calls here; a full pipe loses nothing that matters.
    [[maybe_unused]] ssize_t written = ::write(pipeEnds()[0], &number, 1);
}

void SignalNotifier::readSignal()
{
    char number = 0;
    while (::read(pipeEnds()[1], &number, 1) == 1)
        m_onSignal(number);
}
