#include "interruption.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

std::array<int, 2> g_pipe = {-1, -1}; // a signal handler reaches nothing but globals

int openPipe()
{
    if (::pipe2(g_pipe.data(), O_NONBLOCK | O_CLOEXEC) != 0)
        g_pipe = {-1, -1};
    return g_pipe[0];
}

void tellEventLoop(int /*signal*/)
{
    const int interruptedError = errno;
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = ::write(g_pipe[1], &byte, 1);
    errno = interruptedError;
}

} // namespace

Interruption::Interruption(QObject *pParent)
    : QObject(pParent)
    , m_notifier(openPipe(), QSocketNotifier::Read)
{
    if (g_pipe[0] < 0) // no descriptor left: Ctrl-C ends the process at once, as it always does
        return;
    connect(&m_notifier, &QSocketNotifier::activated, this, &Interruption::interrupted);
    std::signal(SIGINT, tellEventLoop);
    std::signal(SIGTERM, tellEventLoop);
}

Interruption::~Interruption()
{
    if (g_pipe[0] < 0)
        return;
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    m_notifier.setEnabled(false);
    ::close(g_pipe[0]);
    ::close(g_pipe[1]);
}
