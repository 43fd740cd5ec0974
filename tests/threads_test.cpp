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
#include <stdexcept>
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
    return boundary::LogOf([connect] {
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
}

TEST(FirstConnection, IsNotTakenAwayByAnotherThreadsFailure)
{
    const std::string log = LogOf([] {
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
    EXPECT_EQ(std::string::npos, log.find("process ends")) << log;
}

/** Many threads attempt to connect at once. @return how many get an exception */
int ConnectAllAtOnce()
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
    int exceptions = 0;
    for (auto& thread : threads) {
        try {
            thread.get();
        } catch (const std::runtime_error&) {
            ++exceptions;
        }
    }
    return exceptions;
}

TEST(FirstConnection, IsPublishedOnceByManyThreadsAndThereWhenAnyGoesOn)
{
    const std::string log = LogOf([] { EXPECT_EQ(0, ConnectAllAtOnce()); });
    const size_t line = log.find("connection=");
    EXPECT_NE(std::string::npos, line) << log;
    EXPECT_EQ(std::string::npos, log.find("connection=", line + 1)) << log;
    EXPECT_EQ(std::string::npos, log.find("process ends")) << log;
}

TEST(FirstConnection, IsLeftToTheNextWhenTheTraceLibraryThrows)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the checker's own guard of a static variable does not always wake who waits "
                    "for it when its initialization has thrown";
#endif
    const std::string log = LogOf([] {
        static std::atomic<bool> thrown = false;
        recorder::onRecord = [](const std::string& message) {
            if (message.starts_with("connection=") && !thrown.exchange(true)) {
                EXPECT_EQ(nullptr, Api::connection);
                EXPECT_FALSE(Api::m_bDBusConnectionState);
                throw std::runtime_error("no room for a record");
            }
        };
        EXPECT_EQ(1, ConnectAllAtOnce());
    });
    EXPECT_EQ(std::string::npos, log.find("process ends")) << log;
}

// Two callbacks with user data of their own: what belongs together is known by its address.

int dataOf[2], calledOf[2], torn;

template <int which, class... Arguments>
void Callback(Arguments... arguments)
{
    const void* data = std::get<sizeof...(arguments) - 1>(std::tuple(arguments...));
    ++calledOf[which];
    torn += data != &dataOf[which] ? 1 : 0;
}

/** A kind of registration, and a signal for it. */
struct Kind
{
    void (*set)(int which);
    void (*clear)();
    const char* body;
    GDBusSignalCallback handler;
};

const Kind spdif = {[](int which) {
                        constexpr ZAVCallBack1 callbacks[] = {Callback<0>, Callback<1>};
                        Api::SetSendDataToSpkViaSPDIFcb(callbacks[which], &dataOf[which]);
                    },
                    [] { Api::UnSetSendDataToSpkViaSPDIFcb(); }, "([byte 1], 1)",
                    Api::m_OnSendDataViaSpdifSignalCallBack};

const Kind soundMode = {
    [](int which) {
        constexpr extspk_sound_mode_changed_cb callbacks[] = {Callback<0>, Callback<1>};
        Api::ExtSpkSetSoundModeChangedCb(callbacks[which], &dataOf[which]);
    },
    Api::ALLSignalUnSubscribe, "(3,)", Api::m_OnSoundModeChangeEvent};

const Kind tunnel = {[](int which) {
                         constexpr ZavDataReceivedCallBack callbacks[] = {Callback<0>, Callback<1>};
                         Api::SetDataReceivedFromCommonTunnelExternalcb(
                             commonTunnel_external_id_e{5}, nullptr, callbacks[which],
                             &dataOf[which]);
                     },
                     Api::ALLSignalUnSubscribe, "([byte 1], 1, 5)",
                     Api::m_OnReceiveExternalDataViaCommonTunnelCallBack};

void Emit(const Kind& kind, int signals)
{
    g_autoptr(GVariant) body = g_variant_ref_sink(g_variant_new_parsed(kind.body));
    calledOf[0] = calledOf[1] = torn = 0;
    for (int i = 0; i < signals; ++i) {
        kind.handler(nullptr, "", "", "", "", body, nullptr);
    }
    EXPECT_EQ(0, torn) << "callbacks with user data of another";
}

constexpr int kSignals = 200'000;

/** Handles signals while two threads change the registration. */
void EmitWhile(const Kind& kind, const std::function<void()>& change)
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
    Emit(kind, kSignals);
    enough = true;
}

class Registrations : public testing::TestWithParam<Kind>
{
};

TEST_P(Registrations, AreReplacedAndClearedAsAWholeAndReplacingLosesNoSignal)
{
    const Kind& kind = GetParam();
    boundary::kept = false;
    const auto replace = [&kind] {
        kind.set(0);
        kind.set(1);
    };
    EmitWhile(kind, replace);
    EXPECT_EQ(kSignals, calledOf[0] + calledOf[1]);
    EmitWhile(kind, [&] {
        replace();
        kind.clear();
    });
}

INSTANTIATE_TEST_SUITE_P(Of, Registrations, testing::Values(spdif, soundMode, tunnel));

TEST(Registration, IsTakenAsAWholeBeforeTheBytesAreLogged)
{
    spdif.set(0);
    boundary::kept = true;
    recorder::onRecord = [](const std::string& message) {
        if (message.starts_with("data[")) {
            spdif.clear();
        }
    };
    Emit(spdif, 1);
    recorder::onRecord = nullptr;
    EXPECT_EQ(1, calledOf[0]);
}

} // namespace
