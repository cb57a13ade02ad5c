// SPDX-License-Identifier: Apache-2.0
// Includes as the sources do, and calls what only the shared objects define.
#include "Hoba/HobaCommon.h"
#include "Kiv/Text.h"

#include <cstdio>

int
main() {
   bool const works = Kiv::fromText< int >( "-42" ) == -42 && Kiv::toText( 0.5 ) == "0.5";
   std::puts( works ? "consumer: works" : "consumer: wrong values" );
   return works ? 0 : 1;
}
