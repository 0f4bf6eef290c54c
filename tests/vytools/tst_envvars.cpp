#include "envvars.h"

#include "support/scopedvariable.h"

#include <gtest/gtest.h>
#include <type_traits>

using vytools::envvar::EnvVars;
using vytools::envvar::EnvVarString;

static_assert(std::is_convertible_v<EnvVarString, QString>);

namespace {

constexpr const char *s_pName = "VY_TEST_VARIABLE";

QString value(const EnvVarString &variable)
{
    return variable;
}

} // namespace

TEST(EnvVarStringTest, UnsetVariableIsEmpty)
{
    const ScopedVariable variable(s_pName);
    EXPECT_TRUE(value(EnvVarString(s_pName)).isEmpty());
}

TEST(EnvVarStringTest, EmptyVariableIsEmpty)
{
    const ScopedVariable variable(s_pName, "");
    EXPECT_TRUE(value(EnvVarString(s_pName)).isEmpty());
}

TEST(EnvVarStringTest, IsReadAtEachUse)
{
    const EnvVarString envVar(s_pName);
    const ScopedVariable variable(s_pName, "first");
    EXPECT_EQ(value(envVar).toStdString(), "first");
    variable.set(" second one ");
    EXPECT_EQ(value(envVar).toStdString(), " second one ");
    variable.set("");
    EXPECT_TRUE(value(envVar).isEmpty());
}

TEST(EnvVarStringTest, KnowsItsName)
{
    EXPECT_STREQ(EnvVarString(s_pName).name(), "VY_TEST_VARIABLE");
}

TEST(EnvVarsTest, CupSensorSimulationFilePathFollowsItsVariable)
{
    EXPECT_STREQ(EnvVars::CupSensorSimulationFilePath.name(), "VY_CUP_SENSOR_SIMULATION_FILE");

    const ScopedVariable variable("VY_CUP_SENSOR_SIMULATION_FILE");
    EXPECT_TRUE(value(EnvVars::CupSensorSimulationFilePath).isEmpty());
    variable.set("/tmp/cups.txt");
    EXPECT_EQ(value(EnvVars::CupSensorSimulationFilePath).toStdString(), "/tmp/cups.txt");
}
