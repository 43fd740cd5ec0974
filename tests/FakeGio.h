// SPDX-License-Identifier: MIT
/**
 * @file FakeGio.h
 * The bus, the proxy, the lock and the sleep, played by the test program: every path of a request
 * runs at once, without a bus daemon. For one thread.
 */
#ifndef ZAV_TESTS_FAKEGIO_H
#define ZAV_TESTS_FAKEGIO_H

#include <gio/gio.h>

#include <string>
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

/** The reply to every call in GVariant text form, e.g. "(5,)"; empty: none comes. */
extern std::string reply;

/** Instead of it a value, of which every call gets a reference. */
extern GVariant* replyValue;

/** So many further attempts to take the lock find it held. */
extern int lockFailures;

/** Whether the library holds the lock. */
extern bool locked;

/** Frees the lock in the place of a request that was cut short. */
void FreeLock();

/** Whether the fake notes what the library does; to note takes memory. */
extern bool noting;

/** What the library did, in order: "bus", "proxy ...", "call GetMode none 5000", "sleep 10000". */
std::vector<std::string> TakeActions();

struct Subscription
{
    std::string member;
    GDBusSignalCallback handler;
};
extern std::vector<Subscription> subscriptions;

/** A value whose release AllReleased() sees. */
GVariant* CountedReply(const std::string& text);

/** The same of bytes, which need not be sound for the type. */
GVariant* CountedReply(const GVariantType* type, gconstpointer bytes, gsize size);

/** Whether the proxy lock is free and every reply has been released. */
bool AllReleased();

/** Everything works again and nothing has been done; the connection stays. */
void Reset();

} // namespace fake

#endif
