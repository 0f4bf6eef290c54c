#ifndef ONELINE_H
#define ONELINE_H

#include "support/logspy.h"

#include <gtest/gtest.h>

/// One line, of the input/output module, and nothing else.
inline void expectOneLine(const LogSpy &log, int level, const QString &text)
{
    ASSERT_EQ(log.records().size(), 1) << log.texts().join(QLatin1Char('\n')).toStdString();
    const LogRecord record = log.records().constFirst();
    EXPECT_EQ(record.level, level);
    EXPECT_EQ(record.module, Log::InputOutput);
    EXPECT_EQ(record.text.toStdString(), text.toStdString());
}

#endif // ONELINE_H
