#include "canmonitor.h"

#include "canbus/canrecord.h"
#include "canbus/vycan_cmds_and_addr.h"
#include "canconversation.h"
#include "cannames.h"
#include "console.h"
#include "lineobserver.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <unistd.h>

namespace {

constexpr qint64 s_dayMs = 86400000;

CanConversation::Time now()
{
    const QDateTime utc = QDateTime::currentDateTimeUtc();
    return utc.date().toJulianDay() * s_dayMs + utc.time().msecsSinceStartOfDay();
}

QString jsonTime(const CanConversation::Time &time)
{
    const QDate day = QDate::fromJulianDay(*time / s_dayMs);
    const QTime clock = QTime::fromMSecsSinceStartOfDay(static_cast<int>(*time % s_dayMs));
    return QDateTime(day, clock, Qt::UTC).toString(Qt::ISODateWithMs);
}

QByteArray jsonLine(const CanConversation::Exchange &exchange)
{
    QJsonObject line{{QStringLiteral("time"), jsonTime(exchange.time)},
                     {QStringLiteral("source"), exchange.source},
                     {QStringLiteral("destination"), exchange.destination},
                     {QStringLiteral("bytes"), exchange.payload},
                     {QStringLiteral("outcome"), exchange.outcome},
                     {QStringLiteral("fault"), exchange.isFault}};
    if (exchange.command >= 0) {
        line.insert(QStringLiteral("command"), exchange.command);
        line.insert(QStringLiteral("name"), commandText(exchange.command));
    }
    return QJsonDocument(line).toJson(QJsonDocument::Compact);
}

/// On a terminal: faults and what was refused red, what nobody answered yellow.
QString coloured(const CanConversation::Exchange &exchange)
{
    const bool isBad = exchange.isFault || exchange.outcome.startsWith(QLatin1String("refused"));
    const bool isUnanswered = exchange.outcome.startsWith(QLatin1String("no answer"));
    if (!isBad && !isUnanswered)
        return exchange.line;
    const int begin = exchange.line.lastIndexOf(QLatin1Char('\n')) + 1; // a new day has no colour
    return exchange.line.left(begin) + QLatin1String(isBad ? "\033[31m" : "\033[33m") +
           exchange.line.mid(begin) + QLatin1String("\033[0m");
}

} // namespace

void monitorCan(const CanMonitoring &monitoring, Console &console)
{
    const bool isTerminal = ::isatty(STDOUT_FILENO) == 1;
    const auto print = [&](const CanConversation::Exchange &exchange) {
        if (monitoring.isJson)
            console.out() << QString::fromUtf8(jsonLine(exchange)) << '\n';
        else
            console.out() << (isTerminal ? coloured(exchange) : exchange.line) << '\n';
        console.out().flush();
    };
    CanConversation conversation(print);
    CanRecord::Reader reader;
    CanFrame frame;
    const auto take = [&](const QByteArray &bytes) {
        reader.append(bytes);
        while (reader.next(frame))
            conversation.take(frame, now());
        return !reader.isBroken();
    };
    observeLine(monitoring.server, Multiport::CanBusInterface, monitoring.seconds, console, take,
                [&conversation] { conversation.wait(now()); });
    conversation.finish();
    if (reader.isBroken())
        console.fail(ExitNo, QStringLiteral("the server sent what is no CAN frame"));
}
