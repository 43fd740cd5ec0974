// SPDX-License-Identifier: MIT
//
// Preloaded into the simulated service, it hangs on every question for its properties.
#include <dlfcn.h>
#include <gio/gio.h>

namespace
{

GDBusMessage* DropGetAll(GDBusConnection*, GDBusMessage* message, gboolean, gpointer)
{
    if (g_strcmp0(g_dbus_message_get_member(message), "GetAll") == 0) {
        g_clear_object(&message);
    }
    return message;
}

} // namespace

guint g_dbus_connection_register_object(GDBusConnection* connection, const gchar* path,
                                        GDBusInterfaceInfo* info, const GDBusInterfaceVTable* table,
                                        gpointer data, GDestroyNotify release, GError** error)
{
    static const auto real = reinterpret_cast<decltype(&g_dbus_connection_register_object)>(
        dlsym(RTLD_NEXT, "g_dbus_connection_register_object"));
    g_dbus_connection_add_filter(connection, DropGetAll, nullptr, nullptr);
    return real(connection, path, info, table, data, release, error);
}
