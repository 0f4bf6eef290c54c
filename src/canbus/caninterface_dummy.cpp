#include "canbus/caninterface_dummy.h"

#include "canbus/vycan_cmds_and_addr.h"
#include "canbus/vycanframe.h"
#include "canbus/vystream.h"

#include <QPointer>

#include <chrono>

using namespace std::chrono_literals;

namespace {

/// Keeps a frame in memory of its own, so that the sender can write its frames anew.
void remember(CanFrame &kept, const CanFrame &frame)
{
    kept.setId(frame.id());
    kept.setReserved(frame.reserved());
    kept.overwriteData(frame.data().cbegin(), frame.data().cend());
}

} // namespace

CanInterface_Dummy::CanInterface_Dummy(QObject *pParent, bool isTraced)
    : AbstractCanInterface(pParent, true)
    , m_isTraced(isTraced)
{
    m_answerTimer.setSingleShot(true);
    m_answerTimer.setInterval(20ms);
    m_answerTimer.setTimerType(Qt::PreciseTimer);
    if (isSimulated())
        connect(&m_answerTimer, &QTimer::timeout, this,
                [this] { simulateIncomingFrameFromLastFirstFrameSent(); });
    else
        connect(&m_answerTimer, &QTimer::timeout, this,
                &CanInterface_Dummy::simulateIncomingFrameFromLastSent);
}

bool CanInterface_Dummy::openInterface(const QString &name)
{
    if (!m_isTraced)
        return true;
    setInterfaceName(name);
    QFile &file = traceFileDevice();
    file.close();
    file.setFileName(name);
    if (!file.open(QIODevice::ReadWrite | QIODevice::Unbuffered))
        return false;
    file.resize(0);
    return true;
}

bool CanInterface_Dummy::closeInterface()
{
    traceFileDevice().close();
    return true;
}

bool CanInterface_Dummy::isOpen() const
{
    return !m_isTraced || traceFileDevice().isOpen();
}

bool CanInterface_Dummy::writeToCan(const CanFrame &frame)
{
    remember(m_lastFrameSent, frame);
    if (VYCanFrame::isFirstFrame(frame))
        remember(m_lastFirstFrameSent, frame);
    const bool isWritten =
        !m_isTraced || traceFile(frame, false, QStringLiteral("->Simulated Send")) >= 0;
    const QPointer<CanInterface_Dummy> pThis(this);
    Q_EMIT frameSent();
    if (pThis && m_isAnswerSimulation) // a slot may have deleted it
        m_answerTimer.start();
    return isWritten;
}

void CanInterface_Dummy::simulateIncomingFrameFromLastSent()
{
    const CanFrame frame = m_lastFrameSent; // whoever hears it may send another
    if (m_isAnswerSimulation)
        onFrameReceived(frame);
}

void CanInterface_Dummy::simulateIncomingFrameFromLastFirstFrameSent(int answerCommand)
{
    if (!m_isAnswerSimulation || m_lastFirstFrameSent.dataSize() == 0)
        return;
    const VYCanFrame sent(m_lastFirstFrameSent);
    const int answered = sent.messageCommandInFirstFrame();
    if (CanVy::isAcknowledge(answered))
        return;
    VYCanFrame answer(CanVy::acknowledgeFrame(sent.destinationAddress(), sent.sourceAddress(),
                                              answerCommand, answered));
    answer.setId(sent.id()); // with the bits above its fields
    answer.setSourceAddress(sent.destinationAddress());
    answer.setDestinationAddress(sent.sourceAddress());
    onFrameReceived(answer);
}

void CanInterface_Dummy::simulateIncomingFrame(const CanFrame &frame)
{
    if (m_isAnswerSimulation)
        onFrameReceived(frame);
}
