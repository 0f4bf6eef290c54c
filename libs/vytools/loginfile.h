#ifndef LOGINFILE_H
#define LOGINFILE_H

#include "logmodules.h"
#include "rotatinglogfileconfiguration.h"
#include "vytools1_export.h"

#include <QObject>
#include <memory>

class RotatingLogFile;

/// Base of objects that keep a rotating log file of their own in the folder SystemPath::Logs. Two
/// objects with the same file name in one process write into the same file. The file is opened with
/// the first line. Belongs to the thread of the object.
///
/// A full disk, a folder that cannot be written or a file that somebody deletes costs lines, never
/// the caller: nothing fails, and the log says once when lines begin to get lost and once when the
/// file can be written again.
class VYTOOLS1_EXPORT LogInFile : public QObject
{
    Q_OBJECT

public:
    /// `fileName` is a plain name such as "canBus.txt"; `module` is where setLogInDebug() sends
    /// lines.
    LogInFile(QObject *pParent, const QString &fileName, LogModule module,
              const RotatingLogFileConfiguration &configuration);
    ~LogInFile() override;

    /// Off at first. While it is off no line is written to the file.
    void setLogInFile(bool isOn) { m_isLogInFile = isOn; }
    bool isLogInFile() const { return m_isLogInFile; }

    /// Off at first. While it is on each line also goes to the log, at level 0.
    void setLogInDebug(bool isOn) { m_isLogInDebug = isOn; }
    bool isLogInDebug() const { return m_isLogInDebug; }

    /// Appends one line, which begins with its UTC time (2026-11-20T12:03:07.123Z). A line that
    /// brings its own line end gets no second one.
    void logString(const QString &text);

private:
    std::shared_ptr<RotatingLogFile> m_pFile;
    LogModule m_module;
    bool m_isLogInFile = false;
    bool m_isLogInDebug = false;
};

#endif // LOGINFILE_H
