// Entry point: the banner, the tables, then the command loop on standard input.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "engine/uci/bench.h"
#include "engine/uci/commands.h"
#include "engine/uci/startup.h"

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    initEngine();
    if (argc > 1 && std::strcmp(argv[1], "bench") == 0) {
        runBench();
        shutdownEngine();
        return 0;
    }
    std::string line;
    while (std::getline(std::cin, line)) {
        if (!executeCommand(line)) break;
    }
    shutdownEngine();
    return 0;
}
