#ifndef FILESIZELIMIT_H
#define FILESIZELIMIT_H

#include <QtGlobal>
#include <csignal>
#include <sys/resource.h>

/// The size that a file of the process can have, until the end of the scope. What is written beyond
/// it fails with the bytes up to there written, as on a full disk.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
        : m_handlerBefore(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handlerBefore);
    }
    Q_DISABLE_COPY_MOVE(FileSizeLimit)

private:
    void (*m_handlerBefore)(int);
    rlimit m_before{};
};

#endif // FILESIZELIMIT_H
