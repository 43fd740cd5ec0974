// SPDX-License-Identifier: MIT
/** @file Work.h What the library does for an application, and the same by hand on the same GIO. */
#ifndef ZAV_BENCH_WORK_H
#define ZAV_BENCH_WORK_H

#include "ZAVServiceBridgeAPI.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gio/gio.h>

namespace work
{

constexpr const char* kService = "org.kelmar.tv.zav";
constexpr const char* kPath = "/org/kelmar/tv/zav";
constexpr size_t kSpeakers = ZAV_MAX_SPEAKERS;
constexpr int kLevels = ZAV_MAX_LEVELS;

inline std::array<SCLSpkInfo, kSpeakers> speakers;
inline std::array<int, kLevels> levels;
inline GDBusProxy* proxy = nullptr;

inline void Check(bool right, const char* what)
{
    if (!right) {
        std::fprintf(stderr, "bench: %s\n", what);
        std::exit(1);
    }
}

inline void Nothing() {}

inline void Connect()
{
    Check(InitDbusConnection() == 0, "not connected");
}

inline void ConnectByHand()
{
    GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    Check(connection != nullptr, "no bus");
    proxy = g_dbus_proxy_new_sync(connection, G_DBUS_PROXY_FLAGS_NONE, nullptr, kService, kPath,
                                  kService, nullptr, nullptr);
    Check(proxy != nullptr, "no proxy");
}

inline GVariant* CallByHand(const char* method)
{
    GVariant* reply = g_dbus_proxy_call_sync(proxy, method, nullptr, G_DBUS_CALL_FLAGS_NONE, 5000,
                                             nullptr, nullptr);
    Check(reply != nullptr, "no reply");
    return reply;
}

inline void Request()
{
    Check(GetWooferLevel() >= 0, "no woofer level");
}

inline void RequestByHand()
{
    int level = -1;
    g_autoptr(GVariant) reply = CallByHand("GetWooferLevel");
    g_variant_get(reply, "(i)", &level);
    Check(level >= 0, "no woofer level");
}

inline void Speakers()
{
    Check(GetSCL(speakers.data()) == kSpeakers, "not all speakers");
}

inline void SpeakersByHand()
{
    g_autoptr(GVariant) reply = CallByHand("GetSCL");
    g_autoptr(GVariant) bytes = g_variant_get_child_value(reply, 0);
    gsize size = 0;
    const void* records = g_variant_get_fixed_array(bytes, &size, 1);
    Check(size == sizeof speakers, "not all speakers");
    std::memcpy(speakers.data(), records, size);
}

inline void Levels()
{
    int* list = levels.data();
    int count = 0;
    GetEqualizerLevel(&list, &count);
    Check(count > 0, "no levels");
}

inline void LevelsByHand()
{
    g_autoptr(GVariant) reply = CallByHand("GetEqualizerLevel");
    g_autoptr(GVariant) values = g_variant_get_child_value(reply, 0);
    gsize size = 0;
    const void* received = g_variant_get_fixed_array(values, &size, sizeof(int));
    Check(size > 0, "no levels");
    std::memcpy(levels.data(), received, size * sizeof(int));
}

} // namespace work

#endif
