#ifndef SIMULATIONFOLDER_H
#define SIMULATIONFOLDER_H

#include "cupsensor/simulatedcupsensor.h"

#include "support/scopedvariable.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

/// A simulated sensor whose set-up can be seen, and whose loop can be faster.
class FastSimulatedCupSensor : public SimulatedCupSensor
{
public:
    using SimulatedCupSensor::m_loopPeriod;
    using SimulatedCupSensor::m_secondInterval;
    using SimulatedCupSensor::SimulatedCupSensor;
};

/// A folder with the two simulation files; sensors that are made while this lives follow them.
class SimulationFolder
{
public:
    SimulationFolder()
        : m_variable("VY_CUP_SENSOR_SIMULATION_FILE", QFile::encodeName(file()))
    {
    }

    QString file() const { return m_folder.filePath(QStringLiteral("cup.txt")); }
    QString carrierFile() const { return file() + QStringLiteral(".cc"); }

    void write(const QByteArray &text) const { write(file(), text); }
    void writeCarrier(const QByteArray &text) const { write(carrierFile(), text); }

    /// Rewrites the file in place, as the tools do.
    static void write(const QString &path, const QByteArray &text)
    {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        EXPECT_EQ(file.write(text), text.size());
    }

    static QByteArray bytes(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("no file");
    }

    const ScopedVariable &variable() const { return m_variable; }

private:
    QTemporaryDir m_folder;
    ScopedVariable m_variable;
};

#endif // SIMULATIONFOLDER_H
