// SPDX-License-Identifier: MIT
//
// Preloaded into the simulated service, it makes another one of it: one method and one signal have
// other names, and it hangs on every question for its properties.
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

/** Kept for as long as the program runs. */
GDBusInterfaceInfo* Renamed(GDBusInterfaceInfo* info)
{
    GString* xml = g_string_new("<node>");
    g_dbus_interface_info_generate_xml(info, 0, xml);
    g_string_append(xml, "</node>");
    g_string_replace(xml, "\"GetMode\"", "\"GetMood\"", 0);
    g_string_replace(xml, "SoundModeChange", "SoundModeChoice", 0);
    return g_dbus_node_info_new_for_xml(xml->str, nullptr)->interfaces[0];
}

} // namespace

guint g_dbus_connection_register_object(GDBusConnection* connection, const gchar* path,
                                        GDBusInterfaceInfo* info, const GDBusInterfaceVTable* table,
                                        gpointer data, GDestroyNotify release, GError** error)
{
    static const auto real = reinterpret_cast<decltype(&g_dbus_connection_register_object)>(
        dlsym(RTLD_NEXT, "g_dbus_connection_register_object"));
    g_dbus_connection_add_filter(connection, DropGetAll, nullptr, nullptr);
    return real(connection, path, Renamed(info), table, data, release, error);
}
