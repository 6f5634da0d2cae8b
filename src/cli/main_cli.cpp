#include "cli/Cli.h"

#include <QCoreApplication>
#include <QGuiApplication>

#include <algorithm>
#include <iostream>
#include <memory>

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    // The instrument waits run the event loop, so there is always an
    // application object. Only the plots need fonts, hence a GUI application,
    // and never a display: a run on a headless test machine must work.
    std::unique_ptr<QCoreApplication> app;
    if (std::find(args.begin(), args.end(), "--plots") != args.end()) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        app = std::make_unique<QGuiApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    return mervasto::RunCli(args, std::cout, std::cerr);
}
