#include "support/casename.h"

#include <QProcess>
#include <gtest/gtest.h>

struct CallCase
{
    const char *pName;
    QStringList arguments;
    int exitCode;
    const char *pOut;
    const char *pErr;
};

using MinimalExample = ::testing::TestWithParam<CallCase>;

TEST_P(MinimalExample, TellsWhatItFoundOrWhatItExpected)
{
    QProcess process;
    process.start(QStringLiteral(MINIMAL_PROGRAM), GetParam().arguments);
    ASSERT_TRUE(process.waitForFinished(30000)) << qPrintable(process.errorString());
    ASSERT_EQ(process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process.exitCode(), GetParam().exitCode);
    EXPECT_EQ(process.readAllStandardOutput().toStdString(), GetParam().pOut);
    EXPECT_EQ(process.readAllStandardError().toStdString(), GetParam().pErr);
}

const CallCase s_callCases[] = {
    {"Machine",
     {QStringLiteral(CONFIG_FOLDER "/lirenta.json")},
     0,
     "Lirenta: display 1280 x 800, USB stick at /media/usb0\n",
     ""},
    {"NoArgument",
     {},
     2,
     "",
     "minimal: expected one argument, the settings file, and got 0\n"
     "usage: minimal SETTINGS_FILE\n"},
    {"TwoArguments",
     {QStringLiteral("a.json"), QStringLiteral("b.json")},
     2,
     "",
     "minimal: expected one argument, the settings file, and got 2\n"
     "usage: minimal SETTINGS_FILE\n"},
    {"MissingFile",
     {QStringLiteral("/nowhere/settings.json")},
     1,
     "",
     "minimal: /nowhere/settings.json: there is no such file\n"},
    {"Folder", {QStringLiteral("/tmp")}, 1, "", "minimal: /tmp: not a file that can be read\n"},
    {"Device",
     {QStringLiteral("/dev/null")},
     1,
     "",
     "minimal: /dev/null: not a file that can be read\n"},
};
INSTANTIATE_TEST_SUITE_P(Calls, MinimalExample, ::testing::ValuesIn(s_callCases), caseName);
