#include "cupsensor/simulatedcupsensor.h"

#include "envvars.h"
#include "logformatter.h"
#include "regularfile_p.h"

#include <QRegularExpression>
#include <QStringList>

namespace {

constexpr quint16 s_initialReading = 80; ///< mm; no cup at any sensibility
constexpr qint64 s_longestLine = 4096;   ///< bytes, chosen here; more of a line is not read

bool isFieldCut(const QByteArray &line, QFile &file)
{
    if (line.size() < s_longestLine - 1 || line.endsWith('\n'))
        return false;
    const QByteArray next = file.peek(1); // empty at the end of the file
    return !next.isEmpty() && !QByteArray("\r\n\t ").contains(next);
}

/// Of a line that is too long, the fields that are there whole; one that begins with a field longer
/// than that is no number.
QByteArray readFirstLine(QFile &file)
{
    QByteArray line = file.seek(0) ? file.readLine(s_longestLine) : QByteArray();
    if (!isFieldCut(line, file))
        return line;
    const int lastBlank = qMax(line.lastIndexOf(' '), line.lastIndexOf('\t'));
    return lastBlank >= 0 ? line.left(lastBlank + 1) : QByteArray("(too long)");
}

QStringList fieldsOf(const QByteArray &line)
{
    static const QRegularExpression s_separator(QStringLiteral("[\t ]+"));
    QString text = QString::fromUtf8(line);
    while (text.endsWith(QLatin1Char('\n')) || text.endsWith(QLatin1Char('\r')))
        text.chop(1);
    return text.split(s_separator, Qt::SkipEmptyParts);
}

} // namespace

SimulatedCupSensor::SimulatedCupSensor(QObject *pParent)
    : AbstractCupSensor(pParent, CupSensorTypeSimulated, true)
{
    m_loopPeriod = 1000;
    m_secondInterval = 1000;
    setRawValue(s_initialReading);

    const QString path = vytools::envvar::EnvVars::CupSensorSimulationFilePath;
    if (path.isEmpty()) {
        m_isPollingSensor = false;
        LogFormatter(1, Log::Hardware) << "Will simulate cup sensor from UI";
        return;
    }
    m_simulationFile.setFileName(path);
    LogFormatter(1, Log::Hardware) << QStringLiteral("Will simulate cup sensor from file ") + path;
    if (!openRegularFile(m_simulationFile, QIODevice::ReadWrite)) {
        LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << ": Failed opening simulation file !";
        m_isPollingSensor = false;
    }
    m_carrierSimulationFile.setFileName(path + QStringLiteral(".cc"));
    LogFormatter(1, Log::Hardware)
        << QStringLiteral("Will simulate cup sensor carrier from file ") +
               m_carrierSimulationFile.fileName();
    if (!openRegularFile(m_carrierSimulationFile, QIODevice::ReadWrite))
        LogFormatter(1, Log::Hardware)
            << Q_FUNC_INFO << ": Failed opening cup carrier simulation file !";
}

int SimulatedCupSensor::thresholdValue() const
{
    switch (sensibility()) {
    case SensibilityHigh:
        return 70;
    case SensibilityMedium:
        return 50;
    case SensibilityLow:
        return 30;
    }
    return 50; // a number that names no sensibility
}

bool SimulatedCupSensor::isCupPresent() const
{
    return rawValue() <= thresholdValue();
}

QString SimulatedCupSensor::channelName() const
{
    return QStringLiteral("Sim cs");
}

QString SimulatedCupSensor::valueString() const
{
    return QString::asprintf("Distance: %d mm", rawValue());
}

QString SimulatedCupSensor::rawValueString() const
{
    return QString::asprintf("Read value: %d", rawValue());
}

quint16 SimulatedCupSensor::readRawValuesFromDevice(bool &error)
{
    const quint16 lastGood = rawValue();
    error = true;
    m_lastLine = readFirstLine(m_simulationFile);
    if (m_lastLine.isEmpty()) {
        LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << ": Failed reading data from file !";
        return lastGood;
    }
    const QStringList fields = fieldsOf(m_lastLine);
    if (fields.isEmpty()) {
        LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << ": Not enough data in file !";
        return lastGood;
    }
    bool isNumber = false;
    const int value = fields.constFirst().toInt(&isNumber);
    if (!isNumber) {
        LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << ": Failed converting string to int !";
        return lastGood;
    }
    error = false;
    updateCupCarrierPositionFromFile();
    return static_cast<quint16>(value); // cut to 16 bits
}

void SimulatedCupSensor::updateCupCarrierPositionFromFile()
{
    if (!m_carrierSimulationFile.isOpen())
        return;
    m_lastCarrierLine = readFirstLine(m_carrierSimulationFile);
    const QStringList fields = fieldsOf(m_lastCarrierLine);
    if (fields.isEmpty())
        return;
    const bool isHome = fields.constFirst().toInt() != 0;
    if (isHome && !isCupCarrierPositionHome() && isAnyCupPresent(false)) {
        LogFormatter(1, Log::Hardware)
            << "A cup is present, not setting cup carrier position to home";
        return;
    }
    onIsCupCarrierPositionHomeChangedFromProtocol(isHome);
}
