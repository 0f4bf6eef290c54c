#ifndef BUSJOURNAL_H
#define BUSJOURNAL_H

#include "canbus/canbus.h"
#include "canbus/canbusnode.h"
#include "canbus/vycanframe.h"
#include "recordinginterface.h"

#include "assertions.h"
#include "logformatter.h"

#include <QObject>
#include <QSharedPointer>
#include <QString>

#include <string>
#include <utility>
#include <vector>

/// What the bus, its nodes, its log and its wire have said, in one order:
///
///     "wire 36"                          a message's first frame was written
///     "log : Sending failed."            a line of the module, from its fixed text on
///     "assert 478: text"
///     "bus communicationTimeout 4 36"    answer type, then the message's command or "null"
///     "A answerError 4 36"
///
/// Lines that come with every frame received are left out.
class BusJournal : public QObject
{
public:
    BusJournal()
        : m_logObserver(LogFormatter::addObserver([this](const LogRecord &record) {
            if (record.module == Log::CanBus)
                addLine(record.text.simplified());
        }))
        , m_assertObserver(addAssertObserver([this](const AssertRecord &record) {
            add(QStringLiteral("assert %1: %2").arg(record.line).arg(record.message));
        }))
    {
    }
    ~BusJournal() override
    {
        LogFormatter::removeObserver(m_logObserver);
        removeAssertObserver(m_assertObserver);
    }
    Q_DISABLE_COPY_MOVE(BusJournal)

    void hear(const CanBus *pBus)
    {
        connect(pBus, &CanBus::communicationTimeout, this,
                [this](CanAnswer answer, const auto &pMessage) {
                    addAnswer(QStringLiteral("bus communicationTimeout"), answer, pMessage);
                });
        connect(pBus, &CanBus::generateSendingErrorAnswerRequested, this, [this](int channelId) {
            add(QStringLiteral("bus generateSendingErrorAnswerRequested %1").arg(channelId));
        });
        connect(pBus, &CanBus::dequedAllmessages, this,
                [this] { add(QStringLiteral("bus dequedAllmessages")); });
    }

    void hear(const CanBusNode *pNode, const QString &name)
    {
        connect(pNode, &CanBusNode::answerAcknowledged, this,
                [this, name](CanAnswer answer, const auto &pMessage) {
                    addAnswer(name + QStringLiteral(" answerAcknowledged"), answer, pMessage);
                });
        connect(pNode, &CanBusNode::answerError, this,
                [this, name](CanAnswer answer, const auto &pMessage) {
                    addAnswer(name + QStringLiteral(" answerError"), answer, pMessage);
                });
        connect(pNode, &CanBusNode::dequedAllmessages, this,
                [this, name] { add(name + QStringLiteral(" dequedAllmessages")); });
    }

    void addFrame(const CanFrame &frame)
    {
        if (VYCanFrame::isFirstFrame(frame))
            add(QStringLiteral("wire %1").arg(frame.data().at(1) << 8 | frame.data().at(2)));
    }
    void add(const QString &entry) { m_entries.push_back(entry.toStdString()); }

    /// What has come since it was last asked.
    std::vector<std::string> take() { return std::exchange(m_entries, {}); }

private:
    using Message = QSharedPointer<const CanMessage>;

    void addAnswer(const QString &who, const CanAnswer &answer, const Message &pMessage)
    {
        add(QStringLiteral("%1 %2 %3")
                .arg(who)
                .arg(answer.type())
                .arg(pMessage ? QString::number(pMessage->command()) : QStringLiteral("null")));
    }

    void addLine(const QString &line)
    {
        if (line.contains(QLatin1String("::processIncomingFrame(")))
            return;
        for (const char *const pText : s_texts) {
            const int place = line.indexOf(QLatin1String(pText));
            if (place >= 0) {
                add(QStringLiteral("log ") + line.mid(place));
                return;
            }
        }
        add(QStringLiteral("log unknown: ") + line);
    }

    static constexpr const char *s_texts[] = {
        "cmd =",
        "Received ACK for command",
        "Sent command",
        "Corresponding channel not found",
        "Last message is null",
        ": No more messages to send",
        ": Sending failed.",
        "ERROR: Failed to send message",
        "Interface not set.",
        "Interface is not opened",
        "Protocol not set.",
        "Protocol is busy",
        "Tried to send a NULL message.",
        "CanBus not available",
        "CAN Bus not available",
    };

    std::vector<std::string> m_entries;
    int m_logObserver;
    int m_assertObserver;
};

#endif // BUSJOURNAL_H
