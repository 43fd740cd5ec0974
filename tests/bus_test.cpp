// SPDX-License-Identifier: MIT
//
// The library over a real bus daemon, with the simulated service at the other end. A process
// connects to a bus once and for good: each case is run in one of its own, on a bus of its own.
#include "Boundary.h"
#include "Requests.h"

#include <atomic>
#include <csignal>
#include <filesystem>
#include <malloc.h>
#include <thread>

namespace
{

using Api = ZAVServiceAPI;

constexpr const char* kService = "org.kelmar.tv.zav";
constexpr const char* kBus = "org.freedesktop.DBus";

/** What a command prints; one that fails ends the program. */
std::string Output(const std::string& command)
{
    FILE* const pipe = popen(command.c_str(), "r");
    std::string output;
    for (int byte = 0; (byte = getc(pipe)) != EOF;) {
        output += static_cast<char>(byte);
    }
    if (pclose(pipe) != 0) {
        g_error("%s", command.c_str());
    }
    return output;
}

/** What tells the service something, quicker than zavctl under a sanitizer. */
const std::string kControl = "dbus-send --system --print-reply --dest=org.kelmar.tv.zav "
                             "/org/kelmar/tv/zav/sim org.kelmar.tv.zav.Sim.Control string:";

void Emit(const std::string& signal)
{
    Output(kControl + "'emit " + signal + "'");
}

/** Kills who owns the name, the bus itself by its own; returns when nobody does. */
void Kill(const std::string& name)
{
    Output("while owner=$(dbus-send --system --print-reply=literal --dest=org.freedesktop.DBus / "
           "org.freedesktop.DBus.GetConnectionUnixProcessID string:" +
           name + " 2>/dev/null); do kill -KILL ${owner#*uint32} || :; done");
}

/** Starts the service again, with a state as new. */
void Restart(const std::string& options = "")
{
    Kill(kService);
    Output("zav-sim --quiet " + options + " >/dev/null & exec zavctl wait");
}

/** Tells the service of each method what becomes of its calls. */
void ControlAll(const std::string& verb, const std::string& value)
{
    std::string methods;
    for (const Request& one : requests::kAll) {
        methods += " " + one.method;
    }
    Output("for method in" + methods + "; do " + kControl + "\"" + verb + " $method=" + value +
           "\"; done");
}

/** Serves the context, the default one or another, until the condition holds. */
template <class Condition>
void IterateUntil(const Condition& holds, GMainContext* context = nullptr)
{
    while (!holds()) {
        g_main_context_iteration(context, TRUE);
    }
}

std::atomic<int> signals; // without data, that were heard

/** Every request ends like this, and finds that the one before it has freed its turn. */
void ExpectOfAll(int Request::*end)
{
    for (const Request& one : requests::kAll) {
        EXPECT_EQ(one.*end, one.Run()) << one.name;
    }
    const std::string log = boundary::Take();
    EXPECT_FALSE(g_regex_match_simple("broken:|is busy|its record", log.c_str(),
                                      GRegexCompileFlags{}, GRegexMatchFlags{}))
        << log;
}

TEST(Bus, TellsEveryRequestWhateverBecomesOfTheServiceAndOfItself)
{
    Restart(requests::ReplyOptions());
    Api::InitDbusConnection();
    boundary::Take(); // records have only the low halves of its addresses
    ExpectOfAll(&Request::result);
    std::string calls;
    for (const Request& one : requests::kAll) {
        calls += one.method + " " + one.sent + "\n";
    }
    EXPECT_EQ(calls, Output("zavctl sim calls | sed 's/ :[0-9.]*$//'"));
    ControlAll("reply", "'text'");
    ExpectOfAll(&Request::mistyped);
    ControlAll("fail", "org.freedesktop.DBus.Error.AccessDenied");
    ExpectOfAll(&Request::unanswered);
    Kill(kService);
    ExpectOfAll(&Request::unanswered);
    Restart(requests::ReplyOptions());
    IterateUntil([] { return Api::GetWooferLevel() != -1; }); // the proxy learns of it there
    ExpectOfAll(&Request::result);
    g_dbus_connection_set_exit_on_close(Api::connection, FALSE);
    Kill(kBus);
    ExpectOfAll(&Request::unanswered);
}

TEST(Bus, NeverHasTwoRequestsOfAProgramOnTheWire)
{
    Api::InitDbusConnection();
    Output("zavctl sim delay GetMode=10"); // time enough for another to arrive
    std::atomic<int> answered = 0;
    std::atomic<int> refused = 0;
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 5; ++round) {
                const AudioEffect mode = Api::GetMode();
                answered += mode == AUDIO_EFFECT_STANDARD ? 1 : 0;
                refused += mode == AUDIO_EFFECT_NONE ? 1 : 0;
            }
        });
    }
    threads.clear(); // waits for all
    EXPECT_EQ("\"peak-open\":1\n",
              Output("zavctl sim calls --json | grep -o '\"peak-open\":[0-9]*'"));
    EXPECT_EQ(std::to_string(answered) + "\n", Output("zavctl sim calls | wc -l"));
    EXPECT_EQ(8 * 5, answered + refused);
    const std::string log = boundary::Take();
    EXPECT_EQ(std::string::npos, log.find("broken:")) << log;
}

