#include "allocations.h"
#include "canexchange.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace {

using Maker = std::unique_ptr<CanExchange> (*)(std::size_t payload);

const std::map<std::string, Maker> s_makers = {
    {"raw", &makeRawFloor},
    {"fixed", &makeFixedFloor},
    {"stack", &makeStack},
    {"codec", &makeCodec},
};

void exchange(benchmark::State &state, Maker pMake)
{
    const auto payload = static_cast<std::size_t>(state.range(0));
    const auto pExchange = pMake(payload);
    constexpr std::size_t warmUp = 16; // lists and timers that are used again have their size
    pExchange->prepare(warmUp + static_cast<std::size_t>(state.max_iterations));
    for (std::size_t i = 0; i < warmUp; ++i)
        pExchange->exchange();
    {
        const AllocationCounter allocations(state);
        for ([[maybe_unused]] auto iteration : state)
            pExchange->exchange();
    }
    const auto sent = warmUp + static_cast<std::size_t>(state.iterations());
    if (pExchange->delivered() != sent || pExchange->acknowledged() != sent)
        state.SkipWithError("messages were lost");
    state.counters["per_frame"] = benchmark::Counter(
        static_cast<double>(CanExchange::frames(payload)),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// Nothing but the exchanges, for a tool that counts instructions. The exit code.
int repeat(const std::string &what, std::size_t payload, std::size_t count)
{
    const auto maker = s_makers.find(what);
    if (maker == s_makers.end()) {
        std::fprintf(stderr, "bench_can_codec: '%s' is none of raw, fixed, stack, codec\n",
                     what.c_str());
        return EXIT_FAILURE;
    }
    const auto pExchange = maker->second(payload);
    pExchange->prepare(count);
    for (std::size_t i = 0; i < count; ++i)
        pExchange->exchange();
    return pExchange->delivered() == count && pExchange->acknowledged() == count ? EXIT_SUCCESS
                                                                                 : EXIT_FAILURE;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("vy.*=false"));
    if (argc == 5 && std::string(argv[1]) == "--repeat")
        return repeat(argv[2], std::stoul(argv[3]), std::stoul(argv[4]));
    for (const auto &[name, pMake] : s_makers) {
        auto *const pBenchmark = benchmark::RegisterBenchmark(
            name.c_str(), [pMake = pMake](benchmark::State &state) { exchange(state, pMake); });
        for (const int payload : {2, 60, 250, 500})
            pBenchmark->Arg(payload);
        pBenchmark->Iterations(20000);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
