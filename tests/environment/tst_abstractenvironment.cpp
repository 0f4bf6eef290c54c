#include "abstractenvironment.h"

#include "environmentfakes.h"
#include "support/assertspy.h"
#include "support/casename.h"
#include "support/exittest.h"
#include "support/logspy.h"

#include <QPointer>
#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

namespace {

/// Writes down the steps of its start.
class SteppingEnvironment : public AbstractEnvironment
{
public:
    using AbstractEnvironment::AbstractEnvironment;

    void initialize() override { steps << QStringLiteral("initialize"); }
    void instantiateModules() override { steps << QStringLiteral("instantiate modules"); }
    void initializeModules() override { steps << QStringLiteral("initialize modules"); }
    void unloadModules() override { steps << QStringLiteral("unload modules"); }

    QStringList steps;
};

/// Overrides the last step alone.
class LastStepEnvironment : public AbstractEnvironment
{
public:
    using AbstractEnvironment::AbstractEnvironment;

    void initializeModules() override { ++count; }

    int count = 0;
};

/// A place for each of the four operations, right behind those of QObject.
class AfterQObject : public QObject
{
public:
    virtual void first() {}
    virtual void second() {}
    virtual void third() {}
    virtual void fourth() {}
    virtual void fifth() {}
};

class AfterAbstractEnvironment : public AbstractEnvironment
{
public:
    virtual void next() {}
};

class AfterHardwareEnvironment : public HardwareEnvironment
{
public:
    virtual void next() {}
};

/// The compiler's form of a pointer to a virtual operation, which tells the operation's place.
template <typename Class>
auto placeOf(void (Class::*operation)())
{
    std::array<unsigned char, sizeof operation> bytes{};
    std::memcpy(bytes.data(), &operation, bytes.size());
    return bytes;
}

} // namespace

TEST(AbstractEnvironmentTest, CreateEnvironmentTakesItsStepsInOrder)
{
    TestSettings settings;
    SteppingEnvironment environment(&settings, nullptr);
    environment.createEnvironment();
    EXPECT_EQ(environment.steps.join(QLatin1Char(',')).toStdString(),
              "initialize,instantiate modules,initialize modules");

    environment.unloadModules();
    EXPECT_EQ(environment.steps.last().toStdString(), "unload modules");
    EXPECT_EQ(environment.steps.size(), 4);
}

TEST(AbstractEnvironmentTest, CreateEnvironmentLeavesOutWhatIsNotOverridden)
{
    TestSettings settings;
    LastStepEnvironment environment(&settings, nullptr);
    const LogSpy log;
    const AssertSpy asserts;
    environment.createEnvironment();
    EXPECT_EQ(environment.count, 1);
    EXPECT_TRUE(log.texts().isEmpty());
    EXPECT_TRUE(asserts.records().isEmpty());
}

TEST(AbstractEnvironmentTest, BaseOperationsDoNothing)
{
    TestSettings settings;
    AbstractEnvironment environment(&settings, nullptr);
    const LogSpy log;
    const AssertSpy asserts;
    environment.createEnvironment();
    environment.unloadModules();
    EXPECT_TRUE(log.texts().isEmpty());
    EXPECT_TRUE(asserts.records().isEmpty());
    EXPECT_TRUE(environment.children().isEmpty());
}

TEST(AbstractEnvironmentTest, OperationsStandInTheirPlaces)
{
    EXPECT_EQ(placeOf(&AbstractEnvironment::initialize), placeOf(&AfterQObject::first));
    EXPECT_EQ(placeOf(&AbstractEnvironment::instantiateModules), placeOf(&AfterQObject::second));
    EXPECT_EQ(placeOf(&AbstractEnvironment::initializeModules), placeOf(&AfterQObject::third));
    EXPECT_EQ(placeOf(&AbstractEnvironment::unloadModules), placeOf(&AfterQObject::fourth));
    EXPECT_EQ(placeOf(&AfterAbstractEnvironment::next), placeOf(&AfterQObject::fifth));
}

TEST(AbstractEnvironmentTest, HardwareEnvironmentAddsNoVirtualOperation)
{
    EXPECT_EQ(placeOf(&AfterHardwareEnvironment::next), placeOf(&AfterAbstractEnvironment::next));
}

