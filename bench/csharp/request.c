/* SPDX-License-Identifier: MIT */
/* Prints how long a request takes from C, in microseconds: the median of several batches. */
#include "ZAVServiceBridgeAPI.h"

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

enum
{
    kBatches = 15,
    kCount = 1000
};

static double Now(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return 1e6 * (double)now.tv_sec + 1e-3 * (double)now.tv_nsec;
}

static int Compare(const void* left, const void* right)
{
    const double difference = *(const double*)left - *(const double*)right;
    return (difference > 0) - (difference < 0);
}

int main(void)
{
    double times[kBatches];
    if (InitDbusConnection() != 0) {
        return 1;
    }
    for (int batch = -2; batch < kBatches; ++batch) { /* two to warm up */
        const double start = Now();
        for (int i = 0; i < kCount; ++i) {
            GetWooferLevel();
        }
        if (batch >= 0) {
            times[batch] = (Now() - start) / kCount;
        }
    }
    qsort(times, kBatches, sizeof times[0], Compare);
    printf("%.3f\n", times[kBatches / 2]);
    return 0;
}
