#ifndef LINKBENCH_H
#define LINKBENCH_H

#include "multiport.h"
#include "support/logspy.h"
#include "vymultiport/linkserver.h"

#include <QSemaphore>
#include <QStringList>
#include <QThread>
#include <gtest/gtest.h>
#include <memory>

/// A client and the server that it is to find; what the client signals is noted in its order.
class LinkBench : public ::testing::Test
{
protected:
    LinkBench()
    {
        EXPECT_TRUE(m_server.start());
        m_pClient = std::make_unique<Multiport>(m_server.address(), Multiport::ModeLocal, nullptr);
        journal(m_pClient.get());
    }

    /// Everything that a test may want to look at in its order, as "server 1", "can 0",
    /// "payment 1", "status 30 0".
    void journal(Multiport *pClient)
    {
        const auto note = [this](const char *pWhat, bool isConnected, bool isKept) {
            EXPECT_EQ(isConnected, isKept) << pWhat; // the property is there before its signal
            m_journal.append(
                QStringLiteral("%1 %2").arg(QString::fromLatin1(pWhat)).arg(isConnected));
        };
        QObject::connect(pClient, &Multiport::multiportServerConnectedChanged, pClient,
                         [=](bool is) { note("server", is, pClient->isServerConnected()); });
        QObject::connect(pClient, &Multiport::canBusConnectedChanged, pClient,
                         [=](bool is) { note("can", is, pClient->isCanBusConnected()); });
        QObject::connect(pClient, &Multiport::paymentConnectedChanged, pClient,
                         [=](bool is) { note("payment", is, pClient->isPaymentConnected()); });
        QObject::connect(pClient, &Multiport::lastCommandTerminationStatus, pClient,
                         [this](unsigned char command, unsigned char status) {
                             m_journal.append(
                                 QStringLiteral("status %1 %2").arg(command).arg(status));
                         });
        QObject::connect(pClient, &Multiport::newDataOnCanBus, pClient,
                         [this](const QByteArray &bytes) { m_canData += bytes; });
        QObject::connect(pClient->interface(Multiport::PaymentInterface),
                         &MultiportInterface::dataReceived, pClient,
                         [this](unsigned int, const QByteArray &bytes) { m_paymentData += bytes; });
    }

    Multiport &client() { return *m_pClient; }

    bool isUp() const
    {
        return m_pClient->isServerConnected() &&
               m_pClient->isCanBusConnected() == m_pClient->isOpen(Multiport::CanBusInterface) &&
               m_pClient->isPaymentConnected() == m_pClient->isOpen(Multiport::PaymentInterface);
    }
    bool isDown() const { return !m_pClient->isServerConnected(); }

    /// Starts the client and has the link, the channel and the line.
    void connectAll()
    {
        client().setEnabled(Multiport::CanBusInterface);
        client().setEnabled(Multiport::PaymentInterface);
        client().init(true);
        ASSERT_TRUE(waitUntil([this] { return isUp(); }));
        m_journal.clear();
    }

    void restartServer()
    {
        m_server.stop();
        ASSERT_TRUE(waitUntil([this] { return isDown(); }));
        ASSERT_TRUE(m_server.start());
        ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    }

    /// Writes to the payment line as others do; the number of bytes taken.
    qint64 writeToPayment(const QByteArray &bytes)
    {
        qint64 taken = 0;
        EXPECT_TRUE(QMetaObject::invokeMethod(
            client().interface(Multiport::PaymentInterface), "write", Qt::BlockingQueuedConnection,
            Q_RETURN_ARG(qint64, taken), Q_ARG(QByteArray, bytes)));
        return taken;
    }

    /// Time for what must not happen.
    static void pass(int ms)
    {
        waitUntil([] { return false; }, ms);
    }

    LinkServer m_server;
    std::unique_ptr<Multiport> m_pClient;
    QStringList m_journal;
    QByteArray m_canData;
    QByteArray m_paymentData;
};

/// Keeps the client's thread from doing anything while it lives.
class ThreadHold
{
public:
    explicit ThreadHold(Multiport &client)
    {
        QMetaObject::invokeMethod(client.interface(Multiport::CanBusInterface),
                                  [pState = m_pState] {
                                      pState->isHeld.release();
                                      pState->goOn.acquire();
                                  });
        m_pState->isHeld.acquire();
    }
    ~ThreadHold() { m_pState->goOn.release(); }
    Q_DISABLE_COPY_MOVE(ThreadHold)

private:
    struct State
    {
        QSemaphore isHeld;
        QSemaphore goOn;
    };
    const std::shared_ptr<State> m_pState = std::make_shared<State>(); ///< the held thread's too
};

/// A server that goes on while the test's thread is busy.
class LinkServerThread
{
public:
    LinkServerThread()
    {
        m_thread.start();
        m_context.moveToThread(&m_thread);
        run([this] {
            m_pServer = std::make_unique<LinkServer>();
            EXPECT_TRUE(m_pServer->start());
        });
    }
    ~LinkServerThread()
    {
        run([this] { m_pServer.reset(); });
        m_thread.quit();
        m_thread.wait();
    }
    Q_DISABLE_COPY_MOVE(LinkServerThread)

    /// In the server's thread, and waits for it.
    template <typename Function>
    void run(const Function &function)
    {
        QMetaObject::invokeMethod(&m_context, function, Qt::BlockingQueuedConnection);
    }

    LinkServer &server() { return *m_pServer; } ///< inside run()

private:
    QThread m_thread;
    QObject m_context;
    std::unique_ptr<LinkServer> m_pServer;
};

#endif // LINKBENCH_H
