// A property read by its name, and settings looked up in a document of 1,000 keys.

#include "allocations.h"
#include "machineregistry.h"

#include <QJsonDocument>
#include <QVariant>

namespace {

/// 10 groups of 10 objects of 10 numbers: 1,000 values at depth 3, such as "group3/object7/key5".
QByteArray thousandKeys()
{
    QJsonObject root;
    for (int group = 0; group < 10; ++group) {
        QJsonObject objects;
        for (int object = 0; object < 10; ++object) {
            QJsonObject values;
            for (int key = 0; key < 10; ++key)
                values.insert(QStringLiteral("key%1").arg(key), group * 100 + object * 10 + key);
            objects.insert(QStringLiteral("object%1").arg(object), values);
        }
        root.insert(QStringLiteral("group%1").arg(group), objects);
    }
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}

void readPropertyByName(benchmark::State &state, const char *pName)
{
    const auto pSettings = MachineRegistry::create(QStringLiteral("Lirenta"), 8);
    const AllocationCounter counter(state);
    for ([[maybe_unused]] auto iteration : state) {
        QVariant value = pSettings->property(pName);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK_CAPTURE(readPropertyByName, first_hasJugSupport, "hasJugSupport");
BENCHMARK_CAPTURE(readPropertyByName, last_hasCupCarrier, "hasCupCarrier");
BENCHMARK_CAPTURE(readPropertyByName, displaySettings, "displaySettings");

void lookUpAtDepth3(benchmark::State &state)
{
    AbstractSettings::setSettings(thousandKeys());
    const AbstractSettings settings;
    const QString key = QStringLiteral("group3/object7/key5");
    if (settings.intSetting(key) != 375)
        state.SkipWithError("the lookup does not find its value");
    const AllocationCounter counter(state);
    for ([[maybe_unused]] auto iteration : state) {
        int value = settings.intSetting(key);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(lookUpAtDepth3);

void loadThousandKeys(benchmark::State &state)
{
    const QByteArray document = thousandKeys();
    const AllocationCounter counter(state);
    for ([[maybe_unused]] auto iteration : state)
        AbstractSettings::setSettings(document);
}
BENCHMARK(loadThousandKeys);

} // namespace
