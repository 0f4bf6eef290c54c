#ifndef SETTINGSDOCUMENT_H
#define SETTINGSDOCUMENT_H

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <utility>
#include <vector>

/// A settings file as the tool reads it: unlike the library, which ends the process over a wrong
/// file, it says what is wrong and where.
class SettingsDocument
{
public:
    /// Reads the file; without a name, the one of SystemPath::Settings.
    static SettingsDocument read(const QString &fileName);

    QString path() const { return m_path; }
    bool isValid() const { return m_error.isEmpty(); }

    /// "FILE: what is wrong", with ":LINE:COLUMN" behind the file where a place can be given; empty
    /// when the document is valid.
    QString error() const { return m_error; }

    QByteArray bytes() const { return m_bytes; }

    /// Every value that is no object, with its key path, sorted by key. An object without members
    /// counts as a value.
    std::vector<std::pair<QString, QJsonValue>> values() const;

    /// A key that its object has twice or more; the last value counts.
    struct Duplicate
    {
        QString keyPath;
        int firstLine;
        QString place; ///< "LINE:COLUMN" where it stands again
    };
    std::vector<Duplicate> duplicates() const;

    /// Key paths of members whose own name contains "/": no lookup finds them.
    QStringList unreachableKeys() const;

    /// The value of a key path; undefined when it is not there.
    QJsonValue value(const QString &keyPath) const;

private:
    void load();
    void parse();

    QString m_path;
    QString m_error;
    QByteArray m_bytes;
    QJsonObject m_root;
};

/// The text with what a terminal would act on (line ends, escapes) written as \uXXXX.
QString printable(const QString &text);

/// A value as JSON writes it, on one line: "text" in quotes, 8, true, [1,2].
QString toJsonText(const QJsonValue &value);

#endif // SETTINGSDOCUMENT_H
