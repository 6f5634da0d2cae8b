#include "cli/Cli.h"

#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv) {
    // The instrument waits run the event loop, so there is always an
    // application object.
    QCoreApplication app(argc, argv);
    std::vector<std::string> args(argv + 1, argv + argc);
    return mervasto::RunCli(args, std::cout, std::cerr);
}
