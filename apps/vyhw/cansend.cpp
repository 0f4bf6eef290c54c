#include "cansend.h"

#include "canbus/canbus.h"
#include "canbus/canbuschannel.h"
#include "canbus/canbusnode.h"
#include "canbus/caninterface_dummy.h"
#include "canbus/caninterface_multiport.h"
#include "canbus/canmessage.h"
#include "cannames.h"
#include "console.h"
#include "controllerlink.h"
#include "hardwareenvironment.h"
#include "interruption.h"
#include "serverchoice.h"
#include "systempath.h"

#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

QString outcomeText(CanAnswer::AnswerType type)
{
    switch (type) {
    case CanAnswer::AnswerAck:
        return QStringLiteral("acknowledged");
    case CanAnswer::AnswerAckNot:
        return QStringLiteral("refused");
    case CanAnswer::AnswerTimeout:
        return QStringLiteral("not answered");
    case CanAnswer::AnswerSendingError:
    case CanAnswer::AnswerNone:
        break;
    }
    return QStringLiteral("not sent");
}

/// Hears the outcome of each message and prints it.
class Reporter
{
public:
    Reporter(const CanSending &sending, Console &console)
        : m_sending(sending)
        , m_console(console)
    {
        m_time.start();
    }

    void report(const CanAnswer &answer)
    {
        const qint64 ms = m_time.restart();
        const QString outcome = outcomeText(answer.type());
        if (answer.type() == CanAnswer::AnswerAck)
            ++m_acknowledged;
        if (m_sending.isJson) {
            const QJsonObject line{{QStringLiteral("destination"), m_sending.destination},
                                   {QStringLiteral("command"), m_sending.command},
                                   {QStringLiteral("bytes"), bytesText(m_sending.bytes)},
                                   {QStringLiteral("outcome"), outcome},
                                   {QStringLiteral("ms"), ms}};
            m_console.out() << QJsonDocument(line).toJson(QJsonDocument::Compact) << '\n';
        } else {
            m_console.out() << commandText(m_sending.command) << " to "
                            << boardText(m_sending.destination) << ' ' << bytesText(m_sending.bytes)
                            << (m_sending.bytes.isEmpty() ? "" : " ") << outcome << " after " << ms
                            << " ms\n";
        }
        m_console.out().flush();
    }

    int acknowledged() const { return m_acknowledged; }

private:
    const CanSending &m_sending;
    Console &m_console;
    QElapsedTimer m_time;
    int m_acknowledged = 0;
};

/// Why nothing can be written to this file; empty when it can. The library's log only loses lines.
QString reasonAgainstWriting(const QString &path)
{
    const QFileInfo info(path);
    if (!QDir().mkpath(info.path()))
        return QStringLiteral("the folder cannot be made");
    if (info.exists() && !info.isFile())
        return QStringLiteral("not a file");
    QFile file(path);
    return file.open(QIODevice::Append) ? QString() : file.errorString();
}

AbstractCanInterface *makeInterface(const CanSending &sending, QObject *pParent)
{
    if (sending.server) {
        gHardwareEnv->setMultiport(
            new Multiport(serverText(*sending.server), Multiport::ModeLocal, gHardwareEnv));
        return new CanInterface_Multiport(pParent);
    }
    auto *const pDummy = new CanInterface_Dummy(pParent, false);
    pDummy->setAnswerSimulation(true);
    return pDummy;
}

/// Sends all messages, or those until the interruption. The machine's environment is there.
/// \return how many were acknowledged; nothing, and told, without a link to the server
std::optional<int> sendAll(const CanSending &sending, Console &console)
{
    CanBus *const pBus = CanBus::instance();
    AbstractCanInterface *const pInterface = makeInterface(sending, pBus);
    pBus->setInterface(pInterface);
    pBus->setProtocolType(CanBus::CanProtocolVy);
    pInterface->setLogInFile(sending.isInLog); // after the bus has set what it wants
    if (!pInterface->isOpen())
        pInterface->openInterface(QString());
    if (sending.server &&
        !waitForLink(*gHardwareEnv->multiport(), *sending.server, true, console)) {
        CanBus::deleteInstance();
        return std::nullopt;
    }

    QEventLoop loop;
    CanBusNode node(sending.destination);
    Reporter reporter(sending, console);
    const auto report = [&reporter](const CanAnswer &answer) { reporter.report(answer); };
    QObject::connect(&node, &CanBusNode::answerAcknowledged, &loop, report);
    QObject::connect(&node, &CanBusNode::answerError, &loop, report);
    const Interruption interruption;
    QObject::connect(&interruption, &Interruption::interrupted, &loop, [pBus, &node] {
        pBus->clearPendingMessagesToSend(CanBusChannel::channel(node.channelId()));
    });
    QObject::connect(pBus, &CanBus::dequedAllmessages, &loop, &QEventLoop::quit,
                     Qt::QueuedConnection);

    QList<CanMessage *> messages;
    messages.reserve(sending.count);
    for (int i = 0; i < sending.count; ++i)
        messages.append(new CanMessage(sending.destination, sending.command, sending.bytes));
    if (pBus->send(messages, &node))
        loop.exec();
    CanBus::deleteInstance();
    return reporter.acknowledged();
}

} // namespace

void sendOnCan(const CanSending &sending, Console &console)
{
    const QString log = SystemPath::path(SystemPath::Logs) + QLatin1String("canBus.txt");
    const QString reason = sending.isInLog ? reasonAgainstWriting(log) : QString();
    if (!reason.isEmpty()) {
        console.fail(ExitNo, QStringLiteral("%1: cannot be written: %2; name another folder in %3")
                                 .arg(log, reason, SystemPath::variable(SystemPath::Logs)));
        return;
    }
    const qint64 sizeBefore = QFileInfo(log).size();
    const std::optional<int> acknowledged = sendAll(sending, console);
    if (!acknowledged)
        return;
    if (sending.isInLog && QFileInfo(log).size() == sizeBefore)
        console.fail(ExitNo, QStringLiteral("%1: nothing could be written to it").arg(log));
    if (*acknowledged != sending.count)
        console.fail(ExitNo,
                     QStringLiteral("%1 of %2 acknowledged").arg(*acknowledged).arg(sending.count));
}
