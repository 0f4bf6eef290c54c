#include "simulator/paymentmaster.h"

#include "logformatter.h"

#include <utility>

using namespace Multidrop;

namespace {

constexpr int s_maxPrice = 0xFFFE;
constexpr int s_maxItem = 0xFFFF;

/// Level 1, no display.
QByteArray masterConfiguration()
{
    return QByteArray::fromHex("01000000");
}

/// The bytes that an answer has at least, its first one included.
int sizeOf(unsigned char response)
{
    switch (response) {
    case ConfigData:
        return 8;
    case BeginSession:
    case VendApproved:
        return 3;
    default:
        return 1;
    }
}

} // namespace

PaymentMaster::PaymentMaster(Writer write, QObject *pParent)
    : QObject(pParent)
    , m_write(std::move(write))
{
    for (QTimer *const pTimer : {&m_nextTimer, &m_answerTimer}) {
        pTimer->setSingleShot(true);
        pTimer->setTimerType(Qt::PreciseTimer);
    }
    connect(&m_nextTimer, &QTimer::timeout, this, &PaymentMaster::onNext);
    connect(&m_answerTimer, &QTimer::timeout, this, &PaymentMaster::onTimeout);
}

void PaymentMaster::start()
{
    m_isFailureTold = false;
    begin();
    m_nextTimer.start(CommandGap);
}

void PaymentMaster::begin()
{
    stop();
    m_toAsk = {{Reset, {}}};
}

void PaymentMaster::stop()
{
    m_nextTimer.stop();
    m_answerTimer.stop();
    m_toAsk.clear();
    m_asked.reset();
    m_attempts = 0;
    m_resetPolls = 0;
    m_answer.clear();
    m_isReady = false;
    m_vend = Vend::None;
    onSessionEnd();
}

bool PaymentMaster::requestVend(int cents, int item)
{
    const bool isPossible = m_isInSession && m_vend == Vend::None;
    if (!isPossible || cents < 1 || cents > s_maxPrice || item < 0 || item > s_maxItem)
        return false;
    m_vend = Vend::Requested;
    m_item = item;
    ask(VendRequest, shortBytes(cents) + shortBytes(item));
    return true;
}

bool PaymentMaster::finishVend(bool isSuccess)
{
    if (m_vend != Vend::Approved)
        return false;
    m_vend = Vend::None;
    if (isSuccess)
        ask(VendSuccess, shortBytes(m_item));
    else
        ask(VendFailure);
    ask(SessionComplete);
    return true;
}

bool PaymentMaster::endSession()
{
    if (!m_isInSession || m_vend != Vend::None)
        return false;
    ask(SessionComplete);
    return true;
}

void PaymentMaster::ask(int request, const QByteArray &payload)
{
    m_toAsk.append({request, payload});
    if (!m_asked) // else the end of the answer under way goes on with it
        m_nextTimer.start(CommandGap);
}

void PaymentMaster::onNext()
{
    m_asked = m_toAsk.isEmpty() ? Asked{Poll, {}} : m_toAsk.takeFirst();
    m_attempts = 1;
    send();
}

void PaymentMaster::send()
{
    m_answer.clear();
    m_answerTimer.start(AnswerTimeout);
    write(requestCharacters(m_asked->request, m_asked->payload));
}

void PaymentMaster::write(const Characters &characters)
{
    if (!m_write(characters))
        fail(QStringLiteral("the line cannot be written"));
}

void PaymentMaster::onTimeout()
{
    tryAgain(QStringLiteral("no answer"), true);
}

/// \param isWholeRequest the request is sent again; else the reader is asked to repeat its answer
void PaymentMaster::tryAgain(const QString &reason, bool isWholeRequest)
{
    if (m_attempts >= MaxAttempts) {
        fail(QStringLiteral("%1 to request 0x%2")
                 .arg(reason)
                 .arg(m_asked->request, 4, 16, QLatin1Char('0')));
        return;
    }
    ++m_attempts;
    if (isWholeRequest) {
        send();
        return;
    }
    m_answer.clear();
    m_answerTimer.start(AnswerTimeout);
    write({{false, Ret}});
}

