#ifndef LOGFOLDER_H
#define LOGFOLDER_H

#include "support/scopedvariable.h"

#include <QDir>
#include <QFile>
#include <QStringList>
#include <QTemporaryDir>

/// An empty folder that rotating log files go to while this lives.
class LogFolder
{
public:
    LogFolder()
        : m_variable("VY_PATH_LOGS", QFile::encodeName(m_folder.path()))
    {
    }

    QString path() const { return m_folder.path(); }
    QString path(const QString &fileName) const { return m_folder.filePath(fileName); }

    /// What is in the folder, by name.
    QStringList names() const
    {
        return QDir(path()).entryList(
            QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    }

    /// Empty when there is no such file.
    QByteArray bytes(const QString &fileName) const
    {
        QFile file(path(fileName));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    /// The file's lines without their ends.
    QStringList lines(const QString &fileName) const
    {
        QStringList lines = QString::fromUtf8(bytes(fileName)).split(QLatin1Char('\n'));
        if (lines.last().isEmpty())
            lines.removeLast();
        return lines;
    }

private:
    QTemporaryDir m_folder;
    ScopedVariable m_variable;
};

#endif // LOGFOLDER_H
