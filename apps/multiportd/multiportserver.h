#ifndef MULTIPORTSERVER_H
#define MULTIPORTSERVER_H

#include "canbus/canrecord.h"
#include "linkrecords.h"
#include "multiportd/commands.h"
#include "multiportd/controlport.h"
#include "multiportd/dataport.h"

#include <QHostAddress>
#include <QObject>
#include <QString>
#include <QTimer>

class AbstractCanBackend;
class ControlConnection;

/// The server's end of the multiport link: relays between its clients and the backends.
/// docs/multiport-link.md has the bytes. Everything happens in the thread of the object.
class MultiportServer : public QObject
{
    Q_OBJECT

public:
    struct Ports
    {
        quint16 payment;
        quint16 can;
        quint16 control;
    };

    /// The backends are borrowed, open already, and outlive the server. One that is null is not
    /// there: its requests and claims are answered so. One that fails loses its controller, and is
    /// opened again as soon as that succeeds.
    MultiportServer(AbstractCanBackend *pCan, AbstractPaymentBackend *pPayment,
                    AbstractOutputsBackend *pOutputs, QObject *pParent = nullptr);
    ~MultiportServer() override;

    /// A port of 0 is a free one. False, with a reason for people, when one cannot be had; nothing
    /// listens then.
    bool listen(const QHostAddress &address, Ports ports, QString *pError);
    Ports ports() const { return m_ports; }

    /// Says goodbye to all clients and closes everything.
    void stop();
    /// Stops, or with false listens again where it did. False when that cannot be had any more.
    bool setCut(bool isCut);

private:
    void connectCan();
    void connectPayment();
    void onControllerWroteCan(const QByteArray &bytes);
    void onRequested(ControlConnection *pConnection, const multiportlink::Request &request);
    void claim(ControlConnection *pConnection, const QByteArray &payload);
    struct Device;
    template <typename Backend>
    void watch(Backend *pBackend, DataPort *pPort, Device *pDevice);
    static void onReady(Device *pDevice);
    quint8 statusOf(const DataPort *pPort) const;

    QHostAddress m_address;
    Ports m_ports{};
    AbstractCanBackend *m_pCan;
    AbstractPaymentBackend *m_pPayment;
    struct Device
    {
        QTimer reopenTimer;      ///< runs while it cannot be used
        bool isLossTold = false; ///< since it could be used last
    };
    Device m_canDevice;
    Device m_paymentDevice;
    Commands m_commands;
    DataPort m_canPort;
    DataPort m_paymentPort;
    ControlPort m_controlPort;
    CanRecord::Reader m_canRecords; ///< of the controller
    CanFrame m_frame;               ///< kept, so that its memory is
};

#endif // MULTIPORTSERVER_H
