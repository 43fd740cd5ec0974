// SPDX-License-Identifier: MIT
//
// Not a test by itself: bus_test runs it. Fails to connect, then lets many threads connect at once
// to the bus named by the argument, and prints how often one signal was heard.
#include "ZAVServiceAPI.h"
#include "ZAVServiceBridgeAPI.h"

#include <cstdio>
#include <cstdlib>
#include <latch>
#include <thread>
#include <vector>

int main(int /*argc*/, char** argv)
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    if (InitDbusConnection() != -1) {
        return EXIT_FAILURE;
    }
    setenv("DBUS_SYSTEM_BUS_ADDRESS", argv[1], 1);
    constexpr int count = 8;
    std::latch all(count);
    std::vector<std::thread> threads;
    threads.reserve(count);
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&all] {
            all.arrive_and_wait();
            GetWooferLevel();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    static int heard = 0;
    ExtSpkSetSoundModeChangedCb([](int, void*) { ++heard; }, nullptr);
    SetMode(AUDIO_EFFECT_MOVIE);
    SetMode(AUDIO_EFFECT_MUSIC);
    // Signals come before the reply to the request that caused them: all are here.
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
    printf("%d\n", heard);
}
