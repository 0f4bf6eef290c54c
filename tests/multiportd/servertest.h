#ifndef SERVERTEST_H
#define SERVERTEST_H

#include "multiportd/fakebackends.h"
#include "multiportd/linkpeer.h"
#include "multiportd/multiportserver.h"
#include "support/logspy.h"

#include <gtest/gtest.h>
#include <memory>

/// A server in this process, on free ports, with fakes behind it.
class ServerTest : public ::testing::Test
{
protected:
    ServerTest()
        : m_server(&m_can, &m_payment, &m_outputs)
    {
        QString error;
        EXPECT_TRUE(m_server.listen(QHostAddress::LocalHost, {0, 0, 0}, &error))
            << qPrintable(error);
    }

    /// A controller that has greeted.
    std::unique_ptr<ControlPeer> controller() { return client(multiportlink::Role::Controller); }
    std::unique_ptr<ControlPeer> observer() { return client(multiportlink::Role::Observer); }

    /// A data connection that the server knows.
    std::unique_ptr<LinkPeer> canPeer() { return dataPeer(m_server.ports().can); }
    std::unique_ptr<LinkPeer> paymentPeer() { return dataPeer(m_server.ports().payment); }

    LogSpy m_log;
    FakeCan m_can;
    FakePayment m_payment;
    FakeOutputs m_outputs;
    MultiportServer m_server;

private:
    std::unique_ptr<ControlPeer> client(multiportlink::Role role)
    {
        auto pPeer = std::make_unique<ControlPeer>(m_server.ports().control);
        EXPECT_TRUE(pPeer->greets(role));
        pPeer->keepAlive();
        return pPeer;
    }

    static std::unique_ptr<LinkPeer> dataPeer(quint16 port)
    {
        auto pPeer = std::make_unique<LinkPeer>(port);
        QTest::qWait(20); // the server accepts meanwhile
        return pPeer;
    }
};

#endif // SERVERTEST_H
