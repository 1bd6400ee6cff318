#include <gtest/gtest.h>

#include <QCoreApplication>

// The model runs on an event loop and no widget: queued deliveries, timers and debounces need
// a core application.
int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
