// SPDX-License-Identifier: MIT
/**
 * @file LogPoint.h
 * Log points: each writes one line to the platform log and then one trace record.
 *
 *     LOG_POINT(DLOG_INFO, "SID = %s", sid);          in an ordinary function
 *     LOG_SITE(Here);                                 at the head of an operation whose steps are
 *     LOG_POINT_FOR(Site, DLOG_ERROR, "no answer");   function templates over Here
 *
 * Every log point has static records of its own. A step that several operations share is a
 * function template over the operation's site, because a template's local statics exist once for
 * each instantiation: so each operation keeps log points of its own, with its own name and
 * signature, while the step stands in the source once.
 *
 * The message is a literal; it takes two arguments at the most. Not for use in a lambda, whose name
 * would be logged.
 */
#ifndef ZAV_TRACE_LOGPOINT_H
#define ZAV_TRACE_LOGPOINT_H

#include "TraceRecord.h"
#include "dlog.h"

#include <string_view>

#define LOG_POINT(level, ...) LOG_POINT_AS(level, __func__, __PRETTY_FUNCTION__, __VA_ARGS__)

#define LOG_POINT_FOR(Site, level, ...)                                                            \
    LOG_POINT_AS(level, Site::Name(), Site::Signature(), __VA_ARGS__)

/** The call that is never made lets the compiler check the arguments against the message. */
#define LOG_POINT_AS(level, name, signature, ...)                                                  \
    do {                                                                                           \
        static_assert(std::string_view(name) != "operator()", "a lambda has no name to log");      \
        static uint32_t lumoID = 0;                                                                \
        static constinit const TSCodeLocation lumoCodeLocation = {__FILE__, __LINE__, signature,   \
                                                                  &lumoID};                        \
        if (false) {                                                                               \
            __dlog_print(0, level, "ZAV_API", __VA_ARGS__);                                        \
        }                                                                                          \
        log_point::Fire(lumoCodeLocation, level, name, LOG_POINT_PREFIX __VA_ARGS__);              \
    } while (false)

/** Stands before the message in the platform log: file, function, line. */
#define LOG_POINT_PREFIX "%s: %s(%d) > "

/** Binds the enclosing function's name and signature to the local type `Site`. */
#define LOG_SITE(Site) LOG_SITE_AS(Site, __func__, __PRETTY_FUNCTION__)

/** The same with the name and signature under which the operation is known. */
#define LOG_SITE_AS(Site, name, signature)                                                         \
    static constexpr auto& siteName = name;                                                        \
    static constexpr auto& siteSignature = signature;                                              \
    struct Site                                                                                    \
    {                                                                                              \
        static constexpr auto& Name() { return siteName; }                                         \
        static constexpr auto& Signature() { return siteSignature; }                               \
    }

namespace log_point
{

template <class T>
const T& Printable(const T& value)
{
    return value;
}

inline const char* Printable(const lumo::TSLiteral& literal)
{
    return literal.text;
}

// Each source file has these of its own, with its own name in them.
namespace
{

// NOLINTBEGIN(misc-definitions-in-headers)
constexpr std::string_view kPath = __BASE_FILE__;
constexpr const char* kFile = kPath.data() + kPath.rfind('/') + 1; // rfind() gives -1 for none
// NOLINTEND(misc-definitions-in-headers)

/**
 * Both halves of a log point. Out of line: there are many log points and few argument lists.
 * Without a stack protector: the one array is the trace library's own storage.
 * @param format the prefix and the message in one literal
 */
template <class ArgList>
__attribute__((noinline, no_stack_protector)) void Write(const TSCodeLocation& location, int level,
                                                         const char* function, const char* format,
                                                         ArgList args)
{
    args.Apply([&](const auto&... values) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // checked where the log point stands
        __dlog_print(0, level, "ZAV_API", format, kFile, function, location.line,
                     Printable(values)...);
#pragma GCC diagnostic pop
    });
    const lumo::TCLogger logger(location);
    lumo::TSLoggerHelper::Log(location, args, format + sizeof LOG_POINT_PREFIX - 1);
}

/** Gathers the arguments where the log point stands, which may have none. */
template <class... Arguments>
[[gnu::always_inline]] inline void Fire(const TSCodeLocation& location, int level,
                                        const char* function, const char* format,
                                        const Arguments&... arguments)
{
    Write(location, level, function, format, lumo::ArgList(arguments...));
}

} // namespace

} // namespace log_point

#endif
