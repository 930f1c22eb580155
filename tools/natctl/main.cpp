#include <iostream>

#include "tools/natctl/cli.h"

int main(int argc, char **argv) {
    std::ios::sync_with_stdio(false);
    return run_natctl({argv + 1, argv + argc}, std::cin, std::cout, std::cerr);
}
