#ifndef MESSAGESPY_H
#define MESSAGESPY_H

#include <QList>
#include <QString>
#include <mutex>

/// Takes what goes to Qt's message handler while it lives, which is not printed then. One at a time
/// in a process; any thread may log meanwhile.
class MessageSpy
{
public:
    struct Message
    {
        QtMsgType type;
        QString category;
        QString text;
    };

    MessageSpy()
    {
        s_pSpy = this;
        m_previous = qInstallMessageHandler(&MessageSpy::take);
    }
    ~MessageSpy()
    {
        qInstallMessageHandler(m_previous);
        s_pSpy = nullptr;
    }
    Q_DISABLE_COPY_MOVE(MessageSpy)

    QList<Message> messages() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_messages;
    }

private:
    static void take(QtMsgType type, const QMessageLogContext &context, const QString &text)
    {
        const std::lock_guard<std::mutex> lock(s_pSpy->m_mutex);
        s_pSpy->m_messages.append({type, QString::fromUtf8(context.category), text});
    }

    static inline MessageSpy *s_pSpy = nullptr;

    mutable std::mutex m_mutex;
    QList<Message> m_messages;
    QtMessageHandler m_previous = nullptr;
};

#endif // MESSAGESPY_H
