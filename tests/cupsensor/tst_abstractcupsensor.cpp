#include "cupsensor/abstractcupsensor.h"

#include "cupsensor/fakecupsensor.h"
#include "support/casename.h"
#include "support/logfolder.h"
#include "support/logspy.h"

#include <QFileInfo>
#include <QMetaEnum>
#include <QMetaMethod>
#include <QPointer>
#include <QRegularExpression>
#include <QSignalSpy>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using Keys = std::vector<std::pair<std::string, int>>;

template <typename Enum>
Keys keysOf()
{
    const QMetaEnum metaEnum = QMetaEnum::fromType<Enum>();
    Keys keys;
    for (int i = 0; i < metaEnum.keyCount(); ++i)
        keys.emplace_back(metaEnum.key(i), metaEnum.value(i));
    return keys;
}

/// The class's own methods of a kind, in their order: return type, signature, names in brackets
/// where they are asked for.
std::vector<std::string> methodsOf(QMetaMethod::MethodType type, bool isWithNames)
{
    const QMetaObject &metaObject = AbstractCupSensor::staticMetaObject;
    std::vector<std::string> methods;
    for (int i = metaObject.methodOffset(); i < metaObject.methodCount(); ++i) {
        const QMetaMethod method = metaObject.method(i);
        if (method.methodType() != type)
            continue;
        EXPECT_EQ(method.access(), QMetaMethod::Public) << method.methodSignature().constData();
        QByteArray text = QByteArray(method.typeName()) + ' ' + method.methodSignature();
        if (isWithNames)
            text += " [" + method.parameterNames().join(',') + ']';
        methods.push_back(text.toStdString());
    }
    return methods;
}

QString fileName()
{
    return QStringLiteral("cup_sensor_values.txt");
}

/// The lines of the value file behind their times.
std::string valuesIn(const LogFolder &folder, const QString &name = fileName())
{
    QStringList texts;
    const QStringList lines = folder.lines(name);
    for (const QString &line : lines)
        texts << line.section(QLatin1Char(' '), 1);
    return texts.join(QLatin1Char('|')).toStdString();
}

int countMatches(const LogSpy &log, const char *pPattern)
{
    return log.texts().filter(QRegularExpression(QString::fromUtf8(pPattern))).size();
}

/// The compiler's form of a pointer to a virtual operation begins with its place in the table.
template <typename Operation>
std::ptrdiff_t placeOf(Operation operation)
{
    std::ptrdiff_t place = 0;
    static_assert(sizeof operation >= sizeof place);
    std::memcpy(&place, &operation, sizeof place);
    return place;
}

class AfterLogInFile : public LogInFile
{
public:
    using LogInFile::LogInFile;
    virtual void next() {}
};

class AfterCupSensor : public FakeCupSensor
{
public:
    using FakeCupSensor::FakeCupSensor;
    virtual void next() {}
};

} // namespace

// -- what others see of the class -----------------------------------------------------------------

TEST(AbstractCupSensorInterface, TypesAreRegisteredWithTheirNumbers)
{
    EXPECT_EQ(keysOf<AbstractCupSensor::CupSensorType>(), (Keys{{"CupSensorTypeNone", 0},
                                                                {"CupSensorTypeOstrelSpi", 1},
                                                                {"CupSensorTypeLirenAB", 2},
                                                                {"CupSensorTypeVl6180x", 3},
                                                                {"CupSensorTypeSimulated", 4}}));
}

TEST(AbstractCupSensorInterface, SensibilitiesAreRegisteredWithTheirNumbers)
{
    EXPECT_EQ(keysOf<AbstractCupSensor::CupSensorSensibility>(),
              (Keys{{"SensibilityHigh", 0}, {"SensibilityMedium", 1}, {"SensibilityLow", 2}}));
}

