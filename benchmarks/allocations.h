#ifndef ALLOCATIONS_H
#define ALLOCATIONS_H

#include <benchmark/benchmark.h>

/// Counts the heap allocations of the whole process while it lives and reports them as the counter
/// "allocs", per iteration. Declare it just before the measured loop.
class AllocationCounter
{
public:
    explicit AllocationCounter(benchmark::State &state);
    ~AllocationCounter();

    AllocationCounter(const AllocationCounter &) = delete;
    AllocationCounter &operator=(const AllocationCounter &) = delete;

private:
    benchmark::State &m_state;
    long long m_before;
};

#endif // ALLOCATIONS_H