void PaymentMaster::fail(const QString &reason)
{
    LogFormatter(3, Log::Payment) << Q_FUNC_INFO << reason;
    const bool isTold = std::exchange(m_isFailureTold, true);
    begin();
    m_nextTimer.start(RestartPause);
    if (!isTold)
        Q_EMIT lineFailed(reason);
}

void PaymentMaster::onCharacter(bool isMode, unsigned char byte)
{
    if (!m_asked)
        return; // nothing was asked, or it has been answered
    m_answer.append(static_cast<char>(byte));
    if (!isMode) {
        if (m_answer.size() > MaxBlock)
            fail(QStringLiteral("endless answer"));
        return;
    }
    if (m_answer.size() == 1)
        onSingle(byte);
    else
        onBlock();
}

void PaymentMaster::onSingle(unsigned char byte)
{
    if (byte == Ack)
        onAcknowledged();
    else
        tryAgain(QStringLiteral("refusal as answer"), true);
}

/// The request is answered; whatever comes from now on belongs to none.
void PaymentMaster::endAnswer()
{
    m_answerTimer.stop();
    m_asked.reset();
    m_nextTimer.start(m_toAsk.isEmpty() ? PollPeriod : CommandGap);
}

void PaymentMaster::onAcknowledged()
{
    const int request = m_asked->request;
    if (request == Reset)
        m_resetPolls = MaxResetPolls;
    else if (request == Poll && m_resetPolls > 0 && --m_resetPolls == 0) {
        fail(QStringLiteral("the reader does not tell that it was reset"));
        return;
    }
    endAnswer();
    if (request == SetupPrices) {
        ask(ReaderEnable);
    } else if (request == ReaderEnable) {
        m_isReady = true;
        m_isFailureTold = false;
        Q_EMIT ready();
    } else if (request == VendSuccess) {
        Q_EMIT vendSucceeded();
    }
}

void PaymentMaster::onBlock()
{
    const std::optional<QByteArray> data = checked(m_answer);
    if (!data) {
        tryAgain(QStringLiteral("wrong checksum in the answer"), false);
        return;
    }
    if (data->size() < sizeOf(static_cast<unsigned char>(data->at(0)))) {
        fail(QStringLiteral("answer too short"));
        return;
    }
    endAnswer();
    if (m_write({{false, Ack}}))
        onAnswer(*data);
    else
        fail(QStringLiteral("the line cannot be written"));
}

void PaymentMaster::onAnswer(const QByteArray &data)
{
    switch (static_cast<unsigned char>(data.at(0))) {
    case JustReset: // also of a reader that has restarted by itself
        begin();
        m_toAsk.clear();
        ask(SetupConfig, masterConfiguration());
        return;
    case ConfigData:
        ask(SetupPrices, shortBytes(s_maxPrice) + shortBytes(0));
        return;
    case BeginSession:
        m_isInSession = true;
        Q_EMIT sessionBegan(shortAt(data, 1));
        return;
    case SessionCancelRequest:
        endSession();
        return;
    case VendApproved:
        m_vend = Vend::Approved;
        Q_EMIT vendApproved(shortAt(data, 1));
        return;
    case VendDenied:
        m_vend = Vend::None;
        Q_EMIT vendDenied();
        return;
    case EndSession:
        onSessionEnd();
        return;
    case Cancelled:
        return;
    default: // out of sequence, or unknown
        fail(QStringLiteral("answer 0x%1")
                 .arg(static_cast<unsigned char>(data.at(0)), 2, 16, QLatin1Char('0')));
    }
}

void PaymentMaster::onSessionEnd()
{
    if (std::exchange(m_isInSession, false))
        Q_EMIT sessionEnded();
}
