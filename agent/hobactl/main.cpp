// SPDX-License-Identifier: Apache-2.0
#include "agent/hobactl/Tool.h"

#include <iostream>

int
main( int argc, char ** argv ) {
   return Hobactl::runTool( argc, argv, std::cout, std::cerr );
}
