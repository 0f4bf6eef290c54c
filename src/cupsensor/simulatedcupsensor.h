#ifndef SIMULATEDCUPSENSOR_H
#define SIMULATEDCUPSENSOR_H

#include "cupsensor/abstractcupsensor.h"

#include <QFile>

/// A cup sensor for machines and desks without one. Its reading behaves like a distance in mm: a
/// cup is present at or below the threshold of the sensibility. The environment variable
/// VY_CUP_SENSOR_SIMULATION_FILE chooses at construction where readings come from:
/// - set: from that file, which is read again at each poll, and the carrier's position from the one
///   with ".cc" behind its name. Only the first number of the first line counts. The files stay
///   open: a tool rewrites them in place, since one that replaces them by renaming is not seen.
/// - not set, or the file is no regular file that can be opened: from the user interface, through
///   onRawValueChangedFromProtocol().
class VYHARDWARE1_EXPORT SimulatedCupSensor : public AbstractCupSensor
{
    Q_OBJECT

public:
    explicit SimulatedCupSensor(QObject *pParent = nullptr);

    int thresholdValue() const; ///< mm

    bool isCupPresent() const override;
    QString channelName() const override;
    QString valueString() const override;
    QString rawValueString() const override;

    /// The next reading; the last good one, with a line in the log, when the file holds none.
    quint16 readRawValuesFromDevice(bool &error) override;

    /// Takes the carrier's position from its file. A cup that is present keeps the carrier from
    /// being reported home. Runs, and signals, in the thread that polls.
    void updateCupCarrierPositionFromFile();

private:
    QFile m_simulationFile;
    QFile m_carrierSimulationFile;
    QByteArray m_lastLine;
    QByteArray m_lastCarrierLine;
};

#endif // SIMULATEDCUPSENSOR_H
