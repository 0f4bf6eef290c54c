#include "cupsensor/lirenabcupsensor.h"

#include "cupsensor/fakecupsensor.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <QPointer>
#include <QSignalSpy>
#include <QThreadPool>
#include <gtest/gtest.h>
#include <memory>

struct LirenABCase
{
    const char *pName;
    quint16 reading;
    bool isCupPresent;
    const char *pText;
};

using LirenABCupSensorReadings = ::testing::TestWithParam<LirenABCase>;

TEST_P(LirenABCupSensorReadings, AreACupUnlessTheyAreZero)
{
    LirenABCupSensor sensor;
    const auto call = [&sensor](const char *pName) {
        QString text = QStringLiteral("not called");
        EXPECT_TRUE(QMetaObject::invokeMethod(&sensor, pName, Q_RETURN_ARG(QString, text)));
        return text.toStdString();
    };
    sensor.onRawValueChangedFromProtocol(GetParam().reading);
    EXPECT_EQ(sensor.rawValue(), GetParam().reading);
    EXPECT_EQ(sensor.isCupPresent(), GetParam().isCupPresent);
    EXPECT_EQ(sensor.isAnyCupPresent(false), GetParam().isCupPresent);
    EXPECT_EQ(sensor.isAnyCupPresent(true), GetParam().isCupPresent);
    EXPECT_EQ(sensor.isCupCarrierBlockedByCup(), GetParam().isCupPresent);
    EXPECT_EQ(call("channelName"), "AB Cup Sensor");
    EXPECT_EQ(call("valueString"), GetParam().pText);
    EXPECT_EQ(call("rawValueString"), "");
}

const LirenABCase s_lirenABCases[] = {
    {"Zero", 0, false, "0"},
    {"One", 1, true, "1"},
    {"Two", 2, true, "2"},
    {"UpperByte", 256, true, "256"},
    {"Largest", 65535, true, "65535"},
};
INSTANTIATE_TEST_SUITE_P(Rows, LirenABCupSensorReadings, ::testing::ValuesIn(s_lirenABCases),
                         caseName);

TEST(LirenABCupSensorTest, ReadingOfOneIsACupAndZeroIsNone)
{
    spendFirstReadingOfTheProcess();
    LirenABCupSensor sensor;
    const QSignalSpy changed(&sensor, &AbstractCupSensor::cupPresenceChanged);
    EXPECT_FALSE(sensor.isCupPresent());
    sensor.onRawValueChangedFromProtocol(1);
    EXPECT_TRUE(sensor.isCupPresent());
    EXPECT_EQ(changed.count(), 1);
    sensor.onRawValueChangedFromProtocol(0);
    EXPECT_FALSE(sensor.isCupPresent());
    EXPECT_EQ(changed.count(), 2);
}

TEST(LirenABCupSensorTest, IsOfItsTypeAndNotPolled)
{
    const LogSpy log;
    LirenABCupSensor sensor;
    const QSignalSpy raw(&sensor, &AbstractCupSensor::rawValueChanged);
    EXPECT_EQ(sensor.cupSensorType(), AbstractCupSensor::CupSensorTypeLirenAB);
    EXPECT_FALSE(sensor.isPollingSensor());
    EXPECT_TRUE(sensor.startMeasureLoop());
    EXPECT_FALSE(sensor.isMeasureLoopRunning());
    EXPECT_TRUE(QThreadPool::globalInstance()->waitForDone(100)); // nothing runs
    EXPECT_TRUE(sensor.updateFromDevice());
    EXPECT_TRUE(sensor.stopMeasureLoop());
    EXPECT_EQ(raw.count(), 0);
    EXPECT_TRUE(log.records().isEmpty());
}

TEST(LirenABCupSensorTest, KeepsTheReadOfItsBase)
{
    LirenABCupSensor sensor;
    sensor.onRawValueChangedFromProtocol(412);
    const LogSpy log;
    bool error = false;
    EXPECT_EQ(sensor.readRawValuesFromDevice(error), 0);
    EXPECT_TRUE(error);
    ASSERT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.records().constFirst().level, 4);
    EXPECT_EQ(log.records().constFirst().module, Log::Hardware);
    EXPECT_EQ(log.texts().constFirst().toStdString(),
              "This should be implemented by daughter class if a loop is a polling loop is needed "
              "!");
}

TEST(LirenABCupSensorTest, ParentOwnsIt)
{
    auto pParent = std::make_unique<QObject>();
    const QPointer<LirenABCupSensor> pSensor = new LirenABCupSensor(pParent.get());
    pParent.reset();
    EXPECT_TRUE(pSensor.isNull());
}
