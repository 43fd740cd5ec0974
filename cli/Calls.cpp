// SPDX-License-Identifier: MIT
#include "Calls.h"

#include <utility>

namespace cli
{
namespace
{

constexpr std::int64_t kPause = 10'000'000; // ns that a request sleeps after a busy line

} // namespace

std::uint64_t Elapsed(std::int64_t from, std::int64_t to)
{
    return static_cast<std::uint64_t>(to) - static_cast<std::uint64_t>(from);
}

TracedRequest::TracedRequest(const TracedLine& line)
    : first(line), end(line.time), outcome(line.step), m_last(line.step)
{
}

bool TracedRequest::Add(const TracedLine& line)
{
    const Step step = line.step;
    const bool item = step == Step::line || step == Step::listed;
    if (step < m_last || (step == m_last && step != Step::waiting && !item)) {
        // The line belongs to a request whose announcement is not in the trace.
        m_last = Step::over;
        return false;
    }
    m_last = step;
    end = line.time;
    if (step == Step::waiting) {
        firstWait = waits++ == 0 ? line.time : firstWait;
        lastWait = line.time;
    } else if (!item) {
        result = line.text;
        outcome = step;
    }
    if ((step == Step::returned || step == Step::answered) && !returned) {
        returned = line.time;
    }
    return true;
}

std::int64_t TracedRequest::WaitEnd() const
{
    const std::int64_t latest = returned.value_or(end);
    return Elapsed(lastWait, latest) < kPause ? latest : lastWait + kPause;
}

TracedCall::TracedCall(const trace::Thread& caller, const TracedLine& line)
    : thread(caller), first(line), exported(line.step == Step::entry), end(line.time)
{
    if (line.step == Step::connecting || line.step == Step::announced) {
        requests.emplace_back(line);
    }
}

bool TracedCall::Add(const TracedLine& line)
{
    const Step step = line.step;
    const bool isOwn = exported && line.operation == first.operation;
    TracedRequest* const latest = requests.empty() ? nullptr : &requests.back();
    const bool isAsked =
        latest && latest->first.operation == first.operation; // what was called for
    bool added = false;
    if (exported &&
        ((step == Step::connecting && !latest) || (step == Step::announced && isOwn && !isAsked))) {
        requests.emplace_back(line);
        added = true;
    } else if (step == Step::bridge || !latest || latest->first.operation != line.operation) {
        added = isOwn && step != Step::entry && (step == Step::bridge || !isAsked);
    } else {
        added = step != Step::entry && latest->Add(line);
    }
    end = added ? line.time : end;
    return added;
}

std::optional<TracedCall> TracedCalls::Next()
{
    while (const trace::Record* record = m_source.Next()) {
        const TracedLine line = Read(*record);
        const auto current = m_current.find(record->thread);
        if (current != m_current.end() && current->second.Add(line)) {
            continue;
        }
        TracedCall call(record->thread, line);
        if (!call.IsOne()) {
            return call;
        }
        if (current != m_current.end()) {
            return std::exchange(current->second, std::move(call));
        }
        m_current.emplace(record->thread, std::move(call));
    }
    return m_current.empty() ? std::nullopt
                             : std::optional(m_current.extract(m_current.begin()).mapped());
}

TracedLine TracedCalls::Read(const trace::Record& record)
{
    m_start = m_start.value_or(record.time);
    return {StepOf(record.location->message), record.location->operation, record.time,
            m_withTexts ? Message(record) : ""};
}

} // namespace cli
