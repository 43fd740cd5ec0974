// SPDX-License-Identifier: MIT
//
// The library over a real bus daemon, with the simulated service at the other end.
#include "PrivateBus.h"
#include "Recorder.h"
#include "Requests.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

using Api = ZAVServiceAPI;
using recorder::Transcript;
using Lines = std::vector<std::string>;

Lines heard;
int userData = 0;
std::atomic<bool> hurried = false; // requests that wait for their turn do not sleep

class Bus : public testing::Test
{
protected:
    Bus() { recorder::Reset(); }

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
    const Transcript lines = recorder::Take();
    ASSERT_EQ(2U, lines.size());
    EXPECT_EQ(0U, lines[1].find("6 InitDbusConnection > Bus get sync failed: "));
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
        bool toldOfNoReply = false;
        for (const std::string& line : recorder::Take()) {
            EXPECT_NE(0U, line.find("broken:")) << line;
            EXPECT_EQ(std::string::npos, line.find("busy")) << line;
            toldOfNoReply |= line.rfind("6 ", 0) == 0 &&
                             line.find(" > The integer packet received from ZAVService is NULL") !=
                                 std::string::npos;
        }
        EXPECT_EQ(end == &Request::unanswered && !one.reply.empty(), toldOfNoReply) << one.name;
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
    Answer();
    ExpectOfAll(&Request::result);
    Lines sent;
    for (const Request& one : requests::kAll) {
        sent.push_back(one.method + " " + (one.sent == "none" ? "()" : one.sent));
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
    recorder::Take();
    ExpectOfAll(&Request::result);
    g_dbus_connection_set_exit_on_close(Api::connection, FALSE);
    bus.Stop();
    ExpectOfAll(&Request::unanswered);
}

/** Whether no other thread of this process is in the middle of anything, say with a lock held. */
bool IsAlone()
{
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string stat;
        std::getline(std::ifstream(task.path() / "stat"), stat);
        if (task.path().filename() != std::to_string(gettid()) &&
            stat.find(") S ") == std::string::npos) {
            return false;
        }
    }
    return true;
}

extern "C" void __tsan_acquire(void*) __attribute__((weak)); // there with the thread checker only

TEST_F(Bus, IsOutOfReachForAForkedChildAndStaysInReachForItsParent)
{
    if (__tsan_acquire != nullptr) {
        GTEST_SKIP() << "the thread checker does not survive the fork of a program with threads";
    }
    Api::InitDbusConnection();
    EXPECT_EQ(-3, (Api::SetWooferLevel(-3), Api::GetWooferLevel()));
    while (!IsAlone()) {
        std::this_thread::yield();
    }
    const pid_t child = fork();
    if (child == 0) { // no answer within 5 s, for nobody is there to send the request
        _exit(Api::GetWooferLevel() == -1 ? 0 : 1);
    }
    EXPECT_EQ(-3, Api::GetWooferLevel());
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ((Lines{"SetWooferLevel (-3,)", "GetWooferLevel ()", "GetWooferLevel ()"}),
              Received());
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

TEST_F(Bus, FreesTheTurnOfARequestThatIsNotAnsweredInTime)
{
    Api::InitDbusConnection();
    service.Hang("GetSpeakerSelection");
    recorder::Take();
    EXPECT_EQ(0, Api::GetSpeakerSelection()); // after the true 5 s
    EXPECT_EQ(
        (Transcript{"4 GetSpeakerSelection > Sending Integer Data to ZAVService.....",
                    "4 GetSpeakerSelection > Returned from ZAVService...",
                    "6 GetSpeakerSelection > The integer packet received from ZAVService is NULL"}),
        recorder::Take());
    EXPECT_EQ(0, Api::SetWooferLevel(1));
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
    recorder::Take();
    hurried = true; // on a busy machine a hundred sleeps outlast the slow request
    EXPECT_EQ(-1, Api::GetWooferLevel());
    hurried = false;
    const Transcript lines = recorder::Take();
    EXPECT_EQ(102U, lines.size());
    EXPECT_EQ("6 GetWooferLevel > API is busy. give up", lines.back());
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
    for (const std::string& line : recorder::Take()) {
        EXPECT_NE(0U, line.find("broken:")) << line;
    }
}

TEST_F(Bus, DeliversEverySignalAlsoAfterTheServiceWasRestarted)
{
    Api::InitDbusConnection();
    const auto heardSomething = [] { return !heard.empty(); };
    Api::SignalSubscribe([] { heard.emplace_back("signal"); });
    Api::DisconnectSignalSubscribe([] { heard.emplace_back("disconnect"); });
    Api::ExtSpkSetSoundModeChangedCb(
        [](int mode, void* user) {
            heard.push_back("mode " + std::to_string(mode) + (user == &userData ? "" : "?"));
        },
        &userData);
    Api::SetSendDataToSpkViaSPDIFcb(
        [](const void* data, void*) {
            heard.push_back("spdif " + std::string(static_cast<const char*>(data)));
        },
        nullptr);
    Api::SetDataReceivedFromCommonTunnelExternalcb(
        static_cast<commonTunnel_external_id_e>(3),
        [](int connected, char* text, void*) {
            heard.push_back("status " + std::to_string(connected) + " " + std::string(text, 18));
        },
        [](unsigned char* data, int length, void*) {
            heard.push_back(
                "data " + std::string(reinterpret_cast<char*>(data), static_cast<size_t>(length)));
        },
        &userData);
    Api::SubscribeZAVCSharpCallback([](int event, void* data, int count) {
        const char* bytes = nullptr;
        memcpy(&bytes, data, sizeof bytes);
        heard.push_back("event " + std::to_string(event) + " " +
                        std::string(bytes, static_cast<size_t>(count)));
    });
    const std::array<const char*, 3> signals[] = {
        {"InvokeSignalHandler", "()", "signal"},
        {"SetCbSoundModeChange", "(5,)", "mode 5"},
        {"sendDataViaSpdif", "([byte 0x61, 0x62], 2)", "spdif ab"},
        {"receiveExternalDataViaCommonTunnel", "([byte 0x61], 1, 3)", "data a"},
        {"notifyZAVCsharpCallback", "(9, [byte 0x61, 0x62], 2)", "event 9 ab"},
        {"DisconnectSignalHandler", "()", "disconnect"},
    };
    for (int start = 0; start < 2; ++start) {
        for (const auto& [signal, body, expected] : signals) {
            service.Emit(signal, body);
            IterateUntil(heardSomething);
            EXPECT_EQ(Lines{expected}, std::exchange(heard, {}));
        }
        service.Stop();
        service.Start();
        IterateUntil([] { return Api::GetMode() != AUDIO_EFFECT_NONE; });
        heard.clear();
    }
    EXPECT_EQ(0, Api::SetMode(AUDIO_EFFECT_NIGHT));
    IterateUntil(heardSomething);
    EXPECT_EQ(Lines{"mode 5"}, std::exchange(heard, {}));
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