TEST(AbstractCupSensorInterface, SignalsAreInTheirOrder)
{
    EXPECT_EQ(methodsOf(QMetaMethod::Signal, false),
              (std::vector<std::string>{"void cupPresenceChanged()", "void rawValueChanged(ushort)",
                                        "void isCupCarrierPositionHomeChanged()",
                                        "void isCupCarrierBlockedByCupChanged()"}));
}

TEST(AbstractCupSensorInterface, InvokablesAreInTheirOrder)
{
    EXPECT_EQ(methodsOf(QMetaMethod::Method, true),
              (std::vector<std::string>{
                  "AbstractCupSensor::CupSensorType cupSensorType() []",
                  "ushort rawValue() []",
                  "bool isCupPresent() []",
                  "QString channelName() []",
                  "QString valueString() []",
                  "QString rawValueString() []",
                  "void onRawValueChangedFromProtocol(ushort) [rawValues]",
                  "bool isCupCarrierPositionHome() []",
                  "bool isCupCarrierBlockedByCup() []",
                  "void onIsCupCarrierPositionHomeChangedFromProtocol(bool) [isHome]",
                  "void setIsCupCarrierPositionHome(bool) [isHome]",
              }));
    EXPECT_TRUE(methodsOf(QMetaMethod::Slot, true).empty());
    EXPECT_EQ(AbstractCupSensor::staticMetaObject.superClass(), &LogInFile::staticMetaObject);
}

TEST(AbstractCupSensorInterface, VirtualOperationsFollowThoseOfLogInFileInTheirOrder)
{
    constexpr std::ptrdiff_t step = sizeof(void *);
    const std::ptrdiff_t first = placeOf(&AfterLogInFile::next);
    EXPECT_EQ(placeOf(&AbstractCupSensor::setSensibility), first);
    EXPECT_EQ(placeOf(&AbstractCupSensor::isCupPresent), first + 1 * step);
    EXPECT_EQ(placeOf(&AbstractCupSensor::channelName), first + 2 * step);
    EXPECT_EQ(placeOf(&AbstractCupSensor::valueString), first + 3 * step);
    EXPECT_EQ(placeOf(&AbstractCupSensor::rawValueString), first + 4 * step);
    EXPECT_EQ(placeOf(&AbstractCupSensor::readRawValuesFromDevice), first + 5 * step);
    EXPECT_EQ(placeOf(&AfterCupSensor::next), first + 6 * step);
}

TEST(AbstractCupSensorInterface, FourOperationsArePure)
{
    static_assert(std::is_abstract_v<AbstractCupSensor>);
    class Least : public AbstractCupSensor
    {
    public:
        Least()
            : AbstractCupSensor(nullptr, CupSensorTypeNone, false)
        {
        }
        bool isCupPresent() const override { return false; }
        QString channelName() const override { return {}; }
        QString valueString() const override { return {}; }
        QString rawValueString() const override { return {}; }
    };
    EXPECT_EQ(Least().rawValue(), 0);
}

