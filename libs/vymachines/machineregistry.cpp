#include "machineregistry.h"

#include "machinesettings.h"

#include <algorithm>
#include <iterator>

namespace {

using E = HardwareEnvironment;
using S = HardwareSettings;

// clang-format off
constexpr MachineConfiguration s_rows[] = {
    // model                number                  subtype               its name            espresso limit               jug    parallel steps
    {"Ostrel",              E::Ostrel,              S::NoSubtype,                "",                 S::MaxEsTempValue,           true,  false},
    {"Duvana",              E::Duvana,              S::NoSubtype,                "",                 S::MaxEsTempValueDuvana,     true,  false},
    {"Lirenta",             E::Lirenta,             S::NoSubtype,                "",                 S::MaxEsTempValue,           true,  false},
    {"Lirenta",             E::Lirenta,             S::LirentaStandard,          "standard",         S::MaxEsTempValue,           true,  false},
    {"Lirenta",             E::Lirenta,             S::LirentaPlus,              "plus",             S::MaxEsTempValue,           true,  false},
    {"Lirenta",             E::Lirenta,             S::LirentaCustomerEdition,   "customer edition", S::MaxEsTempValue,           false, false},
    {"Lirenta",             E::Lirenta,             S::LirentaPlus500,           "plus 500",         S::MaxEsTempValue,           true,  false},
    {"Lirenta",             E::Lirenta,             S::LirentaFullInstant,       "full instant",     S::MaxEsTempValue,           true,  true},
    {"Lirenta",             E::Lirenta,             S::LirentaSubtype14,         "",                 S::MaxEsTempValue,           true,  false},
    {"MarboTouch",          E::MarboTouch,          S::NoSubtype,                "",                 S::MaxEsTempValueMarboTouch, true,  false},
    {"MarboCapacitiveKeys", E::MarboCapacitiveKeys, S::NoSubtype,                "",                 S::MaxEsTempValue,           true,  false},
    {"Corvel",              E::Corvel,              S::NoSubtype,                "",                 S::MaxEsTempValue,           true,  false},
    {"Corvel",              E::Corvel,              S::CorvelSubtype5,           "",                 S::MaxEsTempValue,           true,  false},
    {"Corvel",              E::Corvel,              S::CorvelSubtype9,           "",                 S::MaxEsTempValue,           true,  false},
    {"Corvel",              E::Corvel,              S::CorvelCustomerEdition,    "customer edition", S::MaxEsTempValue,           true,  false},
    {"NewQuindo",           E::NewQuindo,           S::NoSubtype,                "",                 S::MaxEsTempValue,           true,  false},
    {"NewQuindo",           E::NewQuindo,           S::NewQuindoStandard,        "standard",         S::MaxEsTempValue,           true,  false},
    {"NewQuindo",           E::NewQuindo,           S::NewQuindoCustomerEdition, "customer edition", S::MaxEsTempValue,           false, false},
    {"NewQuindo",           E::NewQuindo,           S::NewQuindoSubtype13,       "",                 S::MaxEsTempValue,           true,  false},
    {"NewQuindo",           E::NewQuindo,           S::NewQuindoSubtype15,       "",                 S::MaxEsTempValue,           true,  false},
};
// clang-format on

} // namespace

std::vector<MachineConfiguration> MachineRegistry::all()
{
    return {std::begin(s_rows), std::end(s_rows)};
}

std::vector<MachineConfiguration> MachineRegistry::ofModel(const QString &model)
{
    std::vector<MachineConfiguration> rows;
    std::copy_if(std::begin(s_rows), std::end(s_rows), std::back_inserter(rows),
                 [&](const auto &row) {
                     return model.compare(QLatin1String(row.pModel), Qt::CaseInsensitive) == 0;
                 });
    return rows;
}

std::optional<MachineConfiguration> MachineRegistry::find(const QString &model, int subtype)
{
    const std::vector<MachineConfiguration> rows = ofModel(model);
    const auto found = std::find_if(rows.begin(), rows.end(),
                                    [&](const auto &row) { return row.subtype == subtype; });
    return found == rows.end() ? std::nullopt : std::make_optional(*found);
}

std::unique_ptr<HardwareSettings> MachineRegistry::create(const QString &model, int subtype)
{
    const std::optional<MachineConfiguration> configuration = find(model, subtype);
    return configuration ? std::make_unique<MachineSettings>(*configuration) : nullptr;
}
