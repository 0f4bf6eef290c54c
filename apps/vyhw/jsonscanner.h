#ifndef JSONSCANNER_H
#define JSONSCANNER_H

#include <QByteArray>
#include <QHash>
#include <QString>
#include <vector>

/// Walks a JSON text for what Qt's parser does not tell: keys that stand twice in one object, and
/// which character a syntax error is about. As lenient as Qt's parser; what is wrong inside a text
/// in quotes is left to that.
class JsonScanner
{
public:
    /// A key that its object has already; Qt takes the last value.
    struct Duplicate
    {
        QString keyPath; ///< an element of an array reads "list[0]"
        int firstOffset; ///< of the opening quotes where the key stands first
        int offset;      ///< and where it stands again
    };

    /// Scans; the text must live as long as the scanner.
    explicit JsonScanner(const QByteArray &text);

    /// The first byte that fits nothing, or the text's size where the end comes too early; -1 when
    /// all fits. A text that does not end and a value that is none are told where they begin.
    int errorOffset() const { return m_errorOffset; }

    const std::vector<Duplicate> &duplicates() const { return m_duplicates; }

private:
    using Offsets = QHash<QString, int>; ///< of an object's keys

    char current() const { return m_at < m_text.size() ? m_text[m_at] : '\0'; }
    bool fail();
    bool take(char letter);
    void skipBlanks();
    bool scanRoot();
    bool scanValue(const QString &keyPath);
    bool scanNested(const QString &keyPath);
    bool scanObject(const QString &prefix);
    bool scanMember(const QString &prefix, Offsets &firstOffsets);
    bool scanArray(const QString &keyPath);
    bool scanText();
    bool scanWord();
    QString textFrom(int begin) const;

    const QByteArray &m_text;
    int m_at = 0;
    int m_depth = 0;
    int m_errorOffset = -1;
    std::vector<Duplicate> m_duplicates;
};

#endif // JSONSCANNER_H
