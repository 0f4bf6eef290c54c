#include "candecode.h"

#include "canconversation.h"
#include "console.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <optional>

namespace {

/// Longer than any line that the library writes.
constexpr qint64 s_maxLine = 4096;
constexpr int s_maxErrors = 20; ///< lines that are told one by one

struct SeenFrame
{
    CanFrame frame;
    QDateTime time; ///< invalid in a trace, whose lines have none
};

std::optional<SeenFrame> seenFrame(const QString &line)
{
    static const QRegularExpression s_line(
        QStringLiteral("^(?:(\\d{4}-\\S+Z) )?(?: <TX<<|>>RX> ) \\|id:0x([0-9a-f]{16})"
                       "\\|data\\((\\d+)\\):((?: 0x[0-9a-f]{2})*) *\\| "));
    const QRegularExpressionMatch match = s_line.match(line);
    if (!match.hasMatch())
        return std::nullopt;
    SeenFrame seen;
    bool isId = false;
    seen.frame.setId(match.captured(2).toUInt(&isId, 16));
    if (!isId)
        return std::nullopt;
    const QStringList bytes = match.captured(4).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const QString &byte : bytes)
        seen.frame.appendData(static_cast<char>(byte.toInt(nullptr, 16)));
    if (bytes.size() != match.captured(3).toInt())
        return std::nullopt;
    seen.time = QDateTime::fromString(match.captured(1), Qt::ISODateWithMs);
    return seen;
}

} // namespace

void decodeCanFile(const QString &path, Console &console)
{
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly)) {
        console.fail(ExitNo,
                     QStringLiteral("%1: cannot be read; expected a file of CAN frames such "
                                    "as \"canBus.txt\"")
                         .arg(path));
        return;
    }
    CanConversation conversation(
        [&console](const QString &line) { console.out() << line << '\n'; });
    int frames = 0;
    int errors = 0;
    for (int number = 1; !file.atEnd(); ++number) {
        const QByteArray bytes = file.readLine(s_maxLine);
        const QString line = QString::fromUtf8(bytes).trimmed();
        if (line.isEmpty())
            continue;
        // The direction of a sent frame begins with a blank that belongs to it.
        const std::optional<SeenFrame> seen = seenFrame(QString::fromUtf8(bytes));
        if (!seen) {
            if (++errors <= s_maxErrors)
                console.fail(ExitNo, QStringLiteral("%1:%2: not a CAN frame: %3")
                                         .arg(path)
                                         .arg(number)
                                         .arg(line.left(60)));
            continue;
        }
        ++frames;
        if (seen->frame.id() != 0) // a note about an injected message
            conversation.take(seen->frame, seen->time);
    }
    conversation.finish();
    if (errors > s_maxErrors)
        console.fail(ExitNo, QStringLiteral("%1: %2 more lines are no CAN frames")
                                 .arg(path)
                                 .arg(errors - s_maxErrors));
    if (frames == 0)
        console.fail(ExitNo, QStringLiteral("%1: there is no CAN frame in it").arg(path));
}
