#include "candecode.h"

#include "canconversation.h"
#include "canlogline.h"
#include "console.h"
#include "filereason.h"
#include "linereader.h"

#include <QFile>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int s_maxErrors = 20; ///< lines that are told one by one
constexpr int s_maxShown = 60;  ///< characters of such a line
constexpr int s_maxUtf8 = 4;    ///< bytes of one character
constexpr const char *s_pBlanks = " \t\r";

/// The character at the front, and how many bytes it has; what a terminal would act on, and what is
/// no UTF-8, is one byte as \xNN.
QString firstCharacter(const QByteArray &bytes, int &size)
{
    for (size = 1; size <= qMin(s_maxUtf8, bytes.size()); ++size) {
        const auto letters = QString::fromUtf8(bytes.left(size)).toUcs4();
        const bool isRight = letters.size() == 1 && letters.first() != QChar::ReplacementCharacter;
        if (isRight && QChar::isPrint(letters.first()))
            return QString::fromUcs4(letters.constData(), 1);
    }
    size = 1;
    return QStringLiteral("\\x%1").arg(static_cast<uchar>(bytes.at(0)), 2, 16, QLatin1Char('0'));
}

QString shown(std::string_view line)
{
    QByteArray rest(line.data(), static_cast<int>(line.size()));
    rest = rest.trimmed();
    QString text;
    int size = 0;
    for (int count = 0; !rest.isEmpty(); ++count, rest.remove(0, size)) {
        if (count == s_maxShown)
            return text + QLatin1String("...");
        text += firstCharacter(rest, size);
    }
    return text;
}

class Decoder
{
public:
    Decoder(QString path, Console &console)
        : m_path(std::move(path))
        , m_console(console)
        , m_conversation([&console](const CanConversation::Exchange &exchange) {
            console.out() << exchange.line << '\n';
        })
    {
    }

    void take(std::string_view text, bool isTooLong)
    {
        ++m_number;
        if (isTooLong)
            tell(text, "at most 4096 bytes in a line");
        else if (text.find_first_not_of(s_pBlanks) != std::string_view::npos)
            takeLine(text);
    }

    void finish()
    {
        m_conversation.finish();
        if (m_errors > s_maxErrors)
            fail(QStringLiteral("%1 more lines are no CAN frames").arg(m_errors - s_maxErrors));
        if (m_conversation.faults() > 0)
            fail(QStringLiteral("%1 faults: messages that are broken or incomplete, frames of none")
                     .arg(m_conversation.faults()));
        if (m_frames == 0)
            fail(QStringLiteral("there is no CAN frame in it"));
    }

    void fail(const QString &what)
    {
        m_console.fail(ExitNo, QStringLiteral("%1: %2").arg(m_path, what));
    }

private:
    void takeLine(std::string_view text)
    {
        CanLogLine line;
        if (const char *const pExpected = readCanLogLine(text, line)) {
            tell(text, pExpected);
            return;
        }
        ++m_frames;
        if (line.frame.id() != 0) // a note about an injected message
            m_conversation.take(line.frame, line.time);
    }

    void tell(std::string_view text, const char *pExpected)
    {
        if (++m_errors <= s_maxErrors)
            m_console.fail(ExitNo, QStringLiteral("%1:%2: not a CAN frame: %3; expected %4")
                                       .arg(m_path, QString::number(m_number), shown(text),
                                            QString::fromLatin1(pExpected)));
    }

    QString m_path;
    Console &m_console;
    CanConversation m_conversation;
    int m_number = 0; ///< of the line
    int m_frames = 0;
    int m_errors = 0;
};

/// Closes what it was given.
class Descriptor
{
public:
    explicit Descriptor(int number)
        : m_number(number)
    {
    }
    ~Descriptor()
    {
        if (m_number >= 0)
            ::close(m_number);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int number() const { return m_number; }

private:
    int m_number;
};

} // namespace

void decodeCanFile(const QString &path, Console &console)
{
    Decoder decoder(path, console);
    const QString reason = reasonAgainstReading(
        path, QStringLiteral("a file of CAN frames such as \"canBus.txt\""), PipeIs::Taken);
    if (!reason.isEmpty()) {
        decoder.fail(reason);
        return;
    }
    const Descriptor file(
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (file.number() < 0) {
        decoder.fail(qt_error_string(errno));
        return;
    }
    // What comes from a running program is shown as it comes.
    LineReader reader(file.number(), [&console] { console.out().flush(); });
    std::string_view line;
    bool isTooLong = false;
    while (reader.next(line, isTooLong))
        decoder.take(line, isTooLong);
    decoder.finish();
    if (reader.error() != 0)
        decoder.fail(qt_error_string(reader.error()));
}
