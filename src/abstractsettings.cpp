#include "abstractsettings.h"

#include "assertions.h"
#include "logformatter.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QVariant>
#include <cstdlib>

namespace {

constexpr auto s_pUnit = "src/abstractsettings";

/// The path of a key: "a/b/leaf" is {"a", "b"} and "leaf".
struct KeyPath
{
    explicit KeyPath(const QString &key)
        : objects(key.split(QLatin1Char('/'))) // empty parts are kept
        , leaf(objects.takeLast())
    {
    }

    QStringList objects;
    QString leaf;
};

/// Why the file cannot be read; empty when it is open. A pipe or a device is not opened: it could
/// block, or never end.
QString open(QFile &file)
{
    if (!QFileInfo(file).isFile())
        return QStringLiteral("it is not a regular file");
    if (file.size() > AbstractSettings::s_maximumFileSize)
        return QStringLiteral("it is larger than %1 bytes")
            .arg(AbstractSettings::s_maximumFileSize);
    return file.open(QIODevice::ReadOnly) ? QString() : file.errorString();
}

/// Empty when the file cannot be read.
QByteArray contentOf(const QString &filePath)
{
    QFile file(filePath);
    QString reason = open(file);
    QByteArray content = file.isOpen() ? file.readAll() : QByteArray();
    if (reason.isEmpty() && file.error() != QFileDevice::NoError)
        reason = file.errorString();
    if (!reason.isEmpty())
        LogFormatter(3, Log::Global)
            << "Settings file" << quoted(filePath) << "cannot be read:" << reason;
    return content;
}

} // namespace

QJsonObject AbstractSettings::m_settings;

AbstractSettings::AbstractSettings() = default;

void AbstractSettings::setSettingsFile(const QString &filePath)
{
    if (!QFile::exists(filePath)) {
        // The text has no place for the path, so the message carries none.
        printReleaseAssertMsg(QStringLiteral("QFile::exists(filePath)"),
                              QStringLiteral("Settings file not accessible"), s_pUnit, __LINE__);
        exit(1);
    }
    setSettings(contentOf(filePath));
}

void AbstractSettings::setSettings(const QByteArray &data)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError) {
        printReleaseAssertMsg(
            QStringLiteral("false"),
            QStringLiteral("JSON settings parsing failed with error '%1', at character %2")
                .arg(error.errorString(), QString::number(error.offset)),
            s_pUnit, __LINE__);
        exit(1);
    }
    m_settings = document.object();
    if (m_settings.isEmpty()) {
        printReleaseAssertMsg(
            QStringLiteral("! m_settings.isEmpty()"),
            QStringLiteral("Invalid JSON settings file. JSON document is empty, invalid or "
                           "doesn't have a single root object"),
            s_pUnit, __LINE__);
        exit(1);
    }
}

QJsonValue AbstractSettings::findSetting(const QString &key, bool optional, bool &found,
                                         bool *pOk) const
{
    const KeyPath path(key);
    QJsonObject object = m_settings;
    found = true;
    for (const QString &name : path.objects) {
        const QJsonValue member = object.value(name);
        found = member.isObject();
        if (!found)
            break;
        object = member.toObject();
    }

    QJsonValue result;
    if (found) {
        const QJsonValue member = object.value(path.leaf);
        found = !member.isUndefined(); // a member that is null is there
        result = found ? member : QJsonValue();
    }
    if (!found && !optional) {
        printAssertMsg(QString(),
                       QStringLiteral("Couldn't find setting '%1' in JSON settings").arg(key),
                       s_pUnit, __LINE__);
    } else if (!found) {
        LogFormatter(0, Log::Global) << Q_FUNC_INFO << ": Couldn't find setting" << quoted(key);
    }
    if (pOk != nullptr)
        *pOk = found;
    return result;
}

