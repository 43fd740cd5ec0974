// SPDX-License-Identifier: MIT
/**
 * @file steps.cpp
 * steps STEP COUNT: does one thing COUNT times, to be counted from outside; prints how often memory
 * was allocated meanwhile. What it does once, before and after, is the same for every count: the
 * difference of two counts is the step alone.
 */
#include "LogPoint.h"
#include "ZAVServiceBridgeAPI.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gio/gio.h>
#include <string_view>

namespace
{

std::atomic<unsigned long> allocations{0};

} // namespace

// Counted in front of the C library's, for every thread and library of the process.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

void* malloc(size_t size) noexcept
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) noexcept
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) noexcept
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(block, size);
}
}

namespace
{

constexpr const char* kService = "org.kelmar.tv.zav";
constexpr const char* kPath = "/org/kelmar/tv/zav";
constexpr size_t kSpeakers = 50;

std::array<SCLSpkInfo, kSpeakers> speakers;
GDBusConnection* connection = nullptr;
GDBusProxy* proxy = nullptr;

void Check(bool right, const char* what)
{
    if (!right) {
        std::fprintf(stderr, "steps: %s\n", what);
        std::exit(1);
    }
}

void Nothing() {}

// What the library does, and the same by hand on the same GIO.

void Connect()
{
    Check(InitDbusConnection() == 0, "not connected");
}

void ConnectByHand()
{
    connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    Check(connection != nullptr, "no bus");
    proxy = g_dbus_proxy_new_sync(connection, G_DBUS_PROXY_FLAGS_NONE, nullptr, kService, kPath,
                                  kService, nullptr, nullptr);
    Check(proxy != nullptr, "no proxy");
}

/** Subscriptions are sent without waiting: a process that ends at once would not have sent them. */
void ConnectAndSend()
{
    Connect();
    g_dbus_connection_flush_sync(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr), nullptr,
                                 nullptr);
}

void ConnectAndSendByHand()
{
    ConnectByHand();
    g_dbus_connection_flush_sync(connection, nullptr, nullptr);
}

GVariant* CallByHand(const char* method)
{
    GVariant* reply = g_dbus_proxy_call_sync(proxy, method, nullptr, G_DBUS_CALL_FLAGS_NONE, 5000,
                                             nullptr, nullptr);
    Check(reply != nullptr, "no reply");
    return reply;
}

void Request()
{
    Check(GetWooferLevel() >= 0, "no woofer level");
}

void RequestByHand()
{
    int level = -1;
    g_autoptr(GVariant) reply = CallByHand("GetWooferLevel");
    g_variant_get(reply, "(i)", &level);
    Check(level >= 0, "no woofer level");
}

void List()
{
    Check(GetSCL(speakers.data()) == kSpeakers, "not 50 speakers");
}

void ListByHand()
{
    g_autoptr(GVariant) reply = CallByHand("GetSCL");
    g_autoptr(GVariant) bytes = g_variant_get_child_value(reply, 0);
    gsize size = 0;
    const void* records = g_variant_get_fixed_array(bytes, &size, 1);
    Check(size == sizeof speakers, "not 50 speakers");
    std::memcpy(speakers.data(), records, size);
}

// A log point for each list of arguments. The arguments are read anew each time, as a request's
// are.

const char* volatile text = "SID_STANDARD_KR_SOUND";
volatile int number = 5;

void PointNone()
{
    LOG_POINT(DLOG_INFO, "Returned from ZAVService...");
}

void PointInt()
{
    LOG_POINT(DLOG_INFO, "IntDataReceived: %d from ZAVService", static_cast<int>(number));
}

void PointTextInt()
{
    LOG_POINT(DLOG_INFO, "SID = %s, MODE: %d", static_cast<const char*>(text),
              static_cast<int>(number));
}

struct Step
{
    std::string_view name;
    void (*once)();
    void (*before)() = Nothing;
};

constexpr Step kSteps[] = {
    {"nothing", Nothing},
    {"connect", ConnectAndSend},
    {"connect-by-hand", ConnectAndSendByHand},
    {"request", Request, Connect},
    {"request-by-hand", RequestByHand, ConnectByHand},
    {"list", List, Connect},
    {"list-by-hand", ListByHand, ConnectByHand},
    {"point-none", PointNone},
    {"point-int", PointInt},
    {"point-text-int", PointTextInt},
};

void Run(const Step& step, long count)
{
    step.before();
    const unsigned long before = allocations;
    for (long i = 0; i < count; ++i) {
        step.once();
    }
    std::printf("%lu\n", allocations - before);
}

} // namespace

int main(int argc, char** argv)
{
    for (const Step& step : kSteps) {
        if (argc == 3 && step.name == argv[1]) {
            Run(step, std::strtol(argv[2], nullptr, 10));
            return 0;
        }
    }
    std::fputs("usage: steps STEP COUNT\n", stderr);
    return 2;
}
