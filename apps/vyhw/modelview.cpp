#include "modelview.h"

#include "machinechoice.h"

#include <QJsonArray>
#include <QMetaProperty>
#include <QStringList>
#include <QTextStream>

namespace {

constexpr int s_columnWidth = 44;

struct NamedValue
{
    QString name;
    QVariant value;
};

QList<NamedValue> propertiesOf(const HardwareSettings &settings)
{
    QList<NamedValue> values;
    const QMetaObject &meta = HardwareSettings::staticMetaObject;
    for (int i = meta.superClass()->propertyCount(); i < meta.propertyCount(); ++i) {
        const QMetaProperty property = meta.property(i);
        values.append({QString::fromLatin1(property.name()), property.read(&settings)});
    }
    return values;
}

QJsonObject displayAsJson(const DisplaySettings &display)
{
    return {{QStringLiteral("width"), display.width()},
            {QStringLiteral("height"), display.height()},
            {QStringLiteral("brightnessAdjustment"), display.brightnessAdjustment()},
            {QStringLiteral("contrastAdjustment"), display.contrastAdjustment()}};
}

QString displayAsText(const DisplaySettings &display)
{
    const auto adjustment = [](int can) { return can != 0 ? "adjustable" : "fixed"; };
    return QStringLiteral("%1 x %2 pixels, brightness %3, contrast %4")
        .arg(display.width())
        .arg(display.height())
        .arg(QLatin1String(adjustment(display.brightnessAdjustment())),
             QLatin1String(adjustment(display.contrastAdjustment())));
}

/// "230 V"; supplies whose number is not their voltage by their names.
QString voltageAsText(HardwareSettings::SupplyVoltage voltage)
{
    switch (voltage) {
    case HardwareSettings::VoltageUndefined:
        return QStringLiteral("undefined");
    case HardwareSettings::Voltage230_10A:
        return QStringLiteral("230 V 10 A");
    case HardwareSettings::Voltage240_13A:
        return QStringLiteral("240 V 13 A");
    case HardwareSettings::Voltage120_M:
        return QStringLiteral("120 V M");
    case HardwareSettings::Voltage230:
    case HardwareSettings::Voltage240:
    case HardwareSettings::Voltage120:
    case HardwareSettings::Voltage110:
    case HardwareSettings::Voltage220:
        break;
    }
    return QStringLiteral("%1 V").arg(static_cast<int>(voltage));
}

QString voltagesAsText(const HardwareSettings &settings)
{
    QStringList texts;
    const QList<HardwareSettings::SupplyVoltage> voltages = settings.supportedVoltages();
    for (const HardwareSettings::SupplyVoltage voltage : voltages)
        texts.append(voltageAsText(voltage));
    return texts.join(QStringLiteral(", "));
}

QString doorAsText(hardware::dadd::DeviceModel door)
{
    switch (door) {
    case hardware::dadd::CableDoor:
        return QStringLiteral("cable door");
    case hardware::dadd::GearDoor:
        return QStringLiteral("gear door");
    }
    return QStringLiteral("door %1").arg(static_cast<int>(door));
}

QString doorsAsText(const HardwareSettings &settings)
{
    QStringList texts;
    const QList<hardware::dadd::DeviceModel> doors = settings.supportedDaddDeviceModels();
    for (const hardware::dadd::DeviceModel door : doors)
        texts.append(doorAsText(door));
    return texts.join(QStringLiteral(", "));
}

QString outletsAsText(const HardwareSettings &settings)
{
    QStringList texts;
    if (settings.property("hasLeftOutlet").toBool())
        texts.append(QStringLiteral("left"));
    if (settings.property("hasCenterOutlet").toBool())
        texts.append(QStringLiteral("centre"));
    if (settings.property("hasRightOutlet").toBool())
        texts.append(QStringLiteral("right"));
    return texts.join(QStringLiteral(", "));
}

/// The number, with what it means where its unit is known.
QString numberAsText(const NamedValue &number)
{
    const int value = number.value.toInt();
    if (number.name == QLatin1String("maxEspressoTemp"))
        return QStringLiteral("%1  = %2 °C").arg(value, 6).arg(value / 10.0, 0, 'f', 1);
    return QStringLiteral("%1").arg(value, 6);
}

void writeColumns(QTextStream &out, const QStringList &left, const QStringList &right)
{
    for (int row = 0; row < qMax(left.size(), right.size()); ++row) {
        const QString cell = row < left.size() ? left.at(row) : QString();
        out << "  " << cell;
        if (row < right.size())
            out << QString(s_columnWidth - cell.size(), QLatin1Char(' ')) << right.at(row);
        out << '\n';
    }
}

void writeProperties(QTextStream &out, const QList<NamedValue> &properties)
{
    QStringList yes{QStringLiteral("YES")};
    QStringList no{QStringLiteral("NO")};
    QStringList numbers;
    for (const NamedValue &property : properties) {
        if (property.value.userType() == QMetaType::Bool)
            (property.value.toBool() ? yes : no).append(property.name);
        else if (property.value.userType() == QMetaType::Int)
            numbers.append(property.name.leftJustified(s_columnWidth) + numberAsText(property));
    }
    writeColumns(out, yes, no);
    out << "\n  NUMBERS\n";
    for (const QString &number : numbers)
        out << "  " << number << '\n';
}

} // namespace

QString modelAsText(const MachineConfiguration &machine, const HardwareSettings &settings)
{
    QString text;
    QTextStream out(&text);
    out << machineTitle(machine) << "\n\n";
    out << "  Display           " << displayAsText(settings.displaySettings()) << '\n';
    out << "  Supply voltages   " << voltagesAsText(settings) << '\n';
    out << "  Outlets           " << outletsAsText(settings) << '\n';
    out << "  Door              " << doorsAsText(settings) << "\n\n";
    writeProperties(out, propertiesOf(settings));
    return text;
}

QJsonObject modelAsJson(const MachineConfiguration &machine, const HardwareSettings &settings)
{
    QJsonObject properties;
    const QList<NamedValue> values = propertiesOf(settings);
    for (const NamedValue &property : values) {
        const bool isDisplay = property.value.userType() == qMetaTypeId<DisplaySettings>();
        properties.insert(property.name, isDisplay ? displayAsJson(settings.displaySettings())
                                                   : QJsonValue::fromVariant(property.value));
    }
    QJsonArray voltages;
    const QList<HardwareSettings::SupplyVoltage> supported = settings.supportedVoltages();
    for (const HardwareSettings::SupplyVoltage voltage : supported)
        voltages.append(static_cast<int>(voltage));
    QJsonArray doors;
    const QList<hardware::dadd::DeviceModel> models = settings.supportedDaddDeviceModels();
    for (const hardware::dadd::DeviceModel door : models)
        doors.append(static_cast<int>(door));
    return {{QStringLiteral("model"), QString::fromLatin1(machine.pModel)},
            {QStringLiteral("subtype"), static_cast<int>(machine.subtype)},
            {QStringLiteral("subtypeName"), QString::fromLatin1(machine.pSubtypeName)},
            {QStringLiteral("supportedVoltages"), voltages},
            {QStringLiteral("supportedDaddDeviceModels"), doors},
            {QStringLiteral("properties"), properties}};
}
