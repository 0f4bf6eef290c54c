#ifndef LINKPEER_H
#define LINKPEER_H

#include <QString>

class QProcess;

/// The other ends of the measured connections: processes of their own, started out of this program.
namespace LinkPeer {

constexpr int RecordSize = 13; ///< a frame of 8 bytes on the CAN stream
constexpr unsigned FrameId = 0x00254419;

/// Echoes what a QTcpSocket brings. Prints its port first.
int echo();
/// A multiport server that knows one controller and sends it frames at a pace. Each frame carries
/// its number and the time of its sending (CLOCK_MONOTONIC, µs, 32 bits of it), big-endian. Prints
/// its control port, then the port of a second stream like it for a client without control
/// connection.
int feed(int recordsPerSecond, int seconds);

/// Starts this program again as one of them; its ports are printed. Ends with the process object.
bool start(QProcess &process, const QStringList &arguments, QList<quint16> &ports, int portCount);

} // namespace LinkPeer

#endif // LINKPEER_H
