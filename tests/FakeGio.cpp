// SPDX-License-Identifier: MIT
#include "FakeGio.h"

#include "Boundary.h"
#include "ZAVServiceAPI.h"

#include <algorithm>
#include <unistd.h>

namespace fake
{

Outcome bus = Outcome::works;
Outcome proxy = Outcome::works;
std::string error = "no such thing";
std::string reply;
GVariant* replyValue = nullptr;
int lockFailures = 0;
Use use;
std::vector<Subscription> subscriptions;

} // namespace fake

namespace
{

using Api = ZAVServiceAPI;

GMutex* lock = nullptr;                      // the one that was taken last
thread_local GDBusConnection* bus = nullptr; // the one that was made last

/** Each change of the public state is a line of its own, before the next one. */
void NoteState()
{
    static const void* seen[3] = {};
    const void* const now[] = {Api::connection, Api::m_bDBusConnectionState ? &seen : nullptr,
                               Api::proxy};
    for (size_t i = 0; i < std::size(now); ++i) {
        if (std::exchange(seen[i], now[i]) != now[i]) {
            static constexpr const char* names[] = {"connection", "flag", "proxy"};
            boundary::Write(names[i], now[i] != nullptr ? " is set" : " is cleared");
        }
    }
}

[[maybe_unused]] const bool kNoting = (boundary::beforeLine = NoteState) != nullptr;

/** For the end of a line: nothing, or that a call has other arguments than it should. */
const char* Unless(bool asItShouldBe)
{
    return asItShouldBe ? "" : ", but with other arguments";
}

// The errors are of a domain that tells of their release, however they are released.
void NoErrorData(GError*) {}
void CopyNoErrorData(const GError*, GError*) {}
void NoteErrorReleased(GError*)
{
    boundary::Add("error released");
}

const GQuark kErrors = g_error_domain_register_static("fake", sizeof(int), NoErrorData,
                                                      CopyNoErrorData, NoteErrorReleased);

template <class T>
T* Make(const char* name, fake::Outcome outcome, GError** error)
{
    if (outcome != fake::Outcome::works) {
        if (outcome == fake::Outcome::fails) {
            g_set_error_literal(error, kErrors, 1, fake::error.c_str());
        }
        return nullptr;
    }
    auto* made = static_cast<GObject*>(g_object_new(G_TYPE_OBJECT, nullptr));
    ++fake::use.objects;
    if (boundary::kept) {
        const std::lock_guard held(boundary::guard);
        boundary::names[made] = name;
    }
    g_object_weak_ref(
        made,
        [](gpointer data, GObject*) {
            --fake::use.objects;
            boundary::Add(static_cast<const char*>(data), " released");
        },
        const_cast<char*>(name));
    return reinterpret_cast<T*>(made);
}

/** Takes the floating tuple over, as the real call does, and notes what was asked. */
void NoteCall(const char* verb, GDBusProxy* proxy, const gchar* method, GVariant* parameters,
              GDBusCallFlags flags, gint timeout, bool plain)
{
    ++fake::use.calls;
    fake::use.callsWithoutLock += fake::use.locked ? 0 : 1;
    g_autoptr(GVariant) body = parameters != nullptr ? g_variant_ref_sink(parameters) : nullptr;
    if (boundary::kept) {
        g_autofree gchar* text = body != nullptr ? g_variant_print(body, TRUE) : g_strdup("()");
        boundary::Add(verb, " ", method, " ", boundary::Folded(text),
                      fake::use.locked ? "" : ", but without the lock",
                      body != nullptr && text == std::string("()") ? ", but not NULL" : "",
                      flags == G_DBUS_CALL_FLAGS_NONE ? "" : ", but with flags",
                      timeout == 5000 ? "" : ", but with another time-out",
                      Unless(proxy == Api::proxy && plain));
    }
}

} // namespace

