// SPDX-License-Identifier: MIT
//
// The verbs that wait: for the service, and for its events.
#include "Request.h"
#include "Verbs.h"
#include "ZAVServiceAPI.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstring>
#include <glib-unix.h>
#include <optional>
#include <string_view>
#include <unistd.h>

namespace cli
{

namespace
{

using Api = ZAVServiceAPI;

/** Of one `zavctl monitor`; some callbacks know no user data. */
struct
{
    int count = 0; // of events that are still wanted; none or less for any number
    bool ended = false;
    std::optional<Failure> failure = {}; // of a callback, which must not throw
} monitor;

void Show(const char* event, const json& data, const Row& row)
{
    json line{{"event", event}};
    line.update(data);
    try {
        Print(line, {row});
    } catch (const Failure& thrown) {
        monitor.failure = thrown;
    }
}

/** One of the six events; ends the monitor with the last that was asked for. */
void ShowEvent(const char* event, const json& data = json::object(), const Row& row = {})
{
    if (!monitor.ended) { // more may have come at the same time
        Show(event, data, row.empty() ? Values(data, {event}) : row);
        monitor.ended = --monitor.count == 0;
    }
}

json Bytes(const unsigned char* bytes, size_t count)
{
    return std::vector<int>(bytes, bytes + count);
}

void OnSpdif(const void* data, void* /*user*/)
{
    // How many bytes there are is not told; the library has logged each.
    const auto count = static_cast<size_t>(std::ranges::count(logged, Step::byte, &Line::step));
    ShowEvent("spdif", {{"data", Bytes(static_cast<const unsigned char*>(data), count)}});
    logged.clear();
}

void OnMode(int mode, void* /*user*/)
{
    ShowEvent("mode", DescribeMode(mode + AUDIO_EFFECT_STANDARD)); // the service counts from 0
}

void OnTunnelStatus(int connected, char* text, void* /*user*/)
{
    const std::string shown(text, strnlen(text, ZAV_TUNNEL_STATUS_TEXT));
    ShowEvent("tunnel-status", {{"connected", connected != 0}, {"text", shown}},
              {"tunnel-status", connected != 0 ? "connected" : "disconnected", shown});
}

void OnTunnelData(unsigned char* data, int length, void* /*user*/)
{
    ShowEvent("tunnel-data", {{"data", Bytes(data, static_cast<size_t>(length))}});
}

void OnManagedEvent(int event, void* data, int length)
{
    const unsigned char* bytes = nullptr; // the data begin with the address of the bytes
    memcpy(&bytes, data, sizeof bytes);
    ShowEvent("managed", {{"number", event}, {"data", Bytes(bytes, static_cast<size_t>(length))}});
}

void Listen(commonTunnel_external_id_e id)
{
    Api::SignalSubscribe([] { ShowEvent("device-connected"); });
    Api::DisconnectSignalSubscribe([] { ShowEvent("device-disconnected"); });
    Api::SetSendDataToSpkViaSPDIFcb(OnSpdif, nullptr);
    Api::ExtSpkSetSoundModeChangedCb(OnMode, nullptr);
    Api::SetDataReceivedFromCommonTunnelExternalcb(id, OnTunnelStatus, OnTunnelData, &monitor);
    if (!Api::SubscribeZAVCSharpCallback(OnManagedEvent)) {
        throw Failure::For(Cause::kBusy);
    }
    g_bus_watch_name_on_connection(
        Bus(), kService, G_BUS_NAME_WATCHER_FLAGS_NONE,
        [](GDBusConnection*, const char*, const char*, gpointer) {
            Show("service", {{"running", true}}, {"service", "running"});
        },
        [](GDBusConnection* bus, const char*, gpointer) {
            if (bus != nullptr) { // as long as there is one
                Show("service", {{"running", false}}, {"service", "stopped"});
            }
        },
        nullptr, nullptr);
}

/** The library ends a process that gets more than it has room for; this tells what happened. */
void OnAbort(int number)
{
    constexpr std::string_view words =
        "zavctl: a signal of ZAVService has more data than the library has room for (44 bytes, 550 "
        "of a managed event): it ends the process\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, words.data(), words.size());
    std::signal(number, SIG_DFL); // abort() goes on
}

gboolean SetFlag(gpointer flag)
{
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_CONTINUE;
}

Action Monitor(CLI::App& verb)
{
    static double seconds = 0;
    static auto id = COMMON_TUNNEL_EXTERNAL_ID_DEFAULT;
    verb.add_option("--count", monitor.count, "End after so many events")
        ->check(WholeNumber(1), "");
    verb.add_option("--for", seconds, "End after so many seconds")->check(CheckSeconds, "");
    verb.add_option("--id", id, "The external device")->type_name("INT")->capture_default_str();
    return [] {
        bool late = false;
        if (seconds > 0) {
            timeLimit = std::min(Limit(), std::max(seconds, 1.0)); // connecting takes a moment
            g_timeout_add(static_cast<guint>(std::min(seconds * 1000, double{G_MAXINT})), SetFlag,
                          &late);
        }
        Connect();
        std::signal(SIGABRT, OnAbort);
        g_unix_signal_add(SIGINT, SetFlag, &monitor.ended);
        g_unix_signal_add(SIGTERM, SetFlag, &monitor.ended);
        // Nobody reads any more.
        g_unix_fd_add(
            STDOUT_FILENO, G_IO_ERR,
            [](gint, GIOCondition, gpointer flag) { return SetFlag(flag); }, &monitor.ended);
        Listen(id);
        while (!monitor.ended && !late && !monitor.failure) {
            g_main_context_iteration(nullptr, TRUE);
            if (g_dbus_connection_is_closed(Bus()) != FALSE) {
                throw Failure::For(Cause::kNoBus, "it has gone");
            }
            logged.clear(); // this may go on for long
        }
        if (monitor.failure) {
            throw Failure(*monitor.failure);
        }
        if (late && monitor.count > 0) {
            throw Failure(Cause::kNoAnswer, "fewer events came in time than were asked for");
        }
    };
}

bool IsRunning()
{
    gboolean owned = FALSE;
    g_variant_get(AskBus("NameHasOwner").get(), "(b)", &owned);
    return owned != FALSE;
}

/** Whether the service answers, now, that it is ready. */
bool IsReady()
try {
    return Request(Api::IsZAVReady) > 0;
} catch (const Failure& failure) {
    if (abandoned) { // within what was left of the time
        throw Failure(Cause::kNoAnswer, "ZAVService did not answer in time");
    }
    if (failure.cause == Cause::kNoBus || failure.cause == Cause::kDenied) {
        throw;
    }
    return false;
}

Action WaitForService(CLI::App& verb)
{
    static bool ready = false;
    verb.add_flag("--ready", ready, "Until it answers that it is ready, too");
    verb.footer("Waits for 30 s unless --timeout says otherwise.");
    return [] {
        const double end = Now() + timeLimit.value_or(30);
        const auto isThere = [end](bool& running) {
            timeLimit = std::max(end - Now(), 1.0); // also the last look takes a moment
            running = IsRunning();
            // The library would start a service that is not there.
            return running && (!ready || IsReady());
        };
        for (bool running = false; !isThere(running); g_usleep(G_USEC_PER_SEC / 10)) {
            if (Now() >= end) {
                throw running ? Failure(Cause::kNoAnswer, "ZAVService was not ready in time")
                              : Failure(Cause::kNotRunning, "ZAVService did not come up in time");
            }
        }
        Print({{"running", true}}, {});
    };
}

} // namespace

const Verbs kWatchingVerbs = {
    {"monitor", "Print the service's events as they come", Monitor},
    {"wait", "Wait for the service, without starting it", WaitForService},
};

} // namespace cli
