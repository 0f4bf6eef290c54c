// A client for a server in another process. Takes the server's address, opens both interfaces, does
// what each line of standard input says and prints what it hears, a line each, until "quit".
//
//   can HEX, payment HEX      writes; prints "written can 1", "written payment 4"
//   output N, blink N         switches it on
//   serial BITS               sets the serial line up
//   switches, motor N         asks

#include "multiport.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QStringList>

#include <cstdio>
#include <string>
#include <unistd.h>

namespace {

void print(const QString &line)
{
    std::puts(line.toUtf8().constData());
    std::fflush(stdout);
}

QString hex(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toHex());
}

void setSerialLine(Multiport &client, int dataBits)
{
    client.setSerialLineParameters(MultiportInterface::PaymentPort, MultiportProtocol::Baud9600,
                                   static_cast<MultiportProtocol::DataBits>(dataBits),
                                   dataBits == 9 ? MultiportProtocol::ParityNone
                                                 : MultiportProtocol::ParityEven,
                                   MultiportProtocol::MDBModeOff);
}

void writeToPayment(Multiport &client, const QByteArray &bytes)
{
    qint64 taken = 0;
    QMetaObject::invokeMethod(client.interface(Multiport::PaymentInterface), "write",
                              Qt::BlockingQueuedConnection, Q_RETURN_ARG(qint64, taken),
                              Q_ARG(QByteArray, bytes));
    print(QStringLiteral("written payment %1").arg(taken));
}

void obey(Multiport &client, const QString &line)
{
    const QString word = line.section(QLatin1Char(' '), 0, 0);
    const QString argument = line.section(QLatin1Char(' '), 1);
    if (word == QLatin1String("can"))
        print(QStringLiteral("written can %1")
                  .arg(client.writeToCanBus(QByteArray::fromHex(argument.toLatin1()))));
    else if (word == QLatin1String("payment"))
        writeToPayment(client, QByteArray::fromHex(argument.toLatin1()));
    else if (word == QLatin1String("output"))
        client.setOutputEnabled(argument.toInt(), true);
    else if (word == QLatin1String("blink"))
        client.setBlinkOutput(argument.toInt(), true);
    else if (word == QLatin1String("serial"))
        setSerialLine(client, argument.toInt());
    else if (word == QLatin1String("switches"))
        client.sendRequestDigitInput();
    else if (word == QLatin1String("motor"))
        client.motorStatus(static_cast<unsigned char>(argument.toInt()));
    else
        QCoreApplication::quit();
}

void printAll(Multiport *pClient)
{
    QObject::connect(pClient, &Multiport::multiportServerConnectedChanged, pClient,
                     [](bool is) { print(QStringLiteral("server %1").arg(is)); });
    QObject::connect(pClient, &Multiport::canBusConnectedChanged, pClient,
                     [](bool is) { print(QStringLiteral("can %1").arg(is)); });
    QObject::connect(pClient, &Multiport::paymentConnectedChanged, pClient,
                     [](bool is) { print(QStringLiteral("payment %1").arg(is)); });
    QObject::connect(pClient, &Multiport::newDataOnCanBus, pClient, [](const QByteArray &bytes) {
        print(QStringLiteral("from-can %1").arg(hex(bytes)));
    });
    QObject::connect(pClient->interface(Multiport::PaymentInterface),
                     &MultiportInterface::dataReceived, pClient,
                     [](unsigned int port, const QByteArray &bytes) {
                         print(QStringLiteral("from-%1 %2").arg(port).arg(hex(bytes)));
                     });
    QObject::connect(pClient, &Multiport::lastCommandTerminationStatus, pClient,
                     [](unsigned char command, unsigned char status) {
                         print(QStringLiteral("status %1 %2").arg(command).arg(status));
                     });
    QObject::connect(pClient, &Multiport::daddUpperMicroswitchStatus, pClient,
                     [](unsigned char status) { print(QStringLiteral("upper %1").arg(status)); });
    QObject::connect(pClient, &Multiport::daddLowerMicroswitchStatus, pClient,
                     [](unsigned char status) { print(QStringLiteral("lower %1").arg(status)); });
    QObject::connect(pClient, &Multiport::daddMicroswitchesStatusReceived, pClient,
                     [](unsigned char lower, unsigned char upper) {
                         print(QStringLiteral("switches %1 %2").arg(lower).arg(upper));
                     });
    QObject::connect(pClient, &Multiport::motorStatusChanged, pClient,
                     [](unsigned char motor, unsigned char status) {
                         print(QStringLiteral("motor %1 %2").arg(motor).arg(status));
                     });
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 2) {
        std::fputs("link_probe: expected the server's address\n", stderr);
        return 2;
    }
    Multiport client(arguments.at(1), Multiport::ModeLocal, nullptr);
    printAll(&client);

    QByteArray input;
    QSocketNotifier notifier(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &client, [&] {
        char bytes[4096];
        const auto size = ::read(STDIN_FILENO, bytes, sizeof bytes);
        if (size <= 0) {
            notifier.setEnabled(false);
            QCoreApplication::quit();
            return;
        }
        input.append(bytes, static_cast<int>(size));
        for (int end = input.indexOf('\n'); end >= 0; end = input.indexOf('\n')) {
            obey(client, QString::fromUtf8(input.left(end)));
            input.remove(0, end + 1);
        }
    });
    client.setEnabled(Multiport::CanBusInterface);
    client.setEnabled(Multiport::PaymentInterface);
    client.init(true);
    return QCoreApplication::exec();
}
