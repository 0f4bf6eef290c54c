#ifndef LINEREADER_H
#define LINEREADER_H

#include <cstddef>
#include <functional>
#include <string_view>
#include <sys/types.h>
#include <vector>

/// Reads a file or a pipe line by line, in bounded memory.
class LineReader
{
public:
    static constexpr std::size_t s_maxLine = 4096; ///< bytes without the line end

    /// \param descriptor of a file, or of a pipe that was opened without waiting (O_NONBLOCK);
    /// borrowed
    /// \param beforeWaiting called whenever a pipe has nothing to read for now
    LineReader(int descriptor, std::function<void()> beforeWaiting);

    /// The next line without its line end, or its beginning when it is longer than s_maxLine; valid
    /// until the next call. False at the end, or after an error.
    bool next(std::string_view &line, bool &isTooLong);

    int error() const { return m_error; } ///< as errno has it; 0 for none

private:
    std::size_t lineEnd() const;
    void skipRest();
    bool fill();
    ssize_t readSome(char *pTo, std::size_t size);

    int m_descriptor;
    std::function<void()> m_beforeWaiting;
    std::vector<char> m_buffer;
    std::size_t m_from = 0; ///< what has not been handed out, up to m_to
    std::size_t m_to = 0;
    bool m_isSkipping = false; ///< the rest of a line that is too long is to come
    bool m_hasWriter;          ///< false for a pipe into which nobody has written
    int m_error = 0;
};

#endif // LINEREADER_H
