#include "canlogline.h"

#include <QDate>
#include <QTime>
#include <algorithm>

namespace {

constexpr int s_maxBytes = 8;
constexpr quint64 s_maxId = 0x1FFFFFFF;

/// Reads a line from its front; a file has millions of them, so by hand.
class Scanner
{
public:
    explicit Scanner(std::string_view text)
        : m_rest(text)
    {
    }

    bool isAtDigit() const { return !m_rest.empty() && digit(m_rest.front(), 10) >= 0; }

    void skipBlanks() { m_rest.remove_prefix(std::min(m_rest.find_first_not_of(' '), size())); }

    bool take(std::string_view word)
    {
        if (m_rest.substr(0, word.size()) != word)
            return false;
        m_rest.remove_prefix(word.size());
        return true;
    }

    /// Exactly so many digits.
    template <typename Number>
    bool take(std::size_t digits, int base, Number &number)
    {
        if (size() < digits)
            return false;
        number = 0;
        for (std::size_t i = 0; i < digits; ++i) {
            const int value = digit(m_rest[i], base);
            if (value < 0)
                return false;
            number = number * static_cast<Number>(base) + static_cast<Number>(value);
        }
        m_rest.remove_prefix(digits);
        return true;
    }

private:
    std::size_t size() const { return m_rest.size(); }

    /// -1 for what is none.
    static int digit(char letter, int base)
    {
        int value = -1;
        if (letter >= '0' && letter <= '9')
            value = letter - '0';
        else if (letter >= 'a' && letter <= 'f')
            value = letter - 'a' + 10;
        else if (letter >= 'A' && letter <= 'F')
            value = letter - 'A' + 10;
        return value < base ? value : -1;
    }

    std::string_view m_rest;
};

/// "2026-11-21T05:25:46.507Z"; the milliseconds may be missing.
bool takeTime(Scanner &scanner, std::optional<qint64> &time)
{
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int ms = 0;
    const bool isComplete =
        scanner.take(4, 10, year) && scanner.take("-") && scanner.take(2, 10, month) &&
        scanner.take("-") && scanner.take(2, 10, day) && scanner.take("T") &&
        scanner.take(2, 10, hour) && scanner.take(":") && scanner.take(2, 10, minute) &&
        scanner.take(":") && scanner.take(2, 10, second);
    if (!isComplete || (scanner.take(".") && !scanner.take(3, 10, ms)) || !scanner.take("Z "))
        return false;
    const QDate date(year, month, day);
    const QTime ofDay(hour, minute, second, ms);
    if (!date.isValid() || !ofDay.isValid())
        return false;
    time = date.toJulianDay() * 24 * 60 * 60 * 1000 + ofDay.msecsSinceStartOfDay();
    return true;
}

bool takeSize(Scanner &scanner, int &size)
{
    size = 0;
    int digit = 0;
    for (int digits = 0; digits < 4 && scanner.isAtDigit(); ++digits) {
        scanner.take(1, 10, digit);
        size = size * 10 + digit;
    }
    return scanner.take("):");
}

/// \return null, or what was expected
const char *takeData(Scanner &scanner, CanFrame &frame)
{
    int size = 0;
    if (!scanner.take("|data(") || !takeSize(scanner, size))
        return R"x("|data(", a number and "):" behind the identifier)x";
    int byte = 0;
    while (scanner.take(" 0x")) {
        if (!scanner.take(2, 16, byte))
            return "two hexadecimal digits for each byte";
        frame.appendData(static_cast<char>(byte));
    }
    scanner.skipBlanks();
    if (!scanner.take("|"))
        return "bytes such as 0x1f, and \"|\" behind them";
    if (frame.dataSize() != size)
        return "as many bytes as \"data(N)\" says";
    // What has no identifier is a note about an injected message, which may be longer.
    return frame.id() != 0 && size > s_maxBytes ? "at most 8 bytes" : nullptr;
}

} // namespace

const char *readCanLogLine(std::string_view text, CanLogLine &line)
{
    Scanner scanner(text);
    if (scanner.isAtDigit() && !takeTime(scanner, line.time))
        return "a time such as 2026-11-21T05:25:46.507Z";
    scanner.skipBlanks();
    if (!scanner.take("<TX<<") && !scanner.take(">>RX>"))
        return R"("<TX<<" or ">>RX>" behind the time)";
    scanner.skipBlanks();
    quint64 id = 0;
    if (!scanner.take("|id:0x") || !scanner.take(16, 16, id))
        return "\"|id:0x\" and 16 hexadecimal digits";
    if (id > s_maxId)
        return "an identifier of at most 29 bits, 0x1fffffff";
    line.frame.setId(static_cast<quint32>(id));
    return takeData(scanner, line.frame);
}
