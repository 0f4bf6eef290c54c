#include "canbus/vycan_cmds_and_addr.h"

#include "assertions.h"
#include "canbus/vycan_names_p.h"
#include "hardwareenvironment.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace CanVy {

namespace {

constexpr auto s_pFile = "src/canbus/vycan_cmds_and_addr";

template <int Count>
constexpr bool isSorted(const Name (&names)[Count])
{
    for (int i = 1; i < Count; ++i) {
        if (names[i - 1].number >= names[i].number)
            return false;
    }
    return true;
}
static_assert(isSorted(s_commands) && isSorted(s_parameters) && isSorted(s_addresses),
              "the names are found by bisection");

/// Null when the number has no name.
template <int Count>
const char *find(const Name (&names)[Count], int number)
{
    const auto *const pFound =
        std::lower_bound(std::begin(names), std::end(names), number,
                         [](const Name &name, int wanted) { return name.number < wanted; });
    return pFound != std::end(names) && pFound->number == number ? pFound->pText : nullptr;
}

/// Reports a missing environment.
bool hasEnvironment(int line)
{
    if (gHardwareEnv)
        return true;
    printReleaseAssertMsg(QStringLiteral("gHardwareEnv"),
                          QStringLiteral("Hardware environment is null"), s_pFile, line);
    return false;
}

[[noreturn]] void endForUnhandledModel(const QString &message, int line)
{
    printReleaseAssertMsg(QStringLiteral("false"), message, s_pFile, line);
    std::exit(EXIT_FAILURE); // NOLINT(concurrency-mt-unsafe): required to end here
}

int acceptedByLirenta(int subtype)
{
    switch (subtype) {
    case 2:
        return 13;
    case 3:
    case 7:
    case 8:
        return 15;
    case 6:
        return 5;
    case 14:
        return 1;
    default:
        return 0;
    }
}

int acceptedByCorvel(int subtype)
{
    switch (subtype) {
    case 5:
    case 9:
        return 10;
    case 10:
        return 11;
    default:
        return 0;
    }
}

int acceptedByNewQuindo(int subtype)
{
    switch (subtype) {
    case 11:
    case 12:
    case 13:
    case 15:
        return 21;
    default:
        return 0;
    }
}

} // namespace

QString commandCanToString(int command)
{
    if (const char *const pName = find(s_commands, command))
        return QLatin1String(pName);
    return QStringLiteral("Unknown command %1 (0x%2)")
        .arg(command)
        .arg(static_cast<quint32>(command), 0, 16);
}

QString vdbToString(int parameter)
{
    const char *const pName = find(s_parameters, parameter);
    return pName ? QLatin1String(pName) : QStringLiteral("failure");
}

QString Address::toString(int address)
{
    const char *const pName = find(s_addresses, address);
    return pName ? QLatin1String(pName) : QString::number(address);
}

int Address::actuatorBoard()
{
    if (!hasEnvironment(__LINE__))
        return 0;
    switch (gHardwareEnv->machineModel()) {
    case HardwareEnvironment::Ostrel:
        return 0x419;
    case HardwareEnvironment::Duvana:
        return 0x41A;
    case HardwareEnvironment::Lirenta:
        return actuatorBoardLirenta();
    case HardwareEnvironment::MarboTouch:
    case HardwareEnvironment::MarboCapacitiveKeys:
        return 0x41D;
    case HardwareEnvironment::Corvel:
        return actuatorBoardCorvel();
    case HardwareEnvironment::NewQuindo:
        return actuatorBoardNewQuindo();
    }
    endForUnhandledModel(QStringLiteral("Machine model actuator board address is not handled"),
                         __LINE__);
}

int Address::actuatorBoardLirenta()
{
    if (!hasEnvironment(__LINE__))
        return 0;
    switch (static_cast<int>(gHardwareEnv->modelSubtype())) {
    case 3:
    case 7:
    case 8:
    case 14:
        return 0x41C;
    case 6:
        return 0x431;
    default:
        return 0x41B;
    }
}

int Address::actuatorBoardCorvel()
{
    if (!hasEnvironment(__LINE__))
        return 0;
    return static_cast<int>(gHardwareEnv->modelSubtype()) == 10 ? 0x432 : 0x430;
}

int Address::actuatorBoardNewQuindo()
{
    if (!hasEnvironment(__LINE__))
        return 0;
    return static_cast<int>(gHardwareEnv->modelSubtype()) == 12 ? 0x434 : 0x433;
}

int Address::cpuBoard()
{
    if (!hasEnvironment(__LINE__))
        return 0;
    switch (gHardwareEnv->machineModel()) {
    case HardwareEnvironment::Ostrel:
        return 0x4A8;
    case HardwareEnvironment::Duvana:
        return 0x4AD;
    case HardwareEnvironment::Lirenta:
        return 0x4AE;
    case HardwareEnvironment::MarboTouch:
    case HardwareEnvironment::MarboCapacitiveKeys:
        return 0x4AF;
    case HardwareEnvironment::Corvel:
        return 0x4B1;
    case HardwareEnvironment::NewQuindo:
        return 0x4B8;
    }
    endForUnhandledModel(QStringLiteral("Machine model cpu board address is not handled"),
                         __LINE__);
}

int ABAcceptedVersion::actuatorBoardAcceptedVersion()
{
    if (!hasEnvironment(__LINE__))
        return 0;
    const auto subtype = static_cast<int>(gHardwareEnv->modelSubtype());
    switch (gHardwareEnv->machineModel()) {
    case HardwareEnvironment::Lirenta:
        return acceptedByLirenta(subtype);
    case HardwareEnvironment::Corvel:
        return acceptedByCorvel(subtype);
    case HardwareEnvironment::NewQuindo:
        return acceptedByNewQuindo(subtype);
    case HardwareEnvironment::Ostrel:
    case HardwareEnvironment::Duvana:
    case HardwareEnvironment::MarboTouch:
    case HardwareEnvironment::MarboCapacitiveKeys:
        break;
    }
    endForUnhandledModel(
        QStringLiteral("Machine model actuator board version accepted is not handled"), __LINE__);
}

} // namespace CanVy
