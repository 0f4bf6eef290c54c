#ifndef ENVIRONMENTFAKES_H
#define ENVIRONMENTFAKES_H

#include "abstracthardwarecontroller.h"
#include "hardwareenvironment.h"
#include "hardwaresettings.h"

#include <QList>
#include <QStringList>
#include <functional>
#include <utility>

/// A controller that keeps the base version of everything that has one. Counts its living kind.
class BareController : public AbstractHardwareController
{
    Q_OBJECT

public:
    BareController()
        : AbstractHardwareController(QString(), QString(), nullptr)
    {
        ++s_living;
    }
    ~BareController() override { --s_living; }
    Q_DISABLE_COPY_MOVE(BareController)

    int calculateFinalBrightness(int percent) const override { return percent; }

    static inline int s_living = 0;
};

/// A controller that overrides the rest too, writes down what it is asked, and accepts it.
class TestController : public BareController
{
    Q_OBJECT

public:
    /// The list is borrowed for the controller's life.
    explicit TestController(QStringList *pCalls)
        : m_pCalls(pCalls)
    {
    }

    void createBoardDigitalIOController() override { add(QStringLiteral("digital outputs")); }
    bool setDeviceEnabled(HardwareEnvironment::Output output, bool isOn) override
    {
        return add(QStringLiteral("device %1 %2").arg(output).arg(isOn));
    }
    bool setParallelCoinValidatorDeviceEnabled(bool isOn) override
    {
        return add(QStringLiteral("validator %1").arg(isOn));
    }
    bool setBuzzerPeriod(int period) override
    {
        return add(QStringLiteral("buzzer %1").arg(period));
    }
    bool setContrast(int contrast) override
    {
        return add(QStringLiteral("contrast %1").arg(contrast));
    }
    bool setSpeakerVolume(int volume) override
    {
        return add(QStringLiteral("volume %1").arg(volume));
    }
    int speakerVolume() const override { return 37; }
    std::pair<int, int> speakerVolumeScale() const override { return {3, 61}; }
    void setDispensingLightIdleStatus(bool isOn) override
    {
        add(QStringLiteral("idle light %1").arg(isOn));
    }

private:
    bool add(const QString &call)
    {
        m_pCalls->append(call);
        return true;
    }

    QStringList *m_pCalls;
};

/// A machine whose controller the test makes; without a maker it has none.
class TestSettings : public HardwareSettings
{
    Q_OBJECT

public:
    using Maker = std::function<AbstractHardwareController *()>;

    explicit TestSettings(Maker make = nullptr)
        : m_make(std::move(make))
    {
    }

    AbstractHardwareController *createHardwareController() override
    {
        return m_make ? m_make() : nullptr;
    }

    using HardwareSettings::m_databaseModelName;
    using HardwareSettings::m_hasJugSupport;
    using HardwareSettings::m_hasParallelStepSupport;
    using HardwareSettings::m_modelName;

private:
    Maker m_make;
};

/// An application's environment, which chooses its platform.
class TestEnvironment : public HardwareEnvironment
{
    Q_OBJECT

public:
    using HardwareEnvironment::HardwareEnvironment;
    using HardwareEnvironment::setPlatform;
};

/// Settings with a TestController, and the environment over them.
struct Machine
{
    explicit Machine(HardwareEnvironment::MachineModel model = HardwareEnvironment::Corvel)
        : settings([this] { return new TestController(&calls); })
        , environment(model, &settings)
    {
    }

    void create(HardwareEnvironment::HardwareModules modules)
    {
        environment.setEnabledModules(modules);
        environment.createEnvironment();
    }

    AbstractHardwareController *controller() const { return environment.hardwareController(); }

    QStringList calls; ///< of the controller
    TestSettings settings;
    TestEnvironment environment;
};

#endif // ENVIRONMENTFAKES_H
