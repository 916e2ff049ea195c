#include "app/TerminationSignals.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace pindle::app {
namespace {

// SIGHUP too: a session or terminal going away asks for the same clean exit.
constexpr int handledSignals[] = {SIGTERM, SIGINT, SIGHUP};

// [0] is written by the handler, [1] read on the main thread.
int pipeEnds[2] = {-1, -1};

// Async-signal-safe: one byte naming the signal, nothing else.
void onSignal(int signalNumber)
{
    const int savedErrno = errno;
    const char byte = char(signalNumber);
    [[maybe_unused]] const ssize_t written = ::write(pipeEnds[0], &byte, 1);
    errno = savedErrno;
}

} // namespace

TerminationSignals::TerminationSignals(QObject *parent) : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pipeEnds) != 0)
        return;
    m_notifier = new QSocketNotifier(pipeEnds[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &TerminationSignals::readPending);

    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signalNumber : handledSignals)
        ::sigaction(signalNumber, &action, nullptr);
}

TerminationSignals::~TerminationSignals()
{
    if (m_notifier == nullptr)
        return;
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (const int signalNumber : handledSignals)
        ::sigaction(signalNumber, &action, nullptr);
    delete m_notifier;
    ::close(pipeEnds[0]);
    ::close(pipeEnds[1]);
    pipeEnds[0] = pipeEnds[1] = -1;
}

void TerminationSignals::readPending()
{
    char bytes[16];
    ssize_t count;
    while ((count = ::read(pipeEnds[1], bytes, sizeof bytes)) > 0) {
        for (ssize_t i = 0; i < count; ++i)
            Q_EMIT received(int(bytes[i]));
    }
}

} // namespace pindle::app
