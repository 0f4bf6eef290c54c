#include "linereader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::size_t s_bufferSize = std::size_t{256} * 1024;
constexpr std::size_t s_none = std::string_view::npos;
/// How long the first writer of a pipe is waited for; once there, it may take its time.
constexpr int s_writerTimeoutMs = 5000;

bool isPipe(int descriptor)
{
    struct stat status = {};
    return ::fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode);
}

void waitForData(int descriptor, int timeoutMs)
{
    pollfd waited{descriptor, POLLIN, 0};
    ::poll(&waited, 1, timeoutMs);
}

} // namespace

LineReader::LineReader(int descriptor, std::function<void()> beforeWaiting)
    : m_descriptor(descriptor)
    , m_beforeWaiting(std::move(beforeWaiting))
    , m_buffer(s_bufferSize)
    , m_hasWriter(!isPipe(descriptor))
{
}

bool LineReader::next(std::string_view &line, bool &isTooLong)
{
    if (m_isSkipping)
        skipRest();
    std::size_t end = lineEnd();
    while (end == s_none && m_to - m_from <= s_maxLine && fill())
        end = lineEnd();
    if (m_from == m_to)
        return false;
    const std::size_t size = std::min(end, m_to) - m_from;
    isTooLong = size > s_maxLine;
    line = {m_buffer.data() + m_from, std::min(size, s_maxLine)};
    m_isSkipping = isTooLong && end == s_none;
    m_from = end == s_none ? m_to : end + 1;
    return true;
}

/// Where the next line end stands in the buffer.
std::size_t LineReader::lineEnd() const
{
    const void *const pEnd = std::memchr(m_buffer.data() + m_from, '\n', m_to - m_from);
    return pEnd ? static_cast<std::size_t>(static_cast<const char *>(pEnd) - m_buffer.data())
                : s_none;
}

void LineReader::skipRest()
{
    m_isSkipping = false;
    while (lineEnd() == s_none) {
        m_from = m_to;
        if (!fill())
            return;
    }
    m_from = lineEnd() + 1;
}

/// Reads more; false at the end.
bool LineReader::fill()
{
    std::memmove(m_buffer.data(), m_buffer.data() + m_from, m_to - m_from);
    m_to -= std::exchange(m_from, 0);
    const ssize_t count = readSome(m_buffer.data() + m_to, m_buffer.size() - m_to);
    m_to += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    return count > 0;
}

ssize_t LineReader::readSome(char *pTo, std::size_t size)
{
    for (;;) {
        const ssize_t count = ::read(m_descriptor, pTo, size);
        if (count > 0 || (count == 0 && m_hasWriter)) {
            m_hasWriter = true;
            return count;
        }
        const int error = count < 0 ? errno : 0;
        if (error == EINTR)
            continue;
        if (error != 0 && error != EAGAIN) {
            m_error = error;
            return count;
        }
        m_hasWriter = true; // one that has written nothing so far; or nobody comes
        m_beforeWaiting();
        waitForData(m_descriptor, count == 0 ? s_writerTimeoutMs : -1);
    }
}
