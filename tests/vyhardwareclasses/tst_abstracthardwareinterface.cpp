#include "abstracthardwareinterface.h"

#include <QCoreApplication>
#include <QMetaEnum>
#include <QPointer>
#include <gtest/gtest.h>

TEST(AbstractHardwareInterfaceTest, KeepsItsNameAndBelongsToItsParent)
{
    QPointer<AbstractHardwareInterface> pInterface;
    {
        QObject parent;
        pInterface = new AbstractHardwareInterface(QStringLiteral("coin changer"), &parent);
        EXPECT_EQ(pInterface->name(), QStringLiteral("coin changer"));
        EXPECT_EQ(pInterface->parent(), &parent);
    }
    EXPECT_TRUE(pInterface.isNull());
}

TEST(AbstractHardwareInterfaceTest, PollEventsAreRegisteredWithTheirNumbers)
{
    const QMetaEnum events = QMetaEnum::fromType<AbstractHardwareInterface::PollEvent>();
    ASSERT_EQ(events.keyCount(), 3);
    EXPECT_EQ(events.keyToValue("pollDataReady"), 0);
    EXPECT_EQ(events.keyToValue("pollTimeout"), 1);
    EXPECT_EQ(events.keyToValue("pollError"), 2);
}

TEST(AbstractHardwareInterfaceTest, PollEventsTravelBetweenThreads)
{
    AbstractHardwareInterface interface(QString(), nullptr);
    QObject listener;
    QList<int> heard;
    QObject::connect(
        &interface, &AbstractHardwareInterface::polled, &listener,
        [&heard](AbstractHardwareInterface::PollEvent event) { heard.append(event); },
        Qt::QueuedConnection);
    Q_EMIT interface.polled(AbstractHardwareInterface::pollError);
    EXPECT_TRUE(heard.isEmpty());
    QCoreApplication::processEvents();
    EXPECT_EQ(heard, QList<int>{2});
}
