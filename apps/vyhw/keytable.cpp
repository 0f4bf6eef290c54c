#include "keytable.h"

#include "machineregistry.h"
#include "machinetext.h"
#include "settingsdocument.h"
#include "settingskeys.h"

#include <algorithm>

namespace {

enum class Expected { Flag, Text, Integer };

struct KeyRow
{
    QLatin1String keyPath;
    Expected expected;
};

constexpr KeyRow s_rows[] = {
    {MachineRegistry::s_modelKey, Expected::Text},
    {MachineRegistry::s_subtypeKey, Expected::Integer},
    {SettingsKeys::IsWifiAvailable, Expected::Flag},
    {SettingsKeys::UsbPath, Expected::Text},
    {SettingsKeys::StatisticsSerialPath, Expected::Text},
    {SettingsKeys::PaymentSerialPath, Expected::Text},
    {SettingsKeys::QrcodeModemSerialPath, Expected::Text},
    {SettingsKeys::Vl6180xI2cDevice, Expected::Text},
    {SettingsKeys::CapKeysKbPath, Expected::Text},
    {SettingsKeys::CapKeysLedEnablePath, Expected::Text},
    {SettingsKeys::HasRotatedTargetDisplay, Expected::Flag},
};

QString expectation(Expected expected)
{
    switch (expected) {
    case Expected::Flag:
        return QStringLiteral("true or false");
    case Expected::Text:
        return QStringLiteral("a text in double quotes");
    case Expected::Integer:
        return QStringLiteral("a whole number");
    }
    return {};
}

bool isAsExpected(const QJsonValue &value, Expected expected)
{
    switch (expected) {
    case Expected::Flag:
        return value.isBool();
    case Expected::Text:
        return value.isString();
    case Expected::Integer:
        return value.isDouble() &&
               value.toInt(0) == value.toInt(1); // the default shows what is no int
    }
    return false;
}

/// The value shortened to what fits in an error line.
QString excerpt(const QJsonValue &value)
{
    constexpr int s_length = 40;
    const QString text = toJsonText(value);
    return text.size() <= s_length ? text : text.left(s_length) + QStringLiteral("...");
}

QString errorAt(const SettingsDocument &document, const QString &keyPath, const QString &found,
                const QString &expected)
{
    return QStringLiteral("%1: key \"%2\" is %3; expected %4")
        .arg(document.path(), keyPath, found, expected);
}

void checkDuplicates(const SettingsDocument &document, CheckResult &result)
{
    for (const SettingsDocument::Duplicate &key : document.duplicates())
        result.errors += QStringLiteral("%1:%2: key \"%3\" stands in line %4 already, and only the "
                                        "last one counts; expected it once")
                             .arg(document.path(), key.place, printable(key.keyPath))
                             .arg(key.firstLine);
}

void checkTypes(const SettingsDocument &document, CheckResult &result)
{
    for (const KeyRow &row : s_rows) {
        const QJsonValue value = document.value(row.keyPath);
        if (value.isUndefined())
            continue;
        ++result.knownKeys;
        if (!isAsExpected(value, row.expected))
            result.errors +=
                errorAt(document, row.keyPath, excerpt(value), expectation(row.expected));
    }
}

void checkSubtype(const SettingsDocument &document, const QString &model, CheckResult &result)
{
    const QJsonValue subtype = document.value(MachineRegistry::s_subtypeKey);
    if (!isAsExpected(subtype, Expected::Integer)) // missing, or told already
        return;
    if (!MachineRegistry::find(model, subtype.toInt()))
        result.errors += errorAt(
            document, MachineRegistry::s_subtypeKey, excerpt(subtype),
            QStringLiteral("a subtype of %1: %2")
                .arg(model, subtypeNumbers(model, QString::number(HardwareSettings::NoSubtype))));
}

/// Other groups are the application's own.
bool isInOurGroups(const QString &keyPath)
{
    return keyPath.startsWith(QLatin1String("hardware/"), Qt::CaseInsensitive) ||
           keyPath.startsWith(QLatin1String("machine/"), Qt::CaseInsensitive);
}

void checkShape(const SettingsDocument &document, CheckResult &result)
{
    for (const char *pGroup : {"hardware", "machine"}) {
        const QJsonValue group = document.value(QLatin1String(pGroup));
        if (!group.isUndefined() && !group.isObject())
            result.errors += errorAt(document, QLatin1String(pGroup), excerpt(group),
                                     QStringLiteral("an object"));
    }
    const QStringList unreachable = document.unreachableKeys();
    for (const QString &keyPath : unreachable) {
        if (isInOurGroups(keyPath))
            result.errors +=
                QStringLiteral("%1: member \"%2\" has a / in its own name, so no key path finds "
                               "it; expected an object for each part")
                    .arg(document.path(), keyPath);
    }
}

void checkModel(const SettingsDocument &document, CheckResult &result)
{
    const QJsonValue model = document.value(MachineRegistry::s_modelKey);
    if (model.isUndefined() && !document.value(MachineRegistry::s_subtypeKey).isUndefined())
        result.errors +=
            QStringLiteral("%1: key \"%2\" stands without \"%3\"; expected both")
                .arg(document.path(), MachineRegistry::s_subtypeKey, MachineRegistry::s_modelKey);
    if (!model.isString())
        return;
    if (MachineRegistry::ofModel(model.toString()).empty())
        result.errors += errorAt(document, MachineRegistry::s_modelKey, excerpt(model),
                                 QStringLiteral("one of ") + modelNames());
    else
        checkSubtype(document, model.toString(), result);
}

void warnOfMissingMachine(const SettingsDocument &document, CheckResult &result)
{
    if (document.value(MachineRegistry::s_modelKey).isUndefined())
        result.warnings +=
            QStringLiteral("%1: there is no key \"%2\", so the tools cannot tell which "
                           "machine this is")
                .arg(document.path(), MachineRegistry::s_modelKey);
}

void warnOfUnknownKeys(const SettingsDocument &document, CheckResult &result)
{
    for (const auto &entry : document.values()) {
        const bool isKnown =
            std::any_of(std::begin(s_rows), std::end(s_rows),
                        [&](const KeyRow &row) { return row.keyPath == entry.first; });
        if (!isKnown && isInOurGroups(entry.first))
            result.warnings += QStringLiteral("%1: key \"%2\" is none that the library names")
                                   .arg(document.path(), entry.first);
    }
}

} // namespace

CheckResult checkKeys(const SettingsDocument &document)
{
    CheckResult result;
    checkDuplicates(document, result);
    checkShape(document, result);
    checkTypes(document, result);
    checkModel(document, result);
    warnOfMissingMachine(document, result);
    warnOfUnknownKeys(document, result);
    return result;
}
