// SPDX-License-Identifier: Apache-2.0
#pragma once

// The head of the tests of storm control.

#include "HobaTest.h"

#include "Hoba/HobaStormControlRate.h"
#include "Kiv/Exception.h"
#include "Kiv/Reflect.h"

#include <algorithm>

namespace HobaTest {

using namespace Bridging::StormControl;
using Hoba::LevelType;
using Interface::speed10Gbps;
using Interface::speed1Gbps;

inline constexpr auto bc = Hoba::levelTypeBroadcast;
inline constexpr auto mc = Hoba::levelTypeMulticast;
inline constexpr auto uu = Hoba::levelTypeUUcast;
inline constexpr auto at = Hoba::levelTypeAll;

inline Pelt::IntfId const et1{ "Ethernet1" };
inline Pelt::IntfId const et2{ "Ethernet2" };
inline Pelt::IntfId const et3{ "Ethernet3" };
inline Pelt::IntfId const po1{ "Port-Channel1" };

} // namespace HobaTest