TEST(AbstractCupSensorInterface, InvokablesCanBeCalledThroughTheMetaObject)
{
    FakeCupSensor sensor(false, AbstractCupSensor::CupSensorTypeOstrelSpi);
    AbstractCupSensor::CupSensorType type = AbstractCupSensor::CupSensorTypeNone;
    quint16 value = 0;
    bool isPresent = false;
    bool isHome = false;
    bool isBlocked = true;
    QString name;
    QString valueText;
    QString rawText;

    const auto call = [&sensor](const char *pName, auto... arguments) {
        EXPECT_TRUE(QMetaObject::invokeMethod(&sensor, pName, arguments...)) << pName;
    };
    call("onRawValueChangedFromProtocol", Q_ARG(quint16, 412));
    call("setIsCupCarrierPositionHome", Q_ARG(bool, true));
    call("cupSensorType", Q_RETURN_ARG(AbstractCupSensor::CupSensorType, type));
    call("rawValue", Q_RETURN_ARG(quint16, value));
    call("isCupPresent", Q_RETURN_ARG(bool, isPresent));
    call("channelName", Q_RETURN_ARG(QString, name));
    call("valueString", Q_RETURN_ARG(QString, valueText));
    call("rawValueString", Q_RETURN_ARG(QString, rawText));
    call("isCupCarrierPositionHome", Q_RETURN_ARG(bool, isHome));
    call("isCupCarrierBlockedByCup", Q_RETURN_ARG(bool, isBlocked));

    EXPECT_EQ(type, AbstractCupSensor::CupSensorTypeOstrelSpi);
    EXPECT_EQ(value, 412);
    EXPECT_TRUE(isPresent);
    EXPECT_EQ(name, QStringLiteral("Fake"));
    EXPECT_EQ(valueText, QStringLiteral("412"));
    EXPECT_EQ(rawText, QStringLiteral("raw"));
    EXPECT_TRUE(isHome);
    EXPECT_FALSE(isBlocked);
    call("onIsCupCarrierPositionHomeChangedFromProtocol", Q_ARG(bool, false));
    EXPECT_FALSE(sensor.isCupCarrierPositionHome());
    EXPECT_TRUE(sensor.isCupCarrierBlockedByCup());
}

struct TypeCase
{
    const char *pName;
    AbstractCupSensor::CupSensorType type;
    bool isPolled;
};

using AbstractCupSensorTypes = ::testing::TestWithParam<TypeCase>;

TEST_P(AbstractCupSensorTypes, BeginWithTheirInitialValues)
{
    const LogSpy log;
    const FakeCupSensor sensor(GetParam().isPolled, GetParam().type);
    EXPECT_EQ(sensor.cupSensorType(), GetParam().type);
    EXPECT_EQ(sensor.isPollingSensor(), GetParam().isPolled);
    EXPECT_EQ(sensor.rawValue(), 0);
    EXPECT_EQ(sensor.m_loopPeriod, 1000);
    EXPECT_EQ(sensor.m_secondInterval, 2000);
    EXPECT_FALSE(sensor.isMeasureLoopRunning());
    EXPECT_EQ(sensor.sensibility(), AbstractCupSensor::SensibilityHigh);
    EXPECT_FALSE(sensor.isCupCarrierPositionHome());
    EXPECT_FALSE(sensor.isLogInFile());
    EXPECT_TRUE(log.records().isEmpty());
}

const TypeCase s_typeCases[] = {
    {"None", AbstractCupSensor::CupSensorTypeNone, false},
    {"OstrelSpi", AbstractCupSensor::CupSensorTypeOstrelSpi, true},
    {"LirenAB", AbstractCupSensor::CupSensorTypeLirenAB, false},
    {"Vl6180x", AbstractCupSensor::CupSensorTypeVl6180x, true},
    {"Simulated", AbstractCupSensor::CupSensorTypeSimulated, true},
};
INSTANTIATE_TEST_SUITE_P(Rows, AbstractCupSensorTypes, ::testing::ValuesIn(s_typeCases), caseName);

namespace {

/// Ends the process, which is one of its own, with 0 when all expectations hold.
void registerTheListOfReadings()
{
    EXPECT_EQ(QMetaType::type("QList<quint16>"), static_cast<int>(QMetaType::UnknownType));
    const FakeCupSensor sensor(false);
    const int type = QMetaType::type("QList<quint16>"); // before it can register itself
    EXPECT_NE(type, static_cast<int>(QMetaType::UnknownType));
    EXPECT_EQ(type, qMetaTypeId<QList<quint16>>());
    std::_Exit(::testing::Test::HasFailure() ? 1 : 0);
}

} // namespace

TEST(AbstractCupSensorDeathTest, ConstructorRegistersTheListOfReadings)
{
    EXPECT_EXIT(registerTheListOfReadings(), ::testing::ExitedWithCode(0), "");
}

TEST(AbstractCupSensorInterface, ParentOwnsIt)
{
    auto pParent = std::make_unique<QObject>();
    const QPointer<FakeCupSensor> pSensor = new FakeCupSensor(false);
    pSensor->setParent(pParent.get());
    pParent.reset();
    EXPECT_TRUE(pSensor.isNull());
}

