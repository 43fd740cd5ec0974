// SPDX-License-Identifier: MIT
/**
 * @file Request.h
 * Requests through the library, with the cause of a failure. The library's results do not tell it;
 * its log does in part, and the bus knows the rest.
 */
#ifndef CLI_REQUEST_H
#define CLI_REQUEST_H

#include "Failure.h"

#include <functional>
#include <gio/gio.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cli
{

inline constexpr const char* kService = "org.kelmar.tv.zav"; ///< bus name and interface
inline constexpr const char* kPath = "/org/kelmar/tv/zav";
inline constexpr const char* kBusService = "org.freedesktop.DBus";

using Variant = std::shared_ptr<GVariant>;

/** What the library has logged since the last request began: "GetMode: Returned from ...". */
extern std::vector<std::string> logged;

/** Whether the log goes to standard error as well. */
extern bool showLog;

/** The system bus, which the library shares. @throws Failure */
GDBusConnection* Bus();

/** Connects the library. @throws Failure */
void Connect();

/**
 * Makes one request, connected.
 * @param call calls one operation of the library
 * @return the number that the service answered, as logged, if it was one
 * @throws Failure when the request ended in its default
 */
std::optional<int> Request(const std::function<void()>& call);

/** After a request whose reply nobody waits for: delivers it. @throws Failure if to nobody */
void Deliver();

/**
 * A method call past the library; never starts a service.
 * @param arguments a tuple or NULL
 * @throws Failure for what became of it
 */
Variant CallBus(const char* service, const char* path, const char* interface, const char* method,
                GVariant* arguments, int milliseconds = 5000);

} // namespace cli

#endif
