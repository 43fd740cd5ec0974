// SPDX-License-Identifier: MIT
//
// The thread checker is set up so that it finds a race, and takes nothing for one that GLib's mutex
// keeps in order.
#include <glib.h>
#include <gtest/gtest.h>
#include <thread>

namespace
{

int counted = 0;

void CountTwice(GMutex* mutex)
{
    const auto count = [mutex] {
        if (mutex != nullptr) {
            g_mutex_lock(mutex);
        }
        ++counted;
        if (mutex != nullptr) {
            g_mutex_unlock(mutex);
        }
    };
    std::thread first(count);
    std::thread second(count);
    first.join();
    second.join();
    std::exit(0);
}

TEST(Races, AreFound)
{
    EXPECT_EXIT(CountTwice(nullptr), testing::ExitedWithCode(66), "data race");
}

TEST(Races, AreNotSeenInWhatALockKeepsInOrder)
{
    static GMutex mutex;
    EXPECT_EXIT(CountTwice(&mutex), testing::ExitedWithCode(0), "");
}

} // namespace
