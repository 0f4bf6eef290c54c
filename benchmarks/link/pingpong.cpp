#include "pingpong.h"

#include "canbus/canbus.h"
#include "canbus/canbusnode.h"
#include "canbus/canmessage.h"
#include "echosocket.h"
#include "linkpeer.h"

#include <QThread>

EchoPingPong::EchoPingPong(quint16 port, bool isInThread)
    : m_pSocket(new EchoSocket)
{
    connect(this, &EchoPingPong::sendAsked, m_pSocket, &EchoSocket::write);
    connect(m_pSocket, &EchoSocket::received, this, &EchoPingPong::take);
    if (!isInThread) {
        m_pSocket->open(port);
        return;
    }
    m_pThread = new QThread(this);
    m_pSocket->moveToThread(m_pThread);
    m_pThread->start();
    QMetaObject::invokeMethod(
        m_pSocket, [this, port] { m_pSocket->open(port); }, Qt::BlockingQueuedConnection);
}

EchoPingPong::~EchoPingPong()
{
    m_pSocket->deleteLater();
    if (m_pThread) {
        m_pThread->quit();
        m_pThread->wait();
    }
}

void EchoPingPong::send()
{
    Q_EMIT sendAsked(QByteArray(LinkPeer::RecordSize, 'x'));
}

void EchoPingPong::take(const QByteArray &bytes)
{
    m_waiting += bytes.size();
    if (m_waiting < LinkPeer::RecordSize)
        return;
    m_waiting = 0;
    Q_EMIT answered();
}

BusPingPong::BusPingPong(CanBus *pBus, int address, int command, int dataSize)
    : m_pBus(pBus)
    , m_pNode(new CanBusNode(address))
    , m_address(address)
    , m_command(command)
    , m_dataSize(dataSize)
{
    connect(m_pNode, &CanBusNode::answerAcknowledged, this, &PingPong::answered);
    connect(m_pNode, &CanBusNode::answerError, this, [this] {
        ++m_failures;
        Q_EMIT answered();
    });
}

BusPingPong::~BusPingPong()
{
    delete m_pNode;
}

void BusPingPong::send()
{
    CanBytes bytes;
    bytes.reserve(m_dataSize);
    for (int i = 0; i < m_dataSize; ++i)
        bytes.append(static_cast<unsigned char>(i));
    m_pBus->send(new CanMessage(m_address, m_command, bytes), m_pNode);
}
