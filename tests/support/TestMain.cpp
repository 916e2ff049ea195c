// Test entry point: a temporary HOME, emptied before each test case, offscreen Qt unless a test
// run says otherwise, and the application object the code under test expects.

#ifdef PINDLE_TEST_GUI
#include <QApplication>
#else
#include <QCoreApplication>
#endif
#include <QTemporaryDir>

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char **argv)
{
    // Set before anything computes paths from HOME, and before Qt picks a platform plugin
    // (gtest_discover_tests lists the tests without a display).
    if (std::getenv("QT_QPA_PLATFORM") == nullptr)
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QTemporaryDir home;
    if (!home.isValid())
        return 2;
    setenv("HOME", home.path().toLocal8Bit().constData(), 1);
    setenv("XDG_DATA_HOME",
           (home.path() + QStringLiteral("/.local/share")).toLocal8Bit().constData(), 1);

    testing::InitGoogleTest(&argc, argv);
    pindle::test::emptyHomeBeforeEachTest();
#ifdef PINDLE_TEST_GUI
    QApplication app(argc, argv);
#else
    QCoreApplication app(argc, argv);
#endif
    return RUN_ALL_TESTS();
}
