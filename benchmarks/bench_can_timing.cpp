#include "canbus/abstractcaninterface.h"
#include "canbus/canbuschannel.h"
#include "canbus/canprotocol_vy.h"
#include "canbus/vystream.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QLoggingCategory>

#include <algorithm>
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/resource.h>
#include <vector>

namespace {

constexpr int s_cpu = 0x4A8;
constexpr int s_board = 0x419;
constexpr int s_timeoutMs = 20;
constexpr double s_nsPerMs = 1e6;

/// Ends a loop when an answer is written.
class Ending : public AbstractCanInterface
{
public:
    explicit Ending(QEventLoop *pLoop)
        : AbstractCanInterface(nullptr, false)
        , m_pLoop(pLoop)
    {
    }

    bool openInterface(const QString & /*name*/) override { return true; }
    bool closeInterface() override { return true; }
    bool isOpen() const override { return true; }
    using AbstractCanInterface::writeToCan;
    bool writeToCan(const CanFrame & /*frame*/) override
    {
        m_pLoop->quit();
        return true;
    }

private:
    QEventLoop *m_pLoop;
};

void report(benchmark::State &state, std::vector<double> &latenessMs)
{
    if (latenessMs.empty())
        return;
    std::sort(latenessMs.begin(), latenessMs.end());
    state.counters["earliest_ms"] = latenessMs.front();
    state.counters["p50_ms"] = latenessMs[latenessMs.size() / 2];
    state.counters["p99_ms"] = latenessMs[latenessMs.size() * 99 / 100];
}

/// From the beginning of the waiting to CanBusChannel::timeout(), less the time-out.
void answerTimeout(benchmark::State &state)
{
    CanBusChannel channel(s_board);
    channel.setTimeoutValue(s_timeoutMs);
    QEventLoop loop;
    QObject::connect(&channel, &CanBusChannel::timeout, &loop, &QEventLoop::quit);
    std::vector<double> latenessMs;
    latenessMs.reserve(static_cast<std::size_t>(state.max_iterations));
    for ([[maybe_unused]] auto iteration : state) {
        QElapsedTimer waited;
        waited.start();
        channel.setIsWaitingForAnswer(true);
        loop.exec();
        latenessMs.push_back(static_cast<double>(waited.nsecsElapsed()) / s_nsPerMs - s_timeoutMs);
        channel.setIsWaitingForAnswer(false);
    }
    report(state, latenessMs);
}
BENCHMARK(answerTimeout)->Iterations(300)->UseRealTime();

/// From the second frame of a message of three to the refusal, less the time-out.
void receptionTimeout(benchmark::State &state)
{
    CanBusChannel::setGlobalTimeoutValue(s_timeoutMs);
    QEventLoop loop;
    Ending interface(&loop);
    CanProtocol_Vy protocol(nullptr);
    protocol.setOwnAddress(s_cpu);
    protocol.setCanInterface(&interface);
    CanBytes stream;
    QList<CanFrame> frames;
    CanVy::writeStream(CanMessage(s_cpu, 0x2A, QByteArray(15, 'x')), stream);
    CanVy::writeFrames(stream, s_board, s_cpu, frames);
    std::vector<double> latenessMs;
    latenessMs.reserve(static_cast<std::size_t>(state.max_iterations));
    for ([[maybe_unused]] auto iteration : state) {
        interface.onFrameReceived(frames.at(0));
        QTimer::singleShot(s_timeoutMs / 2, Qt::PreciseTimer, &loop, &QEventLoop::quit);
        loop.exec();
        if (protocol.incomingMessageCount() == 0)
            continue; // the machine was so busy that the message ran into its time-out before
        QElapsedTimer waited;
        waited.start();
        interface.onFrameReceived(frames.at(1));
        loop.exec();
        latenessMs.push_back(static_cast<double>(waited.nsecsElapsed()) / s_nsPerMs - s_timeoutMs);
    }
    report(state, latenessMs);
}
BENCHMARK(receptionTimeout)->Iterations(300)->UseRealTime();

/// What a thousand open channels hold, and how often they wake the process in two seconds.
void idleChannels(benchmark::State &state)
{
    constexpr int s_channels = 1000;
    constexpr int s_seconds = 2;
    for ([[maybe_unused]] auto iteration : state) {
        const auto before = mallinfo2().uordblks;
        for (int id = 0; id < s_channels; ++id)
            CanBusChannel::channel(id);
        state.counters["bytes_each"] =
            static_cast<double>(mallinfo2().uordblks - before) / s_channels;
        QEventLoop loop;
        QTimer::singleShot(s_seconds * 1000, Qt::PreciseTimer, &loop, &QEventLoop::quit);
        rusage usage = {};
        ::getrusage(RUSAGE_SELF, &usage);
        const long switches = usage.ru_nvcsw;
        loop.exec();
        ::getrusage(RUSAGE_SELF, &usage);
        // One belongs to the timer that ends the measurement.
        state.counters["wakeups"] = static_cast<double>(usage.ru_nvcsw - switches - 1);
        CanBusChannel::deleteChannels();
    }
}
BENCHMARK(idleChannels)->Iterations(1)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("vy.*=false"));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
