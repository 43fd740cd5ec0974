// SPDX-License-Identifier: MIT
/**
 * @file Request.h
 * Requests through the library, and what became of them. The library's results do not tell it: its
 * log does, and the answers on the bus.
 */
#ifndef CLI_REQUEST_H
#define CLI_REQUEST_H

#include "Await.h"
#include "Failure.h"
#include "Steps.h"

#include <gio/gio.h>
#include <memory>
#include <string>
#include <vector>

namespace cli
{

inline constexpr const char* kService = "org.kelmar.tv.zav"; ///< bus name and interface
inline constexpr const char* kPath = "/org/kelmar/tv/zav";
inline constexpr const char* kBusService = "org.freedesktop.DBus";

using Variant = std::shared_ptr<GVariant>;

/** A line of the library's log, without its prefix. */
struct Line
{
    Step step;
    std::string text;
};

/** What the library has logged on this thread. */
extern thread_local std::vector<Line> logged;

extern bool showLog; ///< --log: on standard error as well

/** The system bus, which the library shares. @throws Failure */
GDBusConnection* Bus();

/** Connects the library. @throws Failure */
void Connect();

/**
 * Looks for the end of the request that this thread has made.
 * @param proof the step that shows that it was carried out
 * @return the number that the service answered, as logged; 0 without one
 * @throws Failure when it failed, or when the log does not say
 */
int EndOfRequest(Step proof);

/**
 * Makes one request, connected.
 * @param call calls one operation of the library; may outlive its caller, see Await()
 * @return what the operation does
 */
template <class Call>
auto Request(Call call, Step proof = Step::answered)
{
    Connect();
    return Await("ZAVService", [call, proof]() mutable {
        auto result = call();
        EndOfRequest(proof);
        return result;
    });
}

/**
 * A method call past the library; never starts a service.
 * @param arguments a tuple or NULL
 * @throws Failure for what became of it
 */
Variant CallBus(const char* service, const char* path, const char* interface, const char* method,
                GVariant* arguments = nullptr);

/** Asks the bus itself; about the service unless there are other arguments. @throws Failure */
Variant AskBus(const char* method, GVariant* arguments = g_variant_new("(s)", kService));

/**
 * A call of the service that has to be answered, if only by an error: by default a harmless one of
 * its interface, by which access is proved. @throws Failure
 */
void Touch(const char* interface = kService, const char* method = "IsZAVReady",
           GVariant* arguments = nullptr);

} // namespace cli

#endif
