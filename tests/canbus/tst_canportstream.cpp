#include "canbus/caninterface_multiport.h"

#include "canbus/frametext.h"
#include "canbus/multiportmachine.h"
#include "support/casename.h"
#include "support/logspy.h"
#include "vymultiport/linkpage.h"

#include <QEventLoop>
#include <QPointer>
#include <QRegularExpression>
#include <QTimer>
#include <QVector>
#include <gtest/gtest.h>
#include <random>

namespace {

QByteArray hex(const char *pHex)
{
    return QByteArray::fromHex(pHex);
}

/// The lines of the decoder without their signature, in their order; the hexadecimal digits stand
/// together.
QStringList linesOf(const LogSpy &log)
{
    const QString signature =
        QStringLiteral("void CanInterface_Multiport::readFromCan(const QByteArray&) ");
    QStringList lines;
    const auto all = log.records();
    for (const LogRecord &record : all) {
        EXPECT_EQ(record.module, Log::CanBus);
        EXPECT_TRUE(record.text.startsWith(signature)) << record.text.toStdString();
        lines.append(record.text.mid(signature.size()));
    }
    return lines;
}

} // namespace

class CanPortStreamTest : public ::testing::Test
{
protected:
    CanPortStreamTest()
    {
        QObject::connect(&m_interface, &AbstractCanInterface::frameReceived, &m_interface,
                         [this](const CanFrame &one) { m_received.append(one); });
        m_interface.openInterface(QString());
    }

    std::string received() const { return textOf(m_received).toStdString(); }

    MultiportMachine m_machine;
    CanInterface_Multiport m_interface{nullptr};
    QList<CanFrame> m_received;
};

TEST_F(CanPortStreamTest, RecordOfThePageIsAFrame)
{
    m_machine.deliver(linkpage::examples().value(0).bytes);
    EXPECT_EQ(received(), "254419:02002a000028");
}

struct StreamCase
{
    const char *pName;
    QVector<const char *> deliveries;
    const char *pReceived; ///< "identifier:data ..."
};

class CanPortStreams : public CanPortStreamTest, public ::testing::WithParamInterface<StreamCase>
{
};

TEST_P(CanPortStreams, AreCutIntoFrames)
{
    for (const char *pHex : GetParam().deliveries)
        m_machine.deliverHex(pHex);
    EXPECT_EQ(received(), GetParam().pReceived);
}

// Where the stream stands between two frames does not depend on how it came.
TEST_P(CanPortStreams, AreCutIntoTheSameFramesByteByByte)
{
    for (const char *pHex : GetParam().deliveries) {
        const auto all = hex(pHex);
        for (const char byte : all)
            m_machine.deliver(QByteArray(1, byte));
    }
    EXPECT_EQ(received(), GetParam().pReceived);
}

const StreamCase s_streamCases[] = {
    {"OneRecord", {"00 25 44 19 06 02 00 2a 00 00 28"}, "254419:02002a000028"},
    {"RecordInTwoDeliveries", {"00 25 44", "19 06 02 00 2a 00 00 28"}, "254419:02002a000028"},
    {"RecordThatIsNotWhole", {"00 25 44 19 06 02 00"}, ""},
    {"RecordThatLacksOneByte", {"00 25 44 19 06 02 00 2a 00 00"}, ""},
    {"LastByteAlone", {"00 25 44 19 06 02 00 2a 00 00", "28"}, "254419:02002a000028"},
    {"TwoRecords",
     {"00 25 44 19 06 02 00 2a 00 00 28 00 65 44 19 01 99"},
     "254419:02002a000028 654419:99"},
    {"OneAndAHalf", {"00 25 44 19 01 02 00 65", "44 19 02 98 99"}, "254419:02 654419:9899"},
    {"NoData", {"00 25 44 19 00"}, "254419:"},
    {"NoDataAndARecord", {"00 25 44 19 00 00 65 44 19 01 99"}, "254419: 654419:99"},
    {"FourBytes", {"00 25 44 19"}, ""},
    {"EmptyDelivery", {"", "00 25 44 19 00", ""}, "254419:"},
    {"MostSignificantByteFirst", {"f1 23 45 67 01 ff"}, "f1234567:ff"},
    {"EightBytes", {"00 25 44 19 08 01 02 03 04 05 06 07 08"}, "254419:0102030405060708"},
    {"NineBytes", {"00 25 44 19 09 01 02 03 04 05 06 07 08 09"}, "254419:010203040506070809"},
    {"ShorterAfterLonger",
     {"00 25 44 19 03 01 02 03 00 65 44 19 01 99 00 a5 44 19 00"},
     "254419:010203 654419:99 a54419:"},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanPortStreams, ::testing::ValuesIn(s_streamCases), caseName);

