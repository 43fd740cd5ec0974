// SPDX-License-Identifier: MIT
#include "FakeGio.h"

#include <dlfcn.h>
#include <unistd.h>
#include <utility>

namespace fake
{

Outcome bus = Outcome::works;
Outcome proxy = Outcome::works;
std::string reply;
GVariant* replyValue = nullptr;
int lockFailures = 0;
bool locked = false;
bool noting = true;
std::vector<Subscription> subscriptions;

namespace
{

std::vector<std::string> actions;
int repliesAlive = 0;
GMutex* lock = nullptr; // the one that was taken last

template <class T>
T* Make(Outcome outcome, GError** error)
{
    if (outcome == Outcome::works) {
        return static_cast<T*>(g_object_new(G_TYPE_OBJECT, nullptr));
    }
    if (outcome == Outcome::fails) {
        *error = g_error_new_literal(G_IO_ERROR, G_IO_ERROR_FAILED, "no such thing");
    }
    return nullptr;
}

/** Takes the floating tuple over, as the real call does, and notes what was asked. */
void NoteCall(const std::string& verb, const gchar* method, GVariant* parameters, gint timeout)
{
    g_autofree gchar* text = nullptr;
    if (parameters != nullptr) {
        g_autoptr(GVariant) body = g_variant_ref_sink(parameters);
        text = noting ? g_variant_print(body, TRUE) : nullptr;
    }
    if (!noting) {
        return;
    }
    actions.push_back(verb + " " + method + " " + (text != nullptr ? text : "none") + " " +
                      std::to_string(timeout) + (locked ? "" : " without the lock"));
}

} // namespace

std::vector<std::string> TakeActions()
{
    return std::exchange(actions, {});
}

bool AllReleased()
{
    return !locked && repliesAlive == 0;
}

GVariant* CountedReply(const std::string& text)
{
    g_autoptr(GVariant) value = g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, nullptr);
    g_assert_nonnull(value);
    return CountedReply(g_variant_get_type(value), g_variant_get_data(value),
                        g_variant_get_size(value));
}

GVariant* CountedReply(const GVariantType* type, gconstpointer bytes, gsize size)
{
    ++repliesAlive;
    gpointer copy = g_memdup2(bytes, size);
    const auto gone = [](gpointer block) {
        g_free(block);
        --repliesAlive;
    };
    return g_variant_ref_sink(g_variant_new_from_data(type, copy, size, FALSE, gone, copy));
}

void FreeLock()
{
    g_mutex_unlock(lock);
}

void Reset()
{
    bus = proxy = Outcome::works;
    reply.clear();
    replyValue = nullptr;
    lockFailures = 0;
    actions.clear();
}

} // namespace fake

using fake::actions;

GDBusConnection* g_bus_get_sync(GBusType type, GCancellable* /*none*/, GError** error)
{
    actions.push_back(type == G_BUS_TYPE_SYSTEM ? "bus" : "another bus");
    return fake::Make<GDBusConnection>(fake::bus, error);
}

GDBusProxy* g_dbus_proxy_new_sync(GDBusConnection* /*connection*/, GDBusProxyFlags flags,
                                  GDBusInterfaceInfo* info, const gchar* name, const gchar* path,
                                  const gchar* interface, GCancellable* /*none*/, GError** error)
{
    const bool plain = flags == G_DBUS_PROXY_FLAGS_NONE && info == nullptr;
    actions.push_back(std::string(plain ? "proxy " : "another proxy ") + name + " " + path + " " +
                      interface);
    return fake::Make<GDBusProxy>(fake::proxy, error);
}

GVariant* g_dbus_proxy_call_sync(GDBusProxy* /*proxy*/, const gchar* method, GVariant* parameters,
                                 GDBusCallFlags /*flags*/, gint timeout, GCancellable* /*none*/,
                                 GError** /*error*/)
{
    fake::NoteCall("call", method, parameters, timeout);
    if (fake::replyValue != nullptr) {
        return g_variant_ref(fake::replyValue);
    }
    return fake::reply.empty() ? nullptr : fake::CountedReply(fake::reply);
}

void g_dbus_proxy_call(GDBusProxy* /*proxy*/, const gchar* method, GVariant* parameters,
                       GDBusCallFlags /*flags*/, gint timeout, GCancellable* /*none*/,
                       GAsyncReadyCallback callback, gpointer /*data*/)
{
    fake::NoteCall(callback == nullptr ? "send" : "send with callback", method, parameters,
                   timeout);
}

guint g_dbus_connection_signal_subscribe(GDBusConnection* /*connection*/, const gchar* sender,
                                         const gchar* interface, const gchar* member,
                                         const gchar* path, const gchar* arg0,
                                         GDBusSignalFlags flags, GDBusSignalCallback handler,
                                         gpointer data, GDestroyNotify release)
{
    const bool plain = sender == nullptr && arg0 == nullptr && flags == G_DBUS_SIGNAL_FLAGS_NONE &&
                       data == nullptr && release == nullptr;
    actions.push_back(std::string(plain ? "subscribe " : "subscribe otherwise ") + interface + " " +
                      member + " " + path);
    fake::subscriptions.push_back({member, handler});
    return static_cast<guint>(fake::subscriptions.size());
}

gboolean g_mutex_trylock(GMutex* mutex)
{
    if (fake::lockFailures > 0) {
        --fake::lockFailures;
        return FALSE;
    }
    fake::lock = mutex;
    static const auto real =
        reinterpret_cast<gboolean (*)(GMutex*)>(dlsym(RTLD_NEXT, "g_mutex_trylock"));
    return static_cast<gboolean>(fake::locked = real(mutex) != FALSE);
}

void g_mutex_unlock(GMutex* mutex)
{
    static const auto real =
        reinterpret_cast<void (*)(GMutex*)>(dlsym(RTLD_NEXT, "g_mutex_unlock"));
    fake::locked = false;
    real(mutex);
}

int usleep(useconds_t time)
{
    actions.push_back("sleep " + std::to_string(time));
    return 0;
}
