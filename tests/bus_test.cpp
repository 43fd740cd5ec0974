// SPDX-License-Identifier: MIT
//
// The library over a real bus daemon, with the simulated service at the other end.
#include "Boundary.h"
#include "PrivateBus.h"
#include "Requests.h"

#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <latch>
#include <thread>

namespace
{

using Api = ZAVServiceAPI;

class Bus : public testing::Test
{
protected:
    void AnswerAll()
    {
        for (const Request& one : requests::kAll) {
            if (!one.reply.empty()) {
                service.Control("reply " + one.method + "=" + one.reply);
            }
        }
    }

    PrivateBus bus;
    Simulator service{bus};
};

/** Calls from eight threads at once. */
void FromManyThreads(const std::function<void()>& call)
{
    std::latch all(8);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            all.arrive_and_wait();
            call();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(Bus, IsReachedAsSoonAsItIsThereAndListenedToOnceHoweverManyThreadsConnect)
{
    bus.Stop();
    EXPECT_EQ(-1, Api::InitDbusConnection());
    EXPECT_NE(std::string::npos,
              boundary::Take().find("6 InitDbusConnection > Bus get sync failed: "));
    bus.Start();
    service.Start();
    FromManyThreads(::GetWooferLevel);
    static int heard = 0;
    Api::ExtSpkSetSoundModeChangedCb([](int, void*) { ++heard; }, nullptr);
    service.Emit("SetCbSoundModeChange", "5");
    EXPECT_EQ(AUDIO_EFFECT_STANDARD, Api::GetMode()); // comes after the signal
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
    EXPECT_EQ(1, heard);
}

/** Every request ends like this, and finds that the one before it has freed its turn. */
void ExpectOfAll(int Request::*end)
{
    for (const Request& one : requests::kAll) {
        EXPECT_EQ(one.*end, one.run()) << one.name;
    }
    const std::string log = boundary::Take();
    EXPECT_FALSE(g_regex_match_simple("broken:|is busy|its record", log.c_str(),
                                      GRegexCompileFlags{}, GRegexMatchFlags{}))
        << log;
}

TEST_F(Bus, TellsEveryRequestWhateverBecomesOfTheServiceAndOfItself)
{
    Api::InitDbusConnection();
    boundary::Take(); // records have only the low halves of its addresses
    AnswerAll();
    ExpectOfAll(&Request::result);
    std::vector<std::string> sent;
    for (const Request& one : requests::kAll) {
        sent.push_back(one.method + " " + one.sent);
    }
    EXPECT_EQ(sent, service.Calls().calls);
    for (const Request& one : requests::kAll) {
        service.Control("reply " + one.method + "='text'");
    }
    ExpectOfAll(&Request::mistyped);
    for (const Request& one : requests::kAll) {
        service.Control("fail " + one.method + "=org.freedesktop.DBus.Error.AccessDenied");
    }
    ExpectOfAll(&Request::unanswered);
    service.Stop();
    ExpectOfAll(&Request::unanswered);
    service.Start();
    AnswerAll();
    IterateUntil([] { return Api::GetWooferLevel() != -1; }); // the proxy learns of it there
    ExpectOfAll(&Request::result);
    g_dbus_connection_set_exit_on_close(Api::connection, FALSE);
    bus.Stop();
    ExpectOfAll(&Request::unanswered);
}

TEST_F(Bus, NeverHasTwoRequestsOfAProgramOnTheWire)
{
    Api::InitDbusConnection();
    service.Control("delay GetMode=10"); // time enough for another to arrive
    std::atomic<int> answered = 0;
    std::atomic<int> refused = 0;
    FromManyThreads([&] {
        for (int round = 0; round < 5; ++round) {
            const AudioEffect mode = Api::GetMode();
            answered += mode == AUDIO_EFFECT_STANDARD ? 1 : 0;
            refused += mode == AUDIO_EFFECT_NONE ? 1 : 0;
        }
    });
    const Simulator::Seen seen = service.Calls();
    EXPECT_EQ(1U, seen.peakOpen);
    EXPECT_EQ(answered, static_cast<int>(seen.calls.size()));
    EXPECT_EQ(8 * 5, answered + refused);
    const std::string log = boundary::Take();
    EXPECT_EQ(std::string::npos, log.find("broken:")) << log;
}

TEST_F(Bus, KeepsSignalsForTheContextOfTheThreadThatConnected)
{
    std::thread([this] {
        g_autoptr(GMainContext) context = g_main_context_new();
        g_main_context_push_thread_default(context);
        Api::InitDbusConnection();
        static std::vector<int> heard;
        static std::thread::id calledOn;
        Api::ExtSpkSetSoundModeChangedCb(
            [](int mode, void*) {
                heard.push_back(mode);
                calledOn = std::this_thread::get_id();
            },
            nullptr);
        std::vector<int> sent;
        for (int mode = 0; mode < 500; ++mode) {
            if (mode == 250) { // the next service is heard as well
                service.Stop();
                service.Start();
            }
            sent.push_back(mode);
            service.Emit("SetCbSoundModeChange", std::to_string(mode));
        }
        EXPECT_TRUE(heard.empty());
        IterateUntil([&sent] { return heard.size() == sent.size(); }, context);
        EXPECT_EQ(sent, heard);
        EXPECT_EQ(std::this_thread::get_id(), calledOn);
        g_main_context_pop_thread_default(context);
    }).join();
}

TEST_F(Bus, LetsAProgramEndWhileSignalsArrive)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // GIO's thread does not survive a fork
    const auto endAmidSignals = [this] {
        static std::atomic<int> signals = 0;
        Api::InitDbusConnection();
        Api::SignalSubscribe([] { ++signals; });
        std::thread([this] {
            for (;;) {
                service.Emit("InvokeSignalHandler");
            }
        }).detach();
        std::thread([] { IterateUntil([] { return false; }); }).detach();
        while (signals < 100) {
            std::this_thread::yield();
        }
        exit(0);
    };
    EXPECT_EXIT(endAmidSignals(), testing::ExitedWithCode(0), "");
}

TEST_F(Bus, EndsTheProcessWhenItGoesAwayAsGLibDoesUnlessToldOtherwise)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // GIO's thread does not survive a fork
    EXPECT_EXIT(
        {
            Api::InitDbusConnection();
            bus.Stop();
            IterateUntil([] { return false; });
        },
        testing::KilledBySignal(SIGTERM), "");
}

} // namespace
