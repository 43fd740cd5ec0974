// SPDX-License-Identifier: MIT
/**
 * @file FakeGio.h
 * The bus, the proxy, the lock and the sleep, played by the test program: every path of a request
 * runs at once, without a bus daemon. Requests are for one thread at a time. What the library does
 * stands in the boundary log; for a single thread, so does when its public state changes.
 */
#ifndef ZAV_TESTS_FAKEGIO_H
#define ZAV_TESTS_FAKEGIO_H

#include <gio/gio.h>

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

namespace fake
{

/** How the next connection attempts end. */
enum class Outcome
{
    works,
    fails,
    failsWithoutError
};
extern Outcome bus, proxy;

/** What the error of a failing one says. */
extern std::string error;

/** The reply to every call in GVariant text form, e.g. "(5,)"; empty: none comes. */
extern std::string reply;

/** Instead of it a value, of which every call gets a reference. */
extern GVariant* replyValue;

/** So many further attempts to take the lock find it held. */
extern int lockFailures;

/** What the library has done. */
struct Use
{
    std::atomic<int> calls = 0;            ///< handed to the bus, of either kind,
    std::atomic<int> callsWithoutLock = 0; ///< and of those the ones without the lock
    std::atomic<bool> locked = false;      ///< whether it holds the lock
    std::atomic<int> replies = 0;          ///< that it has not released,
    std::atomic<int> objects = 0;          ///< and connections and proxies
    bool HoldsNothing() const { return !locked && replies == 0; }
};
extern Use use;

struct Subscription
{
    std::string_view member;
    GDBusSignalCallback handler;
};
extern std::vector<Subscription> subscriptions;

/** Calls the handler of a signal. */
void Emit(std::string_view member, GVariant* parameters);

/** A value whose release is noted. */
GVariant* CountedReply(const std::string& text);

/** The same of bytes, which need not be sound for the type. */
GVariant* CountedReply(const GVariantType* type, gconstpointer bytes, gsize size);

} // namespace fake

#endif