// -- sensibility ----------------------------------------------------------------------------------

struct SensibilityCase
{
    const char *pName;
    int number;
    const char *pText; ///< the line that is logged
};

using AbstractCupSensorSensibilities = ::testing::TestWithParam<SensibilityCase>;

TEST_P(AbstractCupSensorSensibilities, AreLoggedAlwaysAndSignalledWhenTheyChange)
{
    const auto wanted = static_cast<AbstractCupSensor::CupSensorSensibility>(GetParam().number);
    for (int before = 0; before < 3; ++before) {
        FakeCupSensor sensor(false);
        sensor.setSensibility(static_cast<AbstractCupSensor::CupSensorSensibility>(before));
        const QSignalSpy changed(&sensor, &AbstractCupSensor::cupPresenceChanged);
        const QSignalSpy blocked(&sensor, &AbstractCupSensor::isCupCarrierBlockedByCupChanged);
        int seen = -1;
        QObject::connect(&sensor, &AbstractCupSensor::cupPresenceChanged, &sensor,
                         [&] { seen = sensor.sensibility(); });
        const LogSpy log;
        sensor.setSensibility(wanted);

        const bool isChange = before != GetParam().number;
        EXPECT_EQ(sensor.sensibility(), wanted);
        EXPECT_EQ(changed.count(), isChange ? 1 : 0);
        EXPECT_EQ(blocked.count(), isChange ? 1 : 0);
        EXPECT_EQ(seen, isChange ? GetParam().number : -1);
        ASSERT_EQ(log.records().size(), 1);
        EXPECT_EQ(log.texts().constFirst().toStdString(), GetParam().pText);
        EXPECT_EQ(log.count(GetParam().pText, 1, Log::Hardware), 1);
    }
}

const SensibilityCase s_sensibilityCases[] = {
    {"High", 0, "AbstractCupSensor: Setting high sensibility"},
    {"Medium", 1, "AbstractCupSensor: Setting medium sensibility"},
    {"Low", 2, "AbstractCupSensor: Setting low sensibility"},
};
INSTANTIATE_TEST_SUITE_P(Rows, AbstractCupSensorSensibilities,
                         ::testing::ValuesIn(s_sensibilityCases), caseName);

struct InvalidSensibilityCase
{
    const char *pName;
    int number;
    const char *pText; ///< behind the signature
};

using AbstractCupSensorInvalidSensibilities = ::testing::TestWithParam<InvalidSensibilityCase>;

TEST_P(AbstractCupSensorInvalidSensibilities, AreLoggedAndChangeNothing)
{
    FakeCupSensor sensor(false);
    sensor.setSensibility(AbstractCupSensor::SensibilityMedium);
    const QSignalSpy changed(&sensor, &AbstractCupSensor::cupPresenceChanged);
    const LogSpy log;
    sensor.setSensibility(static_cast<AbstractCupSensor::CupSensorSensibility>(GetParam().number));

    EXPECT_EQ(sensor.sensibility(), AbstractCupSensor::SensibilityMedium);
    EXPECT_EQ(changed.count(), 0);
    ASSERT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.count(": Invalid value ", 4, Log::Hardware), 1);
    const QString text = log.texts().constFirst();
    EXPECT_TRUE(text.startsWith(QStringLiteral("virtual void AbstractCupSensor::setSensibility(")));
    EXPECT_EQ(text.section(QLatin1String(") "), 1).toStdString(), GetParam().pText);
}

const InvalidSensibilityCase s_invalidSensibilityCases[] = {
    {"Three", 3, ": Invalid value 3"},
    {"MinusOne", -1, ": Invalid value -1"},
    {"Byte", 256, ": Invalid value 256"},
    {"Largest", std::numeric_limits<int>::max(), ": Invalid value 2147483647"},
};
INSTANTIATE_TEST_SUITE_P(Rows, AbstractCupSensorInvalidSensibilities,
                         ::testing::ValuesIn(s_invalidSensibilityCases), caseName);

