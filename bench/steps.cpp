// SPDX-License-Identifier: MIT
/**
 * @file steps.cpp
 * steps STEP COUNT: does one thing COUNT times, to be counted from outside; prints how often memory
 * was allocated meanwhile. What it does once, before and after, is the same for every count: the
 * difference of two counts is the step alone.
 */
#include "LogPoint.h"
#include "Work.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gio/gio.h>
#include <string_view>

namespace
{

std::atomic<unsigned long> allocations{0};

} // namespace

// Counted in front of the C library's, for every thread and library of the process.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

void* malloc(size_t size) noexcept
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) noexcept
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) noexcept
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(block, size);
}
}

namespace
{

// A log point for each list of arguments. The arguments are read anew each time, as a request's
// are.

const char* volatile text = "SID_STANDARD_KR_SOUND";
volatile int number = 5;

void PointNone()
{
    LOG_POINT(DLOG_INFO, "Returned from ZAVService...");
}

void PointInt()
{
    LOG_POINT(DLOG_INFO, "IntDataReceived: %d from ZAVService", static_cast<int>(number));
}

void PointTextInt()
{
    LOG_POINT(DLOG_INFO, "SID = %s, MODE: %d", static_cast<const char*>(text),
              static_cast<int>(number));
}

struct Step
{
    std::string_view name;
    void (*once)();
    void (*before)() = work::Nothing;
};

constexpr Step kSteps[] = {
    {"nothing", work::Nothing},
    {"request", work::Request, work::Connect},
    {"request-by-hand", work::RequestByHand, work::ConnectByHand},
    {"speakers", work::Speakers, work::Connect},
    {"speakers-by-hand", work::SpeakersByHand, work::ConnectByHand},
    {"levels", work::Levels, work::Connect},
    {"levels-by-hand", work::LevelsByHand, work::ConnectByHand},
    {"point-none", PointNone},
    {"point-int", PointInt},
    {"point-text-int", PointTextInt},
};

void Run(const Step& step, long count)
{
    step.before();
    const unsigned long before = allocations;
    for (long i = 0; i < count; ++i) {
        step.once();
    }
    std::printf("%lu\n", allocations - before);
}

} // namespace

int main(int argc, char** argv)
{
    for (const Step& step : kSteps) {
        if (argc == 3 && step.name == argv[1]) {
            Run(step, std::strtol(argv[2], nullptr, 10));
            return 0;
        }
    }
    std::fputs("usage: steps STEP COUNT\n", stderr);
    return 2;
}
