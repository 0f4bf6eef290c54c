#ifndef SERIALPORTPAYMENTBACKEND_H
#define SERIALPORTPAYMENTBACKEND_H

#include "multiportd/abstractpaymentbackend.h"
#include "multiportd/ninebitreader.h"

#include <QByteArray>
#include <QSerialPort>
#include <QTimer>

/// The payment line on a serial device. The ninth bit is the parity bit: mark for an address
/// character, space for a data character, with everything sent before the parity changes. What the
/// device's driver must support stands in docs/multiportd.md.
class SerialPortPaymentBackend : public AbstractPaymentBackend
{
    Q_OBJECT

public:
    explicit SerialPortPaymentBackend(const QString &device, QObject *pParent = nullptr);
    ~SerialPortPaymentBackend() override;

    /// 9600 baud, 8 data bits, no parity.
    bool open(QString *pError) override;
    quint8 setSerialLine(const multiportlink::SerialLine &line) override;
    void write(const QByteArray &bytes) override;
    void startAfresh() override;

private:
    void sendNext();
    void sendRun();
    void onSent();
    bool setUp(qint32 baudRate, bool isNineBit, QSerialPort::Parity parity);
    bool setMode(bool isAddress);
    bool markParityErrors();
    void fail();
    void receive();
    void onError(QSerialPort::SerialPortError error);

    QString m_device;
    QSerialPort m_port;
    bool m_isNineBit = false;
    bool m_isAddress = false; ///< the parity bit is mark
    QByteArray m_waiting;     ///< pairs of mode and byte, with 9 bits; the last may be half
    QTimer m_sentTimer{this}; ///< runs while a run is on its way out
    NineBitReader m_reader;
    bool m_isLossTold = false; ///< since the line took all last
};

#endif // SERIALPORTPAYMENTBACKEND_H
