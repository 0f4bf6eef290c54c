#include "abstractenvironment.h"

#include "assertions.h"

#include <cstdlib>

AbstractEnvironment::AbstractEnvironment(AbstractSettings *pSettings, QObject *pParent)
    : QObject(pParent)
    , m_pSettings(pSettings)
{
    if (pSettings == nullptr) {
        printReleaseAssertMsg(
            QStringLiteral("settings"),
            QStringLiteral(
                "Setting a valid Settings instance is mandatory for AbstractEnvironment"),
            "src/abstractenvironment", __LINE__);
        exit(1);
    }
}

AbstractEnvironment::~AbstractEnvironment() = default;

void AbstractEnvironment::initialize() {}

void AbstractEnvironment::instantiateModules() {}

void AbstractEnvironment::initializeModules() {}

void AbstractEnvironment::unloadModules() {}

void AbstractEnvironment::createEnvironment()
{
    initialize();
    instantiateModules();
    initializeModules();
}

void AbstractEnvironment::setApplicationVersion(int major, int minor, int patch)
{
    m_majorVersion = major;
    m_minorVersion = minor;
    m_patchVersion = patch;
}

QString AbstractEnvironment::applicationVersionString() const
{
    return QStringLiteral("%1.%2.%3").arg(m_majorVersion).arg(m_minorVersion).arg(m_patchVersion);
}

QString AbstractEnvironment::applicationVersionDescriptionString() const
{
    return applicationVersionString() + QStringLiteral(" Release");
}
