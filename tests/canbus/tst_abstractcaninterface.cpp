#include "canbus/abstractcaninterface.h"

#include "canbus/canmessages.h"
#include "canbus/interfaceprobe.h"
#include "canbus/recordinginterface.h"
#include "support/logfolder.h"
#include "support/logspy.h"

#include <QFile>
#include <QMetaMethod>
#include <QPointer>
#include <QSignalSpy>
#include <array>
#include <gtest/gtest.h>
#include <type_traits>

namespace {

const char *const s_pTracer = "virtual int AbstractCanInterface::traceFile(const CanFrame&, bool, "
                              "QString) : Couldn't write to file";

CanFrame sentFrame(int index = 0)
{
    return frame(0x4A8, 0x419, index, bytes("02 00 2a 00 00 28"));
}

CanFrame receivedFrame(int destination = 0x4A8)
{
    return frame(0x419, destination, 0, bytes("02 00 01 00 2a 29"));
}

/// Opens its trace file as told, and hands out what is protected.
class TracingInterface : public RecordingInterface
{
public:
    using RecordingInterface::RecordingInterface;
    using RecordingInterface::traceFileDevice;

    bool trace(const QString &path, QIODevice::OpenMode mode = QIODevice::ReadWrite)
    {
        traceFileDevice().setFileName(path);
        return traceFileDevice().open(mode);
    }
};

} // namespace

class AbstractCanInterfaceTest : public ::testing::Test
{
protected:
    /// The frames' lines in the log, without time and line end.
    QStringList logged() const
    {
        QStringList lines = m_folder.lines(QStringLiteral("canBus.txt"));
        for (QString &line : lines)
            line = line.mid(25).remove(QLatin1Char('\r'));
        return lines;
    }

    QString lineOf(const CanFrame &one, bool isReceived, const char *pComment) const
    {
        return m_interface._logFrame(one, isReceived, QLatin1String(pComment))
            .remove(QStringLiteral("\r\n"));
    }

    LogFolder m_folder;
    TracingInterface m_interface;
};

TEST_F(AbstractCanInterfaceTest, NewInterfaceHasNoNameNoTraceFileAndLogsNothing)
{
    EXPECT_EQ(m_interface.interfaceName(), QString());
    EXPECT_EQ(m_interface.traceFileDevice().fileName(), QString());
    EXPECT_FALSE(m_interface.isLogInFile());
    EXPECT_FALSE(m_interface.isSimulated());
    EXPECT_TRUE(RecordingInterface(true).isSimulated());
}

TEST_F(AbstractCanInterfaceTest, ParentOwnsTheInterface)
{
    auto pParent = std::make_unique<QObject>();
    const QPointer<RecordingInterface> pInterface = new RecordingInterface(false, pParent.get());
    pParent.reset();
    EXPECT_TRUE(pInterface.isNull());
}

