// SPDX-License-Identifier: MIT
//
// soak SECONDS: one life of a program that uses everything the library has, all the time: threads
// of mixed requests and a stream of signals, while the service hangs, is killed and comes back, and
// at the end the bus is killed. Prints what happened; fails on growth or on a wrong outcome. Run by
// tests/soak, one life after another.
#include "PrivateBus.h"
#include "Requests.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <thread>

namespace
{

using requests::Api;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::atomic<long> answered, unanswered, refused, wrong, delivered;
std::atomic<bool> finished, paused;
std::shared_mutex asking; // shared by requests, held alone while there is none
long emitted = 0;

void Ask(unsigned seed)
{
    std::mt19937 random(seed);
    while (!finished) {
        if (paused) {
            std::this_thread::sleep_for(milliseconds(1));
            continue;
        }
        const std::shared_lock request(asking);
        const Request& one = requests::kAll[random() % requests::kAll.size()];
        const int end = one.run();
        (end == one.result       ? answered
         : end == one.unanswered ? unanswered
         : end == one.refused    ? refused
                                 : wrong)++;
    }
}

constexpr int kEvent = 9; // which the service has no reason of its own to send

void Listen()
{
    Api::SignalSubscribe([] {});
    Api::DisconnectSignalSubscribe([] {});
    Api::ExtSpkSetSoundModeChangedCb([](int, void*) {}, nullptr);
    Api::SetSendDataToSpkViaSPDIFcb([](const void*, void*) {}, nullptr);
    Api::SubscribeZAVCSharpCallback([](int event, void*, int count) {
        if (event == kEvent) {
            (count == 2 ? delivered : wrong)++;
        }
    });
}

void Emit(Simulator& service)
{
    service.Emit("InvokeSignalHandler");
    service.Emit("DisconnectSignalHandler");
    service.Emit("SetCbSoundModeChange", "(5,)");
    service.Emit("sendDataViaSpdif", "([byte 0x61, 0x62], 2)");
    service.Emit("notifyZAVCsharpCallback",
                 "(" + std::to_string(kEvent) + ", [byte 0x61, 0x62], 2)");
    ++emitted;
}

/** Service up, hanging, gone, and up again; twice a second or so. */
void Disturb(Simulator& service, int round)
{
    for (const auto end = Clock::now() + milliseconds(400); Clock::now() < end;) {
        Emit(service);
    }
    if (round % 8 == 0) { // long enough for others to give up
        service.Hang("GetMode");
        std::this_thread::sleep_for(milliseconds(1500));
    }
    service.Stop();
    std::this_thread::sleep_for(milliseconds(50));
    service.Start();
}

struct Use
{
    long memory, descriptors, threads;

    /** Between requests: one that waits for its answer holds a descriptor. */
    static Use AtRest()
    {
        paused = true;
        const std::unique_lock alone(asking);
        paused = false;
        const auto entries = [](const char* folder) {
            return std::distance(std::filesystem::directory_iterator(folder), {});
        };
        long resident = 0;
        long shared = 0; // with the trace store
        std::ifstream("/proc/self/statm") >> resident >> resident >> shared;
        return {(resident - shared) * 4, entries("/proc/self/fd"), entries("/proc/self/task")};
    }
};

bool Check(bool right, const char* what)
{
    if (!right) {
        std::fprintf(stderr, "soak: %s\n", what);
    }
    return right;
}

bool Live(std::chrono::seconds length)
{
    Arguments options{"--quiet"};
    for (const Request& one : requests::kAll) {
        if (!one.reply.empty()) {
            options.insert(options.end(), {"--reply", one.method + "=" + one.reply});
        }
    }
    PrivateBus bus;
    Simulator service(bus, options);
    if (!Check(Api::InitDbusConnection() == 0, "not connected")) {
        return false;
    }
    g_dbus_connection_set_exit_on_close(Api::connection, FALSE);
    Listen();

    std::array<std::thread, 4> threads;
    for (unsigned i = 0; i < threads.size(); ++i) {
        threads[i] = std::thread(Ask, i);
    }
    Use early{};
    Use late{};
    std::atomic<bool> over = false;
    std::thread director([&] {
        const auto start = Clock::now();
        for (int round = 0; Clock::now() < start + length; ++round) {
            Disturb(service, round);
            if (early.memory == 0 && Clock::now() > start + length / 3) {
                early = Use::AtRest(); // everything has been used by now
            }
        }
        late = Use::AtRest();
        over = true;
    });
    while (!over || delivered < emitted) {
        g_main_context_iteration(nullptr, FALSE);
        std::this_thread::sleep_for(milliseconds(1));
    }
    director.join();
    const long answeredOnTheBus = answered;
    bus.Stop();
    bool right = true;
    for (const Request& one : requests::kAll) {
        const int end = one.run(); // refused while one of the threads has its turn
        right &= Check(end == one.unanswered || end == one.refused, one.name.c_str());
    }
    finished = true;
    for (std::thread& thread : threads) {
        thread.join();
    }

    std::printf("%8ld %8ld %8ld %6ld %8ld %6ld > %ld %4ld > %ld %4ld > %ld\n", answeredOnTheBus,
                unanswered.load(), refused.load(), wrong.load(), delivered.load(), early.memory,
                late.memory, early.descriptors, late.descriptors, early.threads, late.threads);
    right &= Check(answeredOnTheBus > 0 && refused > 0 && unanswered > 0, "an outcome is missing");
    right &= Check(wrong == 0, "a wrong outcome");
    right &= Check(delivered == emitted, "more or fewer events than were emitted");
    right &= Check(late.memory < early.memory + 1024, "memory grows");
    right &= Check(late.descriptors <= early.descriptors, "descriptors are left open");
    right &= Check(late.threads <= early.threads, "threads are left behind");
    return right;
}

} // namespace

int main(int argc, char** argv)
{
    const long seconds = argc == 2 ? std::strtol(argv[1], nullptr, 10) : 0;
    if (seconds <= 0) {
        std::fputs("usage: soak SECONDS\n", stderr);
        return 2;
    }
    return Live(std::chrono::seconds(seconds)) ? 0 : 1;
}
