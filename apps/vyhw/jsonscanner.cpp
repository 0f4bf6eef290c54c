#include "jsonscanner.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QJsonValue>

namespace {

constexpr int s_deepest = 1024; ///< arrays and objects in one another that Qt's parser takes

bool isBlank(char letter)
{
    return letter == ' ' || letter == '\t' || letter == '\n' || letter == '\r';
}

bool isOfAWord(char letter)
{
    return (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'z') ||
           (letter >= 'A' && letter <= 'Z') || letter == '+' || letter == '-' || letter == '.';
}

/// The one value of a text that is JSON; undefined for any other text.
QJsonValue parsed(const QByteArray &text)
{
    QJsonParseError error;
    const QJsonDocument inArray = QJsonDocument::fromJson('[' + text + ']', &error);
    return error.error == QJsonParseError::NoError ? inArray.array().at(0) : QJsonValue::Undefined;
}

} // namespace

JsonScanner::JsonScanner(const QByteArray &text)
    : m_text(text)
{
    if (text.startsWith("\xEF\xBB\xBF")) // a byte order mark is no part of the document
        m_at = 3;
    scanRoot();
}

bool JsonScanner::fail()
{
    m_errorOffset = m_at;
    return false;
}

/// Blanks and then this letter, which must be there.
bool JsonScanner::take(char letter)
{
    skipBlanks();
    if (current() != letter)
        return fail();
    ++m_at;
    return true;
}

void JsonScanner::skipBlanks()
{
    while (isBlank(current()))
        ++m_at;
}

bool JsonScanner::scanRoot()
{
    skipBlanks();
    if (current() != '{' && current() != '[')
        return fail();
    if (!scanValue(QString()))
        return false;
    skipBlanks();
    return m_at == m_text.size() || fail();
}

bool JsonScanner::scanValue(const QString &keyPath)
{
    skipBlanks();
    if (current() == '{' || current() == '[')
        return scanNested(keyPath);
    return current() == '"' ? scanText() : scanWord();
}

bool JsonScanner::scanNested(const QString &keyPath)
{
    if (m_depth == s_deepest)
        return fail();
    ++m_depth;
    const bool isObject = current() == '{';
    ++m_at;
    const QString prefix = keyPath.isEmpty() ? keyPath : keyPath + QLatin1Char('/');
    const bool isRight = isObject ? scanObject(prefix) : scanArray(keyPath);
    --m_depth;
    return isRight;
}

bool JsonScanner::scanObject(const QString &prefix)
{
    Offsets firstOffsets;
    skipBlanks();
    while (current() != '}' || !firstOffsets.isEmpty()) { // no "}" behind a comma
        if (!scanMember(prefix, firstOffsets))
            return false;
        skipBlanks();
        if (current() == '}')
            break;
        if (!take(','))
            return false;
        skipBlanks();
    }
    return take('}');
}

bool JsonScanner::scanMember(const QString &prefix, Offsets &firstOffsets)
{
    const int begin = m_at;
    if (current() != '"')
        return fail();
    if (!scanText())
        return false;
    const QString key = textFrom(begin);
    if (firstOffsets.contains(key))
        m_duplicates.push_back({prefix + key, firstOffsets.value(key), begin});
    else
        firstOffsets.insert(key, begin);
    return take(':') && scanValue(prefix + key);
}

bool JsonScanner::scanArray(const QString &keyPath)
{
    skipBlanks();
    for (int index = 0; current() != ']' || index > 0; ++index) { // no "]" behind a comma
        if (!scanValue(QStringLiteral("%1[%2]").arg(keyPath).arg(index)))
            return false;
        skipBlanks();
        if (current() == ']')
            break;
        if (!take(','))
            return false;
        skipBlanks();
    }
    return take(']');
}

bool JsonScanner::scanText()
{
    const int begin = m_at;
    for (++m_at; m_at < m_text.size(); ++m_at) {
        if (m_text[m_at] == '\\') {
            ++m_at;
        } else if (m_text[m_at] == '"') {
            ++m_at;
            return true;
        }
    }
    m_at = begin;
    return fail();
}

/// A number, true, false or null.
bool JsonScanner::scanWord()
{
    const int begin = m_at;
    while (isOfAWord(current()))
        ++m_at;
    if (!parsed(m_text.mid(begin, m_at - begin)).isUndefined())
        return true;
    m_at = begin;
    return fail();
}

/// The text in quotes that has been scanned.
QString JsonScanner::textFrom(int begin) const
{
    return parsed(m_text.mid(begin, m_at - begin)).toString();
}
