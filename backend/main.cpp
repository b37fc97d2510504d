#include <iostream>

#include "backend/command_line.h"

int main(int argc, char** argv) {
    return ferrylink::backend::runCommandLine(argc, argv, std::cout, std::cerr);
}
