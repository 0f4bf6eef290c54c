#include "settingsdocument.h"

#include "abstractsettings.h"
#include "filereason.h"
#include "jsonscanner.h"
#include "systempath.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>

namespace {

/// Whether the whole text is one value, which the parser takes inside an array only.
bool isScalar(const QByteArray &text)
{
    QJsonParseError error;
    QJsonDocument::fromJson('[' + text + ']', &error);
    return error.error == QJsonParseError::NoError;
}

void collectUnreachable(const QJsonObject &object, const QString &prefix, QStringList &keys)
{
    for (auto member = object.constBegin(); member != object.constEnd(); ++member) {
        if (member.key().contains(QLatin1Char('/')))
            keys.append(prefix + member.key());
        collectUnreachable(member.value().toObject(), prefix + member.key() + QLatin1Char('/'),
                           keys);
    }
}

int lineOf(const QByteArray &text, int offset)
{
    return text.left(offset).count('\n') + 1;
}

/// "LINE:COLUMN", both from 1; columns count characters.
QString position(const QByteArray &text, int offset)
{
    const QByteArray before = text.left(offset);
    const int lineBegin = before.lastIndexOf('\n') + 1;
    const int column = QString::fromUtf8(before.mid(lineBegin)).toUcs4().size() + 1;
    return QStringLiteral("%1:%2").arg(lineOf(text, offset)).arg(column);
}

/// The character that the error is about. Inside a text in quotes the parser's own place is right;
/// elsewhere it may be some characters behind.
int offsetOf(const QJsonParseError &error, const QByteArray &text)
{
    if (error.error == QJsonParseError::IllegalUTF8String ||
        error.error == QJsonParseError::IllegalEscapeSequence)
        return error.offset;
    const int offset = JsonScanner(text).errorOffset();
    return offset < 0 ? error.offset : offset;
}

/// Why the file at this path is not to be opened; empty when it may be.
QString reasonAgainst(const QString &path)
{
    const QString expected = QStringLiteral("a JSON settings file");
    QString reason = reasonAgainstReading(path, expected, PipeIs::Refused);
    if (reason.isEmpty() && QFileInfo(path).size() > AbstractSettings::s_maximumFileSize)
        return QStringLiteral("larger than 256 MiB; expected ") + expected;
    return reason;
}

using Values = std::vector<std::pair<QString, QJsonValue>>;

void collect(const QJsonObject &object, const QString &prefix, Values &values)
{
    for (auto member = object.constBegin(); member != object.constEnd(); ++member) {
        const QString keyPath = prefix + member.key();
        const QJsonObject inner = member.value().toObject();
        if (inner.isEmpty())
            values.emplace_back(keyPath, member.value());
        else
            collect(inner, keyPath + QLatin1Char('/'), values);
    }
}

} // namespace

SettingsDocument SettingsDocument::read(const QString &fileName)
{
    SettingsDocument document;
    document.m_path = fileName.isEmpty() ? SystemPath::path(SystemPath::Settings) : fileName;
    document.load();
    if (document.isValid())
        document.parse();
    if (!QFileInfo::exists(document.m_path) && fileName.isEmpty())
        document.m_error += QStringLiteral("\nName a settings file with --settings FILE or in %1.")
                                .arg(SystemPath::variable(SystemPath::Settings));
    return document;
}

void SettingsDocument::load()
{
    const QString reason = reasonAgainst(m_path);
    QFile file(m_path);
    if (!reason.isEmpty())
        m_error = QStringLiteral("%1: %2").arg(m_path, reason);
    else if (file.open(QIODevice::ReadOnly))
        m_bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        m_error = QStringLiteral("%1: %2").arg(m_path, file.errorString());
}

void SettingsDocument::parse()
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(m_bytes, &error);
    m_root = document.object();
    if (m_bytes.trimmed().isEmpty())
        m_error = QStringLiteral("%1: the file is empty; expected a JSON object").arg(m_path);
    else if (error.error == QJsonParseError::IllegalValue && isScalar(m_bytes))
        m_error =
            QStringLiteral("%1:1:1: the root is a single value; expected an object").arg(m_path);
    else if (error.error != QJsonParseError::NoError)
        m_error =
            QStringLiteral("%1:%2: %3")
                .arg(m_path, position(m_bytes, offsetOf(error, m_bytes)), error.errorString());
    else if (!document.isObject())
        m_error = QStringLiteral("%1:1:1: the root is an array; expected an object").arg(m_path);
    else if (m_root.isEmpty())
        m_error = QStringLiteral("%1:1:1: the root object has no members; expected at least one")
                      .arg(m_path);
}

Values SettingsDocument::values() const
{
    Values values;
    collect(m_root, QString(), values);
    return values;
}

std::vector<SettingsDocument::Duplicate> SettingsDocument::duplicates() const
{
    std::vector<Duplicate> duplicates;
    const JsonScanner scanner(m_bytes);
    for (const JsonScanner::Duplicate &key : scanner.duplicates())
        duplicates.push_back(
            {key.keyPath, lineOf(m_bytes, key.firstOffset), position(m_bytes, key.offset)});
    return duplicates;
}

QStringList SettingsDocument::unreachableKeys() const
{
    QStringList keys;
    collectUnreachable(m_root, QString(), keys);
    return keys;
}

QJsonValue SettingsDocument::value(const QString &keyPath) const
{
    QJsonValue value = m_root;
    const QStringList names = keyPath.split(QLatin1Char('/'));
    for (const QString &name : names)
        value = value.toObject().value(name);
    return value;
}

QString printable(const QString &text)
{
    QString result;
    for (const QChar letter : text)
        result += letter.isPrint()
                      ? QString(letter)
                      : QStringLiteral("\\u%1").arg(letter.unicode(), 4, 16, QLatin1Char('0'));
    return result;
}

QString toJsonText(const QJsonValue &value)
{
    // Qt writes arrays and objects only: the brackets around the value are cut off again.
    const QByteArray inBrackets = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(inBrackets.mid(1, inBrackets.size() - 2));
}
