#include "core/unix_signals.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace pulsebar {

namespace {
int signalPipe[2] = {-1, -1};

// Only async-signal-safe work here: one byte into the pipe wakes the event loop.
void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = ::write(signalPipe[1], &byte, 1);
}
} // namespace

void quitOnTerminationSignals()
{
    if (signalPipe[0] >= 0 || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0)
        return;
    auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [] {
        char byte;
        [[maybe_unused]] const ssize_t n = ::read(signalPipe[0], &byte, 1);
        QCoreApplication::quit();
    });
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int sig : {SIGTERM, SIGINT, SIGHUP})
        ::sigaction(sig, &action, nullptr);
}

} // namespace pulsebar
