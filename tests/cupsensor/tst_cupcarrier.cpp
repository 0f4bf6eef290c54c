#include "cupsensor/abstractcupsensor.h"

#include "cupsensor/fakecupsensor.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

namespace {

using Operation = void (AbstractCupSensor::*)(bool);

} // namespace

struct CarrierCase
{
    const char *pName;
    Operation operation;
    bool before;
    bool isHome;
    const char *pText; ///< the line that is logged; null where there is none
};

using CupCarrierPosition = ::testing::TestWithParam<CarrierCase>;

TEST_P(CupCarrierPosition, IsStoredLoggedAndSignalledWhenItChanges)
{
    FakeCupSensor sensor(false);
    sensor.setIsCupCarrierPositionHome(GetParam().before);
    const QSignalSpy changed(&sensor, &AbstractCupSensor::isCupCarrierPositionHomeChanged);
    const QSignalSpy blocked(&sensor, &AbstractCupSensor::isCupCarrierBlockedByCupChanged);
    const QSignalSpy presence(&sensor, &AbstractCupSensor::cupPresenceChanged);
    const LogSpy log;
    int seenLines = -1;
    bool seenHome = !GetParam().isHome;
    QObject::connect(&sensor, &AbstractCupSensor::isCupCarrierPositionHomeChanged, &sensor, [&] {
        seenLines = log.records().size();
        seenHome = sensor.isCupCarrierPositionHome();
    });
    (sensor.*GetParam().operation)(GetParam().isHome);

    const bool isChange = GetParam().pText != nullptr;
    EXPECT_EQ(sensor.isCupCarrierPositionHome(), GetParam().isHome);
    EXPECT_EQ(changed.count(), isChange ? 1 : 0);
    EXPECT_EQ(blocked.count(), isChange ? 1 : 0);
    EXPECT_EQ(presence.count(), 0);
    ASSERT_EQ(log.records().size(), isChange ? 1 : 0);
    if (!isChange)
        return;
    EXPECT_EQ(log.texts().constFirst().toStdString(), GetParam().pText);
    EXPECT_EQ(log.count(GetParam().pText, 1, Log::Hardware), 1);
    EXPECT_EQ(seenLines, 1);
    EXPECT_EQ(seenHome, GetParam().isHome);
}

constexpr Operation s_set = &AbstractCupSensor::setIsCupCarrierPositionHome;
constexpr Operation s_hear = &AbstractCupSensor::onIsCupCarrierPositionHomeChangedFromProtocol;
const CarrierCase s_carrierCases[] = {
    {"SetHome", s_set, false, true, "Cup carrier position changed, home: 1"},
    {"SetAway", s_set, true, false, "Cup carrier position changed, home: 0"},
    {"SetHomeAgain", s_set, true, true, nullptr},
    {"SetAwayAgain", s_set, false, false, nullptr},
    {"HearHome", s_hear, false, true, "Cup carrier position changed, home: 1"},
    {"HearAway", s_hear, true, false, "Cup carrier position changed, home: 0"},
    {"HearHomeAgain", s_hear, true, true, nullptr},
    {"HearAwayAgain", s_hear, false, false, nullptr},
};
INSTANTIATE_TEST_SUITE_P(Rows, CupCarrierPosition, ::testing::ValuesIn(s_carrierCases), caseName);

struct BlockedCase
{
    const char *pName;
    bool isHome;
    quint16 reading;
    bool isBlocked;
};

using CupCarrierBlocked = ::testing::TestWithParam<BlockedCase>;

TEST_P(CupCarrierBlocked, DependsOnPositionAndCup)
{
    FakeCupSensor sensor(true);
    int reads = 0;
    sensor.setDevice([&reads](bool & /*error*/) -> quint16 { return ++reads, 0; });
    sensor.setIsCupCarrierPositionHome(GetParam().isHome);
    sensor.onRawValueChangedFromProtocol(GetParam().reading);
    EXPECT_EQ(sensor.isCupCarrierBlockedByCup(), GetParam().isBlocked);
    EXPECT_EQ(reads, 0); // the device is not asked
}

const BlockedCase s_blockedCases[] = {
    {"AwayWithoutCup", false, 99, false}, {"AwayWithCup", false, 100, true},
    {"HomeWithoutCup", true, 99, false},  {"HomeWithCup", true, 100, false},
    {"HomeWithLeast", true, 0, false},    {"HomeWithMost", true, 65535, false},
};
INSTANTIATE_TEST_SUITE_P(Rows, CupCarrierBlocked, ::testing::ValuesIn(s_blockedCases), caseName);

TEST(CupCarrierTest, IsNeverBlockedWhileItIsHomeWhateverTheSensorReads)
{
    FakeCupSensor sensor(false);
    sensor.setIsCupCarrierPositionHome(true);
    for (quint16 reading = 0; reading < 200; ++reading) {
        sensor.onRawValueChangedFromProtocol(reading);
        EXPECT_FALSE(sensor.isCupCarrierBlockedByCup()) << reading;
    }
}
