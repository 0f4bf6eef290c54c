#ifdef VY_VIRTUAL_TIME
#    include "support/virtualtime.h"
#endif

#include <QCoreApplication>
#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    // A test that ends its process must not do so in a fork of one with threads.
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
#ifdef VY_VIRTUAL_TIME
    QCoreApplication::setEventDispatcher(new VirtualTime); // the application owns it
#endif
    const QCoreApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
