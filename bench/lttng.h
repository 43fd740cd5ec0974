/* SPDX-License-Identifier: MIT */
/** @file lttng.h One event with an int, of the tracer that the trace store is held against. */
#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER zav_bench

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "lttng.h"

#if !defined(ZAV_BENCH_LTTNG_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define ZAV_BENCH_LTTNG_H

#include <lttng/tracepoint.h>

LTTNG_UST_TRACEPOINT_EVENT(zav_bench, record, LTTNG_UST_TP_ARGS(int, value),
                           LTTNG_UST_TP_FIELDS(lttng_ust_field_integer(int, value, value)))

#endif

#include <lttng/tracepoint-event.h>
