#ifndef INTERRUPTION_H
#define INTERRUPTION_H

#include <QObject>
#include <QSocketNotifier>

/// Turns Ctrl-C (SIGINT) and SIGTERM into a signal of the event loop, so that a command shuts the
/// machine down before it ends. One at a time.
class Interruption : public QObject
{
    Q_OBJECT

public:
    explicit Interruption(QObject *pParent = nullptr);
    ~Interruption() override;

Q_SIGNALS:
    void interrupted();

private:
    QSocketNotifier m_notifier;
};

#endif // INTERRUPTION_H
