#ifndef LOGMODULES_H
#define LOGMODULES_H

#include "vytools1_export.h"

#include <QLoggingCategory>
#include <atomic>

/// The subject of a log line. Log:: holds the names that logging code uses.
enum class LogModule : int {
    Global = 0,
    CanBus = 1,
    Hardware = 2,
    InputOutput = 3,
    Machine = 4,
    Payment = 5,
    Event = 6,
};

namespace Log {
inline constexpr LogModule Global = LogModule::Global;           ///< "vy.global"
inline constexpr LogModule CanBus = LogModule::CanBus;           ///< "vy.canbus"
inline constexpr LogModule Hardware = LogModule::Hardware;       ///< "vy.hardware"
inline constexpr LogModule InputOutput = LogModule::InputOutput; ///< "vy.inputoutput"
inline constexpr LogModule Machine = LogModule::Machine;         ///< "vy.machine"
inline constexpr LogModule Payment = LogModule::Payment;         ///< "vy.payment"
inline constexpr LogModule Event = LogModule::Event;             ///< "vy.event"
} // namespace Log

/// The table of the modules and their Qt logging categories. Every level is on until Qt's filter
/// rules (QT_LOGGING_RULES, QLoggingCategory::setFilterRules()) turn it off.
class VYTOOLS1_EXPORT LogModules
{
public:
    static constexpr int Count = 7; ///< modules, numbered from 0

    /// Valid until the process ends, from any thread; a number that names no module counts as
    /// Global.
    static const QLoggingCategory &category(LogModule module);

private:
    static const QLoggingCategory &makeCategories(LogModule module);

    /// Null until the first use. A plain array, because every log statement that is off comes by
    /// here.
    static std::atomic<const QLoggingCategory *> s_categories[Count];
};

inline const QLoggingCategory &LogModules::category(LogModule module)
{
    const auto index = static_cast<unsigned>(module);
    if (index < Count) {
        if (const QLoggingCategory *const pCategory =
                s_categories[index].load(std::memory_order_acquire))
            return *pCategory;
    }
    return makeCategories(module);
}

#endif // LOGMODULES_H
