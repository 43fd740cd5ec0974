// SPDX-License-Identifier: MIT
//
// What several threads see: the first connection, and registrations that change while a signal is
// handled. GIO, the platform log and the trace library's logger are played here.
#include "ZAVServiceAPI.h"
#include "ZAVServiceBridgeAPI.h"
#include "dlog.h"
#include "lumo.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <latch>
#include <stdexcept>
#include <thread>

using Api = ZAVServiceAPI;

namespace
{

std::atomic<int> subscribed = 0, published = 0, alive = 0; // alive: connections and proxies
std::function<GDBusProxy*()> onProxy;
std::function<void()> onSubscribe, onRecord;
std::function<void(const char* format)> onLine;

template <class T>
T* Made()
{
    ++alive;
    auto* object = static_cast<GObject*>(g_object_new(G_TYPE_OBJECT, nullptr));
    g_object_weak_ref(
        object, [](gpointer, GObject*) { --alive; }, nullptr);
    return reinterpret_cast<T*>(object);
}

template <class Hook, class... Arguments>
void Call(const Hook& hook, Arguments... arguments)
{
    if (hook) {
        hook(arguments...);
    }
}

} // namespace

GDBusConnection* g_bus_get_sync(GBusType, GCancellable*, GError**)
{
    return Made<GDBusConnection>();
}

GDBusProxy* g_dbus_proxy_new_sync(GDBusConnection*, GDBusProxyFlags, GDBusInterfaceInfo*,
                                  const gchar*, const gchar*, const gchar*, GCancellable*, GError**)
{
    return onProxy();
}

guint g_dbus_connection_signal_subscribe(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                         const gchar*, const gchar*, GDBusSignalFlags,
                                         GDBusSignalCallback, gpointer, GDestroyNotify)
{
    Call(onSubscribe);
    return static_cast<guint>(++subscribed);
}

GVariant* g_dbus_proxy_call_sync(GDBusProxy*, const gchar*, GVariant*, GDBusCallFlags, gint,
                                 GCancellable*, GError**)
{
    return g_variant_ref_sink(g_variant_new("(i)", 7));
}

int __dlog_print(int, int, const char*, const char* format, ...)
{
    Call(onLine, format);
    return 0;
}

// The real logger may use all of the room that it has.
lumo::TCLogger::TCLogger(const TSCodeLocation&)
{
    memset(static_cast<void*>(this), 0xA5, 64);
    Call(onRecord);
}

lumo::TCLogger::~TCLogger()
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(this);
    if (std::count(bytes, bytes + 64, 0xA5) != 64) {
        std::abort();
    }
}

