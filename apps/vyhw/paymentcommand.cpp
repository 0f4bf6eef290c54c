#include "paymentcommand.h"

#include "console.h"
#include "lineobserver.h"
#include "runfor.h"
#include "serverchoice.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <QElapsedTimer>
#include <QTime>
#include <memory>

namespace {

constexpr int s_lineBytes = 16; ///< on one line of output
constexpr int s_pauseMs = 100;  ///< both bytes of a character leave the server at once

struct Arguments
{
    std::string server;
    int dataBits = 9;
    double seconds = 0;
};

/// Prints the bytes that arrive together as one line. With 9 bits it finds its place in the stream
/// again, also after it has joined in the middle of a character: a byte that is no mode is not
/// taken for one, and no data byte comes after a pause.
class PaymentPrinter
{
public:
    PaymentPrinter(int dataBits, Console &console)
        : m_is9Bit(dataBits == 9)
        , m_console(console)
    {
    }

    void take(const QByteArray &bytes)
    {
        m_sinceBytes.start();
        for (const char byte : bytes) {
            if (m_is9Bit)
                take9(static_cast<quint8>(byte));
            else
                add(QStringLiteral(" "), static_cast<quint8>(byte));
        }
        endLine();
    }

    /// Nothing has come now.
    void wait()
    {
        if (!m_hasMode || !m_sinceBytes.hasExpired(s_pauseMs))
            return;
        m_hasMode = false;
        add(QStringLiteral(" ?"), m_isAddress ? 1 : 0); // it was the data byte of another mode
        endLine();
    }

private:
    void take9(quint8 byte)
    {
        if (!m_hasMode && byte > 1) {
            add(QStringLiteral(" ?"), byte); // neither a data nor an address character begins so
            return;
        }
        if (m_hasMode)
            add(QLatin1String(m_isAddress ? " *" : "  "), byte);
        else
            m_isAddress = byte == 1;
        m_hasMode = !m_hasMode;
    }

    void add(const QString &mark, quint8 byte)
    {
        m_line += mark + QStringLiteral("%1").arg(byte, 2, 16, QLatin1Char('0'));
        if (++m_count == s_lineBytes)
            endLine();
    }

    void endLine()
    {
        if (m_count > 0)
            m_console.out() << QTime::currentTime().toString(QStringLiteral("hh:mm:ss.zzz "))
                            << m_line << '\n';
        m_console.out().flush();
        m_line.clear();
        m_count = 0;
    }

    const bool m_is9Bit;
    Console &m_console;
    bool m_hasMode = false; ///< and its data byte is still to come
    bool m_isAddress = false;
    QElapsedTimer m_sinceBytes;
    QString m_line;
    int m_count = 0; ///< bytes on the line
};

void monitor(const Arguments &arguments, Console &console)
{
    const auto server = findServer(arguments.server, console);
    if (!server)
        return;
    PaymentPrinter printer(arguments.dataBits, console);
    observeLine(
        *server, Multiport::PaymentInterface, arguments.seconds, console,
        [&printer](const QByteArray &bytes) {
            printer.take(bytes);
            return true;
        },
        [&printer] { printer.wait(); });
}

} // namespace

void addPaymentCommand(CLI::App &app, Console &console)
{
    CLI::App *const pPayment = app.add_subcommand("payment", "Look at the payment line");
    pPayment->require_subcommand(1);
    const auto pArguments = std::make_shared<Arguments>();
    CLI::App *const pMonitor =
        pPayment->add_subcommand("monitor", "Print what goes over the payment line, both ways");
    addServerOption(*pMonitor, pArguments->server);
    pMonitor
        ->add_option("--bits", pArguments->dataBits, "Data bits of the line: 8, or 9, the usual")
        ->check(CLI::IsMember({8, 9}));
    pMonitor
        ->add_option("--seconds", pArguments->seconds, "End after this time; without it, at Ctrl-C")
        ->check(runTime());
    pMonitor->footer(
        "With 9 bits * marks an address character and ? a byte that is no mode, or a "
        "mode without data.\nWhoever joins in the middle of a character sees wrong ones "
        "until then, at most until the line's\nnext pause. Bytes that arrive together "
        "are one line. Watching disturbs nobody.\n"
        "Example: vyhw payment monitor --multiport 192.168.7.2\n");
    pMonitor->callback([pArguments, &console] { monitor(*pArguments, console); });
}
