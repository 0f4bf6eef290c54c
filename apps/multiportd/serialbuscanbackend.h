#ifndef SERIALBUSCANBACKEND_H
#define SERIALBUSCANBACKEND_H

#include "multiportd/abstractcanbackend.h"

#include <QAbstractSocket>
#include <QCanBusDevice>
#include <QPointer>
#include <memory>

/// A CAN bus that one of the plugins of Qt SerialBus reaches. Frames have extended identifiers.
class SerialBusCanBackend : public AbstractCanBackend
{
    Q_OBJECT

public:
    /// `plugin` as Qt calls it ("socketcan"), `interface` as the plugin does ("can0").
    SerialBusCanBackend(QString plugin, QString interface, QObject *pParent = nullptr);
    ~SerialBusCanBackend() override;

    /// The bus may be connected only later: what is sent before that is lost. An attempt that is
    /// under way goes on.
    bool open(QString *pError) override;
    bool isReady() const override;
    void send(const CanFrame &frame) override;

    /// Frames of others that are no data frames with extended identifiers; counts no further than
    /// the number can.
    int foreignFrames() const { return m_foreignFrames; }

private:
    void close();
    bool isConnecting() const;
    bool isFull() const;
    bool hasRoomAgain() const;
    void receive();
    void take(const QCanBusFrame &received);
    void tellError();
    void onSocketError();
    void onStateChanged(QCanBusDevice::CanBusDeviceState state);
    void lose(const QString &reason);

    QString m_plugin;
    QString m_interface;
    std::unique_ptr<QCanBusDevice> m_pDevice;
    QPointer<QAbstractSocket> m_pSocket; ///< the device's own, where it has one
    CanFrame m_frame;                    ///< kept, so that its memory is
    int m_foreignFrames = 0;
    bool m_isLossTold = false;  ///< since a frame could be sent while none waited
    bool m_isErrorTold = false; ///< since the last frame that could be sent
};

#endif // SERIALBUSCANBACKEND_H
