#ifndef EXITTEST_H
#define EXITTEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

/// The statement must end the process with exit status 1 after a fatal assertion report that bears
/// this condition, message and unit, all three to the letter.
#define EXPECT_FATAL_ASSERTION(statement, condition, message, unit)                                \
    EXPECT_EXIT(statement, ::testing::ExitedWithCode(1),                                           \
                ::testing::HasSubstr("Release assertion failed: " message " [" condition           \
                                     "] in " unit ", line "))

#endif // EXITTEST_H
