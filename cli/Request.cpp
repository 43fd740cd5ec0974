// SPDX-License-Identifier: MIT
#include "Request.h"

#include "ZAVServiceAPI.h"
#include "dlog.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <dlfcn.h>
#include <iostream>

namespace cli
{

std::vector<std::string> logged;
bool showLog = false;

namespace
{

constexpr gint64 kCallTimeout = gint64{5} * G_USEC_PER_SEC; // the library's, for one call

Cause CauseOf(const GError* error, Cause otherwise)
{
    static constexpr struct
    {
        GQuark (*domain)();
        int code;
        Cause cause;
    } causes[] = {
        {g_dbus_error_quark, G_DBUS_ERROR_SERVICE_UNKNOWN, Cause::notRunning},
        {g_dbus_error_quark, G_DBUS_ERROR_NAME_HAS_NO_OWNER, Cause::notRunning},
        {g_dbus_error_quark, G_DBUS_ERROR_ACCESS_DENIED, Cause::denied},
        {g_io_error_quark, G_IO_ERROR_PERMISSION_DENIED, Cause::denied},
        {g_dbus_error_quark, G_DBUS_ERROR_NO_REPLY, Cause::noAnswer},
        {g_io_error_quark, G_IO_ERROR_TIMED_OUT, Cause::noAnswer},
        {g_io_error_quark, G_IO_ERROR_CLOSED, Cause::noBus},
    };
    const auto* found = std::ranges::find_if(causes, [error](const auto& row) {
        return g_error_matches(error, row.domain(), row.code) != FALSE;
    });
    return found == std::end(causes) ? otherwise : found->cause;
}

Failure FailureOf(GError* error, Cause otherwise)
{
    const Cause cause = CauseOf(error, otherwise);
    g_dbus_error_strip_remote_error(error);
    switch (cause) {
    case Cause::notRunning:
        return {cause, "ZAVService is not running"};
    case Cause::denied:
        return {cause, std::string("the bus denies access: ") + error->message};
    case Cause::noBus:
        return {cause, std::string("no system bus: ") + error->message};
    case Cause::noAnswer:
        return {cause, std::string("no answer in time: ") + error->message};
    default:
        return {cause, error->message};
    }
}

/** The rest of the first line of the log that has the text; nullopt when none has it. */
std::optional<std::string> AfterLogged(const std::string& text)
{
    for (const std::string& line : logged) {
        const size_t place = line.find(text);
        if (place != std::string::npos) {
            return line.substr(place + text.size());
        }
    }
    return std::nullopt;
}

/** The log has the same line for a time-out, an error and a service that is not there. */
void ThrowUnanswered(gint64 elapsed)
{
    if (elapsed >= kCallTimeout) {
        throw Failure(Cause::noAnswer, "ZAVService did not answer in time");
    }
    CallBus(kService, kPath, "org.freedesktop.DBus.Peer", "Ping", nullptr);
    throw Failure(Cause::refused, "ZAVService refused the request: it answered with an error");
}

} // namespace

GDBusConnection* Bus()
{
    static GDBusConnection* bus = nullptr;
    if (bus == nullptr) {
        g_autoptr(GError) error = nullptr;
        bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
        if (bus == nullptr) {
            throw FailureOf(error, Cause::noBus);
        }
        // Left to itself, GIO ends a process that loses the bus by SIGTERM, and without a word.
        g_dbus_connection_set_exit_on_close(bus, FALSE);
    }
    return bus;
}

void Connect()
{
    Bus();
    if (ZAVServiceAPI::InitDbusConnection() != 0) {
        throw Failure(Cause::noBus, "the library cannot connect: " +
                                        AfterLogged("failed: ").value_or("no reason given"));
    }
}

std::optional<int> Request(const std::function<void()>& call)
{
    Connect();
    logged.clear();
    const gint64 start = g_get_monotonic_time();
    call();
    if (AfterLogged("API is busy. give up")) {
        throw Failure(Cause::busy, "other requests keep the connection to ZAVService busy");
    }
    if (AfterLogged("packet received from ZAVService is NULL")) {
        ThrowUnanswered(g_get_monotonic_time() - start);
    }
    const auto number = AfterLogged("IntDataReceived: ");
    return number ? std::optional(std::atoi(number->c_str())) : std::nullopt;
}

void Deliver()
{
    // The bus keeps the order: who answers this has received what was sent before.
    CallBus(kService, kPath, "org.freedesktop.DBus.Peer", "Ping", nullptr);
}

Variant CallBus(const char* service, const char* path, const char* interface, const char* method,
                GVariant* arguments, int milliseconds)
{
    g_autoptr(GVariant) held = arguments == nullptr ? nullptr : g_variant_ref_sink(arguments);
    g_autoptr(GError) error = nullptr;
    GVariant* reply =
        g_dbus_connection_call_sync(Bus(), service, path, interface, method, held, nullptr,
                                    G_DBUS_CALL_FLAGS_NO_AUTO_START, milliseconds, nullptr, &error);
    if (reply == nullptr) {
        throw FailureOf(error, Cause::refused);
    }
    return {reply, g_variant_unref};
}

} // namespace cli

/**
 * In front of the platform's own, so that the cause of a failure can be read in it. That one gets
 * the line too when its user has said where to.
 */
int __dlog_print(int log_id, int priority, const char* tag, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    g_autofree char* text = g_strdup_vprintf(format, arguments);
    va_end(arguments);

    cli::logged.emplace_back(text);
    if (cli::showLog) {
        std::cerr << (priority == DLOG_ERROR ? "E " : "I ") << g_strchomp(text) << '\n';
    }
    static const auto platforms =
        reinterpret_cast<decltype(&__dlog_print)>(dlsym(RTLD_NEXT, "__dlog_print"));
    if (platforms != nullptr && std::getenv("ZAV_LOG") != nullptr) {
        return platforms(log_id, priority, tag, "%s", text);
    }
    return 0;
}
