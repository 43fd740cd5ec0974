// SPDX-License-Identifier: MIT
/**
 * @file peer.cpp
 * peer VERB [COUNT]: a process on the bus that the client of bench/extremes does not want to meet.
 */
#include <cstdio>
#include <cstdlib>
#include <gio/gio.h>
#include <string_view>
#include <unistd.h>

namespace
{

constexpr const char* kService = "org.kelmar.tv.zav";

/** Sends replies to whatever the first connections of the bus may have called with early serials.
 */
int Guess(GDBusConnection* bus, unsigned count)
{
    for (unsigned i = 0; i < count * count; ++i) {
        g_autoptr(GDBusMessage) reply = g_dbus_message_new();
        g_autofree gchar* client = g_strdup_printf(":1.%u", i / count);
        g_dbus_message_set_message_type(reply, G_DBUS_MESSAGE_TYPE_METHOD_RETURN);
        g_dbus_message_set_destination(reply, client);
        g_dbus_message_set_reply_serial(reply, 1 + i % count);
        g_dbus_message_set_body(reply, g_variant_new("(i)", 42));
        g_dbus_connection_send_message(bus, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                       nullptr);
    }
    return g_dbus_connection_flush_sync(bus, nullptr, nullptr) != FALSE ? 0 : 1;
}

/** Owns the service's name, and tells of `count` properties with names of its invention. */
int Properties(GDBusConnection* bus, unsigned count)
{
    [[maybe_unused]] g_autoptr(GVariant) owned = g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
        g_variant_new("(su)", kService, 4U), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    puts("ready");
    fflush(stdout);
    getchar();                          // until the client has connected
    constexpr unsigned together = 1000; // in one signal
    for (unsigned i = 0; i < count; i += together) {
        GVariantBuilder changed;
        g_variant_builder_init(&changed, G_VARIANT_TYPE_VARDICT);
        for (unsigned one = i; one < i + together; ++one) {
            g_autofree gchar* name = g_strdup_printf("Invented%u", one);
            g_variant_builder_add(&changed, "{sv}", name, g_variant_new_uint32(one));
        }
        g_dbus_connection_emit_signal(
            bus, nullptr, "/org/kelmar/tv/zav", "org.freedesktop.DBus.Properties",
            "PropertiesChanged", g_variant_new("(sa{sv}as)", kService, &changed, nullptr), nullptr);
        g_dbus_connection_flush_sync(bus, nullptr, nullptr);
    }
    getchar(); // the names are forgotten with their owner
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string_view verb = argc > 1 ? argv[1] : "";
    if (verb == "sleep") { // as a service that is started but never takes its name
        return static_cast<int>(sleep(120));
    }
    g_autoptr(GDBusConnection) bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    if (bus == nullptr) {
        return 1;
    }
    const unsigned count = argc > 2 ? static_cast<unsigned>(atol(argv[2])) : 0;
    if (verb == "properties") {
        return Properties(bus, count);
    }
    if (verb == "guess") {
        return Guess(bus, count);
    }
    return 2;
}