TEST(AbstractEnvironmentTest, IsAQObjectThatTakesItsParent)
{
    TestSettings settings;
    QObject parent;
    auto *const pEnvironment = new AbstractEnvironment(&settings, &parent);
    EXPECT_EQ(pEnvironment->parent(), &parent);
    EXPECT_EQ(AbstractEnvironment::staticMetaObject.superClass(), &QObject::staticMetaObject);
}

TEST(AbstractEnvironmentTest, DoesNotOwnItsSettings)
{
    const QPointer<TestSettings> pSettings(new TestSettings);
    {
        const AbstractEnvironment environment(pSettings, nullptr);
    }
    ASSERT_FALSE(pSettings.isNull());
    delete pSettings;
}

TEST(AbstractEnvironmentTest, NullSettingsEndTheProcess)
{
    EXPECT_FATAL_ASSERTION(AbstractEnvironment(nullptr, nullptr), "settings",
                           "Setting a valid Settings instance is mandatory for AbstractEnvironment",
                           "src/abstractenvironment");
}

TEST(AbstractEnvironmentTest, NullSettingsOfAHardwareEnvironmentEndTheProcess)
{
    EXPECT_FATAL_ASSERTION(HardwareEnvironment(HardwareEnvironment::Lirenta, nullptr), "settings",
                           "Setting a valid Settings instance is mandatory for AbstractEnvironment",
                           "src/abstractenvironment");
}

// -- version --------------------------------------------------------------------------------------

struct VersionCase
{
    const char *pName;
    int major;
    int minor;
    int patch;
    const char *pText;
    const char *pDescription;
};

using AbstractEnvironmentVersions = ::testing::TestWithParam<VersionCase>;

TEST_P(AbstractEnvironmentVersions, AreTold)
{
    TestSettings settings;
    AbstractEnvironment environment(&settings, nullptr);
    environment.setApplicationVersion(9, 9, 9);
    environment.setApplicationVersion(GetParam().major, GetParam().minor, GetParam().patch);
    EXPECT_EQ(environment.applicationVersionString().toStdString(), GetParam().pText);
    EXPECT_EQ(environment.applicationVersionDescriptionString().toStdString(),
              GetParam().pDescription);
}

constexpr VersionCase s_versionCases[] = {
    {"Plain", 1, 2, 3, "1.2.3", "1.2.3 Release"},
    {"Zero", 0, 0, 0, "0.0.0", "0.0.0 Release"},
    {"NoPadding", 10, 0, 2024, "10.0.2024", "10.0.2024 Release"},
    {"Negative", -1, 0, -12, "-1.0.-12", "-1.0.-12 Release"},
    {"Largest", std::numeric_limits<int>::max(), 1, 0, "2147483647.1.0", "2147483647.1.0 Release"},
};
INSTANTIATE_TEST_SUITE_P(Versions, AbstractEnvironmentVersions, ::testing::ValuesIn(s_versionCases),
                         caseName);

TEST(AbstractEnvironmentTest, HashesAreKeptApart)
{
    TestSettings settings;
    AbstractEnvironment environment(&settings, nullptr);
    EXPECT_TRUE(environment.applicationGitShortHash().isEmpty());
    EXPECT_TRUE(environment.applicationGitHash().isEmpty());
    EXPECT_TRUE(environment.commonGitShortHash().isEmpty());
    EXPECT_TRUE(environment.commonGitHash().isEmpty());

    environment.setApplicationGitShortHash(QStringLiteral("a1"));
    environment.setApplicationGitHash(QStringLiteral("a1b2"));
    environment.setCommonGitShortHash(QStringLiteral("c3"));
    environment.setCommonGitHash(QStringLiteral("c3d4"));
    EXPECT_EQ(environment.applicationGitShortHash().toStdString(), "a1");
    EXPECT_EQ(environment.applicationGitHash().toStdString(), "a1b2");
    EXPECT_EQ(environment.commonGitShortHash().toStdString(), "c3");
    EXPECT_EQ(environment.commonGitHash().toStdString(), "c3d4");
}
