// SPDX-License-Identifier: MIT
#include "Steps.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace cli
{

namespace
{

constexpr std::string_view kPrefix = "%s: %s(%d) > "; // file, function, line: in the log alone

/** By how the format begins; the first that fits. */
constexpr std::pair<std::string_view, Step> kSteps[] = {
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

} // namespace

Step StepOf(std::string_view format)
{
    if (format.starts_with(kPrefix)) {
        format.remove_prefix(kPrefix.size());
    }
    const auto* const found = std::ranges::find_if(
        kSteps, [format](const auto& step) { return format.starts_with(step.first); });
    return found == std::end(kSteps) ? Step::line : found->second;
}

} // namespace cli
