#ifndef STOPSIGNAL_H
#define STOPSIGNAL_H

#include <QObject>
#include <QSocketNotifier>

/// Turns SIGTERM and SIGINT into a signal of the event loop. Made before any thread is; one in a
/// process.
class StopSignal : public QObject
{
    Q_OBJECT

public:
    explicit StopSignal(QObject *pParent = nullptr);
    ~StopSignal() override;

Q_SIGNALS:
    void raised(int number);

private:
    void read();

    int m_descriptor;
    QSocketNotifier m_notifier;
};

#endif // STOPSIGNAL_H
