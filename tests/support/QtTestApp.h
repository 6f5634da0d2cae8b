#pragma once

#include <gtest/gtest.h>

// Creates the application object a test program needs for the event loop of
// the instrument waits (QCoreApplication) or for windows (QApplication).
// Include once per test program:
//   MERVASTO_QT_TEST_APP(QApplication)
template <class App>
class QtTestApp : public ::testing::Environment {
public:
    void SetUp() override {
        static int argc = 1;
        static char name[] = "mervasto-test";
        static char* argv[] = {name, nullptr};
        app_ = new App(argc, argv);
    }
    void TearDown() override { delete app_; }

private:
    App* app_ = nullptr;
};

#define MERVASTO_QT_TEST_APP(App) \
    static const auto* const kQtTestApp = ::testing::AddGlobalTestEnvironment(new QtTestApp<App>)
