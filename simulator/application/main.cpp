// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The sample application, which takes the place of a product's application. It carries out the
// behaviours on its command line one after the other and ends with exit code 0 after the last.
#include "behaviours.h"

#include <cstdio>
#include <string>

int main(int argc, char *argv[])
{
    Arguments arguments(argv + 1, argv + argc);
    if (arguments.empty())
        arguments = {"demonstrate"};
    while (!arguments.empty()) {
        const std::string name = arguments.front();
        arguments.pop_front();
        if (!runBehaviour(name, arguments)) {
            std::fprintf(stderr, "sample-application: bad behaviour or value: %s\n", name.c_str());
            printBehaviours();
            return 64;
        }
    }
    return 0;
}
