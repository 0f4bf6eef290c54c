#include "canbus/candispatchrule.h"

#include "logformatter.h"

namespace {

bool passes(CanDispatchRule::Rule rule, const QList<int> &list, int value)
{
    switch (rule) {
    case CanDispatchRule::RuleNone:
        return false;
    case CanDispatchRule::RuleOnlyListed:
        return list.contains(value);
    case CanDispatchRule::RuleAllExceptListed:
        return !list.contains(value);
    case CanDispatchRule::RuleAll:
        return true;
    }
    return false; // a number that names no rule
}

} // namespace

CanDispatchRule::CanDispatchRule(QObject *pParent)
    : QObject(pParent)
{
}

CanDispatchRule::CanDispatchRule(const QList<int> &commands, QObject *pParent)
    : QObject(pParent)
    , m_commands(commands)
{
}

void CanDispatchRule::initialize()
{
    m_commandsRule = RuleOnlyListed;
    m_sourceAddressesRule = RuleOnlyListed;
}

bool CanDispatchRule::isRuleMatching(const CanMessage &message) const
{
    if (m_commandsRule == RuleNone || m_sourceAddressesRule == RuleNone)
        return false;
    return passes(m_sourceAddressesRule, m_sourceAddresses, message.source()) &&
           passes(m_commandsRule, m_commands, message.command());
}

bool CanDispatchRule::process(QSharedPointer<const CanMessage> pMessage) const
{
    if (!pMessage)
        return false;
    if (isRuleMatching(*pMessage)) {
        Q_EMIT messageMatched(pMessage);
        return true;
    }
    // The spelling is what readers of the log look for.
    LogFormatter(0, Log::CanBus)
        << Q_FUNC_INFO
        << objectName() + QStringLiteral(": Message doesn't matches rule - command: %1 - data: %2")
                              .arg(QString::number(pMessage->command()), pMessage->dataToString());
    return false;
}
