#include "systempath.h"

#include "support/casename.h"
#include "support/logspy.h"
#include "support/messagespy.h"
#include "support/scopedvariable.h"

#include <gtest/gtest.h>
#include <set>

struct PathCase
{
    const char *pName;
    SystemPath::Entry entry;
    const char *pVariable;
    bool isFolder;
    const char *pDefault; ///< null where only the machine's set-up fixes it
};

const PathCase s_pathCases[] = {
    {"GpioBase", SystemPath::GpioBase, "VY_PATH_GPIO", true, "/sys/class/gpio/"},
    {"SystemKeyVersions", SystemPath::SystemKeyVersions, "VY_PATH_SYSTEM_KEY_VERSIONS", false,
     "/etc/vyhardware/systemkey-versions"},
    {"CpuInfo", SystemPath::CpuInfo, "VY_PATH_CPUINFO", false, "/proc/cpuinfo"},
    {"Logs", SystemPath::Logs, "VY_PATH_LOGS", true, "/var/log/vyhardware/"},
    {"Settings", SystemPath::Settings, "VY_PATH_SETTINGS", false, "/etc/vyhardware/settings.json"},
    {"MaxBrightness", SystemPath::MaxBrightness, "VY_PATH_MAX_BRIGHTNESS", false,
     "/sys/class/backlight/backlight/max_brightness"},
    {"Brightness", SystemPath::Brightness, "VY_PATH_BRIGHTNESS", false,
     "/sys/class/backlight/backlight/brightness"},
    {"Buttons", SystemPath::Buttons, "VY_PATH_BUTTONS", false, "/dev/input/event0"},
};

class SystemPathTable : public ::testing::TestWithParam<PathCase>
{
protected:
    static std::string path() { return SystemPath::path(GetParam().entry).toStdString(); }

    /// What path() is for an override.
    std::string path(const char *pOverride) const
    {
        m_variable.set(pOverride);
        return path();
    }

    static std::string with(const std::string &value, const char *pSlash)
    {
        return GetParam().isFolder ? value + pSlash : value;
    }

private:
    ScopedVariable m_variable{GetParam().pVariable}; // unset
};
INSTANTIATE_TEST_SUITE_P(Entries, SystemPathTable, ::testing::ValuesIn(s_pathCases), caseName);

TEST_P(SystemPathTable, NamesItsVariable)
{
    EXPECT_EQ(SystemPath::variable(GetParam().entry).toStdString(), GetParam().pVariable);
}

TEST_P(SystemPathTable, DefaultIsAbsoluteAndAFolderEndsWithASlash)
{
    EXPECT_EQ(path().front(), '/');
    EXPECT_EQ(path().back() == '/', GetParam().isFolder);
    if (GetParam().pDefault) {
        EXPECT_EQ(path(), GetParam().pDefault);
    }
}

TEST_P(SystemPathTable, EmptyOverrideIsTheDefault)
{
    const std::string byDefault = path();
    EXPECT_EQ(path(""), byDefault);
}

TEST_P(SystemPathTable, OverrideIsReadAtEachUse)
{
    EXPECT_EQ(path("/tmp/first"), with("/tmp/first", "/"));
    EXPECT_EQ(path("/tmp/second"), with("/tmp/second", "/"));
}

TEST_P(SystemPathTable, OverrideMayBeRelativeAndNotAscii)
{
    EXPECT_EQ(path("gerät/pfad"), with("gerät/pfad", "/"));
}

TEST_P(SystemPathTable, FolderOverrideGetsNoSecondSlash)
{
    if (!GetParam().isFolder)
        return;
    EXPECT_EQ(path("/tmp/folder/"), "/tmp/folder/");
    EXPECT_EQ(path("/"), "/");
}

TEST_P(SystemPathTable, NothingIsLogged)
{
    const LogSpy log;
    const MessageSpy messages;
    path();
    path("/no/such/place");
    EXPECT_TRUE(log.records().isEmpty());
    EXPECT_TRUE(messages.messages().isEmpty());
}

TEST(SystemPathTest, NoTwoEntriesShareAVariableOrADefault)
{
    std::set<QString> variables;
    std::set<QString> paths;
    for (const PathCase &row : s_pathCases) {
        const ScopedVariable unset(row.pVariable);
        variables.insert(SystemPath::variable(row.entry));
        paths.insert(SystemPath::path(row.entry));
    }
    EXPECT_EQ(variables.size(), std::size(s_pathCases));
    EXPECT_EQ(paths.size(), std::size(s_pathCases));
}
