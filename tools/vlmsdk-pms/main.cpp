// vlmsdk-pms: the kit's reservation operations from a shell. See `vlmsdk-pms --help`.

#include "PMSCommandLine.h"

#include <iostream>

int main(int argc, char** argv) {
    try {
        return PMSCommandLine(std::cout, std::cerr).run(argc, argv);
    } catch (const std::exception& exception) {
        std::cerr << "vlmsdk-pms: " << exception.what() << '\n';
        return PMSCommandLine::kOperationFailed;
    }
}
