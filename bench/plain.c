/* SPDX-License-Identifier: MIT */
/*
 * plain nothing|connect: the start of an application, with the library, or by hand what the library
 * does: connection, proxy, six subscriptions. In C: what C++ costs is part of the library's price.
 */
#include <gio/gio.h>
#include <string.h>

#ifdef WITH_LIBRARY
#include "ZAVServiceBridgeAPI.h"

static GDBusConnection* Connect(void)
{
    return InitDbusConnection() == 0 ? g_bus_get_sync(G_BUS_TYPE_SYSTEM, NULL, NULL) : NULL;
}
#else
static const char* const kService = "org.kelmar.tv.zav";
static const char* const kPath = "/org/kelmar/tv/zav";

static void Ignore(GDBusConnection* connection, const gchar* sender, const gchar* path,
                   const gchar* interface, const gchar* member, GVariant* parameters, gpointer data)
{
    (void)connection, (void)sender, (void)path, (void)interface, (void)member, (void)parameters;
    (void)data;
}

static GDBusConnection* Connect(void)
{
    static const char* const members[] = {
        "InvokeSignalHandler",  "DisconnectSignalHandler",
        "sendDataViaSpdif",     "receiveExternalDataViaCommonTunnel",
        "SetCbSoundModeChange", "notifyZAVCsharpCallback"};
    GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, NULL, NULL);
    if (connection == NULL ||
        g_dbus_proxy_new_sync(connection, G_DBUS_PROXY_FLAGS_NONE, NULL, kService, kPath, kService,
                              NULL, NULL) == NULL) {
        return NULL;
    }
    for (gsize i = 0; i < G_N_ELEMENTS(members); ++i) {
        g_dbus_connection_signal_subscribe(connection, NULL, kService, members[i], kPath, NULL,
                                           G_DBUS_SIGNAL_FLAGS_NONE, Ignore, NULL, NULL);
    }
    return connection;
}
#endif

int main(int argc, char** argv)
{
    if (argc != 2 || strcmp(argv[1], "connect") != 0) {
        return 0;
    }
    /* Subscriptions are not waited for: a process that ends at once would not have sent them. */
    GDBusConnection* connection = Connect();
    return connection != NULL && g_dbus_connection_flush_sync(connection, NULL, NULL) ? 0 : 1;
}
