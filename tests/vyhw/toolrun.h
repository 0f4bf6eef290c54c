#ifndef TOOLRUN_H
#define TOOLRUN_H

#include <QProcess>
#include <QString>
#include <QStringList>

/// What a call of the tool came to.
struct Outcome
{
    int exitCode;
    QString out;
    QString err;
};

inline Outcome vyhw(const QStringList &arguments)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C")); // the poorest locale
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(VYHW_PROGRAM), arguments);
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit)
        return {-1, QString(), process.errorString()};
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

inline QString configFile(const char *pName)
{
    return QStringLiteral(CONFIG_FOLDER "/") + QString::fromLatin1(pName);
}

#endif // TOOLRUN_H
