#include "logmodules.h"

#include <array>

namespace {

/// In the order of LogModule.
using Categories = std::array<QLoggingCategory, LogModules::Count>;

/// Never destroyed, so that destructors of static objects can still log.
const Categories &categories()
{
    static const Categories *const s_pCategories = new Categories{
        QLoggingCategory("vy.global"),   QLoggingCategory("vy.canbus"),
        QLoggingCategory("vy.hardware"), QLoggingCategory("vy.inputoutput"),
        QLoggingCategory("vy.machine"),  QLoggingCategory("vy.payment"),
        QLoggingCategory("vy.event"),
    };
    return *s_pCategories;
}

} // namespace

const QLoggingCategory &LogModules::category(LogModule module)
{
    const auto index = static_cast<size_t>(module);
    const Categories &all = categories();
    return index < all.size() ? all[index] : all[0];
}
