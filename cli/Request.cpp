// SPDX-License-Identifier: MIT
#include "Request.h"

#include "Output.h"
#include "ZAVServiceAPI.h"
#include "dlog.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <iostream>
#include <iterator>
#include <mutex>
#include <optional>
#include <utility>

namespace cli
{

thread_local std::vector<Line> logged;
bool showLog = false;

namespace
{

Cause CauseOf(const GError* error)
{
    // Made anew each time: GIO's thread may ask until the process is gone.
    const std::pair<std::pair<GQuark, int>, Cause> causes[] = {
        {{G_IO_ERROR, G_IO_ERROR_CLOSED}, Cause::kNoBus},
        {{G_IO_ERROR, G_IO_ERROR_PERMISSION_DENIED}, Cause::kDenied},
        {{G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN}, Cause::kNotRunning},
        {{G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER}, Cause::kNotRunning},
        {{G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY}, Cause::kNoAnswer},
        {{G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED}, Cause::kDenied},
        {{G_DBUS_ERROR, G_DBUS_ERROR_TIMED_OUT}, Cause::kNotStarted}, // of the start
    };
    const auto key = std::make_pair(error->domain, error->code);
    const auto* const found =
        std::ranges::find(causes, key, &std::pair<std::pair<GQuark, int>, Cause>::first);
    const bool ofStart = error->domain == G_DBUS_ERROR &&
                         error->code >= G_DBUS_ERROR_SPAWN_EXEC_FAILED &&
                         error->code <= G_DBUS_ERROR_SPAWN_NO_MEMORY;
    return found != std::end(causes) ? found->second
           : ofStart                 ? Cause::kNotStarted
                                     : Cause::kRefused;
}

Failure FailureOf(GError* error, std::optional<Cause> known = std::nullopt)
{
    const Cause cause = known.value_or(CauseOf(error));
    g_autofree char* name = g_dbus_error_get_remote_error(error);
    g_dbus_error_strip_remote_error(error);
    if (cause == Cause::kNotRunning) {
        return Failure::For(cause);
    }
    const bool named = cause == Cause::kRefused && name != nullptr;
    return Failure::For(cause, (named ? std::string(name) + ": " : "") + error->message);
}

/** A call on the bus, and how it failed. */
struct Call
{
    std::mutex mutex;
    guint32 serial = 0;
    std::optional<Failure> failure;
};

/**
 * The library's last one; it hands on no error that comes back. Never destroyed: GIO's thread looks
 * at it until the process is gone.
 */
Call& lastCall = *new Call;

/** Sees every message of the connection, on GIO's own thread. */
GDBusMessage* Watch(GDBusConnection* /*bus*/, GDBusMessage* message, gboolean incoming,
                    gpointer /*user*/)
{
    const std::lock_guard lock(lastCall.mutex);
    const GDBusMessageType type = g_dbus_message_get_message_type(message);
    const bool ofLibrary = g_strcmp0(g_dbus_message_get_interface(message), kService) == 0 ||
                           g_strcmp0(g_dbus_message_get_member(message), "StartServiceByName") == 0;
    if (incoming == FALSE && type == G_DBUS_MESSAGE_TYPE_METHOD_CALL && ofLibrary) {
        lastCall.serial = g_dbus_message_get_serial(message);
        lastCall.failure.reset();
    } else if (incoming != FALSE && type == G_DBUS_MESSAGE_TYPE_ERROR &&
               g_dbus_message_get_reply_serial(message) == lastCall.serial) {
        g_autoptr(GError) error = nullptr;
        g_dbus_message_to_gerror(message, &error);
        // Only the bus speaks of the bus: a service that answers "AccessDenied" has refused.
        const bool fromBus = g_strcmp0(g_dbus_message_get_sender(message), kBusService) == 0;
        lastCall.failure = fromBus ? FailureOf(error) : FailureOf(error, Cause::kRefused);
    }
    return message;
}

/** If the last call brought one. */
void ThrowLastFailure()
{
    const std::lock_guard lock(lastCall.mutex);
    if (lastCall.failure) {
        throw Failure(*lastCall.failure);
    }
}

GDBusConnection* OpenBus()
{
    g_autoptr(GError) error = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (bus == nullptr) {
        throw FailureOf(error, Cause::kNoBus);
    }
    // Left to itself, GIO ends a process that loses the bus by SIGTERM, and without a word.
    g_dbus_connection_set_exit_on_close(bus, FALSE);
    g_dbus_connection_add_filter(bus, Watch, nullptr, nullptr);
    return bus;
}

const Line* Find(Step step)
{
    const auto found = std::ranges::find(logged, step, &Line::step);
    return found == logged.end() ? nullptr : &*found;
}

bool ConnectLibrary()
{
    if (ZAVServiceAPI::InitDbusConnection() != 0) {
        ThrowLastFailure();
        const Line* line = Find(Step::notConnected);
        throw Failure::For(Cause::kNoBus,
                           line == nullptr ? "the library says no more" : line->text);
    }
    return true;
}

} // namespace

GDBusConnection* Bus()
{
    static GDBusConnection* const bus = Await("the system bus", OpenBus);
    return bus;
}

void Connect()
{
    Bus();
    [[maybe_unused]] static const bool once = Await("ZAVService", ConnectLibrary);
}

int EndOfRequest(Step proof)
{
    if (Find(Step::gaveUp) != nullptr) {
        throw Failure::For(Cause::kBusy);
    }
    if (Find(Step::noAnswer) != nullptr) {
        ThrowLastFailure();
        if (g_dbus_connection_is_closed(Bus()) != FALSE) {
            throw Failure::For(Cause::kNoBus, "it has gone");
        }
        throw Failure(Cause::kNoAnswer, "ZAVService did not answer within 5 s");
    }
    if (Find(proof) == nullptr) {
        throw Failure(Cause::kFailed, "the library's log does not say what became of the request: "
                                      "library and zavctl do not fit together");
    }
    int number = 0;
    if (const Line* answer = Find(Step::answered)) {
        std::sscanf(answer->text.c_str(), "IntDataReceived: %d", &number);
    }
    return number;
}

Variant CallBus(const char* service, const char* path, const char* interface, const char* method,
                GVariant* arguments)
{
    const Variant held(arguments == nullptr ? nullptr : g_variant_ref_sink(arguments),
                       [](GVariant* value) { g_clear_pointer(&value, g_variant_unref); });
    const std::string whom = strcmp(service, kBusService) == 0 ? "the system bus" : "ZAVService";
    return Await(whom, [=, bus = Bus()] {
        g_autoptr(GError) error = nullptr;
        GVariant* reply =
            g_dbus_connection_call_sync(bus, service, path, interface, method, held.get(), nullptr,
                                        G_DBUS_CALL_FLAGS_NO_AUTO_START, G_MAXINT, nullptr, &error);
        if (reply == nullptr) {
            throw FailureOf(error);
        }
        return Variant(reply, g_variant_unref);
    });
}

Variant AskBus(const char* method, GVariant* arguments)
{
    return CallBus(kBusService, "/org/freedesktop/DBus", kBusService, method, arguments);
}

void Touch(const char* interface, const char* method, GVariant* arguments)
try {
    CallBus(kService, kPath, interface, method, arguments);
} catch (const Failure& failure) {
    if (failure.cause != Cause::kRefused) {
        throw;
    }
}

} // namespace cli

/**
 * In front of the platform's own, so that the end of a request can be read in it. That one gets the
 * line too when its user has said where to.
 */
int __dlog_print(int log_id, int priority, const char* tag, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    g_autofree char* text = g_strdup_vprintf(format, arguments);
    va_end(arguments);

    g_autofree char* line = g_strchomp(g_strdup(text));
    const char* message = strstr(line, "> ");
    cli::logged.push_back({cli::StepOf(format), message == nullptr ? line : message + 2});
    if (cli::showLog) {
        std::cerr << (priority == DLOG_ERROR ? "E " : "I ") << cli::Printable(line) << '\n';
    }
    static const auto platforms =
        reinterpret_cast<decltype(&__dlog_print)>(dlsym(RTLD_NEXT, "__dlog_print"));
    if (platforms != nullptr && std::getenv("ZAV_LOG") != nullptr) {
        return platforms(log_id, priority, tag, "%s", text);
    }
    return 0;
}