struct LinesCase
{
    const char *pName;
    QVector<const char *> deliveries;
    QStringList lines; ///< of the last delivery
};

class CanPortStreamLines : public CanPortStreamTest, public ::testing::WithParamInterface<LinesCase>
{
};

TEST_P(CanPortStreamLines, TellWhatBecomesOfADelivery)
{
    const QVector<const char *> deliveries = GetParam().deliveries;
    for (int i = 0; i + 1 < deliveries.size(); ++i)
        m_machine.deliverHex(deliveries.at(i));
    const LogSpy log;
    m_machine.deliverHex(deliveries.last());
    EXPECT_EQ(linesOf(log).join(QLatin1Char('|')).toStdString(),
              GetParam().lines.join(QLatin1Char('|')).toStdString());
}

const LinesCase s_linesCases[] = {
    {"OneRecord",
     {"00 25 44 19 06 02 00 2a 00 00 28"},
     {QStringLiteral("new data: 002544190602002a000028"),
      QStringLiteral("buffer: 002544190602002a000028"),
      QStringLiteral("new CanFrame: 0x254419 0x06 02002a000028")}},
    {"BeginningOfARecord",
     {"00 25 44"},
     {QStringLiteral("new data: 002544"), QStringLiteral("buffer: 002544"),
      QStringLiteral("Not enough data: 3")}},
    {"EndOfARecord",
     {"00 25 44", "19 06 02 00 2a 00 00 28"},
     {QStringLiteral("new data: 190602002a000028"),
      QStringLiteral("buffer: 002544190602002a000028"),
      QStringLiteral("new CanFrame: 0x254419 0x06 02002a000028")}},
    {"RecordThatIsNotWhole",
     {"00 25 44 19 06 02 00"},
     {QStringLiteral("new data: 00254419060200"), QStringLiteral("buffer: 00254419060200"),
      QStringLiteral("Not enough data for current dlc 0x254419 0x06"),
      QStringLiteral("Not enough data: 7")}},
    {"SmallNumbersHaveTwoDigits",
     {"00 00 00 01 01"},
     {QStringLiteral("new data: 0000000101"), QStringLiteral("buffer: 0000000101"),
      QStringLiteral("Not enough data for current dlc 0x01 0x01"),
      QStringLiteral("Not enough data: 5")}},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanPortStreamLines, ::testing::ValuesIn(s_linesCases), caseName);

TEST_F(CanPortStreamTest, WhatIsReadIsToldAtLevelZero)
{
    const LogSpy log;
    m_machine.deliverHex("00 25 44 19 01 02");
    EXPECT_EQ(log.count("new data:", 0, Log::CanBus), 1);
    EXPECT_EQ(log.count("buffer:", 0, Log::CanBus), 1);
    EXPECT_EQ(log.count("new CanFrame:", 0, Log::CanBus), 1);
}

TEST_F(CanPortStreamTest, BytesThatAreKeptAreCompletedByTheNextDelivery)
{
    m_machine.deliverHex("00 25 44 19 06 02 00");
    EXPECT_EQ(received(), "");
    m_machine.deliverHex("2a 00 00");
    EXPECT_EQ(received(), "");
    m_machine.deliverHex("28 00");
    EXPECT_EQ(received(), "254419:02002a000028");
    m_machine.deliverHex("65 44 19 00");
    EXPECT_EQ(received(), "254419:02002a000028 654419:");
}

TEST_F(CanPortStreamTest, DataCanFillTheWholeLengthByte)
{
    const QByteArray data(127, 'x');
    m_machine.deliver(hex("00 25 44 19 7f") + data.left(126));
    EXPECT_EQ(m_received.size(), 0);
    m_machine.deliver(data.right(1));
    ASSERT_EQ(m_received.size(), 1);
    EXPECT_EQ(m_received.first().dataSize(), 127);
}

struct BadLengthCase
{
    const char *pName;
    char length;
};

class CanPortBadLengths : public CanPortStreamTest,
                          public ::testing::WithParamInterface<BadLengthCase>
{
};

