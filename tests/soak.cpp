// SPDX-License-Identifier: MIT
//
// soak: a program that uses everything the library has, all the time, until it is killed: four
// threads of mixed requests, and callbacks for a stream of signals. Prints a line twice a second.
// soak options: prints the replies that it expects, as options of zav-sim.
// Run by tests/soak, which disturbs the service meanwhile.
#include "Requests.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

namespace
{

using requests::Api;

std::atomic<long> answered, unanswered, refused, wrong, delivered;

void Ask(unsigned seed)
{
    std::mt19937 random(seed);
    for (;;) {
        const Request& one = requests::kAll[random() % requests::kAll.size()];
        const int end = one.run();
        (end == one.result       ? answered
         : end == one.unanswered ? unanswered
         : end == one.refused    ? refused
                                 : wrong)++;
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

void PrintUse()
{
    const auto entries = [](const char* folder) -> long {
        return std::distance(std::filesystem::directory_iterator(folder), {});
    };
    long resident = 0;
    long shared = 0; // with the trace store
    std::ifstream("/proc/self/statm") >> resident >> resident >> shared;
    std::printf("%8ld %8ld %8ld %6ld %8ld %8ld %11ld %8ld\n", answered.load(), unanswered.load(),
                refused.load(), wrong.load(), delivered.load(), (resident - shared) * 4,
                entries("/proc/self/fd"), entries("/proc/self/task"));
    std::fflush(stdout);
}

} // namespace

int main(int count, char** /*arguments*/)
{
    if (count > 1) {
        std::puts(requests::ReplyOptions().c_str());
        return 0;
    }
    Api::InitDbusConnection();
    Listen();
    for (unsigned seed = 0; seed < 4; ++seed) {
        std::thread(Ask, seed).detach();
    }
    std::thread([] { g_main_loop_run(g_main_loop_new(nullptr, FALSE)); }).detach();
    for (;;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        PrintUse();
    }
}