// The object comes by value because the signature is part of the log line.
QJsonValue AbstractSettings::findSetting(QJsonObject object, const QString &key, bool optional,
                                         bool &found, bool *pOk) const
{
    QJsonValue value = object.value(key);
    found = !value.isNull(); // a missing member is undefined, which is not null
    if (!found && !optional) {
        // "oject" is the message's own spelling.
        printAssertMsg(QString(),
                       QStringLiteral("Couldn't find value '%1' in specific json oject").arg(key),
                       s_pUnit, __LINE__);
    }
    if (!found) {
        // An object has no text form in Qt 5, so the last piece is empty.
        LogFormatter(0, Log::Global) << Q_FUNC_INFO << ": Couldn't find value" << quoted(key)
                                     << "in specific json oject" << QVariant(object).toString();
    }
    if (pOk != nullptr)
        *pOk = found;
    return value;
}

QString AbstractSettings::stringSetting(const QString &key, bool *pOk, bool optional) const
{
    bool found = false;
    return findSetting(key, optional, found, pOk).toString();
}

bool AbstractSettings::boolSetting(const QString &key, bool *pOk, bool optional) const
{
    bool found = false;
    return findSetting(key, optional, found, pOk).toBool(false);
}

int AbstractSettings::intSetting(const QString &key, bool *pOk, bool optional) const
{
    bool found = false;
    return findSetting(key, optional, found, pOk).toInt(0);
}

double AbstractSettings::doubleSetting(const QString &key, bool *pOk, bool optional) const
{
    bool found = false;
    return findSetting(key, optional, found, pOk).toDouble(0.0);
}

QJsonArray AbstractSettings::arraySetting(const QString &key, bool *pOk, bool optional) const
{
    bool found = false;
    return findSetting(key, optional, found, pOk).toArray();
}

QList<QJsonObject> AbstractSettings::objectListSetting(const QString &key, bool *pOk,
                                                       bool optional) const
{
    QList<QJsonObject> objects;
    const QJsonArray array = arraySetting(key, pOk, optional);
    for (const QJsonValue &element : array)
        objects.append(element.toObject());
    return objects;
}

QList<int> AbstractSettings::intListSetting(const QString &key, const QString &subKey, bool *pOk,
                                            bool optional) const
{
    bool isArrayFound = false;
    const QJsonArray array = arraySetting(key, &isArrayFound, optional);
    if (pOk != nullptr)
        *pOk = isArrayFound;
    QList<int> values;
    for (const QJsonValue &element : array) {
        bool found = false;
        values.append(findSetting(element.toObject(), subKey, optional, found, pOk).toInt(0));
    }
    return values;
}

QString AbstractSettings::stringSetting(const QString &key) const
{
    bool ok = false;
    return stringSetting(key, &ok, false);
}

QString AbstractSettings::stringOptionalSetting(const QString &key,
                                                const QString &defaultValue) const
{
    bool ok = false;
    const QString value = stringSetting(key, &ok, true);
    return ok ? value : defaultValue;
}

bool AbstractSettings::boolSetting(const QString &key) const
{
    bool ok = false;
    return boolSetting(key, &ok, false);
}

bool AbstractSettings::boolOptionalSetting(const QString &key, bool defaultValue) const
{
    bool ok = false;
    const bool value = boolSetting(key, &ok, true);
    return ok ? value : defaultValue;
}

int AbstractSettings::intSetting(const QString &key) const
{
    bool ok = false;
    return intSetting(key, &ok, false);
}

int AbstractSettings::intOptionalSetting(const QString &key, int defaultValue) const
{
    bool ok = false;
    const int value = intSetting(key, &ok, true);
    return ok ? value : defaultValue;
}

double AbstractSettings::doubleSetting(const QString &key) const
{
    bool ok = false;
    return doubleSetting(key, &ok, false);
}

double AbstractSettings::doubleOptionalSetting(const QString &key, double defaultValue) const
{
    bool ok = false;
    const double value = doubleSetting(key, &ok, true);
    return ok ? value : defaultValue;
}
