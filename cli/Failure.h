// SPDX-License-Identifier: MIT
/** @file Failure.h Why zavctl did not do what it was asked. */
#ifndef CLI_FAILURE_H
#define CLI_FAILURE_H

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

namespace cli
{

using json = nlohmann::ordered_json;

/** Why. Key and exit code are for scripts: they stay as they are. */
struct Cause
{
    int exitCode;
    std::string_view key;
    std::string_view meaning;

    static const Cause refused, failed, usage, noAnswer, notRunning, notStarted, noBus, denied,
        busy;

    bool operator==(const Cause&) const = default;
};

inline constexpr Cause Cause::refused{1, "refused", "ZAVService refused the request"};
inline constexpr Cause Cause::failed{1, "failed", "a check of zavctl's own failed"};
inline constexpr Cause Cause::usage{2, "usage", "bad usage"};
inline constexpr Cause Cause::noAnswer{3, "no-answer", "no answer in time"};
inline constexpr Cause Cause::notRunning{4, "not-running", "ZAVService is not running"};
inline constexpr Cause Cause::notStarted{4, "not-started", "the bus could not start ZAVService"};
inline constexpr Cause Cause::noBus{5, "no-bus", "no system bus"};
inline constexpr Cause Cause::denied{5, "denied", "the bus denies access"};
inline constexpr Cause Cause::busy{6, "busy",
                                   "other requests keep the connection to ZAVService busy"};

inline constexpr Cause kCauses[] = {Cause::refused,  Cause::failed,     Cause::usage,
                                    Cause::noAnswer, Cause::notRunning, Cause::notStarted,
                                    Cause::noBus,    Cause::denied,     Cause::busy};

struct Failure : std::runtime_error
{
    /** @param found what was found out all the same, for JSON */
    Failure(Cause why, const std::string& message, json found = json::object())
        : std::runtime_error(message), cause(why), data(std::move(found))
    {
    }

    /** Told by the cause's meaning, and the detail if there is one. */
    static Failure For(Cause why, const std::string& detail = "")
    {
        return {why, std::string(why.meaning) + (detail.empty() ? "" : ": " + detail)};
    }

    Cause cause;
    json data;
};

} // namespace cli

#endif
