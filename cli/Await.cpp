// SPDX-License-Identifier: MIT
#include "Await.h"

#include "Failure.h"

#include <glib.h>
#include <iostream>
#include <unistd.h>

namespace cli
{

std::optional<double> timeLimit;
bool abandoned = false;

double Limit()
{
    return timeLimit.value_or(6); // the library gives up on a call after 5
}

double Now()
{
    return static_cast<double>(g_get_monotonic_time()) / G_USEC_PER_SEC;
}

void WaitUntil(const std::string& whom, const std::function<bool()>& holds)
{
    constexpr double patience = 1;
    const double start = Now();
    bool told = isatty(STDERR_FILENO) == 0;
    while (!holds()) {
        if (Now() - start >= Limit()) {
            g_autofree char* seconds = g_strdup_printf("%g", Limit());
            throw Failure(Cause::kNoAnswer, whom + " did not answer within " + seconds + " s");
        }
        if (!told && Now() - start >= patience) {
            std::cerr << "zavctl: waiting for " << whom << " ..." << std::endl;
            told = true;
        }
    }
}

} // namespace cli
