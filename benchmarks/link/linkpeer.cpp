#include "linkpeer.h"

#include "linkrecords.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtEndian>

#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr long s_nsPerSecond = 1000000000;

int listenOn(quint16 &port)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto *const pAddress = reinterpret_cast<sockaddr *>(&address);
    if (::bind(listener, pAddress, size) != 0 || ::listen(listener, 1) != 0 ||
        ::getsockname(listener, pAddress, &size) != 0)
        std::perror("bench_link");
    port = ntohs(address.sin_port);
    return listener;
}

QByteArray received(int connection, int size)
{
    QByteArray bytes(size, '\0');
    const auto count = ::recv(connection, bytes.data(), static_cast<size_t>(size), MSG_WAITALL);
    return count == size ? bytes : QByteArray();
}

bool sendAll(int connection, const QByteArray &bytes)
{
    return ::send(connection, bytes.constData(), static_cast<size_t>(bytes.size()), MSG_NOSIGNAL) ==
           bytes.size();
}

long nowNs()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * s_nsPerSecond + time.tv_nsec;
}

void sleepUntil(long ns)
{
    const timespec time{ns / s_nsPerSecond, ns % s_nsPerSecond};
    ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

std::array<char, LinkPeer::RecordSize> record(quint32 number)
{
    std::array<char, LinkPeer::RecordSize> bytes{};
    qToBigEndian(LinkPeer::FrameId, bytes.data());
    bytes[4] = 8;
    qToBigEndian(number, bytes.data() + 5);
    qToBigEndian(static_cast<quint32>(nowNs() / 1000), bytes.data() + 9);
    return bytes;
}

/// \param control -1 for a stream without one
void pace(int data, int control, int recordsPerSecond, int seconds)
{
    const long interval = s_nsPerSecond / recordsPerSecond;
    const long total = static_cast<long>(recordsPerSecond) * seconds;
    const long begin = nowNs();
    std::array<char, 256> dropped{};
    for (long i = 0; i < total; ++i) {
        sleepUntil(begin + i * interval);
        const auto bytes = record(static_cast<quint32>(i));
        if (::send(data, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0)
            return;
        if (control >= 0 && i % (recordsPerSecond / 2) == 0) {
            sendAll(control, multiportlink::encodeHeartbeat());
            ::recv(control, dropped.data(), dropped.size(), MSG_DONTWAIT);
        }
    }
}

/// Greets the controller and accepts what it claims.
void serve(int control, int dataListener, quint16 dataPort, int recordsPerSecond, int seconds)
{
    received(control, encode(multiportlink::Hello{1, multiportlink::Role::Controller}).size());
    sendAll(control,
            encode(multiportlink::Welcome{1, multiportlink::Role::Controller, dataPort, dataPort}));
    const int data = ::accept(dataListener, nullptr, nullptr);
    const int claimSize =
        encode(multiportlink::Request{1, 1, encode(multiportlink::Claim{})}).size();
    const QByteArray claim = received(control, claimSize);
    const auto request = multiportlink::decodeRequest(claim.mid(3));
    if (!request)
        return;
    sendAll(control, encode(multiportlink::Status{request->sequence, request->command, 0}));
    pace(data, control, recordsPerSecond, seconds);
    while (!received(control, 1).isEmpty()) {
    } // stays until the client goes
}

} // namespace

int LinkPeer::echo()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&server] {
        QTcpSocket *const pSocket = server.nextPendingConnection();
        pSocket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        QObject::connect(pSocket, &QTcpSocket::readyRead, pSocket, [pSocket] {
            pSocket->write(pSocket->readAll());
            pSocket->flush();
        });
    });
    std::printf("%d\n", server.serverPort());
    std::fflush(stdout);
    return QCoreApplication::exec();
}

int LinkPeer::feed(int recordsPerSecond, int seconds)
{
    ::prctl(PR_SET_TIMERSLACK, 1);
    quint16 controlPort = 0;
    quint16 dataPort = 0;
    quint16 barePort = 0;
    const int controlListener = listenOn(controlPort);
    const int dataListener = listenOn(dataPort);
    const int bareListener = listenOn(barePort);
    std::printf("%d\n%d\n", controlPort, barePort);
    std::fflush(stdout);
    // First the two bare clients, then the link: each has the machine for itself.
    for (int i = 0; i < 2; ++i) {
        const int bare = ::accept(bareListener, nullptr, nullptr);
        pace(bare, -1, recordsPerSecond, seconds);
        ::close(bare);
    }
    const int control = ::accept(controlListener, nullptr, nullptr);
    serve(control, dataListener, dataPort, recordsPerSecond, seconds);
    return 0;
}

bool LinkPeer::start(QProcess &process, const QStringList &arguments, QList<quint16> &ports,
                     int portCount)
{
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(), arguments);
    while (ports.size() < portCount) {
        if (!process.canReadLine() && !process.waitForReadyRead())
            return false;
        while (process.canReadLine())
            ports.append(process.readLine().trimmed().toUShort());
    }
    return true;
}
