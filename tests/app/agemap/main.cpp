#include <gtest/gtest.h>

#include <QApplication>

// The window's tests need widgets: a full application object, on the offscreen platform unless
// told otherwise (test discovery runs the binary without the tests' environment).
int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
