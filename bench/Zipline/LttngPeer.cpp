// SPDX-License-Identifier: Apache-2.0

// LTTng's code for the event, in a file of its own as LTTng wants it.

#if HOBA_BENCH_HAS_LTTNG_UST
#pragma GCC diagnostic ignored "-Wpedantic"
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wextra"
#pragma GCC diagnostic ignored "-Wunused-parameter"

#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#define LTTNG_UST_TRACEPOINT_DEFINE
#include "Zipline/LttngPeer.h"
#endif
