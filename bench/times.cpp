// SPDX-License-Identifier: MIT
/**
 * @file times.cpp
 * times WHAT: how long requests and trace records take beside peers, in pairs; or what becomes of
 * requests of many threads. In µs, of requests by the clock, which wait for others; of records in
 * ns of the thread's processor time.
 */
#include "Pairs.h"
#include "Work.h"
#include "lumo.h"

#include <functional>
#include <string_view>
#include <thread>
#ifdef WITH_SD_BUS
#include <systemd/sd-bus.h>
#endif

namespace
{

constexpr int kRounds = 101;

/** @return a cost: one of `count` calls, in parts of a second as `unit` says */
std::function<double()> Each(void (*once)(), int count, clockid_t clock, double unit)
{
    return [=] {
        const double start = Seconds(clock);
        for (int i = 0; i < count; ++i) {
            once();
        }
        return (Seconds(clock) - start) / count * unit;
    };
}

void PairRequests(const char* name, void (*ours)(), void (*peer)())
{
    PrintPairs(name, kRounds, Each(ours, 20, CLOCK_MONOTONIC, 1e6),
               Each(peer, 20, CLOCK_MONOTONIC, 1e6));
}

#ifdef WITH_SD_BUS
sd_bus* bus = nullptr;

void RequestOfSdBus()
{
    sd_bus_message* reply = nullptr;
    int level = 0;
    work::Check(sd_bus_call_method(bus, work::kService, work::kPath, work::kService,
                                   "GetWooferLevel", nullptr, &reply, "") >= 0 &&
                    sd_bus_message_read(reply, "i", &level) >= 0,
                "no reply");
    sd_bus_message_unref(reply);
}
#endif

void Requests()
{
    work::Connect();
    work::ConnectByHand();
    PairRequests("request", work::Request, work::RequestByHand);
    PairRequests("speakers", work::Speakers, work::SpeakersByHand);
    PairRequests("levels", work::Levels, work::LevelsByHand);
#ifdef WITH_SD_BUS
    work::Check(sd_bus_open_system(&bus) >= 0, "no bus");
    PairRequests("sd-bus", work::Request, RequestOfSdBus);
    sd_bus_flush_close_unref(bus);
#endif
}

constexpr int kBatch = 1000;

void Records()
{
    lumo::TCStorage& storage = TIStorageManager::Instance().Storage();
    for (int i = 0; i < kBatch; ++i) {
        lumo::TCThreadHandle* const thread = storage.ThreadHandle();
        unsigned char* const place = storage.PrepareCallBuffer(thread, sizeof i, 1, 1);
        work::Check(place != nullptr, "the store is full, or LUMO_TRACE is not set");
        std::memcpy(place, &i, sizeof i);
        storage.Commit(thread);
    }
}

#ifdef WITH_LTTNG
extern "C" void LttngRecords(int count);

void RecordsOfLttng()
{
    LttngRecords(kBatch);
}
#else
constexpr auto RecordsOfLttng = work::Nothing;
#endif

void PairRecords(const char* name, int rounds)
{
    PrintPairs(name, rounds, Each(Records, 1, CLOCK_THREAD_CPUTIME_ID, 1e9 / kBatch),
               Each(RecordsOfLttng, 1, CLOCK_THREAD_CPUTIME_ID, 1e9 / kBatch));
}

/** Lines: threads, requests per second, p50 and p99 in ms, share that is refused. */
void Threads()
{
    work::Connect();
    for (int count = 1; count <= 64; count *= 2) {
        constexpr double kSeconds = 2;
        std::vector<std::vector<double>> took(static_cast<size_t>(count));
        std::atomic<int> refused{0};
        const double start = Seconds(CLOCK_MONOTONIC);
        std::vector<std::jthread> threads;
        for (auto& mine : took) {
            threads.emplace_back([&] {
                double now = Seconds(CLOCK_MONOTONIC);
                do {
                    refused += GetWooferLevel() < 0 ? 1 : 0;
                    const double end = Seconds(CLOCK_MONOTONIC);
                    mine.push_back((end - now) * 1e3);
                    now = end;
                } while (now - start < kSeconds);
            });
        }
        threads.clear();
        const double seconds = Seconds(CLOCK_MONOTONIC) - start;
        std::vector<double> all;
        for (const auto& mine : took) {
            all.insert(all.end(), mine.begin(), mine.end());
        }
        const auto requests = static_cast<double>(all.size());
        std::printf("%d %.0f %.2f %.2f %.1f%%\n", count, (requests - refused) / seconds,
                    Percentile(all, 50), Percentile(all, 99), 100 * refused / requests);
        std::fflush(stdout);
    }
}

} // namespace

int main(int argc, char** argv)
{
    const std::string_view what = argc == 2 ? argv[1] : "";
    if (what == "requests") {
        Requests();
    } else if (what == "record" || what == "record-new") {
        PairRecords(argv[1], what == "record" ? 10 * kRounds : kRounds);
    } else if (what == "threads") {
        Threads();
    } else {
        std::fputs("usage: times requests|record|record-new|threads\n", stderr);
        return 2;
    }
}
