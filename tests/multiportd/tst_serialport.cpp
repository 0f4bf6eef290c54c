#include "multiportd/linkpeer.h"
#include "multiportd/ninebitreader.h"
#include "multiportd/serialportpaymentbackend.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <QFile>
#include <QSignalSpy>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

namespace {

bool s_isCmsparDropped = false;

} // namespace

/// The program's own comes before the C library's: a driver that has neither mark nor space.
extern "C" int tcgetattr(int descriptor, termios *pSettings) noexcept
{
    using Function = int (*)(int, termios *);
    static const auto s_pReal = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "tcgetattr"));
    const int result = s_pReal(descriptor, pSettings);
    if (s_isCmsparDropped)
        pSettings->c_cflag &= ~static_cast<tcflag_t>(CMSPAR);
    return result;
}

// -- nine bits, as the driver marks them ----------------------------------------------------------

struct NineBitCase
{
    const char *pName;
    const char *pRead; ///< from the device, in hexadecimal
    bool isMarkRight;
    const char *pPairs; ///< mode and byte
};

using NineBitReaderTable = ::testing::TestWithParam<NineBitCase>;

TEST_P(NineBitReaderTable, TellsModeAndByteHoweverTheStreamIsCut)
{
    const QByteArray read = QByteArray::fromHex(GetParam().pRead);
    for (int cut = 0; cut <= read.size(); ++cut) {
        NineBitReader reader;
        const QByteArray first = reader.read(read.left(cut), GetParam().isMarkRight);
        EXPECT_EQ((first + reader.read(read.mid(cut), GetParam().isMarkRight)).toHex(' '),
                  QByteArray::fromHex(GetParam().pPairs).toHex(' '))
            << cut;
    }
}

constexpr NineBitCase s_nineBitCases[] = {
    {"Nothing", "", false, ""},
    {"DataUnderSpace", "00 10 fe", false, "0000 0010 00fe"},
    {"AddressUnderSpace", "ff0012 12", false, "0112 0012"},
    {"DataFFUnderSpace", "ffff 01", false, "00ff 0001"},
    {"AddressFFUnderSpace", "ff00ff 01", false, "01ff 0001"},
    {"AddressZeroUnderSpace", "ff0000 01", false, "0100 0001"},
    {"AddressUnderMark", "12", true, "0112"},
    {"DataUnderMark", "ff0012", true, "0012"},
    {"AddressFFUnderMark", "ffff", true, "01ff"},
};
INSTANTIATE_TEST_SUITE_P(Rows, NineBitReaderTable, ::testing::ValuesIn(s_nineBitCases), caseName);

TEST(NineBitReaderTest, ForgetsHalfAMarkWhenCleared)
{
    NineBitReader reader;
    EXPECT_EQ(reader.read(QByteArray::fromHex("ff"), false), QByteArray());
    reader.clear();
    EXPECT_EQ(reader.read(QByteArray::fromHex("12"), false), QByteArray::fromHex("0012"));
}

// -- the device: the other end of a pseudo-terminal, which knows no parity ------------------------

