#ifndef ABSTRACTSETTINGS_H
#define ABSTRACTSETTINGS_H

#include "vyhardware1_export.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QObject>
#include <QString>

/// Typed access to the one JSON settings document of the process, by key paths such as
/// "hardware/usbPath": the last component names the value, those before it the nested objects.
/// Empty components count, and case matters. Load once at start-up, before other threads read; from
/// then on the getters may be called from any thread.
///
/// Three arguments mean the same everywhere:
/// - `optional` false: a missing setting is reported as a failed assertion; true: it is one log
/// line.
/// - `found` is set to whether the setting is there.
/// - `pOk` receives a copy of `found` at the end; it may be null.
///
/// A value of another JSON type is there: it reads as Qt's default for the type that was asked for
/// ("" for a number read as a string), not as the default that the caller gives.
class VYHARDWARE1_EXPORT AbstractSettings : public QObject
{
    Q_OBJECT

public:
    /// A larger settings file counts as one that cannot be read. Chosen here: what the parser
    /// takes.
    static constexpr qint64 s_maximumFileSize = 256LL << 20;

    AbstractSettings();

    /// Reads the file whole and loads it with setSettings(). A file that is not there ends the
    /// process with status 1; one that cannot be read counts as empty, which ends it too. Anything
    /// but a regular file of at most s_maximumFileSize counts as one that cannot be read.
    static void setSettingsFile(const QString &filePath);

    /// Replaces the document of the whole process. Text that is not JSON, or whose root is not an
    /// object with at least one member, is a fatal assertion report and ends the process with
    /// status 1.
    static void setSettings(const QByteArray &data);

    QJsonValue findSetting(const QString &key, bool optional, bool &found, bool *pOk) const;

    /// Looks up one plain member, without splitting the key. Unlike above, only a member that is
    /// null counts as missing; one that is not there is found, as an undefined value.
    QJsonValue findSetting(QJsonObject object, const QString &key, bool optional, bool &found,
                           bool *pOk) const;

    QString stringSetting(const QString &key, bool *pOk, bool optional) const;
    bool boolSetting(const QString &key, bool *pOk, bool optional) const;
    int intSetting(const QString &key, bool *pOk, bool optional) const;
    double doubleSetting(const QString &key, bool *pOk, bool optional) const;
    QJsonArray arraySetting(const QString &key, bool *pOk, bool optional) const;

    /// The array's elements; one that is no object is an empty object.
    QList<QJsonObject> objectListSetting(const QString &key, bool *pOk, bool optional) const;

    /// Member `subKey` of each element of the array, 0 where it is missing. `pOk` receives the
    /// outcome of the last element's lookup; for an array without elements, that it was found.
    QList<int> intListSetting(const QString &key, const QString &subKey, bool *pOk,
                              bool optional) const;

public Q_SLOTS:
    QString stringSetting(const QString &key) const;
    QString stringOptionalSetting(const QString &key, const QString &defaultValue) const;
    bool boolSetting(const QString &key) const;
    bool boolOptionalSetting(const QString &key, bool defaultValue) const;
    int intSetting(const QString &key) const;
    int intOptionalSetting(const QString &key, int defaultValue) const;
    double doubleSetting(const QString &key) const;
    double doubleOptionalSetting(const QString &key, double defaultValue) const;

private:
    static QJsonObject m_settings; ///< the root object; empty until a document is loaded
};

#endif // ABSTRACTSETTINGS_H
