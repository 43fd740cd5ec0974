// SPDX-License-Identifier: MIT
//
// soak SECONDS: one life of a program that uses everything the library has, all the time: threads
// of mixed requests and a stream of signals, while the service hangs, is killed and comes back, and
// at the end the bus is killed. Prints what happened; fails on growth or on a wrong outcome. Run by
// tests/soak, one life after another.
#include "Requests.h"
#include "Service.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <thread>

namespace
{

using requests::Api;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::atomic<long> answered, unanswered, refused, wrong, delivered;
std::atomic<bool> enough;
long emitted = 0;

void Ask(unsigned seed)
{
    std::mt19937 random(seed);
    while (!enough) {
        const Request& one = requests::kAll[random() % requests::kAll.size()];
        const int end = one.run();
        (end == one.result       ? answered
         : end == one.unanswered ? unanswered
         : end == one.refused    ? refused
                                 : wrong)++;
    }
}

/** Does something while four threads ask; then all of them have ended. */
void WhileAsking(const std::function<void()>& act)
{
    enough = false;
    std::vector<std::thread> threads;
    for (unsigned seed = 0; seed < 4; ++seed) {
        threads.emplace_back(Ask, seed);
    }
    act();
    enough = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void Listen()
{
    Api::SignalSubscribe([] {});
    Api::DisconnectSignalSubscribe([] {});
    Api::ExtSpkSetSoundModeChangedCb([](int, void*) {}, nullptr);
    Api::SetSendDataToSpkViaSPDIFcb([](const void*, void*) {}, nullptr);
    Api::SubscribeZAVCSharpCallback([](int event, void*, int) {
        delivered += event == 9 ? 1 : 0; // an event that the service itself does not send
    });
}

/** Service up, hanging, gone, and up again; twice a second or so. */
void Disturb(Clock::time_point end)
{
    for (int round = 0; Clock::now() < end; ++round) {
        for (const auto stop = Clock::now() + milliseconds(400); Clock::now() < stop; ++emitted) {
            service::Emit("InvokeSignalHandler");
            service::Emit("DisconnectSignalHandler");
            service::Emit("SetCbSoundModeChange", "5");
            service::Emit("sendDataViaSpdif", "([byte 1, 2], 2)");
            service::Emit("notifyZAVCsharpCallback", "(9, [byte 1, 2], 2)");
        }
        if (round % 8 == 0) { // long enough for others to give up
            service::Control("hang GetMode");
            std::this_thread::sleep_for(milliseconds(1500));
        }
        service::Kill(service::kName);
        std::this_thread::sleep_for(milliseconds(50));
        service::Start(requests::ReplyOptions());
    }
    while (delivered < emitted) {
        std::this_thread::yield();
    }
}

struct Use
{
    long memory, descriptors, threads;

    static Use Now()
    {
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

bool Live(Clock::duration length)
{
    service::Kill(service::kName);
    service::Start(requests::ReplyOptions());
    if (!Check(Api::InitDbusConnection() == 0, "not connected")) {
        return false;
    }
    g_dbus_connection_set_exit_on_close(Api::connection, FALSE);
    Listen();
    std::thread([] { g_main_loop_run(g_main_loop_new(nullptr, FALSE)); }).detach();

    const auto start = Clock::now();
    WhileAsking([&] { Disturb(start + length / 3); });
    const Use early = Use::Now(); // everything has been used by now
    WhileAsking([&] { Disturb(start + length); });
    const Use late = Use::Now();
    WhileAsking([&] {
        service::Kill(service::kBus);
        std::this_thread::sleep_for(milliseconds(100));
    });

    std::printf("%8ld %8ld %8ld %6ld %8ld %6ld > %ld %4ld > %ld %4ld > %ld\n", answered.load(),
                unanswered.load(), refused.load(), wrong.load(), delivered.load(), early.memory,
                late.memory, early.descriptors, late.descriptors, early.threads, late.threads);
    bool right = Check(answered > 0 && refused > 0 && unanswered > 0, "an outcome is missing");
    right &= Check(wrong == 0, "a wrong outcome");
    right &= Check(delivered == emitted, "more or fewer events than were emitted");
    right &= Check(late.memory < early.memory + 1024, "memory grows");
    right &= Check(late.descriptors <= early.descriptors, "descriptors are left open");
    right &= Check(late.threads <= early.threads, "threads are left behind");
    return right;
}

} // namespace

int main(int /*argc*/, char** argv)
{
    return Live(std::chrono::seconds(std::strtol(argv[1], nullptr, 10))) ? 0 : 1;
}
