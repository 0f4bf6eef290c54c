#ifndef SETTINGSKEYS_H
#define SETTINGSKEYS_H

#include <QLatin1String>

/// Key paths of the settings file for the application, which reads them with the getters of
/// AbstractSettings; the library itself reads none of them.
namespace SettingsKeys {

inline constexpr QLatin1String IsWifiAvailable("hardware/isWifiAvailable");
inline constexpr QLatin1String UsbPath("hardware/usbPath");
inline constexpr QLatin1String StatisticsSerialPath("hardware/statisticsSerialPath");
inline constexpr QLatin1String PaymentSerialPath("hardware/paymentSerialPath");
inline constexpr QLatin1String QrcodeModemSerialPath("hardware/qrcodeModemSerialPath");
inline constexpr QLatin1String Vl6180xI2cDevice("hardware/vl6180x_i2cdev");
inline constexpr QLatin1String CapKeysKbPath("hardware/capKeysKbPath");
inline constexpr QLatin1String CapKeysLedEnablePath("hardware/capKeysLedEnablePath");
inline constexpr QLatin1String HasRotatedTargetDisplay("hardware/hasRotatedTargetDisplay");

} // namespace SettingsKeys

#endif // SETTINGSKEYS_H
