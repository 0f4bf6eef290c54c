#include "console.h"

#include <cstdio>

Console::Console()
    : m_out(stdout)
    , m_err(stderr)
{
    m_out.setCodec("UTF-8");
    m_err.setCodec("UTF-8");
}

void Console::fail(ExitCode code, const QString &text)
{
    m_out.flush(); // keeps the two streams in order on a terminal
    warn(QStringLiteral("vyhw: ") + text);
    m_exitCode = code;
}

void Console::warn(const QString &line)
{
    m_err << line << '\n';
    m_err.flush();
}

int Console::finish()
{
    m_out.flush();
    if (m_out.status() != QTextStream::Ok || std::fflush(stdout) != 0)
        fail(ExitNo, QStringLiteral("standard output could not be written"));
    return m_exitCode;
}
