#include <cstring>
#include <iostream>

#include "application.h"

int main(int argc, const char** argv) {
    if (argc >= 2 && std::strcmp(argv[1], "--version") == 0) {
        std::cout << Application::Version << std::endl;
        return 0;
    }
    Application application;
    application.Start();
    return 0;
}
