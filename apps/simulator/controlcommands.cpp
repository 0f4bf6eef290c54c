#include "simulator/controlcommands.h"

#include "simulator/simulatedmachine.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QMetaEnum>
#include <QStringList>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <optional>

namespace {

using Answers = SimulatedBoard::Answers;
using Fault = PaymentPeripheral::Fault;

constexpr int s_maxDelayMs = 60000;

enum class Outcome { Done, WrongValue, Refused, LinkGone };

/// A word for "what", and what it does.
struct Word
{
    const char *pName;
    const char *pExpected; ///< values
    Outcome (*pApply)(SimulatedMachine &machine, const QJsonValue &value);
};

struct AnswersName
{
    Answers answers;
    const char *pName;
};

constexpr AnswersName s_answersNames[] = {
    {Answers::Given, "given"},
    {Answers::Refused, "refused"},
    {Answers::Lost, "lost"},
};

QJsonObject error(const char *pKind, const QString &text)
{
    return {{QStringLiteral("error"), text}, {QStringLiteral("kind"), QLatin1String(pKind)}};
}

/// A whole number from `from` to `to`.
std::optional<int> numberIn(const QJsonValue &value, int from, int to)
{
    const double number = value.toDouble(-1);
    if (!value.isDouble() || number < from || number > to)
        return std::nullopt;
    const int whole = static_cast<int>(number);
    return whole == number ? std::optional(whole) : std::nullopt;
}

std::optional<bool> oneOf(const QJsonValue &value, const char *pTrue, const char *pFalse)
{
    if (value.toString() == QLatin1String(pTrue))
        return true;
    return value.toString() == QLatin1String(pFalse) ? std::optional(false) : std::nullopt;
}

Outcome setCup(SimulatedMachine &machine, const QJsonValue &value)
{
    const std::optional<int> reading = numberIn(value, 0, ActuatorBoard::MaxCupReading);
    if (!reading)
        return Outcome::WrongValue;
    machine.actuatorBoard().setCupReading(*reading);
    return Outcome::Done;
}

Outcome setCard(SimulatedMachine &machine, const QJsonValue &value)
{
    const std::optional<int> cents = numberIn(value, 0, PaymentPeripheral::MaxCard);
    if (!cents)
        return Outcome::WrongValue;
    PaymentPeripheral &payment = machine.payment();
    const bool isDone = *cents == 0 ? payment.removeCard() : payment.presentCard(*cents);
    return isDone ? Outcome::Done : Outcome::Refused;
}

Outcome setActuatorAnswers(SimulatedMachine &machine, const QJsonValue &value)
{
    for (const AnswersName &row : s_answersNames) {
        if (value.toString() == QLatin1String(row.pName)) {
            machine.actuatorBoard().setAnswers(row.answers);
            return Outcome::Done;
        }
    }
    return Outcome::WrongValue;
}

Outcome setActuatorDelay(SimulatedMachine &machine, const QJsonValue &value)
{
    const std::optional<int> ms = numberIn(value, 0, s_maxDelayMs);
    if (!ms)
        return Outcome::WrongValue;
    machine.actuatorBoard().setAnswerDelay(std::chrono::milliseconds(*ms));
    return Outcome::Done;
}

Outcome restartActuator(SimulatedMachine &machine, const QJsonValue &value)
{
    const std::optional<int> ms = numberIn(value, 1, s_maxDelayMs);
    if (!ms)
        return Outcome::WrongValue;
    machine.actuatorBoard().restart(std::chrono::milliseconds(*ms));
    return Outcome::Done;
}

template <Fault fault>
Outcome setPaymentFault(SimulatedMachine &machine, const QJsonValue &value)
{
    const std::optional<bool> isOn = oneOf(value, "on", "off");
    if (!isOn)
        return Outcome::WrongValue;
    machine.payment().setFault(fault, *isOn);
    return Outcome::Done;
}

Outcome setLink(SimulatedMachine &machine, const QJsonValue &value)
{
    const std::optional<bool> isCut = oneOf(value, "cut", "up");
    if (!isCut)
        return Outcome::WrongValue;
    machine.setLinkCut(*isCut);
    return machine.isLinkCut() == *isCut ? Outcome::Done : Outcome::LinkGone;
}

constexpr Word s_settings[] = {
    {"cup", "a reading from 0 to 65535, 0 for none", setCup},
    {"card", "cents from 0 to 65534, 0 to take the card away", setCard},
};

constexpr Word s_faults[] = {
    {"actuator.answers", "given, refused or lost", setActuatorAnswers},
    {"actuator.delay", "ms from 0 to 60000", setActuatorDelay},
    {"actuator.restart", "ms from 1 to 60000", restartActuator},
    {"payment.silence", "on or off", setPaymentFault<Fault::Silence>},
    {"payment.checksum", "on or off", setPaymentFault<Fault::BadChecksum>},
    {"payment.mode", "on or off", setPaymentFault<Fault::BadMode>},
    {"payment.repeat", "on or off", setPaymentFault<Fault::RepeatedAnswer>},
    {"link", "cut or up", setLink},
};

QString stateName(PaymentPeripheral::State state)
{
    switch (state) {
    case PaymentPeripheral::State::Inactive:
        return QStringLiteral("inactive");
    case PaymentPeripheral::State::Disabled:
        return QStringLiteral("disabled");
    case PaymentPeripheral::State::Enabled:
        return QStringLiteral("enabled");
    case PaymentPeripheral::State::Session:
        return QStringLiteral("session");
    case PaymentPeripheral::State::Vend:
        return QStringLiteral("vend");
    }
    return {};
}

QString answersName(Answers answers)
{
    const auto *const pRow =
        std::find_if(std::begin(s_answersNames), std::end(s_answersNames),
                     [answers](const AnswersName &row) { return row.answers == answers; });
    return pRow == std::end(s_answersNames) ? QString() : QString::fromLatin1(pRow->pName);
}

QJsonObject actuatorStatus(const ActuatorBoard &board)
{
    return {{QStringLiteral("address"), board.address()},
            {QStringLiteral("cup"), board.cupReading()},
            {QStringLiteral("messages"), board.taken()},
            {QStringLiteral("answers"), answersName(board.answers())},
            {QStringLiteral("delayMs"), static_cast<int>(board.answerDelay().count())},
            {QStringLiteral("restarting"), board.isRestarting()}};
}

/// Those that are on or blink.
QJsonArray outputsStatus(const SimulatedOutputs &outputs)
{
    QJsonArray list;
    for (quint8 output = 0; output < SimulatedOutputs::Count; ++output) {
        if (outputs.isOn(output) || outputs.isBlinking(output))
            list.append(QJsonObject{{QStringLiteral("output"), output},
                                    {QStringLiteral("on"), outputs.isOn(output)},
                                    {QStringLiteral("blinking"), outputs.isBlinking(output)}});
    }
    return list;
}

QJsonObject paymentStatus(const PaymentPeripheral &payment)
{
    return {{QStringLiteral("state"), stateName(payment.state())},
            {QStringLiteral("dataBits"), payment.dataBits()},
            {QStringLiteral("funds"), payment.funds()},
            {QStringLiteral("vends"), payment.vends()},
            {QStringLiteral("silence"), payment.hasFault(Fault::Silence)},
            {QStringLiteral("checksum"), payment.hasFault(Fault::BadChecksum)},
            {QStringLiteral("mode"), payment.hasFault(Fault::BadMode)},
            {QStringLiteral("repeat"), payment.hasFault(Fault::RepeatedAnswer)}};
}

QJsonObject status(SimulatedMachine &machine)
{
    return {{QStringLiteral("actuator"), actuatorStatus(machine.actuatorBoard())},
            {QStringLiteral("outputs"), outputsStatus(machine.outputs())},
            {QStringLiteral("payment"), paymentStatus(machine.payment())},
            {QStringLiteral("link"), QLatin1String(machine.isLinkCut() ? "cut" : "up")}};
}

template <std::size_t count>
QJsonObject apply(const Word (&words)[count], SimulatedMachine &machine, const QJsonObject &command)
{
    const QJsonValue what = command.value(QStringLiteral("what"));
    const auto *const pWord =
        std::find_if(std::begin(words), std::end(words), [&what](const Word &word) {
            return what.toString() == QLatin1String(word.pName);
        });
    if (pWord == std::end(words)) {
        QStringList names;
        for (const Word &word : words)
            names.append(QString::fromLatin1(word.pName));
        return error("call", QStringLiteral("what is \"%1\"; expected %2")
                                 .arg(what.toString(), names.join(QStringLiteral(", "))));
    }
    switch (pWord->pApply(machine, command.value(QStringLiteral("value")))) {
    case Outcome::Done:
        return {{QStringLiteral("done"), true}};
    case Outcome::WrongValue:
        return error("call",
                     QStringLiteral("wrong value for %1; expected %2")
                         .arg(QLatin1String(pWord->pName), QLatin1String(pWord->pExpected)));
    case Outcome::LinkGone:
        return error("machine", QStringLiteral("the server's ports cannot be had any more, its log "
                                               "says why; expected them to be free"));
    case Outcome::Refused:
        break;
    }
    return error("machine", QStringLiteral("not now: the card reader is in state \"%1\"; expected "
                                           "\"enabled\" for a card, \"session\" to take it away")
                                .arg(stateName(machine.payment().state())));
}

/// The first key that no command has; null where there is none.
QString unknownKey(const QJsonObject &command)
{
    static const QStringList s_keys = {QStringLiteral("do"), QStringLiteral("what"),
                                       QStringLiteral("value")};
    const QStringList keys = command.keys();
    const auto unknown = std::find_if(keys.cbegin(), keys.cend(),
                                      [](const QString &key) { return !s_keys.contains(key); });
    return unknown == keys.cend() ? QString() : *unknown;
}

} // namespace

QJsonObject obeyControlLine(SimulatedMachine &machine, const QByteArray &line)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(line, &parseError);
    if (!document.isObject())
        return error("call", QStringLiteral("expected one JSON object in a line, such as "
                                            "{\"do\":\"status\"}%1")
                                 .arg(parseError.error == QJsonParseError::NoError
                                          ? QString()
                                          : QStringLiteral("; ") + parseError.errorString()));
    const QJsonObject command = document.object();
    const QString unknown = unknownKey(command);
    if (!unknown.isNull())
        return error("call", QStringLiteral("unknown key \"%1\"; expected \"do\", \"what\", "
                                            "\"value\"")
                                 .arg(unknown));
    const QString verb = command.value(QStringLiteral("do")).toString();
    if (verb == QLatin1String("status"))
        return status(machine);
    if (verb == QLatin1String("set"))
        return apply(s_settings, machine, command);
    if (verb == QLatin1String("fault"))
        return apply(s_faults, machine, command);
    return error("call", QStringLiteral("do is \"%1\"; expected status, set or fault").arg(verb));
}
