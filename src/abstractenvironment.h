#ifndef ABSTRACTENVIRONMENT_H
#define ABSTRACTENVIRONMENT_H

#include "vyhardware1_export.h"

#include <QObject>
#include <QString>
#include <utility>

class AbstractSettings;

/// The settings and the version of an application, and the order in which its modules start. Main
/// thread only.
class VYHARDWARE1_EXPORT AbstractEnvironment : public QObject
{
    Q_OBJECT

public:
    /// The settings are borrowed for the environment's life. Null ends the process with status 1,
    /// after a fatal assertion report.
    AbstractEnvironment(AbstractSettings *pSettings, QObject *pParent);
    ~AbstractEnvironment() override;

    // The order of the virtual operations is fixed. The base versions do nothing.
    virtual void initialize();
    virtual void instantiateModules();
    virtual void initializeModules();
    virtual void unloadModules();

    /// initialize(), instantiateModules(), initializeModules().
    void createEnvironment();

    /// 0.0.0 at first.
    void setApplicationVersion(int major, int minor, int patch);
    QString applicationVersionString() const;            ///< "1.2.3"
    QString applicationVersionDescriptionString() const; ///< "1.2.3 Release"

    void setApplicationGitShortHash(const QString &hash) { m_applicationGitShortHash = hash; }
    void setApplicationGitHash(QString hash) { m_applicationGitHash = std::move(hash); }
    void setCommonGitShortHash(const QString &hash) { m_commonGitShortHash = hash; }
    void setCommonGitHash(const QString &hash) { m_commonGitHash = hash; }
    QString applicationGitShortHash() const { return m_applicationGitShortHash; }
    QString applicationGitHash() const { return m_applicationGitHash; }
    QString commonGitShortHash() const { return m_commonGitShortHash; }
    QString commonGitHash() const { return m_commonGitHash; }

protected:
    AbstractSettings *settings() const { return m_pSettings; }

private:
    AbstractSettings *m_pSettings;
    int m_majorVersion = 0;
    int m_minorVersion = 0;
    int m_patchVersion = 0;
    QString m_applicationGitShortHash;
    QString m_applicationGitHash;
    QString m_commonGitShortHash;
    QString m_commonGitHash;
};

#endif // ABSTRACTENVIRONMENT_H
