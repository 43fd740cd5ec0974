// SPDX-License-Identifier: MIT
/**
 * @file client.cpp
 * client VERB [NUMBER...]: an application in a situation that is rare or hostile, for
 * bench/extremes. Prints what became of it.
 */
#include "ZAVServiceAPI.h"
#include "ZAVServiceBridgeAPI.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <latch>
#include <string_view>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

using Clock = std::chrono::steady_clock;

namespace
{

std::atomic<long> allocationsLeft{-1}; // the one that finds 0 fails; below 0 none does

/** Counts an allocation. @return whether memory is there for it */
bool Granted()
{
    return allocationsLeft.load(std::memory_order_relaxed) < 0 || allocationsLeft.fetch_sub(1) != 0;
}

} // namespace

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

void* malloc(size_t size) noexcept
{
    return Granted() ? __libc_malloc(size) : nullptr;
}

void* calloc(size_t count, size_t size) noexcept
{
    return Granted() ? __libc_calloc(count, size) : nullptr;
}

void* realloc(void* block, size_t size) noexcept
{
    return Granted() ? __libc_realloc(block, size) : nullptr;
}
}

namespace
{

using Numbers = std::vector<long>;

double Milliseconds(Clock::duration time)
{
    return std::chrono::duration<double, std::milli>(time).count();
}

/** Times one way into the library. */
template <class Function>
int Timed(const Function& function)
{
    const auto start = Clock::now();
    const int result = function();
    printf("%.3f s, result %d\n", Milliseconds(Clock::now() - start) / 1000, result);
    return 0;
}

int Connect(const Numbers&)
{
    return Timed(InitDbusConnection);
}

int FirstCall(const Numbers&)
{
    return Timed(GetWooferLevel);
}

/** A request of a process that has connected; `NUMBER` seconds may pass in between. */
int Request(const Numbers& numbers)
{
    InitDbusConnection();
    sleep(numbers.empty() ? 0 : static_cast<unsigned>(numbers[0]));
    return Timed(GetWooferLevel);
}

/** Connects and asks; meanwhile allocation `NUMBER` fails. Exit code 3: there were fewer. */
int Memory(const Numbers& numbers)
{
    allocationsLeft = numbers[0];
    try {
        InitDbusConnection();
        std::list<AudioEffect> modes;
        ZAVServiceAPI::GetModeList(&modes);
    } catch (const std::bad_alloc&) {
        return 4;
    }
    return allocationsLeft.exchange(-1) >= 0 ? 3 : 0;
}

/** Asks when no further file can be opened, connected before or not. */
int Descriptors(const Numbers& numbers)
{
    if (numbers[0] != 0) {
        InitDbusConnection();
    }
    const int next = dup(0);
    close(next);
    const rlimit limit = {static_cast<rlim_t>(next), static_cast<rlim_t>(next)};
    setrlimit(RLIMIT_NOFILE, &limit);
    return Timed(GetWooferLevel);
}

/** What one thread of several that ask saw. */
struct Asked
{
    long answered = 0, refused = 0;
    std::vector<double> waits; // ms, of what was answered
};

/** Threads that ask for `seconds`, each with a pause of its own, in µs, after each request. */
std::vector<Asked> Ask(const Numbers& pauses, long seconds)
{
    InitDbusConnection();
    std::vector<Asked> asked(pauses.size());
    std::vector<std::thread> threads;
    std::latch all(static_cast<ptrdiff_t>(pauses.size()));
    for (size_t i = 0; i < pauses.size(); ++i) {
        threads.emplace_back([&, i] {
            all.arrive_and_wait();
            const auto end = Clock::now() + std::chrono::seconds(seconds);
            while (Clock::now() < end) {
                const auto start = Clock::now();
                if (ZAVServiceAPI::GetWooferLevel() == -1) { // no level of the service's own here
                    ++asked[i].refused;
                } else {
                    ++asked[i].answered;
                    asked[i].waits.push_back(Milliseconds(Clock::now() - start));
                }
                if (pauses[i] > 0) {
                    std::this_thread::sleep_for(std::chrono::microseconds(pauses[i]));
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return asked;
}

/** `THREADS SECONDS`: all ask without a pause. */
int Crowd(const Numbers& numbers)
{
    const auto asked = Ask(Numbers(static_cast<size_t>(numbers[0]), 0), numbers[1]);
    const auto [least, most] = std::ranges::minmax_element(asked, {}, &Asked::answered);
    long refused = 0;
    for (const Asked& one : asked) {
        refused += one.refused;
    }
    printf("%ld to %ld answered, %ld refused\n", least->answered, most->answered, refused);
    return 0;
}

/** `PAUSE SECONDS`: one thread asks with that pause, in µs, another ten times a second. */
int Beside(const Numbers& numbers)
{
    auto other = Ask({numbers[0], 100'000}, numbers[1])[1];
    std::ranges::sort(other.waits);
    const auto at = [&](size_t percent) {
        return other.waits.empty() ? 0.0 : other.waits[(other.waits.size() - 1) * percent / 100];
    };
    printf("%ld of %ld refused; median %.1f ms, p90 %.1f ms\n", other.refused,
           other.refused + other.answered, at(50), at(90));
    return 0;
}

long ResidentKilobytes()
{
    long pages = 0;
    FILE* file = fopen("/proc/self/statm", "r");
    if (file == nullptr || fscanf(file, "%*d %ld", &pages) != 1) {
        std::abort();
    }
    fclose(file);
    return pages * (sysconf(_SC_PAGESIZE) / 1024);
}

/** Iterates the main context until `NUMBER` properties have been told of; what memory they took. */
int Properties(const Numbers& numbers)
{
    InitDbusConnection();
    const long before = ResidentKilobytes();
    static long told = 0;
    g_signal_connect(ZAVServiceAPI::proxy, "g-properties-changed",
                     G_CALLBACK(+[](GDBusProxy*, GVariant* changed, GStrv, gpointer) {
                         told += static_cast<long>(g_variant_n_children(changed));
                     }),
                     nullptr);
    puts("ready");
    fflush(stdout);
    while (told < numbers[0]) {
        g_main_context_iteration(nullptr, TRUE);
    }
    printf("%ld MB\n", (ResidentKilobytes() - before) / 1024);
    return 0;
}

constexpr struct
{
    std::string_view verb;
    int (*run)(const Numbers& numbers);
} kVerbs[] = {
    {"connect", Connect},         {"first-call", FirstCall},  {"request", Request},
    {"memory", Memory},           {"crowd", Crowd},           {"beside", Beside},
    {"descriptors", Descriptors}, {"properties", Properties},
};

} // namespace

int main(int argc, char** argv)
{
    Numbers numbers;
    for (int i = 2; i < argc; ++i) {
        numbers.push_back(atol(argv[i]));
    }
    for (const auto& [verb, run] : kVerbs) {
        if (argc > 1 && verb == argv[1]) {
            return run(numbers);
        }
    }
    return 2;
}
