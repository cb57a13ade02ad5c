// SPDX-License-Identifier: Apache-2.0

// The lttng-ust event that ZiplineBench compares with: two integers and a double. LTTng includes
// this file several times, hence no #pragma once.

#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER hoba_bench

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "Zipline/LttngPeer.h"

#if !defined( HOBA_BENCH_LTTNG_PEER_H ) || defined( LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ )
#define HOBA_BENCH_LTTNG_PEER_H

#include <lttng/tracepoint.h>

// clang-format off
LTTNG_UST_TRACEPOINT_EVENT( hoba_bench, three,
   LTTNG_UST_TP_ARGS( int, index, int, count, double, delay ),
   LTTNG_UST_TP_FIELDS(
      lttng_ust_field_integer( int, index, index )
      lttng_ust_field_integer( int, count, count )
      lttng_ust_field_float( double, delay, delay )
   )
)
// clang-format on

#endif

#include <lttng/tracepoint-event.h>
