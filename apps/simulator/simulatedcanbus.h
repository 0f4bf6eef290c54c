#ifndef SIMULATEDCANBUS_H
#define SIMULATEDCANBUS_H

#include "canbus/canframe.h"

#include <QObject>

class SimulatedBoard;

/// The wire between simulated boards, and the way in and out for whoever is not simulated: the
/// multiport server, or an interface of the library (see DummyCanLink).
class SimulatedCanBus : public QObject
{
    Q_OBJECT

public:
    explicit SimulatedCanBus(QObject *pParent = nullptr);

    /// Borrows the board, which may go at any time. Once for each board.
    void attach(SimulatedBoard *pBoard);

public Q_SLOTS:
    /// Puts a frame from outside on the bus: all boards hear it, before this returns.
    void send(const CanFrame &frame);

Q_SIGNALS:
    /// A frame that a board spoke; the other boards hear it right after. Never inside send().
    void frameOnBus(const CanFrame &frame);
    /// Any frame, for the boards.
    void heard(const CanFrame &frame);

private:
    void onSpoke(const CanFrame &frame);
};

#endif // SIMULATEDCANBUS_H
