#ifndef CONSOLE_H
#define CONSOLE_H

#include <QTextStream>

/// How the tool ends; part of its interface, because scripts ask for it.
enum ExitCode : int {
    ExitOk = 0,
    ExitNo = 1,    ///< asked and answered: the key is not there, the file is wrong
    ExitUsage = 2, ///< the call itself is wrong; nothing was done
};

/// Standard output and standard error of the tool, in UTF-8, and the exit code that it will end
/// with.
class Console
{
public:
    Console();

    QTextStream &out() { return m_out; }

    /// Writes "vyhw: <text>" to standard error and sets the exit code.
    void fail(ExitCode code, const QString &text);
    /// Writes the line as it stands to standard error.
    void warn(const QString &line);

    /// Flushes; the exit code, or ExitNo when the output could not be written whole.
    int finish();

private:
    QTextStream m_out;
    QTextStream m_err;
    ExitCode m_exitCode = ExitOk;
};

#endif // CONSOLE_H
