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

/** Many threads attempt to connect at once. @return how many get an exception */
int ConnectAllAtOnce()
{
    constexpr int count = 8;
    std::latch all(count);
    onProxy = [&all] {
        all.arrive_and_wait(); // nobody finds a proxy, all make one
        return Made<GDBusProxy>();
    };
    // The first gives the others every opportunity to go on too early.
    onSubscribe = [] {
        EXPECT_EQ(nullptr, Api::proxy); // whoever sees it goes on
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
    };
    std::vector<std::future<void>> threads;
    threads.reserve(count);
    for (int i = 0; i < count; ++i) {
        threads.push_back(std::async(std::launch::async, [] {
            EXPECT_EQ(0, InitDbusConnection());
            EXPECT_EQ(6, subscribed);
            EXPECT_EQ(7, GetWooferLevel());
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
    ExpectOneConnection();
    return exceptions;
}

TEST(FirstConnection, IsPublishedOnceByManyThreadsAndThereWhenAnyGoesOn)
{
    InAProcess([] {
        EXPECT_EQ(0, ConnectAllAtOnce());
        EXPECT_EQ(1, published) << "lines of a new connection";
    });
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
        EXPECT_EQ(1, ConnectAllAtOnce());
    });
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
    onLine = [](const char* format) {
        if (strstr(format, "data[") != nullptr) {
            spdif.clear();
        }
    };
    Emit(spdif, 1);
    onLine = nullptr;
    EXPECT_EQ(1, calledOf[0]);
}

} // namespace
