#include "serveraddress.h"

#include "linkrecords.h"

#include <QRegularExpression>

namespace multiportlink {

std::optional<ServerAddress> serverAddress(const QString &text)
{
    static const QRegularExpression s_form(
        QStringLiteral(R"(^(?:\[([^\]]+)\]|([^:\[\]\s]+))(?::(\d{1,5}))?$)"));
    const QRegularExpressionMatch match = s_form.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    const int port =
        match.capturedLength(3) > 0 ? match.captured(3).toInt() : static_cast<int>(ControlPort);
    if (port < 1 || port > 0xffff)
        return std::nullopt;
    return ServerAddress{match.captured(1) + match.captured(2), static_cast<quint16>(port)};
}

} // namespace multiportlink
