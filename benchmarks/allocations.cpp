#include "allocations.h"

#include <atomic>
#include <cstddef>

namespace {

std::atomic<long long> s_allocations = 0;

} // namespace

// The program's own malloc goes before the C library's for every library in the process, Qt's own
// allocations included; operator new ends here as well.
// The C library gives its own parameters reserved names.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {
void *__libc_malloc(std::size_t size);                    // NOLINT(bugprone-reserved-identifier)
void *__libc_calloc(std::size_t count, std::size_t size); // NOLINT(bugprone-reserved-identifier)
void *__libc_realloc(void *pOld, std::size_t size);       // NOLINT(bugprone-reserved-identifier)

void *malloc(std::size_t size)
{
    s_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size)
{
    s_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

void *realloc(void *pOld, std::size_t size)
{
    s_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(pOld, size);
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

AllocationCounter::AllocationCounter(benchmark::State &state)
    : m_state(state)
    , m_before(s_allocations)
{
}

AllocationCounter::~AllocationCounter()
{
    const auto allocations = static_cast<double>(s_allocations - m_before);
    m_state.counters["allocs"] =
        benchmark::Counter(allocations, benchmark::Counter::kAvgIterations);
}
