#include "allocations.h"
#include "canbus/caninterface_multiport.h"
#include "canbus/canmessage.h"
#include "canbus/canprotocol_vy.h"
#include "canbus/canrecord.h"
#include "canbus/vystream.h"

#include <QCoreApplication>
#include <QLoggingCategory>

namespace {

constexpr int s_cpu = 0x4A8;
constexpr int s_board = 0x419;
constexpr int s_command = 0x2A;
constexpr int s_messages = 64; ///< in a chunk

/// The records of messages to the CPU board.
QByteArray chunk(int payload, int &records)
{
    CanBytes data;
    for (int i = 0; i < payload; ++i)
        data.append(0x5A);
    CanBytes bytes;
    QList<CanFrame> frames;
    CanVy::writeStream(CanMessage(s_cpu, s_command, data), bytes);
    CanVy::writeFrames(bytes, s_board, s_cpu, frames);
    QByteArray stream;
    for (int i = 0; i < s_messages; ++i) {
        for (const CanFrame &frame : qAsConst(frames))
            stream += CanRecord::encode(frame);
    }
    records = s_messages * frames.size();
    return stream;
}

/// As it comes from the link; nobody is behind it.
class Input : public CanInterface_Multiport
{
public:
    Input()
        : CanInterface_Multiport(nullptr)
    {
    }
    using CanInterface_Multiport::writeToCan;
    bool writeToCan(const CanFrame & /*frame*/) override { return true; }
};

void reportRecords(benchmark::State &state, int records)
{
    state.counters["records"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * records, benchmark::Counter::kIsRate);
    state.counters["in_chunk"] = records;
}

/// "allocs" is for a chunk.
void bytesToFrames(benchmark::State &state)
{
    int records = 0;
    int frames = 0;
    const QByteArray stream = chunk(static_cast<int>(state.range(0)), records);
    Input input;
    QObject::connect(&input, &AbstractCanInterface::frameReceived, &input, [&frames] { ++frames; });
    input.readFromCan(stream);
    {
        const AllocationCounter counter(state);
        for ([[maybe_unused]] auto iteration : state)
            input.readFromCan(stream);
    }
    if (frames % records != 0 || frames == 0)
        state.SkipWithError("frames were lost");
    reportRecords(state, records);
}
BENCHMARK(bytesToFrames)->Arg(2)->Arg(60)->Arg(500);

void bytesToMessages(benchmark::State &state)
{
    int records = 0;
    int messages = 0;
    const QByteArray stream = chunk(static_cast<int>(state.range(0)), records);
    Input input;
    CanProtocol_Vy protocol(nullptr);
    protocol.setOwnAddress(s_cpu);
    protocol.setCanInterface(&input);
    QObject::connect(&protocol, &AbstractCanProtocol::messageReceived, &protocol,
                     [&messages] { ++messages; });
    input.readFromCan(stream);
    {
        const AllocationCounter counter(state);
        for ([[maybe_unused]] auto iteration : state)
            input.readFromCan(stream);
    }
    if (messages % s_messages != 0 || messages == 0)
        state.SkipWithError("messages were lost");
    reportRecords(state, records);
}
BENCHMARK(bytesToMessages)->Arg(2)->Arg(60)->Arg(500);

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("vy.*=false"));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