TEST_F(AbstractCanInterfaceTest, FramesOfAListAreWrittenInOrder)
{
    EXPECT_TRUE(m_interface.writeToCan({sentFrame(0), sentFrame(1), sentFrame(2)}));
    ASSERT_EQ(m_interface.written().size(), 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(VYCanFrame::frameIndex(m_interface.written().at(i)), i);
    EXPECT_TRUE(m_folder.names().isEmpty());
}

TEST_F(AbstractCanInterfaceTest, EmptyListIsWritten)
{
    m_interface.setLogInFile(true);
    m_interface.setRefusing(true);
    EXPECT_TRUE(m_interface.writeToCan(QList<CanFrame>()));
    EXPECT_TRUE(m_folder.names().isEmpty());
}

TEST_F(AbstractCanInterfaceTest, FirstFailureEndsTheList)
{
    m_interface.setLogInFile(true);
    m_interface.setOnWrite([this](const CanFrame &) { m_interface.setRefusing(true); });
    EXPECT_FALSE(m_interface.writeToCan({sentFrame(0), sentFrame(1), sentFrame(2)}));
    EXPECT_EQ(m_interface.written().size(), 1);
    const QStringList expected{lineOf(sentFrame(0), false, "Sending:"),
                               lineOf(sentFrame(1), false, "Sending:")};
    EXPECT_EQ(logged(), expected);
}

TEST_F(AbstractCanInterfaceTest, EachFrameIsLoggedBeforeItIsWritten)
{
    m_interface.setLogInFile(true);
    QList<int> linesAtWrite;
    m_interface.setOnWrite([&](const CanFrame &) { linesAtWrite.append(logged().size()); });
    EXPECT_TRUE(m_interface.writeToCan({sentFrame(0), sentFrame(1)}));
    EXPECT_EQ(linesAtWrite, QList<int>({1, 2}));
}

TEST_F(AbstractCanInterfaceTest, SentFrameMakesOneLineThatEndsInCarriageReturnAndLineFeed)
{
    m_interface.setLogInFile(true);
    EXPECT_TRUE(m_interface.writeToCan(QList<CanFrame>{sentFrame()}));
    const QByteArray file = m_folder.bytes(QStringLiteral("canBus.txt"));
    EXPECT_EQ(file.mid(25).toStdString(),
              " <TX<< |id:0x0000000000254419|data(6): 0x02 0x00 0x2a 0x00 0x00 0x28          | "
              "Sending: Received by CpuBoardOstrel from ActuatorBoardOstrel "
              "commandId:VirtualSelect(42) frame num:1\r\n");
}

TEST_F(AbstractCanInterfaceTest, ReceivedFrameIsLoggedThenTold)
{
    m_interface.setLogInFile(true);
    QList<CanFrame> told;
    int linesAtSignal = -1;
    QObject::connect(&m_interface, &AbstractCanInterface::frameReceived, &m_interface,
                     [&](const CanFrame &one) {
                         told.append(one);
                         linesAtSignal = logged().size();
                     });
    CanFrame sent = receivedFrame();
    sent.setReserved(5);
    m_interface.onFrameReceived(sent);
    ASSERT_EQ(told.size(), 1);
    EXPECT_EQ(told.first().id(), 0x0020CCA8U);
    EXPECT_EQ(told.first().data(), bytes("02 00 01 00 2a 29"));
    EXPECT_EQ(told.first().reserved(), 5U);
    EXPECT_EQ(linesAtSignal, 1);
    EXPECT_EQ(logged(), QStringList(lineOf(receivedFrame(), true, "Received:")));
}

TEST_F(AbstractCanInterfaceTest, ReceivedFrameIsToldWithoutTheLogToo)
{
    const QSignalSpy received(&m_interface, &AbstractCanInterface::frameReceived);
    m_interface.onFrameReceived(receivedFrame());
    EXPECT_EQ(received.count(), 1);
    EXPECT_TRUE(m_folder.names().isEmpty());
}

TEST_F(AbstractCanInterfaceTest, FrameForTheFilteredAddressIsNeitherLoggedNorTold)
{
    const LogSpy log;
    m_interface.setLogInFile(true);
    const QSignalSpy received(&m_interface, &AbstractCanInterface::frameReceived);
    m_interface.onFrameReceived(receivedFrame(0x705));
    EXPECT_EQ(received.count(), 0);
    EXPECT_TRUE(m_folder.names().isEmpty());
    EXPECT_TRUE(log.records().isEmpty());
}

// Only the destination counts, whatever stands around its bits.
TEST_F(AbstractCanInterfaceTest, OnlyTheDestinationIsFiltered)
{
    const QSignalSpy received(&m_interface, &AbstractCanInterface::frameReceived);
    m_interface.onFrameReceived(frame(0x705, 0x4A8, 0, {}));
    m_interface.onFrameReceived(receivedFrame(0x704));
    m_interface.onFrameReceived(receivedFrame(0x706));
    EXPECT_EQ(received.count(), 3);
    CanFrame filtered;
    filtered.setId(0xFFFFFF05);
    m_interface.onFrameReceived(filtered);
    EXPECT_EQ(received.count(), 3);
}

TEST_F(AbstractCanInterfaceTest, FrameIsLoggedWhenAskedForWhateverTheCallerMeant)
{
    m_interface.logFrame(sentFrame(), false, QStringLiteral("off"));
    EXPECT_TRUE(m_folder.names().isEmpty());
    m_interface.setLogInFile(true);
    m_interface.logFrame(sentFrame(), true, QStringLiteral("on"));
    EXPECT_EQ(logged(), QStringList(lineOf(sentFrame(), true, "on")));
}

TEST_F(AbstractCanInterfaceTest, LogGoesToTheModuleOfTheBusToo)
{
    const LogSpy log;
    m_interface.setLogInDebug(true);
    m_interface.logFrame(sentFrame(), false, QStringLiteral("c"));
    EXPECT_EQ(log.count("| c Received by CpuBoardOstrel", 0, Log::CanBus), 1);
}

// The file's switch is the one that the frames ask.
TEST_F(AbstractCanInterfaceTest, FramesAreNotLoggedWhileOnlyTheOtherSwitchIsOn)
{
    const LogSpy log;
    m_interface.setLogInDebug(true);
    m_interface.onFrameReceived(receivedFrame());
    m_interface.writeToCan(QList<CanFrame>{sentFrame()});
    EXPECT_TRUE(log.records().isEmpty());
    EXPECT_TRUE(m_folder.names().isEmpty());
}

// 8 MiB for the file, one older file, and what is there is continued.
TEST_F(AbstractCanInterfaceTest, LogIsRotatedAtItsSizeAndHasOneOlderFile)
{
    constexpr qint64 s_size = 8 << 20;
    const auto fill = [this](const QString &name, qint64 size) {
        QFile file(m_folder.path(name));
        return file.open(QIODevice::ReadWrite) && file.seek(size - 1) && file.write("\n") == 1;
    };
    const qint64 lineSize = 25 + m_interface._logFrame(sentFrame(), false, {}).size();
    ASSERT_TRUE(fill(QStringLiteral("canBus.txt"), s_size - lineSize));
    ASSERT_TRUE(fill(QStringLiteral("canBus.1.txt"), 1));

    m_interface.setLogInFile(true);
    m_interface.logFrame(sentFrame(), false, {});
    EXPECT_EQ(QFile(m_folder.path(QStringLiteral("canBus.txt"))).size(), s_size);
    m_interface.logFrame(sentFrame(), false, {});
    EXPECT_EQ(QFile(m_folder.path(QStringLiteral("canBus.txt"))).size(), lineSize);
    EXPECT_EQ(QFile(m_folder.path(QStringLiteral("canBus.1.txt"))).size(), s_size);
    EXPECT_EQ(m_folder.names().size(), 2);
}

TEST_F(AbstractCanInterfaceTest, TraceIsWrittenAtOnceAndItsBytesAreCounted)
{
    const QString path = m_folder.path(QStringLiteral("trace"));
    ASSERT_TRUE(m_interface.trace(path));
    const QString line = m_interface._logFrame(sentFrame(), true, QStringLiteral("25 °C"));
    EXPECT_EQ(m_interface.traceFile(sentFrame(), true, QStringLiteral("25 °C")),
              line.toUtf8().size());
    EXPECT_EQ(m_folder.bytes(QStringLiteral("trace")), line.toUtf8());
    m_interface.traceFile(sentFrame(1), false, QStringLiteral("c"));
    EXPECT_EQ(m_folder.bytes(QStringLiteral("trace")),
              (line + m_interface._logFrame(sentFrame(1), false, QStringLiteral("c"))).toUtf8());
}

TEST_F(AbstractCanInterfaceTest, TraceWithoutAnOpenFileIsRefused)
{
    m_interface.traceFileDevice().setFileName(QStringLiteral("/x/trace"));
    const LogSpy log;
    EXPECT_EQ(m_interface.traceFile(sentFrame(), false, {}), 0);
    ASSERT_EQ(log.records().size(), 1);
    const LogRecord record = log.records().constFirst();
    EXPECT_EQ(record.level, 4);
    EXPECT_EQ(record.module, Log::CanBus);
    EXPECT_EQ(record.text,
              QLatin1String(s_pTracer) + QStringLiteral(R"( "/x/trace", file is not opened)"));
}

TEST_F(AbstractCanInterfaceTest, TraceIntoAFileWithoutANameIsRefused)
{
    const LogSpy log;
    EXPECT_EQ(m_interface.traceFile(sentFrame(), false, {}), 0);
    EXPECT_EQ(log.count(QLatin1String(s_pTracer) + QStringLiteral(R"( "")"), 4, Log::CanBus), 1);
}

namespace {

/// The traced line must be told as lost.
void expectWriteError(TracingInterface &interface, const QString &path)
{
    const LogSpy log;
    EXPECT_LT(interface.traceFile(sentFrame(), false, {}), 0);
    ASSERT_EQ(log.records().size(), 1);
    const LogRecord record = log.records().constFirst();
    EXPECT_EQ(record.text, QLatin1String(s_pTracer) + QStringLiteral(R"( "%1")").arg(path));
    EXPECT_EQ(record.level, 4);
    EXPECT_EQ(record.module, Log::CanBus);
}

} // namespace

TEST_F(AbstractCanInterfaceTest, TraceIntoAFileThatCannotBeWrittenIsNegative)
{
    const QString path = m_folder.path(QStringLiteral("trace"));
    ASSERT_TRUE(m_interface.trace(path));
    m_interface.traceFileDevice().close();
    ASSERT_TRUE(m_interface.trace(path, QIODevice::ReadOnly));
    expectWriteError(m_interface, path);
}

TEST_F(AbstractCanInterfaceTest, TraceOntoAFullDiskIsNegative)
{
    const QString path = QStringLiteral("/dev/full");
    ASSERT_TRUE(m_interface.trace(path));
    expectWriteError(m_interface, path);
    expectWriteError(m_interface, path);
}

TEST(AbstractCanInterfaceMeta, SignalAndSlotStandInTheirOrder)
{
    const QMetaObject &meta = AbstractCanInterface::staticMetaObject;
    ASSERT_EQ(meta.methodCount() - meta.methodOffset(), 2);
    const QMetaMethod signal = meta.method(meta.methodOffset());
    EXPECT_EQ(signal.methodSignature(), "frameReceived(CanFrame)");
    EXPECT_EQ(signal.methodType(), QMetaMethod::Signal);
    const QMetaMethod slot = meta.method(meta.methodOffset() + 1);
    EXPECT_EQ(slot.methodSignature(), "onFrameReceived(CanFrame)");
    EXPECT_EQ(slot.methodType(), QMetaMethod::Slot);
    EXPECT_EQ(slot.access(), QMetaMethod::Public);
    EXPECT_STREQ(meta.superClass()->className(), "LogInFile");
}

TEST(AbstractCanInterfaceMeta, VirtualOperationsStandInTheirOrder)
{
    using Interface = AbstractCanInterface;
    using WriteFrame = bool (Interface::*)(const CanFrame &);
    using WriteFrames = bool (Interface::*)(const QList<CanFrame> &);
    const std::array<std::ptrdiff_t, 6> places = {
        placeOf(&Interface::openInterface),
        placeOf(&Interface::closeInterface),
        placeOf(&Interface::isOpen),
        placeOf(static_cast<WriteFrame>(&Interface::writeToCan)),
        placeOf(static_cast<WriteFrames>(&Interface::writeToCan)),
        placeOf(&Interface::traceFile),
    };
    int number = 0;
    for (const std::ptrdiff_t place : places)
        EXPECT_EQ(place, placeAfterQObject(number++));
}

TEST(AbstractCanInterfaceMeta, NoOtherVirtualOperationIsAdded)
{
    class After : public RecordingInterface
    {
    public:
        virtual void next() {}
    };
    EXPECT_EQ(placeOf(&After::next), placeAfterQObject(6));
    static_assert(std::is_abstract_v<AbstractCanInterface>);
    static_assert(std::is_base_of_v<LogInFile, AbstractCanInterface>);
}
