// One station of the concurrency test: opens the store, says "ready", waits
// for "go" on its standard input, then stores its passes as fast as it can.
//   store_writer TARGET STATION PASSES
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "store/ResultStore.h"
#include "store/StoreSamples.h"

using namespace mervasto;

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    const std::string location = argv[1];
    const std::string station = argv[2];
    const int passes = std::atoi(argv[3]);
    ResultStore store;
    const StoreTarget target = StoreTargetOf(location, location);
    if (Outcome opened = store.open(target, true); !opened) {
        std::cerr << station << ": " << opened.text() << '\n';
        return 1;
    }
    std::cout << "ready" << std::endl;
    std::string go;
    if (!std::getline(std::cin, go) || go != "go") return 3;
    const RunInfo run = test::SampleRun(station);
    // The station's number in every mean, so that a pass stored under the
    // other station's run would show.
    const double mark = station == "A" ? 1000 : 2000;
    for (int n = 1; n <= passes; ++n) {
        if (Outcome stored = store.storePass(run, test::SamplePass(n, mark + n)); !stored) {
            std::cerr << station << " pass " << n << ": " << stored.text() << '\n';
            return 1;
        }
    }
    return 0;
}
