#include "canbus/cananswer.h"

#include "support/casename.h"

#include <QMetaEnum>
#include <QMetaType>
#include <gtest/gtest.h>

TEST(CanAnswerTest, NewAnswerIsNone)
{
    EXPECT_EQ(CanAnswer().type(), CanAnswer::AnswerNone);
}

struct AnswerCase
{
    const char *pName;
    CanAnswer::AnswerType type;
    int value;
};

using CanAnswerTable = ::testing::TestWithParam<AnswerCase>;

TEST_P(CanAnswerTable, HasItsNumberAndName)
{
    const CanAnswer answer(GetParam().type);
    EXPECT_EQ(answer.type(), GetParam().type);
    EXPECT_EQ(static_cast<int>(answer.type()), GetParam().value);
    const auto types = QMetaEnum::fromType<CanAnswer::AnswerType>();
    EXPECT_EQ(types.keyCount(), 5);
    EXPECT_EQ(types.value(GetParam().value), GetParam().value); // in the order of the numbers
    EXPECT_STREQ(types.key(GetParam().value), GetParam().pName);
}

const AnswerCase s_answerCases[] = {
    {"AnswerNone", CanAnswer::AnswerNone, 0},
    {"AnswerAck", CanAnswer::AnswerAck, 1},
    {"AnswerSendingError", CanAnswer::AnswerSendingError, 2},
    {"AnswerAckNot", CanAnswer::AnswerAckNot, 3},
    {"AnswerTimeout", CanAnswer::AnswerTimeout, 4},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanAnswerTable, ::testing::ValuesIn(s_answerCases), caseName);

TEST(CanAnswerTest, TypeBecomesAnAnswerByItself)
{
    const CanAnswer answer = CanAnswer::AnswerTimeout;
    EXPECT_EQ(answer.type(), CanAnswer::AnswerTimeout);
}

TEST(CanAnswerTest, MetaTypeBearsItsName)
{
    EXPECT_STREQ(QMetaType::typeName(qMetaTypeId<CanAnswer>()), "CanAnswer");
}