class SerialPortTest : public ::testing::Test
{
protected:
    SerialPortTest()
        : m_line(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
    {
        EXPECT_EQ(::grantpt(m_line), 0);
        EXPECT_EQ(::unlockpt(m_line), 0);
        m_pBackend =
            std::make_unique<SerialPortPaymentBackend>(QString::fromLatin1(::ptsname(m_line)));
        QString error;
        EXPECT_TRUE(m_pBackend->open(&error)) << qPrintable(error);
    }
    ~SerialPortTest() override { ::close(m_line); }

    quint8 set(quint8 dataBits, quint8 parity, quint32 baudRate = 9600)
    {
        return m_pBackend->setSerialLine({4000, baudRate, dataBits, parity, 0});
    }

    /// True once the line has carried exactly these bytes.
    bool carries(const QByteArray &bytes)
    {
        QByteArray carried;
        comes([this, &carried, &bytes] {
            char buffer[4096];
            const ssize_t size = ::read(m_line, buffer, sizeof buffer);
            if (size > 0)
                carried.append(buffer, static_cast<int>(size));
            return carried.size() >= bytes.size();
        });
        return carried == bytes;
    }

    speed_t speed() const
    {
        termios settings = {};
        EXPECT_EQ(::tcgetattr(m_line, &settings), 0);
        return ::cfgetospeed(&settings);
    }

    LogSpy m_log;
    int m_line;
    std::unique_ptr<SerialPortPaymentBackend> m_pBackend;
};

TEST_F(SerialPortTest, EightBitsGoBothWaysAsTheyAre)
{
    QByteArray all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    ASSERT_EQ(set(8, 0), 0);
    m_pBackend->write(all);
    EXPECT_TRUE(carries(all));

    QByteArray heard;
    QObject::connect(m_pBackend.get(), &SerialPortPaymentBackend::dataReceived, m_pBackend.get(),
                     [&heard](const QByteArray &bytes) { heard += bytes; });
    ASSERT_EQ(::write(m_line, all.constData(), 256), 256);
    EXPECT_TRUE(comes([&heard] { return heard.size() == 256; }));
    EXPECT_EQ(heard, all);
}

TEST_F(SerialPortTest, SetsTheBaudRate)
{
    EXPECT_EQ(speed(), static_cast<speed_t>(B9600));
    EXPECT_EQ(set(8, 0, 19200), 0);
    EXPECT_EQ(speed(), static_cast<speed_t>(B19200));
    EXPECT_EQ(set(8, 0, 9600), 0);
    EXPECT_EQ(speed(), static_cast<speed_t>(B9600));
}

TEST_F(SerialPortTest, AParityThatTheDeviceDoesNotTakeIsAFailure)
{
    EXPECT_EQ(set(8, 1), 6);
    EXPECT_EQ(set(8, 0), 0);
}

TEST_F(SerialPortTest, NineBitsLeaveNoRoomForAParity)
{
    EXPECT_EQ(set(9, 0), 0);
    EXPECT_EQ(set(9, 1), 1);
    EXPECT_EQ(set(9, 2), 1);
}

TEST_F(SerialPortTest, ADriverWithoutMarkAndSpaceFailsEachTimeAndTheLineStaysAsItWas)
{
    ASSERT_EQ(set(8, 0, 19200), 0);
    s_isCmsparDropped = true;
    EXPECT_EQ(set(9, 0), 6);
    EXPECT_EQ(set(9, 0), 6);
    EXPECT_EQ(speed(), static_cast<speed_t>(B19200));
    m_pBackend->write(QByteArray::fromHex("0112"));
    EXPECT_TRUE(carries(QByteArray::fromHex("0112"))); // with 8 bits
    s_isCmsparDropped = false;
    EXPECT_EQ(set(9, 0), 0);
    m_pBackend->write(QByteArray::fromHex("0112"));
    EXPECT_TRUE(carries(QByteArray::fromHex("12")));
}

TEST_F(SerialPortTest, ABaudRateThatNoDeviceHasFails)
{
    EXPECT_EQ(set(8, 0, 0xFFFFFFFF), 6);
    EXPECT_EQ(speed(), static_cast<speed_t>(B9600));
}

TEST_F(SerialPortTest, NineBitCharactersLeaveInTheirOrderWithoutTheirModes)
{
    ASSERT_EQ(set(9, 0), 0);
    m_pBackend->write(QByteArray::fromHex("0112 0012 00"));
    m_pBackend->write(QByteArray::fromHex("34 0110 0110 00ff"));
    EXPECT_TRUE(carries(QByteArray::fromHex("12 12 34 10 10 ff")));
}

TEST_F(SerialPortTest, HalfAPairIsForgottenWhenAnotherSenderFollows)
{
    ASSERT_EQ(set(9, 0), 0);
    m_pBackend->write(QByteArray::fromHex("0112 00"));
    m_pBackend->startAfresh();
    m_pBackend->write(QByteArray::fromHex("0134"));
    EXPECT_TRUE(carries(QByteArray::fromHex("12 34")));
}

TEST_F(SerialPortTest, WhatTheLineDoesNotTakeIsDroppedAndLoggedOnce)
{
    ASSERT_EQ(set(9, 0), 0);
    for (int count = 0; count < 100; ++count)
        m_pBackend->write(QByteArray(4096, '\1'));
    EXPECT_EQ(m_log.count("Bytes are lost until the line has sent what waits: 65536 bytes wait", 4),
              1);
}

TEST_F(SerialPortTest, TellsThatTheDeviceIsGone)
{
    QSignalSpy failed(m_pBackend.get(), &SerialPortPaymentBackend::failed);
    ::close(m_line);
    m_line = -1;
    EXPECT_TRUE(comes([&failed] { return failed.count() > 0; }));
    QTest::qWait(50);
    EXPECT_EQ(failed.count(), 1);
    EXPECT_EQ(set(8, 0), 6);
    m_pBackend->write("x"); // is lost
    QString error;
    EXPECT_FALSE(m_pBackend->open(&error));
}

TEST(SerialPortOpenTest, ADeviceThatIsNotThereIsNamed)
{
    SerialPortPaymentBackend backend(QStringLiteral("/dev/nothing-here"));
    QString error;
    EXPECT_FALSE(backend.open(&error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("cannot open serial device /dev/nothing-here: ")))
        << qPrintable(error);
}