TEST_P(CanPortBadLengths, EmptyTheBuffer)
{
    const QByteArray bad = hex("00 25 44 19") + GetParam().length;
    const LogSpy log;
    m_machine.deliver(hex("00 65 44 19 01 99") + bad + hex("00 a5 44 19 01 98"));
    EXPECT_EQ(received(), "654419:99");
    // The two of the delivery, the good frame's and what is said of the bad one.
    EXPECT_EQ(log.records().size(), 4);
    EXPECT_EQ(log.count("Not enough data"), 0);
    EXPECT_EQ(log.count(QStringLiteral("void CanInterface_Multiport::readFromCan(const QByteArray&)"
                                       " Invalid length %1 in the stream, buffer cleared")
                            .arg(static_cast<signed char>(GetParam().length)),
                        4, Log::CanBus),
              1);

    m_machine.deliverHex("00 e5 44 19 01 97");
    EXPECT_EQ(received(), "654419:99 e54419:97");
}

TEST_P(CanPortBadLengths, EmptyTheBufferWhenTheyComeAlone)
{
    m_machine.deliverHex("00 25 44 19");
    m_machine.deliver(QByteArray(1, GetParam().length));
    m_machine.deliverHex("00 e5 44 19 01 97");
    EXPECT_EQ(received(), "e54419:97");
}

const BadLengthCase s_badLengthCases[] = {
    {"Lowest", '\x80'},    {"MinusSix", '\xfa'}, // would take the buffer back by one byte
    {"MinusFive", '\xfb'},                       // would take nothing from the buffer, forever
    {"MinusFour", '\xfc'}, {"MinusOne", '\xff'},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanPortBadLengths, ::testing::ValuesIn(s_badLengthCases), caseName);

TEST_F(CanPortStreamTest, OpeningForgetsBytesOfTheOpeningBefore)
{
    m_machine.deliverHex("00 25 44 19 06 02 00");
    m_interface.closeInterface();
    m_interface.openInterface(QString());
    m_machine.deliverHex("00 65 44 19 01 99");
    EXPECT_EQ(received(), "654419:99");
}

TEST_F(CanPortStreamTest, ClosingForgetsNothing)
{
    m_machine.deliverHex("00 25 44 19 06 02 00");
    m_interface.closeInterface();
    m_machine.deliverHex("2a 00 00 28");
    EXPECT_EQ(received(), "254419:02002a000028");
}

TEST_F(CanPortStreamTest, OpeningThatIsRefusedForgetsNothing)
{
    m_machine.deliverHex("00 25 44 19 06 02 00");
    EXPECT_FALSE(m_interface.openInterface(QString()));
    m_machine.deliverHex("2a 00 00 28");
    EXPECT_EQ(received(), "254419:02002a000028");
}

TEST_F(CanPortStreamTest, StreamCanBeReadDirectly)
{
    m_interface.readFromCan(hex("00 25 44 19 01"));
    m_interface.readFromCan(hex("02 00"));
    EXPECT_EQ(received(), "254419:02");
}

TEST_F(CanPortStreamTest, DeliveryInsideAFramesHandlingWaitsForItsTurn)
{
    bool isNested = false;
    QObject::connect(&m_interface, &AbstractCanInterface::frameReceived, &m_interface, [&] {
        const int before = m_received.size();
        if (before == 1) {
            m_interface.readFromCan(hex("04 00 a5 44 19 01"));
            m_interface.readFromCan(hex("05"));
            isNested = m_received.size() != before;
        }
    });
    m_machine.deliverHex("00 25 44 19 01 02 00 65 44 19 02 03");
    EXPECT_FALSE(isNested);
    EXPECT_EQ(received(), "254419:02 654419:0304 a54419:05");
    m_machine.deliverHex("00 e5 44 19 00");
    EXPECT_EQ(m_received.size(), 4);
}

// Whoever waits for a message while he handles another must not wait in vain.
TEST_F(CanPortStreamTest, DeliveryInsideAFramesHandlingIsReadByAnEventLoopThatRunsThere)
{
    std::string atEnd;
    QObject::connect(&m_interface, &AbstractCanInterface::frameReceived, &m_interface, [&] {
        if (m_received.size() != 1)
            return;
        QEventLoop loop;
        QTimer::singleShot(10, &loop,
                           [this] { m_interface.readFromCan(hex("00 a5 44 19 01 05")); });
        QTimer::singleShot(20, &loop,
                           [this] { m_interface.readFromCan(hex("00 e5 44 19 02 06")); });
        QTimer::singleShot(30, &loop, &QEventLoop::quit);
        loop.exec();
        atEnd = received();
    });
    m_machine.deliverHex("00 25 44 19 01 02 00 65 44 19 01 03");
    EXPECT_EQ(atEnd, "254419:02 654419:03 a54419:05");
    EXPECT_EQ(received(), atEnd);
    m_machine.deliverHex("07 00 25 44 19 00");
    EXPECT_EQ(received(), "254419:02 654419:03 a54419:05 e54419:0607 254419:");
}

