// SPDX-License-Identifier: Apache-2.0
//
// setprop.
#include <iostream>

#include "PropertyTools.h"

int main(int argc, char** argv) {
    hostproperties::PropertyStore store(hostproperties::defaultStorePlace());
    const int status = tools::setprop({argv + 1, argv + argc}, store, std::cout, std::cerr);
    std::cout.flush();
    if (std::cout) return status;
    std::cerr << "setprop: cannot write the output\n";
    return 1;
}
