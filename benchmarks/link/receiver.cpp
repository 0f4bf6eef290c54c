#include "receiver.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <sys/resource.h>
#include <unistd.h>

namespace {

quint32 nowUs()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<quint32>(time.tv_sec * 1000000 + time.tv_nsec / 1000);
}

double seconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double cpuNow()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double residentKilobytes()
{
    long pages = 0;
    long resident = 0;
    if (std::FILE *const pFile = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(pFile, "%ld %ld", &pages, &resident) != 2)
            resident = 0;
        std::fclose(pFile);
    }
    return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1024;
}

} // namespace

Receiver::Receiver(int expected)
    : m_expected(expected)
{
    // Touched now: its growth is not the receiver's.
    m_latenciesUs.resize(static_cast<std::size_t>(expected));
    m_latenciesUs.clear();
}

void Receiver::take(quint32 number, quint32 sentUs)
{
    if (number == 0)
        m_cpuAtFirst = cpuNow();
    if (number < m_next) {
        ++m_misplaced;
        return;
    }
    m_lost += static_cast<int>(number - m_next);
    m_next = number + 1;
    m_latenciesUs.push_back(nowUs() - sentUs);
    if (number == static_cast<quint32>(m_expected) / 10)
        m_memoryEarly = residentKilobytes();
    if (isComplete()) {
        m_memoryLate = residentKilobytes();
        m_cpuAtLast = cpuNow();
    }
}

double Receiver::latencyUs(double quantile) const
{
    if (m_latenciesUs.empty())
        return 0;
    std::vector<quint32> sorted = m_latenciesUs;
    const auto place =
        static_cast<std::ptrdiff_t>(quantile * static_cast<double>(sorted.size() - 1));
    std::nth_element(sorted.begin(), sorted.begin() + place, sorted.end());
    return sorted[static_cast<std::size_t>(place)];
}

double Receiver::cpuSeconds() const
{
    return m_cpuAtLast - m_cpuAtFirst;
}

double Receiver::grownKilobytes() const
{
    return m_memoryLate - m_memoryEarly;
}
