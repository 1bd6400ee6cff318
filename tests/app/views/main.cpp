#include <gtest/gtest.h>

#include <QApplication>

// The widgets need a GUI application. Test discovery runs this binary without the test
// environment, so the offscreen platform is the default here too.
int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
