#ifndef KEYTABLE_H
#define KEYTABLE_H

#include <QJsonValue>
#include <QLatin1String>
#include <QString>
#include <QStringList>

class SettingsDocument;

/// What `vyhw settings check` found in a file that is JSON.
struct CheckResult
{
    QStringList errors;   ///< "FILE: key "..." what is wrong; what was expected"
    QStringList warnings; ///< keys in the library's groups that the library does not name
    int knownKeys = 0;
};

/// Compares a valid document with the keys that the library and its tools name.
CheckResult checkKeys(const SettingsDocument &document);

#endif // KEYTABLE_H
