#include "multiport.h"

#include "linkclient_p.h"
#include "linkqueue_p.h"
#include "linkrecords.h"
#include "logformatter.h"
#include "monitoredqthread.h"
#include "packed_p.h"
#include "serveraddress.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QEvent>
#include <atomic>
#include <utility>

namespace {

constexpr int s_maxCanBytes = 64 * 1024; ///< that wait for the end of this turn of the event loop
constexpr int s_usualCanBytes = 1024;    ///< the longest message
constexpr int s_maxRequests = 1024;      ///< on their way to the client's thread

const QEvent::Type s_linkEvent = static_cast<QEvent::Type>(QEvent::registerEventType());

} // namespace

/// What only the source knows: the thread, what lives in it, and what is on its way there.
class Multiport::Private
{
public:
    explicit Private(Multiport *pOwner)
        : events([pOwner] { QCoreApplication::postEvent(pOwner, new QEvent(s_linkEvent)); })
        , pLink(new LinkClient(&events))
        , pCanBus(pLink->canBus())
        , pPayment(pLink->payment())
    {
        pLink->moveToThread(&thread);
        QObject::connect(&thread, &QThread::finished, pLink, &QObject::deleteLater);
        thread.start();
    }

    ~Private()
    {
        // From inside: a loop that is ended from here leaves what it was told undone.
        run([pLink = pLink] {
            pLink->stop();
            QThread::currentThread()->quit();
        });
        thread.wait();
    }
    Q_DISABLE_COPY_MOVE(Private)

    /// Has the thread do it, after everything that it was told before.
    template <typename Function>
    void run(Function function)
    {
        QMetaObject::invokeMethod(pLink, std::move(function), Qt::QueuedConnection);
    }

    DataConnection *connection(int interface) const
    {
        if (interface == Multiport::CanBusInterface)
            return pCanBus;
        return interface == Multiport::PaymentInterface ? pPayment : nullptr;
    }

    LinkQueue events;
    monitored_threads::MonitoredQThread thread{QStringLiteral("Multiport"), true};
    LinkClient *const pLink;        ///< deleted by the thread when it ends
    DataConnection *const pCanBus;  ///< the link's
    DataConnection *const pPayment; ///< the link's
    std::atomic<bool> isCanBusOpen = false;
    std::atomic<bool> isPaymentOpen = false;
    std::atomic<int> requests = 0;    ///< on their way to the thread
    std::atomic<int> canOnTheWay = 0; ///< bytes on their way to the thread
    QByteArray canBytes;              ///< that this turn of the event loop has written
    unsigned int canGeneration = 0;   ///< when they were written
};

Multiport::Multiport(QString server, int mode, QObject *pParent)
    : QObject(pParent)
    , m_server(std::move(server))
    , m_mode(mode)
    , m_pPrivate(std::make_unique<Private>(this))
{
    // The end of a turn of the event loop, whether it waits then or is called again and again. An
    // event of our own would wake the loop once more for each message.
    if (const auto *const pDispatcher = QAbstractEventDispatcher::instance()) {
        connect(pDispatcher, &QAbstractEventDispatcher::aboutToBlock, this,
                &Multiport::flushCanBus);
        connect(pDispatcher, &QAbstractEventDispatcher::awake, this, &Multiport::flushCanBus);
    }
}

Multiport::~Multiport()
{
    flushCanBus();
}

void Multiport::init(bool isOn)
{
    m_isStarted = isOn;
    flushCanBus();
    LinkClient *const pLink = m_pPrivate->pLink;
    if (!isOn) {
        m_pPrivate->run([pLink] { pLink->stop(); });
        return;
    }
    const auto address = multiportlink::serverAddress(m_server);
    if (!address) {
        LogFormatter(4, Log::Hardware)
            << Q_FUNC_INFO << "No server" << quoted(m_server)
            << "but expected a host, or host:port with a port up to 65535";
        return;
    }
    m_pPrivate->run([pLink, address] { pLink->start(address->host, address->port); });
}

