#ifndef NINEBITREADER_H
#define NINEBITREADER_H

#include <QByteArray>

/// Makes pairs of mode and byte out of what a Linux serial device gives that marks characters with
/// the wrong parity bit: FF 00 x for such a character x, FF FF for a right FF.
class NineBitReader
{
public:
    /// `isMarkRight`: the line's parity is mark, so a wrong one is a data character.
    QByteArray read(const QByteArray &bytes, bool isMarkRight);

    void clear() { m_state = State::Plain; }

private:
    enum class State { Plain, Escaped, Wrong };

    State m_state = State::Plain;
};

#endif // NINEBITREADER_H