TEST(Bus, KeepsSignalsForTheContextOfTheThreadThatConnected)
{
    std::thread([] {
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
        for (int mode = 0; mode < 20; ++mode) {
            if (mode == 10) { // the next service is heard as well
                Restart();
            }
            sent.push_back(mode);
            Emit("SetCbSoundModeChange=" + std::to_string(mode));
        }
        EXPECT_TRUE(heard.empty());
        IterateUntil([&sent] { return heard.size() == sent.size(); }, context);
        EXPECT_EQ(sent, heard);
        EXPECT_EQ(std::this_thread::get_id(), calledOn);
        g_main_context_pop_thread_default(context);
    }).join();
}

/** Requests from one thread while the service is killed and started again so often. */
void AskWhileTheServiceComesAndGoes(int times)
{
    std::atomic<bool> enough = false;
    std::thread asking([&enough] {
        while (!enough) {
            for (const Request& one : requests::kAll) {
                const int end = one.Run();
                EXPECT_TRUE(end == one.result || end == one.unanswered) << one.name << ": " << end;
            }
        }
    });
    for (int i = 0; i < times; ++i) {
        Restart(requests::ReplyOptions());
        const int heard = signals;
        Emit("InvokeSignalHandler=()");
        IterateUntil([heard] { return signals > heard; });
    }
    enough = true;
    asking.join();
}

TEST(Bus, LeavesNothingOfServicesThatComeAndGo)
{
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    boundary::kept = false;
    Restart(requests::ReplyOptions());
    Api::InitDbusConnection();
    Api::SignalSubscribe([] { ++signals; });
    AskWhileTheServiceComesAndGoes(2);
    const auto opened = descriptors();
    const size_t taken = mallinfo2().uordblks;
    const char* const soak = getenv("ZAV_SOAK"); // so many services, for as long as you like
    const int services = soak != nullptr ? std::stoi(soak) : 10;
    AskWhileTheServiceComesAndGoes(services);
    EXPECT_GT(opened + services, descriptors());
    EXPECT_GT(taken + 1'000'000, mallinfo2().uordblks);
}

TEST(Bus, HasAServiceThatForgetsTheOldestCalls)
{
    for (int i = 0; i < 1003; ++i) {
        GetWooferLevel();
    }
    EXPECT_EQ("1000\n", Output("zavctl sim calls | grep -c GetWooferLevel"));
    EXPECT_EQ("\"dropped\":3\n", Output("zavctl sim calls --json | grep -o '\"dropped\":[0-9]*'"));
}

/** For a process that ends; GIO's thread does not survive a fork, and is not there before. */
std::string EndOf(void (*play)())
{
    return boundary::LogOf([play] {
        boundary::kept = false;
        play();
    });
}

TEST(Bus, LetsAProgramEndWhileSignalsArrive)
{
    EXPECT_EQ("", EndOf([] {
                  Api::InitDbusConnection();
                  Api::SignalSubscribe([] { ++signals; });
                  std::thread([] {
                      for (;;) {
                          g_dbus_connection_emit_signal(Api::connection, nullptr,
                                                        "/org/kelmar/tv/zav", kService,
                                                        "InvokeSignalHandler", nullptr, nullptr);
                      }
                  }).detach();
                  std::thread([] { IterateUntil([] { return false; }); }).detach();
                  while (signals < 100) {
                      std::this_thread::yield();
                  }
              }));
}

TEST(Bus, EndsTheProcessWhenItGoesAwayAsGLibDoesUnlessToldOtherwise)
{
    EXPECT_EQ("= the process ends by signal " + std::to_string(SIGTERM) + "\n", EndOf([] {
                  Api::InitDbusConnection();
                  Kill(kBus);
                  IterateUntil([] { return false; });
              }));
}

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (getenv("ZAV_SIM_LOG") != nullptr || GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    setenv("PATH", (ZAV_PROGRAMS ":" + std::string(getenv("PATH"))).c_str(), 1);
    setenv("ZAV_SIM_OPTIONS", "--quiet", 1);
    int failed = 0;
    const testing::TestSuite& all = *testing::UnitTest::GetInstance()->GetTestSuite(0);
    for (int i = 0; i < all.total_test_count(); ++i) {
        const std::string name = std::string("Bus.") + all.GetTestInfo(i)->name();
        if (GTEST_FLAG_GET(filter) == "*" || GTEST_FLAG_GET(filter) == name) {
            failed += std::system((ZAV_WITH_BUS " bus_test --gtest_filter=" + name).c_str()) != 0;
        }
    }
    return failed;
}
