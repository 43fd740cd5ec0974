// SPDX-License-Identifier: MIT
/**
 * @file times.cpp
 * How long a request and a trace record take, beside peers that do the same in the same run.
 */
#include "ZAVServiceBridgeAPI.h"
#include "lumo.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <gio/gio.h>
#ifdef WITH_SD_BUS
#include <systemd/sd-bus.h>
#endif

namespace
{

constexpr const char* kService = "org.kelmar.tv.zav";
constexpr const char* kPath = "/org/kelmar/tv/zav";

void Request(benchmark::State& state)
{
    if (InitDbusConnection() != 0) {
        state.SkipWithError("not connected");
    }
    for (auto _ : state) {
        if (GetWooferLevel() < 0) {
            state.SkipWithError("no reply");
            break;
        }
    }
}
BENCHMARK(Request)->UseRealTime();

void RequestOfGDBus(benchmark::State& state)
{
    g_autoptr(GDBusConnection) bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    g_autoptr(GDBusProxy) proxy = g_dbus_proxy_new_sync(
        bus, G_DBUS_PROXY_FLAGS_NONE, nullptr, kService, kPath, kService, nullptr, nullptr);
    for (auto _ : state) {
        g_autoptr(GVariant) reply = g_dbus_proxy_call_sync(
            proxy, "GetWooferLevel", nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
        if (reply == nullptr) {
            state.SkipWithError("no reply");
            break;
        }
        int level = 0;
        g_variant_get(reply, "(i)", &level);
        benchmark::DoNotOptimize(level);
    }
}
BENCHMARK(RequestOfGDBus)->UseRealTime();

#ifdef WITH_SD_BUS
void RequestOfSdBus(benchmark::State& state)
{
    sd_bus* bus = nullptr;
    if (sd_bus_open_system(&bus) < 0) {
        state.SkipWithError("not connected");
    }
    for (auto _ : state) {
        sd_bus_message* reply = nullptr;
        int level = 0;
        if (sd_bus_call_method(bus, kService, kPath, kService, "GetWooferLevel", nullptr, &reply,
                               "") < 0 ||
            sd_bus_message_read(reply, "i", &level) < 0) {
            state.SkipWithError("no reply");
            break;
        }
        benchmark::DoNotOptimize(level);
        sd_bus_message_unref(reply);
    }
    sd_bus_flush_close_unref(bus);
}
BENCHMARK(RequestOfSdBus)->UseRealTime();
#endif

// The store fills and does not wrap around: so many records fit into what bench/run gives it.
constexpr int kBatch = 1000;
constexpr int kBatches = 200;

void Record(benchmark::State& state)
{
    lumo::TCStorage& storage = TIStorageManager::Instance().Storage();
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i) {
            lumo::TCThreadHandle* const thread = storage.ThreadHandle();
            unsigned char* const place = storage.PrepareCallBuffer(thread, sizeof i, 1, 1);
            if (place == nullptr) {
                state.SkipWithError("the store is full, or LUMO_TRACE is not set");
                return;
            }
            std::memcpy(place, &i, sizeof i);
            storage.Commit(thread);
        }
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(Record)->Iterations(kBatches);

#ifdef WITH_LTTNG
extern "C" void LttngRecords(int count);

void RecordOfLttng(benchmark::State& state)
{
    for (auto _ : state) {
        LttngRecords(kBatch);
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(RecordOfLttng)->Iterations(kBatches);
#endif

} // namespace

BENCHMARK_MAIN();