// -- readings -------------------------------------------------------------------------------------

/// Ends the process, which is one of its own, with 0 when all expectations hold.
void handleTheFirstReadings()
{
    FakeCupSensor sensor(true);
    sensor.setDevice([](bool &error) -> quint16 {
        error = false;
        return 5;
    });
    const QSignalSpy changed(&sensor, &AbstractCupSensor::cupPresenceChanged);
    const LogSpy log;
    sensor.updateFromDevice(); // is no reading that is handled
    EXPECT_EQ(log.count("Cup presence changed"), 0);
    EXPECT_EQ(changed.count(), 1);

    sensor.onRawValueChangedFromProtocol(5);
    EXPECT_EQ(countMatches(log, "^Cup presence changed: C0$"), 1);
    EXPECT_EQ(log.count("Cup presence changed: ", 1, Log::Hardware), 1);
    EXPECT_EQ(changed.count(), 2);

    sensor.onRawValueChangedFromProtocol(5);
    FakeCupSensor(false).onRawValueChangedFromProtocol(5); // the process's, not the object's
    EXPECT_EQ(log.count("Cup presence changed"), 1);
    EXPECT_EQ(changed.count(), 2);
    std::_Exit(::testing::Test::HasFailure() ? 1 : 0);
}

TEST(AbstractCupSensorDeathTest, FirstReadingIsToldEvenWhenNoCupIsPresent)
{
    EXPECT_EXIT(handleTheFirstReadings(), ::testing::ExitedWithCode(0), "");
}

namespace {

/// Ends the process, which is one of its own, with 0 when all expectations hold. The first reading
/// is over when its handling is, so that one which a slot pushes in meanwhile is told too.
void handleAReadingWithinTheFirst()
{
    const LogFolder folder;
    FakeCupSensor sensor(false);
    sensor.setLogInFile(true);
    std::vector<quint16> seen;
    QObject::connect(&sensor, &AbstractCupSensor::cupPresenceChanged, &sensor, [&] {
        seen.push_back(sensor.rawValue());
        if (seen.size() == 1)
            sensor.onRawValueChangedFromProtocol(6);
    });
    const LogSpy log;
    sensor.onRawValueChangedFromProtocol(5);
    EXPECT_EQ(seen, (std::vector<quint16>{5, 6}));
    EXPECT_EQ(log.texts().join(QLatin1Char('|')).toStdString(),
              "Cup presence changed: C0|Cup presence changed: C0");
    EXPECT_EQ(sensor.rawValue(), 6);
    EXPECT_EQ(valuesIn(folder), "00006(0)|00005(0)"); // each at the end of its handling

    sensor.onRawValueChangedFromProtocol(7);
    EXPECT_EQ(seen.size(), 2U);
    std::_Exit(::testing::Test::HasFailure() ? 1 : 0);
}

} // namespace

TEST(AbstractCupSensorDeathTest, ReadingWithinTheFirstReadingIsToldToo)
{
    EXPECT_EXIT(handleAReadingWithinTheFirst(), ::testing::ExitedWithCode(0), "");
}

class AbstractCupSensorTest : public ::testing::Test
{
protected:
    AbstractCupSensorTest()
    {
        spendFirstReadingOfTheProcess();
        m_log.clear();
    }

    LogFolder m_folder;
    LogSpy m_log;
};

struct ReadingCase
{
    const char *pName;
    quint16 before;
    quint16 reading;
    int changes;          ///< how often cupPresenceChanged() comes
    const char *pPattern; ///< of the presence line; null where there is none
    const char *pInFile;
    const char *pText; ///< valueString() of the base
};

class AbstractCupSensorReadings : public AbstractCupSensorTest,
                                  public ::testing::WithParamInterface<ReadingCase>
{
};

