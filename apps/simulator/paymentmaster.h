#ifndef PAYMENTMASTER_H
#define PAYMENTMASTER_H

#include "simulator/multidrop.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>
#include <optional>

/// The master of a payment line with one card reader, as an application would be it: it resets the
/// reader, sets it up, enables and polls it, and takes a card payment through. What it writes goes
/// through a function, what the line says comes to onCharacter(), so that any UART will do.
///
///     PaymentMaster master([&uart](const Multidrop::Characters &c) { return uart.writeBytes(c);
///     }); connect(&master, &PaymentMaster::sessionBegan, ... master.requestVend(120, 7) ...);
///     master.start();
///
/// A line that fails (no answer to three attempts, three wrong checksums, an answer that makes no
/// sense) is told once by lineFailed(); from then on the master begins anew with a reset every
/// RestartPause, until it is ready(). Amounts are in cents.
class PaymentMaster : public QObject
{
    Q_OBJECT

public:
    /// False when the characters could not be written.
    using Writer = std::function<bool(const Multidrop::Characters &characters)>;

    static constexpr std::chrono::milliseconds PollPeriod{100}; ///< from an answer to the next poll
    static constexpr std::chrono::milliseconds CommandGap{20};  ///< to the next other request
    static constexpr std::chrono::milliseconds AnswerTimeout{200}; ///< the line has a network in it
    static constexpr std::chrono::milliseconds RestartPause{1000};
    static constexpr int MaxAttempts = 3;
    static constexpr int MaxResetPolls = 10; ///< until the reader tells that it was reset

    explicit PaymentMaster(Writer write, QObject *pParent = nullptr);

    /// Begins with a reset; ends whatever was under way.
    void start();
    void stop();

    bool isReady() const { return m_isReady; }
    bool isInSession() const { return m_isInSession; }

    // Each false outside its place: in a session, after vendApproved(), in a session.
    bool requestVend(int cents, int item);
    /// The product has been given out, or could not be; the session is then ended.
    bool finishVend(bool isSuccess);
    bool endSession();

public Q_SLOTS:
    /// A character that the reader sent. A late or repeated one is overlooked.
    void onCharacter(bool isMode, unsigned char byte);

Q_SIGNALS:
    void ready(); ///< the reader is enabled
    void sessionBegan(int funds);
    void vendApproved(int amount);
    void vendDenied(); ///< the session goes on
    void vendSucceeded();
    void sessionEnded(); ///< also when the line fails in a session
    void lineFailed(const QString &reason);

private:
    struct Asked
    {
        int request;
        QByteArray payload;
    };
    enum class Vend { None, Requested, Approved };

    void ask(int request, const QByteArray &payload = {});
    void onNext();
    void send();
    void write(const Multidrop::Characters &characters);
    void onTimeout();
    void tryAgain(const QString &reason, bool isWholeRequest);
    void fail(const QString &reason);
    void endAnswer();
    void begin();

    void onSingle(unsigned char byte);
    void onAcknowledged();
    void onBlock();
    void onAnswer(const QByteArray &data);
    void onSessionEnd();

    Writer m_write;
    QTimer m_nextTimer{this};   ///< to the next request
    QTimer m_answerTimer{this}; ///< runs while an answer is awaited
    QList<Asked> m_toAsk;
    std::optional<Asked> m_asked; ///< while its answer is awaited
    int m_attempts = 0;
    int m_resetPolls = 0; ///< polls that may still come before the reader tells its reset
    QByteArray m_answer;
    bool m_isReady = false;
    bool m_isInSession = false;
    bool m_isFailureTold = false;
    Vend m_vend = Vend::None;
    int m_item = 0;
};

#endif // PAYMENTMASTER_H
