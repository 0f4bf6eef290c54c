// What a log statement costs while its level is off, and while it is on with a message handler that
// does nothing.

#include "allocations.h"
#include "logformatter.h"

namespace {

void ignoreMessage(QtMsgType /*type*/, const QMessageLogContext & /*context*/,
                   const QString & /*text*/)
{
}

void levelOff(benchmark::State &state)
{
    QLoggingCategory::setFilterRules(QStringLiteral("vy.canbus.debug=false"));
    int command = 42;
    const AllocationCounter counter(state);
    for ([[maybe_unused]] auto iteration : state) {
        benchmark::DoNotOptimize(command);
        LogFormatter(0, Log::CanBus) << Q_FUNC_INFO << "Invalid command" << command;
    }
}
BENCHMARK(levelOff);

void levelOn(benchmark::State &state)
{
    QLoggingCategory::setFilterRules(QString());
    const QtMessageHandler pOld = qInstallMessageHandler(ignoreMessage);
    int command = 42;
    const AllocationCounter counter(state);
    for ([[maybe_unused]] auto iteration : state) {
        benchmark::DoNotOptimize(command);
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << "Invalid command" << command;
    }
    qInstallMessageHandler(pOld);
}
BENCHMARK(levelOn);

/// The loop itself, to be taken off the above.
void emptyLoop(benchmark::State &state)
{
    int command = 42;
    for ([[maybe_unused]] auto iteration : state)
        benchmark::DoNotOptimize(command);
}
BENCHMARK(emptyLoop);

} // namespace