void Multiport::setEnabled(Multiport::Interface interface, bool isOn)
{
    DataConnection *const pConnection = m_pPrivate->connection(interface);
    if (!pConnection) {
        LogFormatter(4, Log::Hardware) << Q_FUNC_INFO << "No interface"
                                       << static_cast<int>(interface) << "but expected 1 or 3";
        return;
    }
    flushCanBus();
    (interface == CanBusInterface ? m_pPrivate->isCanBusOpen : m_pPrivate->isPaymentOpen) = isOn;
    m_pPrivate->run([pConnection, isOn] { pConnection->setWanted(isOn); });
}

bool Multiport::isOpen(Interface interface) const
{
    if (interface == CanBusInterface)
        return m_pPrivate->isCanBusOpen;
    return interface == PaymentInterface && m_pPrivate->isPaymentOpen;
}

MultiportInterface *Multiport::interface(Interface interface) const
{
    return m_pPrivate->connection(interface);
}

bool Multiport::writeToCanBus(const QByteArray &bytes)
{
    const unsigned int generation = m_pPrivate->pCanBus->generation();
    if (generation == 0) {
        LogFormatter(3, Log::CanBus) << Q_FUNC_INFO << "No link to the multiport server,"
                                     << bytes.size() << "bytes not sent";
        return false;
    }
    QByteArray &waiting = m_pPrivate->canBytes;
    if (m_pPrivate->canOnTheWay + waiting.size() + bytes.size() > multiportlink::MaxBacklog) {
        LogFormatter(3, Log::CanBus) << Q_FUNC_INFO << "Too much waits for the multiport server,"
                                     << bytes.size() << "bytes not sent";
        return false;
    }
    if (generation != m_pPrivate->canGeneration)
        flushCanBus();
    m_pPrivate->canGeneration = generation;
    if (waiting.isEmpty())
        waiting.reserve(s_usualCanBytes);
    waiting += bytes;
    if (waiting.size() >= s_maxCanBytes)
        flushCanBus();
    return true;
}

void Multiport::flushCanBus()
{
    if (m_pPrivate->canBytes.isEmpty())
        return;
    m_pPrivate->canOnTheWay += m_pPrivate->canBytes.size();
    m_pPrivate->run([p = m_pPrivate.get(), generation = m_pPrivate->canGeneration,
                     bytes = std::exchange(m_pPrivate->canBytes, {})] {
        p->canOnTheWay -= bytes.size();
        p->pCanBus->writeIf(generation, bytes);
    });
}

bool Multiport::event(QEvent *pEvent)
{
    if (pEvent->type() != s_linkEvent)
        return QObject::event(pEvent);
    if (const auto taken = m_pPrivate->events.take()) {
        if (taken->wasFull)
            m_pPrivate->run([pLink = m_pPrivate->pLink] { pLink->readOn(); });
        deliver(taken->event); // last: whoever hears it may delete us
    }
    return true;
}

void Multiport::deliver(const LinkEvent &event)
{
    switch (event.type) {
    case LinkEvent::Type::ServerConnected:
        m_isServerConnected = event.first != 0;
        Q_EMIT multiportServerConnectedChanged(m_isServerConnected);
        return;
    case LinkEvent::Type::CanConnected:
        m_pPrivate->pCanBus->setTold(event.number);
        m_isCanBusConnected = event.number != 0;
        Q_EMIT canBusConnectedChanged(m_isCanBusConnected);
        return;
    case LinkEvent::Type::PaymentConnected:
        m_pPrivate->pPayment->setTold(event.number);
        m_isPaymentConnected = event.number != 0;
        Q_EMIT paymentConnectedChanged(m_isPaymentConnected);
        return;
    case LinkEvent::Type::CanData:
        Q_EMIT newDataOnCanBus(event.bytes);
        return;
    case LinkEvent::Type::PaymentData:
        Q_EMIT m_pPrivate->pPayment->dataReceived(m_pPrivate->pPayment->port(), event.bytes);
        return;
    case LinkEvent::Type::Terminated:
        Q_EMIT lastCommandTerminationStatus(event.first, event.second);
        return;
    case LinkEvent::Type::Reported:
        report(event.first, event.bytes);
        return;
    }
}

