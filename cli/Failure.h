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
    const char* key;
    int exitCode;
    const char* meaning;
};

inline constexpr CauseRow kCauses[] = {
    {Cause::refused, "refused", 1, "ZAVService refused the request"},
    {Cause::failed, "failed", 1, "a check of zavctl's own failed"},
    {Cause::usage, "usage", 2, "bad usage"},
    {Cause::noAnswer, "no-answer", 3, "no answer in time"},
    {Cause::notRunning, "not-running", 4, "ZAVService is not running"},
    {Cause::notStarted, "not-started", 4, "the bus could not start ZAVService"},
    {Cause::noBus, "no-bus", 5, "no system bus"},
    {Cause::denied, "denied", 5, "the bus denies access"},
    {Cause::busy, "busy", 6, "other requests keep the connection to ZAVService busy"},
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
