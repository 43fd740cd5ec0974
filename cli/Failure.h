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

    static const Cause kRefused, kFailed, kUsage, kNoAnswer, kNotRunning, kNotStarted, kNoBus,
        kDenied, kBusy;

    bool operator==(const Cause&) const = default;
};

inline constexpr Cause Cause::kRefused{1, "refused", "ZAVService refused the request"};
inline constexpr Cause Cause::kFailed{1, "failed", "a check of zavctl's own failed"};
inline constexpr Cause Cause::kUsage{2, "usage", "bad usage"};
inline constexpr Cause Cause::kNoAnswer{3, "no-answer", "no answer in time"};
inline constexpr Cause Cause::kNotRunning{4, "not-running", "ZAVService is not running"};
inline constexpr Cause Cause::kNotStarted{4, "not-started", "the bus could not start ZAVService"};
inline constexpr Cause Cause::kNoBus{5, "no-bus", "no system bus"};
inline constexpr Cause Cause::kDenied{5, "denied", "the bus denies access"};
inline constexpr Cause Cause::kBusy{6, "busy",
                                    "other requests keep the connection to ZAVService busy"};

inline constexpr Cause kCauses[] = {Cause::kRefused,  Cause::kFailed,     Cause::kUsage,
                                    Cause::kNoAnswer, Cause::kNotRunning, Cause::kNotStarted,
                                    Cause::kNoBus,    Cause::kDenied,     Cause::kBusy};

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