TEST_P(AbstractCupSensorReadings, AreStoredComparedByPresenceAndWrittenToTheFile)
{
    FakeCupSensor sensor(false);
    sensor.onRawValueChangedFromProtocol(GetParam().before);
    sensor.setLogInFile(true);
    m_log.clear();
    sensor.takeDecisions();
    const QSignalSpy changed(&sensor, &AbstractCupSensor::cupPresenceChanged);
    const QSignalSpy blocked(&sensor, &AbstractCupSensor::isCupCarrierBlockedByCupChanged);
    const QSignalSpy raw(&sensor, &AbstractCupSensor::rawValueChanged);
    sensor.onRawValueChangedFromProtocol(GetParam().reading);

    const auto decisions = sensor.takeDecisions();
    ASSERT_EQ(decisions.size(), 2U); // one on each side of the store
    EXPECT_EQ(decisions.front().second, GetParam().before);
    EXPECT_EQ(decisions.back().second, GetParam().reading);
    EXPECT_EQ(sensor.rawValue(), GetParam().reading);
    EXPECT_EQ(sensor.valueString().toStdString(), GetParam().pText);
    EXPECT_EQ(changed.count(), GetParam().changes);
    EXPECT_EQ(blocked.count(), GetParam().changes);
    EXPECT_EQ(raw.count(), 0);
    EXPECT_EQ(m_log.records().size(), GetParam().changes);
    if (GetParam().pPattern != nullptr) {
        EXPECT_EQ(countMatches(m_log, GetParam().pPattern), 1);
        EXPECT_EQ(m_log.count("Cup presence changed: ", 1, Log::Hardware), 1);
    }
    EXPECT_EQ(valuesIn(m_folder), GetParam().pInFile);
}

const ReadingCase s_readingCases[] = {
    {"EqualWithoutCup", 0, 0, 0, nullptr, "00000(0)", "0"},
    {"EqualWithCup", 412, 412, 0, nullptr, "00412(1)", "412"},
    {"OtherWithoutCup", 0, 99, 0, nullptr, "00099(0)", "99"},
    {"OtherWithCup", 100, 65535, 0, nullptr, "65535(1)", "65535"},
    {"CupComes", 99, 100, 1, "^Cup presence changed: C1$", "00100(1)", "100"},
    {"CupGoes", 100, 99, 1, "^Cup presence changed: C0$", "00099(0)", "99"},
    {"FromLeastToMost", 0, 65535, 1, "^Cup presence changed: C1$", "65535(1)", "65535"},
    {"FromMostToLeast", 65535, 0, 1, "^Cup presence changed: C0$", "00000(0)", "0"},
};
INSTANTIATE_TEST_SUITE_P(Rows, AbstractCupSensorReadings, ::testing::ValuesIn(s_readingCases),
                         caseName);

TEST_F(AbstractCupSensorTest, EqualReadingEmitsNothingButIsWrittenToTheFile)
{
    FakeCupSensor sensor(false);
    sensor.setLogInFile(true);
    sensor.onRawValueChangedFromProtocol(412);
    const QSignalSpy changed(&sensor, &AbstractCupSensor::cupPresenceChanged);
    sensor.onRawValueChangedFromProtocol(412);
    sensor.onRawValueChangedFromProtocol(412);
    EXPECT_EQ(changed.count(), 0);
    EXPECT_EQ(valuesIn(m_folder), "00412(1)|00412(1)|00412(1)");
}

TEST_F(AbstractCupSensorTest, ChangeIsStoredAndLoggedBeforeItIsSignalledAndWrittenAfterwards)
{
    FakeCupSensor sensor(false);
    sensor.setLogInFile(true);
    QStringList seen;
    QObject::connect(&sensor, &AbstractCupSensor::cupPresenceChanged, &sensor, [&] {
        seen << QString::number(sensor.rawValue())
             << QString::number(m_log.count("Cup presence changed"))
             << QString::number(m_folder.lines(fileName()).size());
    });
    sensor.onRawValueChangedFromProtocol(412);
    EXPECT_EQ(seen.join(QLatin1Char('|')).toStdString(), "412|1|0");
    EXPECT_EQ(m_folder.lines(fileName()).size(), 1);
}

