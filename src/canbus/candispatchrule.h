#ifndef CANDISPATCHRULE_H
#define CANDISPATCHRULE_H

#include "canbus/canmessage.h"
#include "vyhardware1_export.h"

#include <QList>
#include <QObject>
#include <QSharedPointer>

/// Picks spontaneous messages by command and source address; register it with
/// CanBus::addDispatchRule(), which borrows it. A message passes when both parts let it pass.
/// A new rule passes nothing. Lives in the bus's thread.
class VYHARDWARE1_EXPORT CanDispatchRule : public QObject
{
    Q_OBJECT

public:
    enum Rule : int {
        RuleNone = 0, ///< no message passes, whatever the other part says
        RuleOnlyListed = 1,
        RuleAllExceptListed = 2,
        RuleAll = 3, ///< the list is ignored
    };
    Q_ENUM(Rule)

    explicit CanDispatchRule(QObject *pParent = nullptr);
    explicit CanDispatchRule(const QList<int> &commands, QObject *pParent = nullptr);

    /// Both parts to RuleOnlyListed; the lists stay.
    void initialize();

    void setCommandsRule(Rule rule) { m_commandsRule = rule; }
    void setSourceAddressesRule(Rule rule) { m_sourceAddressesRule = rule; }

    // One number, or a list: an empty one is QList<int>(), for {} is the number 0.
    void setCommandsList(const QList<int> &commands) { m_commands = commands; }
    void setCommandsList(int command) { m_commands = {command}; }
    void setSourceAddressList(const QList<int> &addresses) { m_sourceAddresses = addresses; }
    void setSourceAddressList(int address) { m_sourceAddresses = {address}; }

    bool isRuleMatching(const CanMessage &message) const;

    /// Emits messageMatched() and returns true, or logs the message and returns false.
    bool process(QSharedPointer<const CanMessage> pMessage) const;

Q_SIGNALS:
    void messageMatched(QSharedPointer<const CanMessage> pMessage) const;

private:
    Rule m_commandsRule = RuleOnlyListed;
    Rule m_sourceAddressesRule = RuleOnlyListed;
    QList<int> m_commands;
    QList<int> m_sourceAddresses;
};

#endif // CANDISPATCHRULE_H
