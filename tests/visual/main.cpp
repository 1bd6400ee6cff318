#include <gtest/gtest.h>

#include <QGuiApplication>

#include <cstdlib>

// Text measurement and painting need a GUI application; tests draw offscreen.
int main(int argc, char** argv)
{
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
