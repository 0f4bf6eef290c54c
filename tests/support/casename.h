#ifndef CASENAME_H
#define CASENAME_H

#include <gtest/gtest.h>
#include <string>

/// Names the rows of a value-parameterised test by their `pName`.
inline constexpr auto caseName = [](const auto &info) { return std::string(info.param.pName); };

#endif // CASENAME_H
