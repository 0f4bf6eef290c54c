#ifndef LINKPAGE_H
#define LINKPAGE_H

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QMap>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

/// The page of the link, as far as a program can read it. LINK_PAGE is the file.
namespace linkpage {

inline QStringList lines()
{
    QFile file(QStringLiteral(LINK_PAGE));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
}

struct Example
{
    QString from; ///< "client", "server", "either"; empty where the page does not say
    QByteArray bytes;
};

/// The lines in hexadecimal between ``` and ```, in their order.
inline QList<Example> examples()
{
    static const QRegularExpression s_line(
        QStringLiteral("^(?:(client|server|either)  )?((?:[0-9a-f]{2} ?)+)(?:  .*)?$"));
    QList<Example> examples;
    bool isInside = false;
    const auto all = lines();
    for (const QString &line : all) {
        if (line == QLatin1String("```")) {
            isInside = !isInside;
            continue;
        }
        const QRegularExpressionMatch match = s_line.match(line);
        if (isInside && match.hasMatch())
            examples.append({match.captured(1), QByteArray::fromHex(match.captured(2).toLatin1())});
    }
    return examples;
}

/// The first two columns of the table whose first column is headed like this; numbers as they are
/// written there.
inline QMap<int, QString> table(const QString &head)
{
    QMap<int, QString> rows;
    bool isInside = false;
    const auto all = lines();
    for (const QString &line : all) {
        const QStringList cells = line.split(QLatin1Char('|'));
        if (cells.size() < 4) {
            isInside = false;
            continue;
        }
        if (cells.at(1).trimmed() == head)
            isInside = true;
        bool isNumber = false;
        const int number = cells.at(1).trimmed().toInt(&isNumber, 0);
        if (isInside && isNumber)
            rows.insert(number, cells.at(2).trimmed());
    }
    return rows;
}

} // namespace linkpage

#endif // LINKPAGE_H