namespace
{

/** Runs a scenario in a process of its own: the first connection is made once. */
void InAProcess(const std::function<void()>& scenario)
{
    testing::FLAGS_gtest_death_test_style = "fast";
    const auto run = [&scenario] {
        onLine = [](const char* format) { published += strstr(format, "connection=") != nullptr; };
        scenario();
        std::exit(testing::Test::HasFailure());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

/** One connection with its proxy is there, and was published once; all else is gone. */
void ExpectOneConnection()
{
    EXPECT_NE(nullptr, Api::connection);
    EXPECT_NE(nullptr, Api::proxy);
    EXPECT_TRUE(Api::m_bDBusConnectionState);
    EXPECT_EQ(6, subscribed);
    EXPECT_EQ(2, alive) << "of connection and proxy";
    EXPECT_EQ(7, GetWooferLevel());
}

TEST(FirstConnection, IsPublishedOnceByManyThreads)
{
    InAProcess([] {
        constexpr int count = 8;
        std::latch all(count);
        onProxy = [&all] {
            all.arrive_and_wait(); // nobody finds a proxy, all make one
            return Made<GDBusProxy>();
        };
        std::vector<std::future<int>> levels;
        levels.reserve(count);
        for (int i = 0; i < count; ++i) {
            levels.push_back(std::async(std::launch::async, GetWooferLevel));
        }
        for (auto& level : levels) {
            EXPECT_EQ(7, level.get());
        }
        EXPECT_EQ(1, published) << "lines of a new connection";
        ExpectOneConnection();
    });
}

TEST(FirstConnection, IsNotTakenAwayByAnotherThreadsFailure)
{
    InAProcess([] {
        std::promise<void> entered;
        std::promise<void> go;
        std::atomic<bool> first = true;
        onProxy = [&]() -> GDBusProxy* {
            if (!first.exchange(false)) {
                return Made<GDBusProxy>();
            }
            entered.set_value();
            go.get_future().wait();
            return nullptr;
        };
        auto failing = std::async(std::launch::async, Api::InitDbusConnection);
        entered.get_future().wait();
        EXPECT_EQ(0, Api::InitDbusConnection());
        go.set_value();
        EXPECT_EQ(-1, failing.get());
        ExpectOneConnection();
    });
}

/** Lets two threads attempt to connect at once: each has a proxy before either goes on. */
void TwoAtOnce(const std::function<void()>& attempt)
{
    std::latch both(2);
    onProxy = [&both] {
        both.arrive_and_wait();
        return Made<GDBusProxy>();
    };
    auto first = std::async(std::launch::async, attempt);
    auto second = std::async(std::launch::async, attempt);
    first.get();
    second.get();
    ExpectOneConnection();
}

TEST(FirstConnection, IsLeftToTheNextWhenTheTraceLibraryThrows)
{
    InAProcess([] {
        std::atomic<int> thrown = 0;
        onRecord = [&thrown] {
            if (published > 0 && thrown++ == 0) {
                EXPECT_EQ(nullptr, Api::connection);
                EXPECT_FALSE(Api::m_bDBusConnectionState);
                throw std::runtime_error("no room for a record");
            }
        };
        std::atomic<int> failures = 0;
        TwoAtOnce([&failures] {
            try {
                EXPECT_EQ(0, Api::InitDbusConnection());
            } catch (const std::runtime_error&) {
                ++failures;
            }
        });
        EXPECT_EQ(1, failures);
    });
}

TEST(FirstConnection, IsThereWhenTheSecondThreadGoesOn)
{
    InAProcess([] {
        std::promise<void> returned;
        // The first gives the second every opportunity to go on too early.
        onSubscribe = [went = returned.get_future().share()] {
            if (subscribed == 0) {
                went.wait_for(std::chrono::milliseconds(200));
            }
        };
        std::atomic<int> through = 0;
        TwoAtOnce([&] {
            EXPECT_EQ(0, Api::InitDbusConnection());
            EXPECT_EQ(6, subscribed);
            if (through++ == 0) {
                returned.set_value();
            }
            EXPECT_EQ(7, Api::GetWooferLevel());
        });
    });
}

// Two callbacks with three user data: what belongs together is known by its address.

int dataOfFirst[2], dataOfSecond, called, torn;
const void* lastData;

template <bool first, class... Arguments>
void Callback(Arguments... arguments)
{
    lastData = std::get<sizeof...(arguments) - 1>(std::tuple(arguments...));
    ++called;
    torn += first ? lastData != &dataOfFirst[0] && lastData != &dataOfFirst[1]
                  : lastData != &dataOfSecond;
}

/** A kind of registration, and a signal for it. */
struct Kind
{
    const char* name;
    void (*set)(bool first, void* data);
    void (*clear)();
    const char* body;
    GDBusSignalCallback handler;
};

const Kind kinds[] = {
    {"Spdif",
     [](bool first, void* data) {
         constexpr ZAVCallBack1 callbacks[] = {Callback<false>, Callback<true>};
         Api::SetSendDataToSpkViaSPDIFcb(callbacks[first], data);
     },
     [] { Api::UnSetSendDataToSpkViaSPDIFcb(); }, "([byte 1], 1)",
     Api::m_OnSendDataViaSpdifSignalCallBack},
    {"SoundMode",
     [](bool first, void* data) {
         constexpr extspk_sound_mode_changed_cb callbacks[] = {Callback<false>, Callback<true>};
         Api::ExtSpkSetSoundModeChangedCb(callbacks[first], data);
     },
     Api::ALLSignalUnSubscribe, "(3,)", Api::m_OnSoundModeChangeEvent},
    {"CommonTunnel",
     [](bool first, void* data) {
         constexpr ZavDataReceivedCallBack callbacks[] = {Callback<false>, Callback<true>};
         Api::SetDataReceivedFromCommonTunnelExternalcb(commonTunnel_external_id_e{5}, nullptr,
                                                        callbacks[first], data);
     },
     Api::ALLSignalUnSubscribe, "([byte 1], 1, 5)",
     Api::m_OnReceiveExternalDataViaCommonTunnelCallBack},
};

class Registrations : public testing::TestWithParam<Kind>
{
protected:
    /** Handles signals while two threads change the registration. @return how many */
    static int HandleWhile(const std::function<void(int round)>& change)
    {
        const Kind& kind = GetParam();
        called = torn = 0;
        std::atomic<bool> enough = false;
        std::latch writing(2);
        const auto write = [&] {
            writing.count_down();
            for (int round = 0; !enough; ++round) {
                change(round);
            }
        };
        change(0);
        auto first = std::async(std::launch::async, write);
        auto second = std::async(std::launch::async, write);
        g_autoptr(GVariant) body = g_variant_ref_sink(g_variant_new_parsed(kind.body));
        constexpr int signals = 200'000;
        writing.wait();
        for (int i = 0; i < signals; ++i) {
            kind.handler(nullptr, "", "", "", "", body, nullptr);
        }
        enough = true;
        return signals;
    }

    static void Replace(int round)
    {
        static void* const data[] = {&dataOfFirst[0], &dataOfSecond, &dataOfFirst[1],
                                     &dataOfSecond};
        GetParam().set(round % 2 == 0, data[round % 4]);
    }
};

TEST_P(Registrations, AreReplacedAsAWholeAndLoseNoSignal)
{
    EXPECT_EQ(HandleWhile(Replace), called);
    EXPECT_EQ(0, torn) << "callbacks with user data of another";
}

TEST_P(Registrations, AreClearedAsAWhole)
{
    HandleWhile([](int round) {
        Replace(round);
        GetParam().clear();
    });
    EXPECT_EQ(0, torn) << "callbacks with user data of another";
}

INSTANTIATE_TEST_SUITE_P(Of, Registrations, testing::ValuesIn(kinds),
                         [](const auto& kind) { return kind.param.name; });

TEST(Registration, IsTakenAsAWholeBeforeTheBytesAreLogged)
{
    const Kind spdif = kinds[0];
    const std::function<void()> changes[] = {
        spdif.clear,
        [&spdif] { spdif.set(false, &dataOfSecond); },
        [&spdif] {
            spdif.set(false, &dataOfSecond);
            spdif.set(true, &dataOfFirst[1]);
        },
    };
    g_autoptr(GVariant) body = g_variant_ref_sink(g_variant_new_parsed(spdif.body));
    for (const auto& change : changes) {
        called = torn = 0;
        spdif.set(true, &dataOfFirst[0]);
        onLine = [&change](const char* format) {
            if (strstr(format, "data[") != nullptr) {
                change();
            }
        };
        spdif.handler(nullptr, "", "", "", "", body, nullptr);
        onLine = nullptr;
        EXPECT_EQ(1, called);
        EXPECT_EQ(0, torn);
        EXPECT_EQ(&dataOfFirst[0], lastData);
    }
}

} // namespace
