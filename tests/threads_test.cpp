// SPDX-License-Identifier: MIT
//
// What several threads see: the first connection, and registrations that change while a signal is
// handled.
#include "Boundary.h"
#include "FakeGio.h"
#include "Recorder.h"
#include "Requests.h"

#include <atomic>
#include <future>
#include <latch>
#include <thread>

namespace
{

using requests::Api;

/**
 * What happens in a process of its own, where the first connection is made. In the end it has to be
 * one connection with its proxy; all else is gone.
 */
std::string LogOf(void (*connect)())
{
    std::string log = boundary::LogOf([connect] {
        boundary::beforeLine = nullptr; // not for several threads
        fake::reply = "(7,)";
        connect();
        EXPECT_NE(nullptr, Api::connection);
        EXPECT_NE(nullptr, Api::proxy);
        EXPECT_TRUE(Api::m_bDBusConnectionState);
        EXPECT_EQ(6U, fake::subscriptions.size());
        EXPECT_EQ(2, fake::use.objects) << "of connection and proxy";
        EXPECT_EQ(7, GetWooferLevel());
    });
    EXPECT_EQ(std::string::npos, log.find("process ends")) << log;
    return log;
}

TEST(FirstConnection, IsNotTakenAwayByAnotherThreadsFailure)
{
    LogOf([] {
        static std::promise<void> entered;
        static std::promise<void> go;
        boundary::onLine = [first = true](const std::string& line) mutable {
            if (line.starts_with("proxy") && std::exchange(first, false)) {
                entered.set_value();
                go.get_future().wait();
            }
        };
        auto failing = std::async(std::launch::async, Api::InitDbusConnection);
        entered.get_future().wait();
        EXPECT_EQ(0, Api::InitDbusConnection());
        fake::proxy = fake::Outcome::failsWithoutError;
        go.set_value();
        EXPECT_EQ(-1, failing.get());
    });
}

/** Many threads attempt to connect at once. */
void ConnectAllAtOnce()
{
    constexpr int count = 8;
    static std::latch all(count);
    boundary::onLine = [](const std::string& line) {
        if (line.starts_with("proxy")) {
            all.arrive_and_wait(); // nobody finds a proxy, all make one
        } else if (line.starts_with("subscribe")) {
            // The first gives the others every opportunity to go on too early.
            EXPECT_EQ(nullptr, Api::proxy); // whoever sees it goes on
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
        }
    };
    std::vector<std::future<void>> threads;
    for (int i = 0; i < count; ++i) {
        threads.push_back(std::async(std::launch::async, [] {
            EXPECT_EQ(0, InitDbusConnection());
            EXPECT_EQ(6U, fake::subscriptions.size());
        }));
    }
    threads.clear(); // waits for all
}

TEST(FirstConnection, IsPublishedOnceByManyThreadsAndThereWhenAnyGoesOn)
{
    const std::string log = LogOf(ConnectAllAtOnce);
    const size_t line = log.find("connection=");
    EXPECT_NE(std::string::npos, line) << log;
    EXPECT_EQ(std::string::npos, log.find("connection=", line + 1)) << log;
}

// Two sets of callbacks, each with user data of its own: what belongs together is known by its
// address.

int dataOf[2];
int called;
const char* torn = "";

template <int which, class... Arguments>
void Callback(Arguments... arguments)
{
    const void* data = std::get<sizeof...(arguments) - 1>(std::tuple(arguments...));
    torn = data == &dataOf[which] ? torn : __PRETTY_FUNCTION__;
    ++called;
}

template <int which>
void Register()
{
    Api::SetSendDataToSpkViaSPDIFcb(Callback<which>, &dataOf[which]);
    Api::ExtSpkSetSoundModeChangedCb(Callback<which>, &dataOf[which]);
    Api::SetDataReceivedFromCommonTunnelExternalcb(commonTunnel_external_id_e{5}, nullptr,
                                                   Callback<which>, &dataOf[which]);
}

/** Has each of the three called so often. @return how often they were */
int Emit(int signals)
{
    g_autoptr(GVariant) spdif = g_variant_ref_sink(g_variant_new_parsed("([byte 1], 1)"));
    g_autoptr(GVariant) mode = g_variant_ref_sink(g_variant_new_parsed("(3,)"));
    g_autoptr(GVariant) tunnel = g_variant_ref_sink(g_variant_new_parsed("([byte 1], 1, 5)"));
    called = 0;
    for (int i = 0; i < signals; ++i) {
        Api::m_OnSendDataViaSpdifSignalCallBack(nullptr, "", "", "", "", spdif, nullptr);
        Api::m_OnSoundModeChangeEvent(nullptr, "", "", "", "", mode, nullptr);
        Api::m_OnReceiveExternalDataViaCommonTunnelCallBack(nullptr, "", "", "", "", tunnel,
                                                            nullptr);
    }
    EXPECT_STREQ("", torn) << "with user data of another";
    return called;
}

constexpr int kSignals = 200'000; // of each kind

/** Handles signals while two threads change the registrations. */
int EmitWhile(const std::function<void()>& change)
{
    std::atomic<bool> enough = false;
    std::latch writing(2);
    const auto write = [&] {
        change();
        writing.count_down();
        while (!enough) {
            change();
        }
    };
    auto first = std::async(std::launch::async, write);
    auto second = std::async(std::launch::async, write);
    writing.wait();
    const int calls = Emit(kSignals);
    enough = true;
    return calls;
}

void Replace()
{
    Register<0>();
    Register<1>();
}

TEST(Registrations, AreReplacedAndClearedAsAWholeAndReplacingLosesNoSignal)
{
    boundary::kept = false;
    EXPECT_EQ(3 * kSignals, EmitWhile(Replace));
    EmitWhile([] {
        Replace();
        Api::UnSetSendDataToSpkViaSPDIFcb();
        Api::ALLSignalUnSubscribe();
    });
}

TEST(Registrations, AreTakenAsAWholeBeforeTheBytesAreLogged)
{
    Register<0>();
    boundary::kept = true;
    recorder::onRecord = [](const std::string& message) {
        if (message.starts_with("data[")) {
            Api::UnSetSendDataToSpkViaSPDIFcb();
        }
    };
    EXPECT_EQ(3, Emit(1));
    recorder::onRecord = nullptr;
}

} // namespace