void Multiport::report(unsigned char event, const QByteArray &payload)
{
    const auto byte = [&payload](int i) { return static_cast<unsigned char>(payload.at(i)); };
    if (event == MultiportProtocol::EventUpperMicroswitch && payload.size() == 1)
        Q_EMIT daddUpperMicroswitchStatus(byte(0));
    else if (event == MultiportProtocol::EventLowerMicroswitch && payload.size() == 1)
        Q_EMIT daddLowerMicroswitchStatus(byte(0));
    else if (event == MultiportProtocol::EventMicroswitches && payload.size() == 2)
        Q_EMIT daddMicroswitchesStatusReceived(byte(0), byte(1));
    else if (event == MultiportProtocol::EventMotorStatus && payload.size() == 2)
        Q_EMIT motorStatusChanged(byte(0), byte(1));
    else
        LogFormatter(4, Log::Hardware)
            << Q_FUNC_INFO << "Unknown event" << event << "with" << payload.size() << "bytes";
}

void Multiport::request(unsigned char command, const QByteArray &payload)
{
    const unsigned int generation = m_pPrivate->pLink->generation();
    if (generation == 0 || m_pPrivate->requests >= s_maxRequests) {
        LogFormatter(3, Log::Hardware)
            << Q_FUNC_INFO
            << (generation == 0 ? "No link to the multiport server, command"
                                : "Too many requests at once, command")
            << command << payload.toHex(' ') << "not sent";
        return;
    }
    ++m_pPrivate->requests;
    m_pPrivate->run([p = m_pPrivate.get(), generation, command, payload] {
        --p->requests;
        p->pLink->request(generation, command, payload);
    });
}

void Multiport::setSerialLineParameters(MultiportInterface::Port port,
                                        MultiportProtocol::BaudRate baudRate,
                                        MultiportProtocol::DataBits dataBits,
                                        MultiportProtocol::Parity parity,
                                        MultiportProtocol::MDBMode mdbMode)
{
    const QByteArray payload = multiportlink::encode(multiportlink::SerialLine{
        static_cast<quint16>(port), static_cast<quint32>(baudRate), static_cast<quint8>(dataBits),
        static_cast<quint8>(parity), static_cast<quint8>(mdbMode)});
    const unsigned int generation = m_pPrivate->pLink->generation();
    if (generation == 0)
        LogFormatter(1, Log::Hardware)
            << Q_FUNC_INFO << "No link to the multiport server, kept for when the line is open";
    if (m_pPrivate->requests >= s_maxRequests) {
        LogFormatter(3, Log::Hardware)
            << Q_FUNC_INFO << "Too many requests at once, serial line not set up";
        return;
    }
    ++m_pPrivate->requests;
    m_pPrivate->run([p = m_pPrivate.get(), generation, payload] {
        --p->requests;
        p->pLink->setSerialLine(generation, payload);
    });
}

void Multiport::setOutputEnabled(int output, bool isOn)
{
    switchOutput(MultiportProtocol::CommandSetOutput, output, isOn);
}

void Multiport::setBlinkOutput(int output, bool isOn)
{
    switchOutput(MultiportProtocol::CommandBlinkOutput, output, isOn);
}

void Multiport::switchOutput(unsigned char command, int output, bool isOn)
{
    constexpr int maxOutput = 0xff;
    if (output < 0 || output > maxOutput) {
        LogFormatter(4, Log::Hardware)
            << Q_FUNC_INFO << "No output" << output << "but expected 0 to 255";
        return;
    }
    request(command,
            multiportlink::packed(static_cast<quint8>(output), static_cast<quint8>(isOn ? 1 : 0)));
}

void Multiport::startDaddMotor(const MultiportProtocol::MotorStartPlusParams &parameters)
{
    request(MultiportProtocol::CommandStartMotor,
            multiportlink::packed(parameters.motorNumber, parameters.direction,
                                  parameters.firstPhaseSpeed, parameters.firstPhaseDuration,
                                  parameters.secondPhaseSpeed, parameters.secondPhaseDuration));
}

void Multiport::stopMotor(unsigned char motor)
{
    request(MultiportProtocol::CommandStopMotor, multiportlink::packed(motor));
}

void Multiport::motorStatus(unsigned char motor)
{
    request(MultiportProtocol::CommandMotorStatus, multiportlink::packed(motor));
}

void Multiport::setParameter(unsigned short number, unsigned short value)
{
    request(MultiportProtocol::CommandSetParameter, multiportlink::packed(number, value));
}

void Multiport::sendRequestDigitInput()
{
    request(MultiportProtocol::CommandDigitInput, {});
}
