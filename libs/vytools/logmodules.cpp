#include "logmodules.h"

#include <array>

namespace {

/// In the order of LogModule.
using Categories = std::array<QLoggingCategory, LogModules::Count>;

/// Never destroyed, so that destructors of static objects can still log.
const Categories &categories()
{
    static const Categories *const pCategories = new Categories{
        QLoggingCategory("vy.global"),   QLoggingCategory("vy.canbus"),
        QLoggingCategory("vy.hardware"), QLoggingCategory("vy.inputoutput"),
        QLoggingCategory("vy.machine"),  QLoggingCategory("vy.payment"),
        QLoggingCategory("vy.event"),
    };
    return *pCategories;
}

} // namespace

std::atomic<const QLoggingCategory *> LogModules::s_categories[Count] = {};

const QLoggingCategory &LogModules::makeCategories(LogModule module)
{
    const Categories &all = categories();
    for (size_t i = 0; i < all.size(); ++i)
        s_categories[i].store(&all[i], std::memory_order_release);
    const auto index = static_cast<size_t>(module);
    return index < all.size() ? all[index] : all[0];
}
