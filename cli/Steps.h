// SPDX-License-Identifier: MIT
/**
 * @file Steps.h
 * What a line of the library's log says about the request that it belongs to. Told by the line's
 * format, which a call of the platform log and a trace record both have: arguments cannot be
 * mistaken for a step.
 */
#ifndef CLI_STEPS_H
#define CLI_STEPS_H

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace cli
{

/** The steps in the order in which a request goes through them. */
enum class Step
{
    entry,        ///< an exported function has been entered
    connecting,   ///< begins; these three are an operation of their own, InitDbusConnection
    connected,    ///< now or before
    notConnected, ///< no bus, or no proxy
    bridge,       ///< another line of an exported function
    announced,
    wrongParameter, ///< the caller's
    waiting,        ///< for its turn; once for each attempt
    returned,       ///< the call has, with an answer or without
    answered,       ///< by a number, which is in the line; or sent, where no answer is waited for
    line,           ///< any other line: an item of a list, a registration
    listed,         ///< the answer is a list: its size, or one of its levels
    gaveUp,         ///< its turn never came
    noProxy,
    noAnswer,
    byte, ///< of an S/PDIF signal; one line for each
    over  ///< not a line: the request takes no more of them
};

inline constexpr std::string_view kPrefix =
    "%s: %s(%d) > "; // file, function, line: in the log alone

/** By how the format begins; the first that fits. */
inline constexpr std::pair<std::string_view, Step> kSteps[] = {
    {"ZAV_API_BRIDGE AudioEffect", Step::entry}, // InitSpeakerManager begins with its state
    {"ZAV_API_BRIDGE ", Step::bridge},
    {"ZAV_API_BRIDGE", Step::entry},
    {"Called", Step::connecting},
    {"connection=%p, proxy = %p", Step::connected},
    {"Already initialized", Step::connected},
    {"Bus get sync failed", Step::notConnected},
    {"Bus proxy new failed", Step::notConnected},
    {"Sending InitSpeakerManager", Step::bridge},
    {"Sending Integer Data to ZAVService", Step::announced},
    {"Wrong ", Step::wrongParameter},
    {"%s API is busy. wait", Step::waiting},
    {"Returned from ZAVService", Step::returned},
    {"IntDataReceived: %d", Step::answered},
    {"From: [ZAVService]", Step::listed},
    {"Speaker Size[%d]", Step::listed},
    {"API is busy. give up", Step::gaveUp},
    {"Error::Please initialize", Step::noProxy},
    {"The integer packet received from ZAVService is NULL", Step::noAnswer},
    {"data[%d]: %02x", Step::byte},
};

/** @param format of a log line, with or without the prefix of the log; or of a trace location */
inline Step StepOf(std::string_view format)
{
    if (format.starts_with(kPrefix)) {
        format.remove_prefix(kPrefix.size());
    }
    const auto* const found = std::ranges::find_if(
        kSteps, [format](const auto& step) { return format.starts_with(step.first); });
    return found == std::end(kSteps) ? Step::line : found->second;
}

} // namespace cli

#endif
