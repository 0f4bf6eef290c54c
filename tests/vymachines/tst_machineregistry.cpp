#include "machineregistry.h"

#include "Corvel/hardwarecontrollercorvel.h"
#include "SecoB40/secob40hardwarecontroller.h"

#include "support/assertspy.h"
#include "support/casename.h"

#include <QSet>
#include <gtest/gtest.h>

namespace {

using S = HardwareSettings;

struct MachineCase
{
    const char *pName;
    const char *pModel;
    int model;
    int subtype;
    int maxEspressoTemp = 1050;
    bool hasJugSupport = true;
    bool hasParallelStepSupport = false;
    bool isFullInstant = false;
};

const MachineCase s_machines[] = {
    {"Ostrel", "Ostrel", 0, -1},
    {"Duvana", "Duvana", 1, -1, 1020},
    {"Lirenta", "Lirenta", 2, -1},
    {"LirentaStandard", "Lirenta", 2, 2},
    {"LirentaPlus", "Lirenta", 2, 3},
    {"LirentaCustomerEdition", "Lirenta", 2, 6, 1050, false},
    {"LirentaPlus500", "Lirenta", 2, 7},
    {"LirentaFullInstant", "Lirenta", 2, 8, 1050, true, true, true},
    {"Lirenta14", "Lirenta", 2, 14},
    {"MarboTouch", "MarboTouch", 3, -1, 1020},
    {"MarboCapacitiveKeys", "MarboCapacitiveKeys", 4, -1},
    {"Corvel", "Corvel", 5, -1},
    {"Corvel5", "Corvel", 5, 5},
    {"Corvel9", "Corvel", 5, 9},
    {"CorvelCustomerEdition", "Corvel", 5, 10},
    {"NewQuindo", "NewQuindo", 6, -1},
    {"NewQuindoStandard", "NewQuindo", 6, 11},
    {"NewQuindoCustomerEdition", "NewQuindo", 6, 12, 1050, false},
    {"NewQuindo13", "NewQuindo", 6, 13},
    {"NewQuindo15", "NewQuindo", 6, 15},
};

} // namespace

using MachineRegistryTable = ::testing::TestWithParam<MachineCase>;

TEST_P(MachineRegistryTable, CreatesTheMachineByModelAndSubtype)
{
    const QString model = QString::fromLatin1(GetParam().pModel);
    const auto configuration = MachineRegistry::find(model, GetParam().subtype);
    ASSERT_TRUE(configuration);
    EXPECT_EQ(configuration->model, GetParam().model);

    const auto pSettings = MachineRegistry::create(model, GetParam().subtype);
    ASSERT_TRUE(pSettings);
    EXPECT_EQ(pSettings->modelName(), model);
    EXPECT_EQ(pSettings->databaseModelName(), QString());
    EXPECT_EQ(pSettings->modelSubtype(), GetParam().subtype);
    EXPECT_EQ(pSettings->isFullInstant(), GetParam().isFullInstant);
    EXPECT_EQ(pSettings->property("maxEspressoTemp"), GetParam().maxEspressoTemp);
    EXPECT_EQ(pSettings->property("hasJugSupport"), GetParam().hasJugSupport);
    EXPECT_EQ(pSettings->property("hasParallelStepSupport"), GetParam().hasParallelStepSupport);
}

TEST_P(MachineRegistryTable, HasActuatorBoardSettingsUnderItsSubtype)
{
    AssertSpy asserts;
    const auto pSettings =
        MachineRegistry::create(QString::fromLatin1(GetParam().pModel), GetParam().subtype);
    ASSERT_TRUE(pSettings);
    EXPECT_NE(pSettings->actuatorBoard(), nullptr);
    EXPECT_TRUE(asserts.records().isEmpty());
}

TEST_P(MachineRegistryTable, MakesTheControllerOfItsBoard)
{
    const auto pSettings =
        MachineRegistry::create(QString::fromLatin1(GetParam().pModel), GetParam().subtype);
    const std::unique_ptr<AbstractHardwareController> pController(
        pSettings->createHardwareController());
    const bool isCorvel = GetParam().model == HardwareEnvironment::Corvel;
    EXPECT_EQ(qobject_cast<HardwareControllerCorvel *>(pController.get()) != nullptr, isCorvel);
    EXPECT_EQ(qobject_cast<SecoHardwareController *>(pController.get()) != nullptr, !isCorvel);
}

INSTANTIATE_TEST_SUITE_P(Machines, MachineRegistryTable, ::testing::ValuesIn(s_machines), caseName);

TEST(MachineRegistryTest, HoldsTheseMachinesAndNoOthersInThisOrder)
{
    const std::vector<MachineConfiguration> all = MachineRegistry::all();
    ASSERT_EQ(all.size(), std::size(s_machines));
    for (size_t i = 0; i < all.size(); ++i) {
        EXPECT_STREQ(all[i].pModel, s_machines[i].pModel) << i;
        EXPECT_EQ(all[i].subtype, s_machines[i].subtype) << i;
    }
}

TEST(MachineRegistryTest, FindsAModelInAnyCase)
{
    EXPECT_TRUE(MachineRegistry::find(QStringLiteral("lIRENTA"), 8));
    EXPECT_EQ(MachineRegistry::create(QStringLiteral("lirenta"), 8)->modelName(),
              QStringLiteral("Lirenta"));
    EXPECT_EQ(MachineRegistry::ofModel(QStringLiteral("corvel")).size(), 4U);
}

TEST(MachineRegistryTest, UnknownMachinesAreNotThere)
{
    EXPECT_FALSE(MachineRegistry::find(QStringLiteral("Lirent"), 8));
    EXPECT_FALSE(MachineRegistry::find(QStringLiteral("Lirenta"), 5))
        << "5 is another model's subtype";
    EXPECT_FALSE(MachineRegistry::find(QString(), -1));
    EXPECT_EQ(MachineRegistry::create(QStringLiteral("Corvel"), 8), nullptr);
    EXPECT_TRUE(MachineRegistry::ofModel(QString()).empty());
}

TEST(MachineRegistryTest, WithoutASubtypeCreatesTheModelWithoutOne)
{
    EXPECT_EQ(MachineRegistry::create(QStringLiteral("Corvel"))->modelSubtype(), S::NoSubtype);
}
