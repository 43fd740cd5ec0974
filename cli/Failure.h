// SPDX-License-Identifier: MIT
/** @file Failure.h Why zavctl did not do what it was asked. */
#ifndef CLI_FAILURE_H
#define CLI_FAILURE_H

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace cli
{

using json = nlohmann::ordered_json;

enum class Cause
{
    refused,
    failed,
    usage,
    noAnswer,
    notRunning,
    notStarted,
    noBus,
    denied,
    busy
};

/** All that is known of a cause. Key and exit code are for scripts: they stay as they are. */
struct CauseRow
{
    Cause cause;
    int exitCode;
    const char* key;
    const char* meaning;
};

inline constexpr CauseRow kCauses[] = {
    {Cause::refused, 1, "refused", "ZAVService refused the request"},
    {Cause::failed, 1, "failed", "a check of zavctl's own failed"},
    {Cause::usage, 2, "usage", "bad usage"},
    {Cause::noAnswer, 3, "no-answer", "no answer in time"},
    {Cause::notRunning, 4, "not-running", "ZAVService is not running"},
    {Cause::notStarted, 4, "not-started", "the bus could not start ZAVService"},
    {Cause::noBus, 5, "no-bus", "no system bus"},
    {Cause::denied, 5, "denied", "the bus denies access"},
    {Cause::busy, 6, "busy", "other requests keep the connection to ZAVService busy"},
};

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
        const Failure bare(why, "");
        return {why, bare.Row().meaning + (detail.empty() ? "" : ": " + detail)};
    }

    const CauseRow& Row() const { return *std::ranges::find(kCauses, cause, &CauseRow::cause); }
    int ExitCode() const { return Row().exitCode; }

    Cause cause;
    json data;
};

} // namespace cli

#endif
