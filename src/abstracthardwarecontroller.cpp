#include "abstracthardwarecontroller.h"

#include "logformatter.h"
#include "regularfile_p.h"

namespace {

constexpr int s_targetPlatform = 2;
constexpr int s_mostBytes = 1 << 20; ///< chosen here; the kernel's files hold a few digits
constexpr int s_mostLogged = 1000;   ///< characters of a content that is no number, chosen here

int platform()
{
    return gHardwareEnv != nullptr ? gHardwareEnv->platform() : 1;
}

} // namespace

// NOLINTBEGIN(modernize-pass-by-value): the signature is fixed
AbstractHardwareController::AbstractHardwareController(QString maxBrightnessFile,
                                                       const QString &brightnessFile,
                                                       QObject *pParent)
    : QObject(pParent)
    , m_brightnessFile(brightnessFile)
    , m_maxBrightness(readIntFromFile(maxBrightnessFile))
{
}
// NOLINTEND(modernize-pass-by-value)

AbstractHardwareController::~AbstractHardwareController() = default;

int AbstractHardwareController::deviceGpio(HardwareEnvironment::Output /*output*/)
{
    return -1;
}

void AbstractHardwareController::createBoardDigitalIOController() {}

bool AbstractHardwareController::setDeviceEnabled(HardwareEnvironment::Output /*output*/,
                                                  bool /*isOn*/)
{
    return false;
}

bool AbstractHardwareController::setParallelCoinValidatorDeviceEnabled(bool /*isOn*/)
{
    return false;
}

bool AbstractHardwareController::setBuzzerPeriod(int /*period*/)
{
    LogFormatter(0, Log::InputOutput) << Q_FUNC_INFO << "BuzzerPeriod not implemented yet";
    return false;
}

bool AbstractHardwareController::setContrast(int /*contrast*/)
{
    LogFormatter(0, Log::InputOutput) << Q_FUNC_INFO << "Contrast adjustment not implemented yet";
    return false;
}

bool AbstractHardwareController::setSpeakerVolume(int /*volume*/)
{
    LogFormatter(0, Log::InputOutput) << Q_FUNC_INFO << "Speaker volume adjustment unavailable";
    return false;
}

int AbstractHardwareController::speakerVolume() const
{
    LogFormatter(0, Log::InputOutput) << Q_FUNC_INFO << "Speaker volume reader unavailable";
    return 0;
}

std::pair<int, int> AbstractHardwareController::speakerVolumeScale() const
{
    LogFormatter(0, Log::InputOutput) << Q_FUNC_INFO << "Speaker volume scale unavailable";
    return {0, 0};
}

void AbstractHardwareController::setDispensingLightIdleStatus(bool /*isOn*/) {}

bool AbstractHardwareController::setDeviceSetting(HardwareEnvironment::DeviceSetting setting,
                                                  int value)
{
    switch (setting) {
    case HardwareEnvironment::BrightnessSetting:
        return setBrightness(value);
    case HardwareEnvironment::BuzzerPeriodSetting:
        return setBuzzerPeriod(value);
    case HardwareEnvironment::ContrastSetting:
        return setContrast(value);
    case HardwareEnvironment::SpeakerVolumeSetting:
        return setSpeakerVolume(value);
    }
    return false; // a number that names no setting
}

int AbstractHardwareController::deviceSetting(HardwareEnvironment::DeviceSetting setting) const
{
    return setting == HardwareEnvironment::SpeakerVolumeSetting ? speakerVolume() : 0;
}

std::pair<int, int>
AbstractHardwareController::settingScale(HardwareEnvironment::DeviceSetting setting) const
{
    return setting == HardwareEnvironment::SpeakerVolumeSetting ? speakerVolumeScale()
                                                                : std::pair<int, int>();
}

bool AbstractHardwareController::setBrightness(int percent)
{
    if (!m_isForced && platform() != s_targetPlatform)
        return true;
    if (percent < 0 || percent > 100) {
        LogFormatter(4, Log::InputOutput) << Q_FUNC_INFO << "Cannot set brightness to:" << percent;
        return false;
    }
    if (m_maxBrightness == -1) {
        LogFormatter(4, Log::InputOutput)
            << "MaxBrightness value has not been correctly initialized";
        return false;
    }
    const int finalValue = calculateFinalBrightness(percent);
    const bool isWritten = writeIntToFile(m_brightnessFile, finalValue);
    if (isWritten)
        LogFormatter(0, Log::InputOutput) << Q_FUNC_INFO << "value =" << finalValue;
    return isWritten;
}

int AbstractHardwareController::readIntFromFile(const QString &path)
{
    QFile file(path);
    if (!openRegularFile(file, QIODevice::ReadOnly)) {
        LogFormatter(4, Log::InputOutput) << "Could not read:" << path;
        return -1;
    }
    const QByteArray bytes = file.read(s_mostBytes + 1);
    const QString content = QString::fromLatin1(bytes.constData()); // ends at the first NUL
    bool isNumber = false;
    const int value = content.trimmed().toInt(&isNumber);
    if (!isNumber || content.size() > s_mostBytes) { // the beginning of a number is another one
        LogFormatter(4, Log::InputOutput)
            << QStringLiteral(
                   "Could not parse content of \"%1\"! The following content could not be "
                   "converted into number:")
                   .arg(path)
            << content.left(s_mostLogged);
        return -1;
    }
    return value;
}

bool AbstractHardwareController::writeIntToFile(const QString &path, int value)
{
    QFile file(path);
    if (!openRegularFile(file, QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        // The quote is opened and not closed: the text's own form.
        LogFormatter(4, Log::InputOutput)
            << QStringLiteral("Could not open file for writing: \"%1").arg(path);
        return false;
    }
    const QByteArray text = QByteArray::number(value);
    const bool isWritten = file.write(text) == text.size();
    if (!isWritten)
        LogFormatter(4, Log::InputOutput)
            << "Could not write" << value << "to" << quoted(path) << file.errorString();
    return isWritten;
}
