#ifndef VYHW_H
#define VYHW_H

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

struct Outcome
{
    int exitCode;
    QString out;
    QString err;
};

/// Runs the program to its end.
inline Outcome run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C")); // the poorest locale
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit)
        return {-1, QString(), process.errorString()};
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

inline Outcome vyhw(const QStringList &arguments)
{
    return run(QStringLiteral(VYHW_PROGRAM), arguments);
}

inline QString configFile(const char *pName)
{
    return QStringLiteral(CONFIG_FOLDER "/") + QString::fromLatin1(pName);
}

/// Standard error without the warnings.
inline QString errorsOf(const Outcome &outcome)
{
    QString errors;
    const QStringList lines = outcome.err.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : lines) {
        if (!line.startsWith(QLatin1String("vyhw: warning: ")))
            errors += line + QLatin1Char('\n');
    }
    return errors;
}

/// A settings file with this content that lives as long as the test.
class VyhwFileTest : public ::testing::Test
{
protected:
    QString write(const QByteArray &content)
    {
        QString path = m_folder.filePath(QStringLiteral("settings.json"));
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        EXPECT_EQ(file.write(content), content.size());
        return path;
    }

    QTemporaryDir m_folder;
};

#endif // VYHW_H
