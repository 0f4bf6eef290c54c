#include "multiportd/stopsignal.h"

#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

sigset_t stopSignals()
{
    sigset_t signals = {};
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGTERM);
    ::sigaddset(&signals, SIGINT);
    return signals;
}

int openDescriptor()
{
    const sigset_t signals = stopSignals();
    ::sigprocmask(SIG_BLOCK, &signals, nullptr);
    return ::signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
}

} // namespace

StopSignal::StopSignal(QObject *pParent)
    : QObject(pParent)
    , m_descriptor(openDescriptor())
    , m_notifier(m_descriptor, QSocketNotifier::Read)
{
    connect(&m_notifier, &QSocketNotifier::activated, this, &StopSignal::read);
}

StopSignal::~StopSignal()
{
    m_notifier.setEnabled(false);
    ::close(m_descriptor);
    const sigset_t signals = stopSignals();
    ::sigprocmask(SIG_UNBLOCK, &signals, nullptr);
}

void StopSignal::read()
{
    signalfd_siginfo info = {};
    if (::read(m_descriptor, &info, sizeof info) == sizeof info)
        Q_EMIT raised(static_cast<int>(info.ssi_signo));
}
