// SPDX-License-Identifier: MIT
//
// The verbs that wait: for the service, and for its events.
#include "Request.h"
#include "Scalars.h"
#include "Verbs.h"
#include "ZAVServiceAPI.h"

#include <algorithm>
#include <cstring>
#include <glib-unix.h>

namespace cli
{

namespace
{

using Api = ZAVServiceAPI;

/** Where the events of one `zavctl monitor` go; some callbacks know no user data. */
struct
{
    bool json;
    int count;
    bool ended;
} monitor;

void Show(const char* event, const json& data, const Row& words)
{
    if (monitor.json) {
        json line{{"event", event}};
        line.update(data);
        PrintJson(line);
    } else {
        Row row{event};
        row.insert(row.end(), words.begin(), words.end());
        PrintRows({row});
    }
}

/** One of the six events; ends the monitor with the last that was asked for. */
void ShowEvent(const char* event, const json& data = json::object(), const Row& words = {})
{
    Show(event, data, words);
    monitor.ended = monitor.ended || --monitor.count == 0;
}

Row Hex(const unsigned char* bytes, size_t count)
{
    Row words;
    for (size_t i = 0; i < count; ++i) {
        g_autofree char* text = g_strdup_printf("%02x", bytes[i]);
        words.emplace_back(text);
    }
    return words;
}

json Numbers(const unsigned char* bytes, size_t count)
{
    return std::vector<int>(bytes, bytes + count);
}

void OnDevice()
{
    ShowEvent("device-connected");
}

void OnNoDevice()
{
    ShowEvent("device-disconnected");
}

void OnSpdif(const void* data, void* /*user*/)
{
    // How many bytes there are is not told; the library has logged each.
    const auto count = static_cast<size_t>(std::ranges::count_if(
        logged, [](const std::string& line) { return line.find("> data[") != std::string::npos; }));
    const auto* bytes = static_cast<const unsigned char*>(data);
    ShowEvent("spdif", {{"data", Numbers(bytes, count)}}, Hex(bytes, count));
    logged.clear();
}

void OnMode(int mode, void* /*user*/)
{
    const int number = mode + AUDIO_EFFECT_STANDARD; // the service counts from 0
    ShowEvent("mode", {{"mode", number}, {"mode-name", ModeName(number)}}, {ModeText(number)});
}

void OnTunnelStatus(int connected, char* text, void* /*user*/)
{
    constexpr size_t length = 18;
    const std::string shown(text, strnlen(text, length));
    ShowEvent("tunnel-status", {{"connected", connected != 0}, {"text", shown}},
              {connected != 0 ? "connected" : "disconnected", shown});
}

void OnTunnelData(unsigned char* data, int length, void* /*user*/)
{
    const auto count = static_cast<size_t>(length);
    ShowEvent("tunnel-data", {{"data", Numbers(data, count)}}, Hex(data, count));
}

void OnManagedEvent(int event, void* data, int length)
{
    const unsigned char* bytes = nullptr; // the data begin with the address of the bytes
    memcpy(&bytes, data, sizeof bytes);
    const auto count = static_cast<size_t>(length);
    Row words = Hex(bytes, count);
    words.insert(words.begin(), std::to_string(event));
    ShowEvent("managed", {{"number", event}, {"data", Numbers(bytes, count)}}, words);
}

void Listen(const Options& options)
{
    Api::SignalSubscribe(OnDevice);
    Api::DisconnectSignalSubscribe(OnNoDevice);
    Api::SetSendDataToSpkViaSPDIFcb(OnSpdif, nullptr);
    Api::ExtSpkSetSoundModeChangedCb(OnMode, nullptr);
    Api::SetDataReceivedFromCommonTunnelExternalcb(
        static_cast<commonTunnel_external_id_e>(options.id), OnTunnelStatus, OnTunnelData,
        &monitor);
    Api::SubscribeZAVCSharpCallback(OnManagedEvent);
}

gboolean SetFlag(gpointer flag)
{
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_CONTINUE;
}

gboolean WakeUp(gpointer /*data*/)
{
    return G_SOURCE_CONTINUE;
}

/** Dispatches what comes next. @throws Failure when nothing can come any more */
void Iterate()
{
    g_main_context_iteration(nullptr, TRUE);
    if (g_dbus_connection_is_closed(Bus()) != FALSE) {
        throw Failure(Cause::noBus, "the system bus has gone");
    }
}

guint Milliseconds(double seconds)
{
    return static_cast<guint>(std::min(seconds * 1000, double{G_MAXINT}));
}

/** Whether the service answers, now, that it is ready. */
bool IsReady()
{
    int ready = 0;
    try {
        Request([&ready] { ready = Api::IsZAVReady(); });
    } catch (const Failure& failure) {
        if (failure.cause == Cause::noBus || failure.cause == Cause::denied) {
            throw;
        }
    }
    return ready > 0;
}

} // namespace

int Monitor(const Options& options)
{
    monitor = {options.json, options.count, false};
    bool late = false;
    g_unix_signal_add(SIGINT, SetFlag, &monitor.ended);
    g_unix_signal_add(SIGTERM, SetFlag, &monitor.ended);
    Connect();
    Listen(options);
    g_bus_watch_name_on_connection(
        Bus(), kService, G_BUS_NAME_WATCHER_FLAGS_NONE,
        [](GDBusConnection*, const char*, const char*, gpointer) {
            Show("service", {{"running", true}}, {"running"});
        },
        [](GDBusConnection* bus, const char*, gpointer) {
            if (bus != nullptr) { // as long as there is one
                Show("service", {{"running", false}}, {"stopped"});
            }
        },
        nullptr, nullptr);
    if (options.seconds > 0) {
        g_timeout_add(Milliseconds(options.seconds), SetFlag, &late);
    }
    while (!monitor.ended && !late) {
        Iterate();
        logged.clear(); // this may go on for long
    }
    if (options.count > 0 && monitor.count > 0 && late) {
        throw Failure(Cause::noAnswer, "fewer events came in time than were asked for");
    }
    return 0;
}

int WaitForService(const Options& options)
{
    bool owned = false;
    bool late = false;
    g_bus_watch_name_on_connection(
        Bus(), kService, G_BUS_NAME_WATCHER_FLAGS_NONE,
        [](GDBusConnection*, const char*, const char*, gpointer flag) {
            *static_cast<bool*>(flag) = true;
        },
        [](GDBusConnection*, const char*, gpointer flag) { *static_cast<bool*>(flag) = false; },
        &owned, nullptr);
    g_timeout_add(Milliseconds(options.timeout), SetFlag, &late);
    g_timeout_add(100, WakeUp, nullptr); // to ask again
    // The library would start a service that is not there: it is asked only while there is one.
    while (!owned || (options.flag && !IsReady())) {
        if (late) {
            throw owned ? Failure(Cause::noAnswer, "ZAVService was not ready in time")
                        : Failure(Cause::notRunning, "ZAVService did not come up in time");
        }
        Iterate();
    }
    Print(options.json, {{"running", true}}, {});
    return 0;
}

} // namespace cli