namespace fake
{

void Emit(std::string_view member, GVariant* parameters)
{
    const auto found = std::ranges::find(subscriptions, member, &Subscription::member);
    found->handler(Api::connection, ":1.1", "/", "interface", member.data(), parameters, nullptr);
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
    ++use.replies;
    gpointer copy = g_memdup2(bytes, size);
    const auto gone = [](gpointer block) {
        g_free(block);
        --use.replies;
        boundary::Add("reply released");
    };
    return g_variant_ref_sink(g_variant_new_from_data(type, copy, size, FALSE, gone, copy));
}

} // namespace fake

using boundary::Add;

GDBusConnection* g_bus_get_sync(GBusType type, GCancellable* cancellable, GError** error)
{
    Add("bus", Unless(type == G_BUS_TYPE_SYSTEM && cancellable == nullptr && error != nullptr));
    return bus = Make<GDBusConnection>("CONNECTION", fake::bus, error);
}

GDBusProxy* g_dbus_proxy_new_sync(GDBusConnection* connection, GDBusProxyFlags flags,
                                  GDBusInterfaceInfo* info, const gchar* name, const gchar* path,
                                  const gchar* interface, GCancellable* cancellable, GError** error)
{
    Add("proxy ", name, " ", path, " ", interface,
        Unless(connection == bus && flags == G_DBUS_PROXY_FLAGS_NONE && info == nullptr &&
               cancellable == nullptr && error != nullptr));
    return Make<GDBusProxy>("PROXY", fake::proxy, error);
}

GVariant* g_dbus_proxy_call_sync(GDBusProxy* proxy, const gchar* method, GVariant* parameters,
                                 GDBusCallFlags flags, gint timeout, GCancellable* cancellable,
                                 GError** error)
{
    NoteCall("call", proxy, method, parameters, flags, timeout,
             cancellable == nullptr && error == nullptr);
    if (fake::replyValue != nullptr) {
        return g_variant_ref(fake::replyValue);
    }
    return fake::reply.empty() ? nullptr : fake::CountedReply(fake::reply);
}

void g_dbus_proxy_call(GDBusProxy* proxy, const gchar* method, GVariant* parameters,
                       GDBusCallFlags flags, gint timeout, GCancellable* cancellable,
                       GAsyncReadyCallback callback, gpointer data)
{
    NoteCall("send", proxy, method, parameters, flags, timeout,
             cancellable == nullptr && callback == nullptr && data == nullptr);
}

guint g_dbus_connection_signal_subscribe(GDBusConnection* connection, const gchar* sender,
                                         const gchar* interface, const gchar* member,
                                         const gchar* path, const gchar* arg0,
                                         GDBusSignalFlags flags, GDBusSignalCallback handler,
                                         gpointer data, GDestroyNotify release)
{
    Add("subscribe ", interface, " ", member, " ", path,
        Unless(connection == bus && sender == nullptr && arg0 == nullptr && data == nullptr &&
               flags == G_DBUS_SIGNAL_FLAGS_NONE && release == nullptr));
    fake::subscriptions.push_back({member, handler});
    return static_cast<guint>(fake::subscriptions.size());
}

gboolean g_mutex_trylock(GMutex* mutex)
{
    if (fake::lockFailures > 0) {
        --fake::lockFailures;
        Add("lock held by another");
        return FALSE;
    }
    static const auto real = boundary::Real(g_mutex_trylock, "g_mutex_trylock");
    lock = mutex;
    fake::use.locked = real(mutex) != FALSE;
    Add(fake::use.locked ? "lock taken" : "lock still held");
    return static_cast<gboolean>(fake::use.locked);
}

void g_mutex_unlock(GMutex* mutex)
{
    static const auto real = boundary::Real(g_mutex_unlock, "g_mutex_unlock");
    if (mutex == lock) { // GObject has some of its own
        Add("lock freed");
        fake::use.locked = false;
    }
    real(mutex);
}

int usleep(useconds_t time)
{
    Add("sleep ", time);
    return 0;
}