TEST_F(AbstractCupSensorTest, SlotMayDeleteTheSensor)
{
    QPointer<FakeCupSensor> pSensor = new FakeCupSensor(false);
    pSensor->setLogInFile(true);
    QObject::connect(pSensor.data(), &AbstractCupSensor::cupPresenceChanged,
                     [&pSensor] { delete pSensor.data(); });
    pSensor->onRawValueChangedFromProtocol(412);
    EXPECT_TRUE(pSensor.isNull());
    EXPECT_TRUE(m_folder.names().isEmpty());
}

TEST_F(AbstractCupSensorTest, ValueFileIsNotWrittenWhileItsSwitchIsOff)
{
    FakeCupSensor sensor(false);
    sensor.onRawValueChangedFromProtocol(412);
    EXPECT_TRUE(m_folder.names().isEmpty());
}

TEST_F(AbstractCupSensorTest, ValuesGoToTheModuleHardware)
{
    FakeCupSensor sensor(false);
    sensor.setLogInFile(true);
    sensor.setLogInDebug(true);
    sensor.onRawValueChangedFromProtocol(412);
    EXPECT_EQ(m_log.count("00412(1)", 0, Log::Hardware), 1);
}

TEST_F(AbstractCupSensorTest, ValueFileHoldsTwoAndAHalfMebibytesAndHasOneOlderFile)
{
    constexpr qint64 limit = 5 * 1024 * 1024 / 2;
    constexpr qint64 line = 34; // time and blank 25, value 8, line feed
    const QString older = QStringLiteral("cup_sensor_values.1.txt");
    const QString path = m_folder.path(fileName());
    for (int round = 0; round < 2; ++round) {
        QFile::remove(path);
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_TRUE(file.resize(limit - line - 1));
        ASSERT_TRUE(file.seek(limit - line - 1));
        file.write("\n");
        file.close();

        FakeCupSensor sensor(false); // opens what is there, and goes on in it
        sensor.setLogInFile(true);
        sensor.onRawValueChangedFromProtocol(412);
        EXPECT_EQ(QFileInfo(path).size(), limit);
        sensor.onRawValueChangedFromProtocol(413);
        EXPECT_EQ(QFileInfo(m_folder.path(older)).size(), limit);
        EXPECT_EQ(valuesIn(m_folder), "00413(1)");
        EXPECT_EQ(m_folder.names(), QStringList({older, fileName()}));
    }
}

TEST_F(AbstractCupSensorTest, PolledSensorHandlesItsOwnRawValueChanged)
{
    FakeCupSensor sensor(true);
    Q_EMIT sensor.rawValueChanged(412);
    EXPECT_EQ(sensor.rawValue(), 412);
}

TEST_F(AbstractCupSensorTest, SensorThatIsNotPolledIgnoresItsOwnRawValueChanged)
{
    FakeCupSensor sensor(false);
    Q_EMIT sensor.rawValueChanged(412);
    EXPECT_EQ(sensor.rawValue(), 0);
}

TEST_F(AbstractCupSensorTest, ReadingCanBeAskedForInAnyThread)
{
    FakeCupSensor sensor(false);
    std::atomic<bool> isDone{false};
    std::atomic<int> strangers{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            while (!isDone) {
                const quint16 value = sensor.rawValue();
                if (value != 0 && value != 0x00ff && value != 0xff00)
                    ++strangers;
            }
        });
    for (int i = 0; i < 5000; ++i)
        sensor.onRawValueChangedFromProtocol(i % 2 == 0 ? 0x00ff : 0xff00);
    isDone = true;
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(strangers, 0);
    EXPECT_EQ(sensor.rawValue(), 0xff00);
}
