#ifndef ROTATINGLOGFILE_P_H
#define ROTATINGLOGFILE_P_H

#include "rotatinglogfileconfiguration.h"

#include <QString>
#include <cstdio>
#include <memory>
#include <mutex>

namespace spdlog::sinks {
class sink;
} // namespace spdlog::sinks

/// A rotating file in the folder SystemPath::Logs, for any thread. It is opened with the first line
/// and flushed with each, so that a crash loses none. A line that cannot be written is dropped and
/// the next one tries again; the log is told once when that begins and once when it is over.
class RotatingLogFile
{
public:
    RotatingLogFile(QString fileName, const RotatingLogFileConfiguration &configuration);
    ~RotatingLogFile();
    Q_DISABLE_COPY_MOVE(RotatingLogFile)

    /// The one file of this name while anyone holds it: two writers with sizes of their own would
    /// rotate each other's lines away. The first caller's configuration holds.
    static std::shared_ptr<RotatingLogFile>
    shared(const QString &fileName, const RotatingLogFileConfiguration &configuration);

    void write(const QString &line);

private:
    /// These return why they failed; empty when they have not.
    QString open();
    QString append(const QByteArray &line);
    QString reasonAgainstRotating() const;

    bool isFullWith(qint64 length) const;
    void dropDeletedFile();
    QString tellWhatChanged(const QString &failure);

    const QString m_fileName;
    const RotatingLogFileConfiguration m_configuration;
    std::mutex m_mutex;
    QString m_path; ///< of the open file
    std::FILE *m_pStream =
        nullptr; ///< the sink's, which clears it when it closes; null without sink
    std::unique_ptr<spdlog::sinks::sink> m_pSink;
    bool m_isRotationDue;      ///< at the first opening only, not after each failure
    bool m_wasDeleted = false; ///< somebody deleted the file, and no new one is there yet
    qint64 m_linesLost = 0;    ///< in this episode; 0 while all is well
};

#endif // ROTATINGLOGFILE_P_H
