// SPDX-License-Identifier: MIT
/**
 * @file stubs.cpp
 * Preloaded in front of GIO and the platform: the bus answers at once, text and records go nowhere.
 * What remains of a request or of a log point is the library's own. A shared object by itself, so
 * that a profile tells its instructions from the library's. STUB_TRACE turns tracing on.
 */
#include "dlog.h"
#include "lumo.h"

#include <cstdlib>
#include <gio/gio.h>

unsigned char TIStorageManagerState::enabled = std::getenv("STUB_TRACE") != nullptr ? 1 : 0;

int __dlog_print(int /*log_id*/, int /*priority*/, const char* /*tag*/, const char* /*format*/, ...)
{
    return 0;
}

namespace lumo
{

TCCallLocation::TCCallLocation() = default;

TCLogger::TCLogger(const TSCodeLocation& /*location*/) {}
TCLogger::~TCLogger() = default;

std::string TSDemangler::Demangle(const char* name)
{
    return name;
}

void TCStorage::SaveLocation(const TCCallLocation& /*location*/) {}

TCThreadHandle* TCStorage::ThreadHandle()
{
    return nullptr;
}

unsigned char* TCStorage::PrepareCallBuffer(TCThreadHandle* /*thread*/, unsigned /*payloadSize*/,
                                            unsigned char /*flag*/, unsigned /*locationId*/)
{
    static unsigned char buffer[1 << 10];
    return buffer;
}

void TCStorage::Commit(TCThreadHandle* /*thread*/) {}

} // namespace lumo

TIStorageManager& TIStorageManager::Instance()
{
    static constinit TIStorageManager manager;
    return manager;
}

uint32_t TIStorageManager::NewLocationId()
{
    return 1;
}

lumo::TCStorage& TIStorageManager::Storage()
{
    static constinit lumo::TCStorage storage;
    return storage;
}

GDBusConnection* g_bus_get_sync(GBusType /*type*/, GCancellable* /*none*/, GError** /*error*/)
{
    return static_cast<GDBusConnection*>(g_object_new(G_TYPE_OBJECT, nullptr));
}

GDBusProxy* g_dbus_proxy_new_sync(GDBusConnection* /*connection*/, GDBusProxyFlags /*flags*/,
                                  GDBusInterfaceInfo* /*info*/, const gchar* /*name*/,
                                  const gchar* /*path*/, const gchar* /*interface*/,
                                  GCancellable* /*none*/, GError** /*error*/)
{
    return static_cast<GDBusProxy*>(g_object_new(G_TYPE_OBJECT, nullptr));
}

guint g_dbus_connection_signal_subscribe(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                                         const gchar* /*interface*/, const gchar* /*member*/,
                                         const gchar* /*path*/, const gchar* /*arg0*/,
                                         GDBusSignalFlags /*flags*/,
                                         GDBusSignalCallback /*handler*/, gpointer /*data*/,
                                         GDestroyNotify /*release*/)
{
    return 1;
}

GVariant* g_dbus_proxy_call_sync(GDBusProxy* /*proxy*/, const gchar* /*method*/,
                                 GVariant* /*parameters*/, GDBusCallFlags /*flags*/,
                                 gint /*timeout*/, GCancellable* /*none*/, GError** /*error*/)
{
    static GVariant* const reply = g_variant_ref_sink(g_variant_new("(i)", 5));
    return g_variant_ref(reply);
}
