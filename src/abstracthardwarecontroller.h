#ifndef ABSTRACTHARDWARECONTROLLER_H
#define ABSTRACTHARDWARECONTROLLER_H

#include "hardwareenvironment.h"
#include "vyhardware1_export.h"

#include <QObject>
#include <QString>
#include <utility>

class BoardDigitalIO;

/// The UI board's display, sound and outputs. The base sets the brightness through the kernel's
/// backlight files and refuses everything else; a board's controller gives the brightness scale and
/// overrides what the board has. Failures are log lines and a false, -1 or 0.
class VYHARDWARE1_EXPORT AbstractHardwareController : public QObject
{
    Q_OBJECT

public:
    /// Reads the highest brightness once; it stays -1, and every brightness is refused, when that
    /// file holds no number.
    AbstractHardwareController(QString maxBrightnessFile, const QString &brightnessFile,
                               QObject *pParent);
    ~AbstractHardwareController() override;

    // The order of the virtual operations is fixed.
    virtual int deviceGpio(HardwareEnvironment::Output output); ///< the GPIO line; -1: none
    virtual void createBoardDigitalIOController();
    virtual bool setDeviceEnabled(HardwareEnvironment::Output output, bool isOn);
    virtual bool setParallelCoinValidatorDeviceEnabled(bool isOn);
    /// What the board's file is to hold.
    virtual int calculateFinalBrightness(int percent) const = 0;
    virtual bool setBuzzerPeriod(int period);
    virtual bool setContrast(int contrast);
    virtual bool setSpeakerVolume(int volume);
    virtual int speakerVolume() const;
    virtual std::pair<int, int> speakerVolumeScale() const; ///< lowest and highest volume
    virtual void setDispensingLightIdleStatus(bool isOn);

    bool setDeviceSetting(HardwareEnvironment::DeviceSetting setting, int value);
    /// Only the volume is read back; everything else is 0.
    int deviceSetting(HardwareEnvironment::DeviceSetting setting) const;
    std::pair<int, int> settingScale(HardwareEnvironment::DeviceSetting setting) const;

    /// Brightness in percent, 0 to 100. True without doing anything on a desktop (platform value
    /// other than 2), unless forced.
    bool setBrightness(int percent);

    /// Off at first. On: the brightness file is written on every platform.
    void setForced(bool isForced) { m_isForced = isForced; }

    /// A decimal number out of a file of 1 MiB at most, -1 when there is none.
    static int readIntFromFile(const QString &path);
    static bool writeIntToFile(const QString &path, int value);

Q_SIGNALS:
    void buttonPressed(int buttonId);
    void buttonLongPressed(int buttonId);
    void gpioRising(int buttonId);
    void gpioFalling(int buttonId);

protected:
    int maxBrightness() const { return m_maxBrightness; }

    /// A board's controller makes and owns it, once there is such a class; null for none.
    BoardDigitalIO *m_pBoardDigitalIO = nullptr;

private:
    const QString m_brightnessFile;
    const int m_maxBrightness; ///< -1: not known
    bool m_isForced = false;
};

#endif // ABSTRACTHARDWARECONTROLLER_H
