// SPDX-License-Identifier: MIT
/**
 * @file Pairs.h
 * Two costs taken in turn, so that whatever else the machine does meets both.
 */
#ifndef ZAV_BENCH_PAIRS_H
#define ZAV_BENCH_PAIRS_H

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

inline double Seconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

/** By the nearest rank. */
inline double Percentile(std::vector<double> values, double percent)
{
    std::ranges::sort(values);
    return values[static_cast<size_t>(static_cast<double>(values.size() - 1) * percent / 100)];
}

/**
 * Prints a line: name, both medians, and of the ratios of each pair the median and the quartiles.
 * @param ours, peer each returns a cost
 */
template <class Ours, class Peer>
void PrintPairs(const char* name, int rounds, const Ours& ours, const Peer& peer)
{
    std::vector<double> a, b, ratios;
    ours();
    peer();
    for (int i = 0; i < rounds; ++i) {
        if (i % 2 == 0) {
            a.push_back(ours());
            b.push_back(peer());
        } else {
            b.push_back(peer());
            a.push_back(ours());
        }
        ratios.push_back(a.back() / b.back());
    }
    std::printf("%s %.3g %.3g %.2f %.2f-%.2f\n", name, Percentile(a, 50), Percentile(b, 50),
                Percentile(ratios, 50), Percentile(ratios, 25), Percentile(ratios, 75));
    std::fflush(stdout);
}

#endif
