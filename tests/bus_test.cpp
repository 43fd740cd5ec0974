// SPDX-License-Identifier: MIT
//
// The library over a real bus daemon, with the simulated service at the other end.
#include "Boundary.h"
#include "PrivateBus.h"
#include "Requests.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace
{

using Api = ZAVServiceAPI;
using Lines = std::vector<std::string>;

Lines heard;
std::atomic<bool> hurried = false; // requests that wait for their turn do not sleep

class Bus : public testing::Test
{
protected:
    /** The calls that reached the service, as "Method (arguments)". */
    Lines Received()
    {
        Lines lines;
        for (const Simulator::Call& call : service.Calls()) {
            lines.push_back(call.method + " " + call.arguments);
        }
        service.ClearCalls();
        return lines;
    }

    PrivateBus bus;
    Simulator service{bus};
};

TEST_F(Bus, IsReachedAsSoonAsItIsThere)
{
    bus.Stop();
    EXPECT_EQ(-1, Api::InitDbusConnection());
    EXPECT_NE(std::string::npos,
              boundary::Take().find("6 InitDbusConnection > Bus get sync failed: "));
    bus.Start();
    EXPECT_EQ(0, Api::InitDbusConnection());
}

TEST_F(Bus, IsListenedToOnceHoweverManyThreadsConnect)
{
    for (int round = 0; round < 10; ++round) {
        const Ended ended = RunProgram({ZAV_FIRST_CONNECTION, bus.Address()});
        ASSERT_EQ("2\n", ended.out) << "signals heard of 2, in round " << round;
        service.Reset();
    }
}

/** Every request ends like this, and finds that the one before it has freed its turn. */
void ExpectOfAll(int Request::*end)
{
    for (const Request& one : requests::kAll) {
        EXPECT_EQ(one.*end, one.run()) << one.name;
        const std::string log = boundary::Take();
        EXPECT_FALSE(g_regex_match_simple("broken:|is busy|its record", log.c_str(),
                                          GRegexCompileFlags{}, GRegexMatchFlags{}))
            << log;
        EXPECT_EQ(end == &Request::unanswered && !one.reply.empty(),
                  log.find("The integer packet received from ZAVService is NULL") != log.npos)
            << log;
    }
}

TEST_F(Bus, TellsEveryRequestWhateverBecomesOfTheServiceAndOfItself)
{
    const auto Answer = [this] {
        for (const Request& one : requests::kAll) {
            if (!one.reply.empty()) {
                service.SetReply(one.method, one.reply);
            }
        }
    };
    Api::InitDbusConnection();
    boundary::Take();
    Answer();
    ExpectOfAll(&Request::result);
    Lines sent;
    for (const Request& one : requests::kAll) {
        sent.push_back(one.method + " " + one.sent);
    }
    EXPECT_EQ(sent, Received());
    for (const Request& one : requests::kAll) {
        service.SetReply(one.method, "'text'");
    }
    ExpectOfAll(&Request::mistyped);
    for (const Request& one : requests::kAll) {
        service.SetFailure(one.method, "org.freedesktop.DBus.Error.AccessDenied");
    }
    ExpectOfAll(&Request::unanswered);
    service.Stop();
    ExpectOfAll(&Request::unanswered);
    service.Start();
    Answer();
    IterateUntil([] { return Api::GetWooferLevel() != -1; }); // the proxy learns of it there
    boundary::Take();
    ExpectOfAll(&Request::result);
    g_dbus_connection_set_exit_on_close(Api::connection, FALSE);
    bus.Stop();
    ExpectOfAll(&Request::unanswered);
}

TEST_F(Bus, KeepsSignalsForAProgramThatDoesNotListenYet)
{
    Api::InitDbusConnection();
    Api::ExtSpkSetSoundModeChangedCb([](int mode, void*) { heard.push_back(std::to_string(mode)); },
                                     nullptr);
    Lines sent;
    for (int mode = 0; mode < 500; ++mode) {
        sent.push_back(std::to_string(mode));
        service.Emit("SetCbSoundModeChange", "(" + sent.back() + ",)");
    }
    EXPECT_EQ(AUDIO_EFFECT_STANDARD, Api::GetMode());
    EXPECT_EQ(Lines{}, heard);
    IterateUntil([&sent] { return heard.size() == sent.size(); });
    EXPECT_EQ(sent, heard);
}

TEST_F(Bus, GivesUpBehindASlowRequestAndNeverHasTwoOnTheWire)
{
    Api::InitDbusConnection();
    service.Hang("GetSpeakerSelection");
    std::atomic<int> slow = -2;
    std::thread stuck([&slow] { slow = Api::GetSpeakerSelection(); });
    while (service.Calls().empty()) {
        std::this_thread::yield();
    }
    boundary::Take();
    hurried = true; // on a busy machine a hundred sleeps outlast the slow request
    EXPECT_EQ(-1, Api::GetWooferLevel());
    hurried = false;
    const Lines log = boundary::Split(boundary::Take());
    EXPECT_EQ(102U, log.size());
    EXPECT_EQ("6 GetWooferLevel > API is busy. give up", log.back());
    service.Reset(); // answers the hanging call with an error
    stuck.join();
    EXPECT_EQ(0, slow);

    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&wrong] {
            for (int round = 0; round < 20; ++round) {
                const int mode = Api::GetMode();
                const int set = Api::SetWooferLevel(2);
                wrong += mode != AUDIO_EFFECT_STANDARD && mode != AUDIO_EFFECT_NONE ? 1 : 0;
                wrong += set != 0 && set != -1 ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, wrong);
    EXPECT_EQ(1U, service.PeakOpenCalls());
    const std::string all = boundary::Take();
    EXPECT_EQ(std::string::npos, all.find("broken:")) << all;
}

TEST_F(Bus, DeliversEverySignalAlsoAfterTheServiceWasRestarted)
{
    Api::InitDbusConnection();
    Api::SignalSubscribe([] { heard.emplace_back("signal"); });
    Api::DisconnectSignalSubscribe([] { heard.emplace_back("disconnect"); });
    Api::ExtSpkSetSoundModeChangedCb(
        [](int mode, void*) { heard.push_back("mode " + std::to_string(mode)); }, nullptr);
    Api::SetSendDataToSpkViaSPDIFcb(
        [](const void* data, void*) { heard.emplace_back(static_cast<const char*>(data)); },
        nullptr);
    Api::SetDataReceivedFromCommonTunnelExternalcb(
        commonTunnel_external_id_e{3}, nullptr,
        [](unsigned char*, int length, void*) { heard.push_back(std::to_string(length)); }, &heard);
    Api::SubscribeZAVCSharpCallback(
        [](int event, void*, int) { heard.push_back("event " + std::to_string(event)); });
    const std::array<const char*, 3> signals[] = {
        {"InvokeSignalHandler", "()", "signal"},
        {"SetCbSoundModeChange", "(5,)", "mode 5"},
        {"sendDataViaSpdif", "([byte 0x61, 0x62], 2)", "ab"},
        {"receiveExternalDataViaCommonTunnel", "([byte 0x61], 1, 3)", "1"},
        {"notifyZAVCsharpCallback", "(9, [byte 0x61, 0x62], 2)", "event 9"},
        {"DisconnectSignalHandler", "()", "disconnect"},
    };
    for (int start = 0; start < 2; ++start) {
        for (const auto& [signal, body, expected] : signals) {
            service.Emit(signal, body);
            IterateUntil([] { return !heard.empty(); });
            EXPECT_EQ(Lines{expected}, std::exchange(heard, {}));
        }
        service.Stop();
        service.Start();
        IterateUntil([] { return Api::GetMode() != AUDIO_EFFECT_NONE; });
        heard.clear();
    }
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

TEST_F(Bus, DeliversSignalsOnTheContextOfTheThreadThatConnected)
{
    std::thread events([this] {
        GMainContext* context = g_main_context_new();
        g_main_context_push_thread_default(context);
        Api::InitDbusConnection();
        static std::thread::id calledOn;
        Api::SignalSubscribe([] { calledOn = std::this_thread::get_id(); });
        service.Emit("InvokeSignalHandler");
        IterateUntil([] { return calledOn != std::thread::id(); }, context);
        EXPECT_EQ(std::this_thread::get_id(), calledOn);
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    });
    events.join();
}

} // namespace

/** In place of the C library's, whom the library asks to sleep. */
extern "C" int usleep(useconds_t microseconds)
{
    if (!hurried) {
        std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
    }
    return 0;
}