TEST_F(CanPortStreamTest, FrameStaysAsItIsForThoseWhoHearItAfterAnEventLoop)
{
    QStringList heardAtEnd; // by who is told last
    QObject::connect(&m_interface, &AbstractCanInterface::frameReceived, &m_interface, [this] {
        if (m_received.size() != 1)
            return;
        QEventLoop loop;
        QTimer::singleShot(10, &loop, &QEventLoop::quit);
        loop.exec();
    });
    QObject::connect(&m_interface, &AbstractCanInterface::frameReceived, &m_interface,
                     [&](const CanFrame &one) { heardAtEnd.append(textOf({one})); });
    m_machine.deliverHex("00 25 44 19 01 02 00 65 44 19 01 03");
    EXPECT_EQ(heardAtEnd, (QStringList{QStringLiteral("654419:03"), QStringLiteral("254419:02")}));
}

// The rest of the delivery belongs to the opening before.
TEST_F(CanPortStreamTest, OpeningInsideAFramesHandlingForgetsTheRest)
{
    QObject::connect(&m_interface, &AbstractCanInterface::frameReceived, &m_interface, [this] {
        if (m_received.size() == 1) {
            m_interface.closeInterface();
            m_interface.openInterface(QString());
        }
    });
    m_machine.deliverHex("00 25 44 19 01 02 00 65 44 19 02 03 04 00 a5");
    EXPECT_EQ(received(), "254419:02");
    m_machine.deliverHex("00 e5 44 19 01 05");
    EXPECT_EQ(received(), "254419:02 e54419:05");
}

TEST_F(CanPortStreamTest, DeliveryAfterAnOpeningInsideAFramesHandlingIsRead)
{
    QObject::connect(&m_interface, &AbstractCanInterface::frameReceived, &m_interface, [this] {
        if (m_received.size() == 1) {
            m_interface.closeInterface();
            m_interface.openInterface(QString());
            m_interface.readFromCan(hex("00 e5 44 19 01 05"));
        }
    });
    m_machine.deliverHex("00 25 44 19 01 02 00 65 44 19 02 03 04 00 a5");
    EXPECT_EQ(received(), "254419:02 e54419:05");
}

TEST_F(CanPortStreamTest, InterfaceCanBeDeletedInsideAFramesHandling)
{
    auto *const pInterface = new CanInterface_Multiport(nullptr);
    const QPointer<CanInterface_Multiport> pAlive = pInterface;
    int heard = 0;
    QObject::connect(pInterface, &AbstractCanInterface::frameReceived, &m_interface, [&] {
        ++heard;
        delete pAlive;
    });
    pInterface->readFromCan(hex("00 25 44 19 01 02 00 65 44 19 00"));
    EXPECT_EQ(heard, 1);
    EXPECT_TRUE(pAlive.isNull());
}

TEST_F(CanPortStreamTest, FramesThatAreKeptDoNotChangeWithLaterOnes)
{
    m_machine.deliverHex("00 25 44 19 02 01 02 00 65 44 19 02 03 04");
    m_machine.deliverHex("00 a5 44 19 02 05 06");
    EXPECT_EQ(received(), "254419:0102 654419:0304 a54419:0506");
}

// Whatever comes, the decoder gets back to work: what it keeps is less than one record.
TEST_F(CanPortStreamTest, NoiseEndsWithWholeFramesAgain)
{
    std::minstd_rand random(4711);
    int most = 0;
    for (int i = 0; i < 200; ++i) {
        QByteArray noise;
        for (int size = static_cast<int>(random() % 40); size > 0; --size)
            noise.append(static_cast<char>(random() % 256));
        const LogSpy log;
        m_machine.deliver(noise);
        const QStringList lines =
            linesOf(log).filter(QRegularExpression(QStringLiteral("^Not enough data: ")));
        ASSERT_LE(lines.size(), 1);
        if (lines.isEmpty())
            continue;
        const int kept = lines.first().section(QLatin1Char(' '), -1).toInt();
        EXPECT_GT(kept, 0);
        EXPECT_LT(kept, 5 + 127);
        most = qMax(most, kept);
    }
    EXPECT_GT(most, 40);                            // more than one delivery was kept
    m_machine.deliver(QByteArray(5 + 127, '\x80')); // a length that empties the buffer, at last
    m_received.clear();
    m_machine.deliverHex("00 25 44 19 01 02");
    EXPECT_EQ(received(), "254419:02");
}
