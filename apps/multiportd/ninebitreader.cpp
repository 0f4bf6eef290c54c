#include "multiportd/ninebitreader.h"

namespace {

constexpr char s_escape = '\xff';

} // namespace

QByteArray NineBitReader::read(const QByteArray &bytes, bool isMarkRight)
{
    const char right = isMarkRight ? 1 : 0;
    const char wrong = isMarkRight ? 0 : 1;
    QByteArray pairs;
    const auto take = [&](char mode, char byte) {
        pairs += mode;
        pairs += byte;
        m_state = State::Plain;
    };
    for (const char byte : bytes) {
        switch (m_state) {
        case State::Plain:
            if (byte == s_escape)
                m_state = State::Escaped;
            else
                take(right, byte);
            break;
        case State::Escaped:
            if (byte == '\0')
                m_state = State::Wrong;
            else
                take(right, byte);
            break;
        case State::Wrong:
            take(wrong, byte);
            break;
        }
    }
    return pairs;
}
