/* SPDX-License-Identifier: MIT */
#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#define LTTNG_UST_TRACEPOINT_DEFINE
#include "lttng.h"

void LttngRecords(int count);

void LttngRecords(int count)
{
    for (int i = 0; i < count; ++i) {
        lttng_ust_tracepoint(zav_bench, record, i);
    }
}
