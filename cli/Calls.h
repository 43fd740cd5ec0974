// SPDX-License-Identifier: MIT
/**
 * @file Calls.h
 * The calls into the library that the records of a trace tell of, with the requests in them.
 */
#ifndef CLI_CALLS_H
#define CLI_CALLS_H

#include "Steps.h"
#include "TraceReader.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cli
{

/** Unsigned: the times in a damaged store may lie further apart than a signed number can tell. */
std::uint64_t Elapsed(std::int64_t from, std::int64_t to);

/** A record, as far as calls and requests are told by it. */
struct TracedLine
{
    Step step;
    std::string_view operation;
    std::int64_t time; ///< ns
    std::string text;  ///< "" where nobody shows it
};

/** A request, or the making of the connection, as far as its lines are in the trace. */
struct TracedRequest
{
    explicit TracedRequest(const TracedLine& line);

    TracedLine first;
    std::optional<std::string> result; ///< the text of the line that tells how it went
    std::int64_t end;                  ///< time of its last line
    Step outcome;                      ///< what the line is that tells how it went
    std::optional<std::int64_t> returned;
    int waits = 0;
    std::int64_t firstWait = 0;
    std::int64_t lastWait = 0;

    /** @return whether the line is the request's; if not, its lines are over */
    bool Add(const TracedLine& line);

    /** When it had the lock, or gave up; no line says so. */
    std::int64_t WaitEnd() const;

private:
    Step m_last;
};

/**
 * A call into the library: of an exported function, or of a method that makes a request. Else a
 * line outside of calls.
 */
struct TracedCall
{
    TracedCall(const trace::Thread& caller, const TracedLine& line);

    trace::Thread thread;
    TracedLine first;
    bool exported;
    std::int64_t end;
    std::vector<TracedRequest> requests; ///< the making of the connection may come first

    bool IsOne() const { return exported || !requests.empty(); }

    /** @return whether the line is the call's; if not, the call is over */
    bool Add(const TracedLine& line);
};

/** Puts the lines of each thread together. */
class TracedCalls
{
public:
    TracedCalls(trace::Source& source, bool withTexts) : m_source(source), m_withTexts(withTexts) {}

    /** The next call that is over, or line outside of calls; those of a thread in their order. */
    std::optional<TracedCall> Next();

    /** The time of the first line. */
    std::int64_t Start() const { return m_start.value_or(0); }

private:
    TracedLine Read(const trace::Record& record);

    trace::Source& m_source;
    bool m_withTexts;
    std::map<trace::Thread, TracedCall> m_current; ///< of each thread
    std::optional<std::int64_t> m_start;
};

} // namespace cli

#endif
