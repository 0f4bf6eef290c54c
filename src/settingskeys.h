#ifndef SETTINGSKEYS_H
#define SETTINGSKEYS_H

#include <QLatin1String>

/// Key paths of the settings file for the application, which reads them with the getters of
/// AbstractSettings; the library itself reads none of them.
namespace SettingsKeys {

/// A key path from a literal; Qt's own constructor measures the text at run time with some
/// compilers.
template <int Size>
constexpr QLatin1String keyPath(const char (&text)[Size])
{
    return QLatin1String(text, Size - 1);
}

inline constexpr QLatin1String IsWifiAvailable = keyPath("hardware/isWifiAvailable");
inline constexpr QLatin1String UsbPath = keyPath("hardware/usbPath");
inline constexpr QLatin1String StatisticsSerialPath = keyPath("hardware/statisticsSerialPath");
inline constexpr QLatin1String PaymentSerialPath = keyPath("hardware/paymentSerialPath");
inline constexpr QLatin1String QrcodeModemSerialPath = keyPath("hardware/qrcodeModemSerialPath");
inline constexpr QLatin1String Vl6180xI2cDevice = keyPath("hardware/vl6180x_i2cdev");
inline constexpr QLatin1String CapKeysKbPath = keyPath("hardware/capKeysKbPath");
inline constexpr QLatin1String CapKeysLedEnablePath = keyPath("hardware/capKeysLedEnablePath");
inline constexpr QLatin1String HasRotatedTargetDisplay =
    keyPath("hardware/hasRotatedTargetDisplay");

} // namespace SettingsKeys

#endif // SETTINGSKEYS_H
