#ifndef NUMBEREDNAME_H
#define NUMBEREDNAME_H

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>
#include <string>

/// A row of a catalogue: a number and what it is called.
struct NumberedName
{
    int number;
    const char *pText;
};

/// Names the rows of a value-parameterised test by their number; the texts have characters that a
/// test's name must not have.
inline constexpr auto numberName = [](const auto &info) {
    return "Number" + std::to_string(info.param.number);
};

template <std::size_t Size>
bool isIn(const NumberedName (&rows)[Size], int number)
{
    return std::any_of(std::begin(rows), std::end(rows),
                       [number](const NumberedName &row) { return row.number == number; });
}

#endif // NUMBEREDNAME_H
