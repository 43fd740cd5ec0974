// SPDX-License-Identifier: MIT
/**
 * @file Service.h
 * The bus of service/with-bus, which starts the program, and the simulated service on it: for tests
 * and the soak. Bodies are in GVariant's text form: a tuple is the whole body, anything else its
 * only member. What cannot be done ends the program with a message.
 */
#ifndef ZAV_TESTS_SERVICE_H
#define ZAV_TESTS_SERVICE_H

#include <gio/gio.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace service
{

constexpr const char* kName = "org.kelmar.tv.zav";
constexpr const char* kBus = "org.freedesktop.DBus";

/** Asks over a connection of the test's own. @return null on an error, if there may be one */
inline std::shared_ptr<GVariant> Ask(const char* name, const char* path, const char* interface,
                                     const char* method, GVariant* arguments, bool mayFail = false)
{
    static GDBusConnection* const connection = g_dbus_connection_new_for_address_sync(
        getenv("DBUS_SYSTEM_BUS_ADDRESS"),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    g_autoptr(GError) error = nullptr;
    GVariant* reply =
        g_dbus_connection_call_sync(connection, name, path, interface, method, arguments, nullptr,
                                    G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, &error);
    if (reply == nullptr && !mayFail) {
        g_error("%s: %s", method, error->message);
    }
    return {reply, [](GVariant* value) { g_clear_pointer(&value, g_variant_unref); }};
}

inline std::shared_ptr<GVariant> AskControls(const char* method, GVariant* arguments = nullptr)
{
    return Ask(kName, "/org/kelmar/tv/zav/sim", "org.kelmar.tv.zav.Sim", method, arguments);
}

/** @param text as on its command line: "delay GetMode=100" */
inline void Control(const std::string& text)
{
    AskControls("Control", g_variant_new("(s)", text.c_str()));
}

/** Returns once it is sent. */
inline void Emit(const std::string& signal, const std::string& body = "()")
{
    Control("emit " + signal + "=" + body);
}

/** What has reached the service, e.g. "SetWooferLevel (3,)", and how many at one time. */
inline std::pair<std::vector<std::string>, guint32> Calls()
{
    const auto reply = AskControls("Calls");
    std::pair<std::vector<std::string>, guint32> seen;
    g_autoptr(GVariantIter) calls = nullptr;
    g_variant_get(reply.get(), "(a(sss)uu)", &calls, &seen.second, nullptr);
    const char* method = nullptr;
    const char* arguments = nullptr;
    while (g_variant_iter_next(calls, "(&s&s&s)", &method, &arguments, nullptr) != FALSE) {
        seen.first.push_back(std::string(method) + " " + arguments);
    }
    return seen;
}

/** Kills who owns the name, the bus itself by its own; returns when nobody does. */
inline void Kill(const char* name)
{
    while (const auto reply = Ask(kBus, "/", kBus, "GetConnectionUnixProcessID",
                                  g_variant_new("(s)", name), true)) {
        guint32 process = 0;
        g_variant_get(reply.get(), "(u)", &process);
        kill(static_cast<pid_t>(process), SIGKILL);
    }
}

/** Starts the service again, with a state as new. @param options for a shell */
inline void Start(const std::string& options = "")
{
    const std::string command = "zav-sim --quiet " + options + " >/dev/null & exec zavctl wait";
    if (std::system(command.c_str()) != 0) {
        g_error("%s", command.c_str());
    }
}

} // namespace service

#endif
