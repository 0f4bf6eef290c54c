#include "systempath.h"

namespace {

struct PathRow
{
    SystemPath::Entry entry;
    const char *pVariable;
    const char *pDefault; ///< a folder ends with "/"
};

constexpr PathRow s_rows[] = {
    {SystemPath::GpioBase, "VY_PATH_GPIO", "/sys/class/gpio/"},
    {SystemPath::SystemKeyVersions, "VY_PATH_SYSTEM_KEY_VERSIONS",
     "/etc/vyhardware/systemkey-versions"},
    {SystemPath::CpuInfo, "VY_PATH_CPUINFO", "/proc/cpuinfo"},
    {SystemPath::Logs, "VY_PATH_LOGS", "/var/log/vyhardware/"},
    {SystemPath::Settings, "VY_PATH_SETTINGS", "/etc/vyhardware/settings.json"},
    {SystemPath::MaxBrightness, "VY_PATH_MAX_BRIGHTNESS",
     "/sys/class/backlight/backlight/max_brightness"},
    {SystemPath::Brightness, "VY_PATH_BRIGHTNESS", "/sys/class/backlight/backlight/brightness"},
    {SystemPath::Buttons, "VY_PATH_BUTTONS", "/dev/input/event0"},
};

const PathRow *rowOf(SystemPath::Entry entry)
{
    for (const PathRow &row : s_rows) {
        if (row.entry == entry)
            return &row;
    }
    return nullptr;
}

} // namespace

QString SystemPath::path(Entry entry)
{
    const PathRow *const pRow = rowOf(entry);
    if (pRow == nullptr)
        return {};
    QString standard = QString::fromLatin1(pRow->pDefault);
    QString path = qEnvironmentVariable(pRow->pVariable);
    if (path.isEmpty())
        return standard;
    if (standard.endsWith(QLatin1Char('/')) && !path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    return path;
}

QString SystemPath::variable(Entry entry)
{
    const PathRow *const pRow = rowOf(entry);
    return pRow == nullptr ? QString() : QString::fromLatin1(pRow->pVariable);
}
