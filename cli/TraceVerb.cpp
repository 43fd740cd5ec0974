// SPDX-License-Identifier: MIT
#include "TraceVerb.h"

#include "Output.h"
#include "Steps.h"
#include "TraceStore.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

namespace cli
{
namespace
{

using trace::Record;

constexpr std::uint64_t kPause = 10'000'000; // ns that a request sleeps after a busy line

/** Unsigned: the times in a damaged store may lie further apart than a signed number can tell. */
std::uint64_t Elapsed(std::int64_t from, std::int64_t to)
{
    return static_cast<std::uint64_t>(to) - static_cast<std::uint64_t>(from);
}

double Microseconds(std::uint64_t nanoseconds)
{
    return static_cast<double>(nanoseconds) / 1000;
}

std::string LocalTime(std::int64_t time)
{
    using namespace std::chrono;
    const nanoseconds sinceEpoch(time);
    const auto second = floor<seconds>(sinceEpoch);
    const std::time_t clock = second.count();
    std::tm local{};
    localtime_r(&clock, &local);
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%F %T", &local);
    const auto micros = duration_cast<microseconds>(sinceEpoch - second).count();
    std::snprintf(&text[length], text.size() - length, ".%06d", static_cast<int>(micros));
    return text.data();
}

/** JSON on one line. The texts come from anywhere and need not be UTF-8. */
std::string Dump(const json& data)
{
    return data.dump(-1, ' ', false, json::error_handler_t::replace);
}

// ---- What the lines of a thread tell ------------------------------------------------------------

/** A request, as far as its lines are in the trace. */
struct Request
{
    explicit Request(const Record& record) : announcement(&record), end(record.time) {}

    const Record* announcement;
    const Record* result = nullptr; ///< the line that tells how it went
    Step outcome = Step::announced; ///< what that line is
    std::int64_t end;               ///< time of its last line
    std::optional<std::int64_t> returned;
    int waits = 0;
    std::int64_t firstWait = 0;
    std::int64_t lastWait = 0;

    /** Whether the line is the request's; if not, its lines are over. */
    bool Takes(const Record& record, Step step)
    {
        const bool item = step == Step::line || step == Step::listed;
        const bool repeats = step == Step::waiting || item;
        if (step < last || (step == last && !repeats)) {
            // The line belongs to a request whose announcement is not in the trace.
            last = Step::over;
            return false;
        }
        last = step;
        end = record.time;
        if (step == Step::waiting) {
            firstWait = waits++ == 0 ? record.time : firstWait;
            lastWait = record.time;
        } else if (!item) {
            result = &record;
            outcome = step;
        }
        if ((step == Step::returned || step == Step::answered) && !returned) {
            returned = record.time;
        }
        return true;
    }

    /** When it had the lock, or gave up; no line says so. */
    std::int64_t WaitEnd() const
    {
        const std::int64_t latest = returned.value_or(end);
        return Elapsed(lastWait, latest) < kPause ? latest
                                                  : lastWait + static_cast<std::int64_t>(kPause);
    }

private:
    Step last = Step::announced;
};

/** A call into the library: of an exported function, or of a method that makes a request. */
struct Call
{
    std::string operation;
    bool exported;
    std::int64_t start;
    std::int64_t end;
    std::optional<Request> request;

    bool Takes(const Record& record, Step step)
    {
        if (step == Step::bridge) {
            return exported;
        }
        return !request || request->Takes(record, step);
    }
};

struct Thread
{
    std::vector<Call> calls;
    std::vector<const Record*> others; ///< the lines outside of calls

    void Follow(const Record& record)
    {
        const Step step = StepOf(record.location->message);
        const std::string operation = trace::Operation(*record.location);
        Call* call = calls.empty() || calls.back().operation != operation ? nullptr : &calls.back();
        if (step == Step::entry || (step == Step::announced && (!call || call->request))) {
            call = &calls.emplace_back(
                Call{operation, step == Step::entry, record.time, record.time, {}});
        }
        if (step == Step::announced) {
            call->request.emplace(record);
        } else if (step != Step::entry && !(call && call->Takes(record, step))) {
            others.push_back(&record);
            return;
        }
        call->end = record.time;
    }
};

std::map<std::uint32_t, Thread> Threads(const trace::Store& store)
{
    std::map<std::uint32_t, Thread> threads;
    for (const Record& record : store.records) {
        threads[record.thread].Follow(record);
    }
    return threads;
}

// ---- The records --------------------------------------------------------------------------------

void ShowAsText(const Record& record)
{
    std::string line = LocalTime(record.time) + ' ' + std::to_string(record.thread) + ' ' +
                       trace::Operation(*record.location) + ": " + trace::Message(record);
    std::ranges::replace_if(
        line, [](unsigned char c) { return c < ' ' || c == 0x7F; }, ' ');
    std::cout << line << '\n';
}

void ShowAsJson(const Record& record)
{
    json arguments = json::array();
    auto type = record.location->arguments.begin();
    for (const trace::Value& value : trace::Arguments(record)) {
        json argument;
        std::visit([&argument](const auto& plain) { argument = plain; }, value);
        arguments.push_back((type++)->typeName == "bool" ? json(argument != 0) : argument);
    }
    std::cout << Dump({{"time", record.time},
                       {"thread", record.thread},
                       {"operation", trace::Operation(*record.location)},
                       {"function", record.location->function},
                       {"file", record.location->file},
                       {"line", record.location->line},
                       {"message", trace::Message(record)},
                       {"format", record.location->message},
                       {"arguments", std::move(arguments)}})
              << '\n';
}

// ---- The summary --------------------------------------------------------------------------------

struct Summary
{
    int requests = 0;
    int waits = 0;
    std::vector<std::uint64_t> durations; ///< of the requests whose end is in the trace
    std::map<Step, int> outcomes;

    void Add(const Request& request)
    {
        ++requests;
        waits += request.waits;
        ++outcomes[request.outcome];
        if (request.result) {
            durations.push_back(Elapsed(request.announcement->time, request.end));
        }
    }

    /** By the nearest rank; null when no request has ended. */
    json Percentile(std::size_t percent)
    {
        if (durations.empty()) {
            return nullptr;
        }
        std::ranges::sort(durations);
        return Microseconds(durations[(durations.size() * percent + 99) / 100 - 1]);
    }

    json Describe(const std::string& operation)
    {
        return {{"operation", operation},
                {"requests", requests},
                {"median_us", Percentile(50)},
                {"p99_us", Percentile(99)},
                {"busy_waits", waits},
                {"gave_up", outcomes[Step::gaveUp]},
                {"no_proxy", outcomes[Step::noProxy]},
                {"no_answer", outcomes[Step::noAnswer]}};
    }
};

void PrintSummary(const std::map<std::uint32_t, Thread>& threads, bool asJson)
{
    std::map<std::string, Summary> summaries;
    for (const auto& [number, thread] : threads) {
        for (const Call& call : thread.calls) {
            if (call.request) {
                summaries[call.operation].Add(*call.request);
            }
        }
    }
    std::vector<Row> table(1);
    const json names = Summary().Describe("");
    for (const auto& [name, value] : names.items()) {
        table[0].push_back(name);
    }
    for (auto& [operation, summary] : summaries) {
        const json values = summary.Describe(operation);
        if (asJson) {
            std::cout << Dump(values) << '\n';
        }
        Row& row = table.emplace_back(Row{operation});
        std::transform(std::next(values.begin()), values.end(), std::back_inserter(row),
                       [](const json& value) { return value.is_null() ? "-" : Dump(value); });
    }
    if (!asJson) {
        PrintRows(table);
    }
}

// ---- The timeline -------------------------------------------------------------------------------

/**
 * Slices are written as pairs of events: with one event for both ends, each a rounded time and a
 * rounded length, a slice might reach beyond the one around it.
 */
class Timeline
{
public:
    Timeline(std::ostream& out, const trace::Store& store)
        : m_out(out), m_process(store.process),
          m_start(store.records.empty() ? 0 : store.records.front().time)
    {
    }

    void Write(const std::map<std::uint32_t, Thread>& threads)
    {
        m_out << "{\"traceEvents\":[";
        for (const auto& [number, thread] : threads) {
            m_thread = number;
            const bool isMain = number == m_process;
            const std::string name = (isMain ? "main thread " : "thread ") + std::to_string(number);
            Add("M", m_start, {{"name", "thread_name"}, {"args", {{"name", name}}}});
            std::ranges::for_each(thread.calls, [this](const Call& call) { AddCall(call); });
            for (const Record* record : thread.others) {
                Add("i", record->time,
                    {{"name", trace::Operation(*record->location)},
                     {"s", "t"},
                     {"args", {{"message", trace::Message(*record)}}}});
            }
        }
        m_out << "],\n\"displayTimeUnit\":\"ms\",\n\"otherData\":"
              << Dump({{"start", LocalTime(m_start)}}) << "}\n";
    }

private:
    void Add(const char* phase, std::int64_t time, json event)
    {
        event["ph"] = phase;
        event["pid"] = m_process;
        event["tid"] = m_thread;
        event["ts"] = Microseconds(Elapsed(m_start, time));
        m_out << std::exchange(m_separator, ",\n") << Dump(event);
    }

    void Begin(std::int64_t time, const std::string& name, const json& args = json::object())
    {
        Add("B", time, {{"name", name}, {"args", args}});
    }

    void End(std::int64_t time) { Add("E", time, json::object()); }

    void AddCall(const Call& call)
    {
        if (call.exported) {
            Begin(call.start, "export " + call.operation);
        }
        if (call.request) {
            AddRequest(call.operation, *call.request);
        }
        if (call.exported) {
            End(call.end);
        }
    }

    void AddRequest(const std::string& operation, const Request& request)
    {
        json args = {{"announcement", trace::Message(*request.announcement)},
                     {"busy_waits", request.waits}};
        if (request.result) {
            args["result"] = trace::Message(*request.result);
        }
        Begin(request.announcement->time, operation, args);
        if (request.waits > 0) {
            Begin(request.firstWait, "wait for the lock");
            End(request.WaitEnd());
        }
        if (request.returned) {
            Begin(request.waits > 0 ? request.WaitEnd() : request.announcement->time, "call");
            End(*request.returned);
        }
        End(request.end);
    }

    std::ostream& m_out;
    const std::uint32_t m_process;
    const std::int64_t m_start;
    std::uint32_t m_thread = 0;
    const char* m_separator = "\n";
};

void WriteTimeline(const std::string& path, const trace::Store& store)
{
    std::ofstream out(path);
    Timeline(out, store).Write(Threads(store));
    out.close();
    if (!out) {
        throw Failure(Cause::failed,
                      path + ": cannot be written: " + std::generic_category().message(errno));
    }
}

} // namespace

void Trace(const TraceOptions& options)
try {
    const trace::Store store = trace::ReadStore(options.file);
    if (!options.chrome.empty()) {
        WriteTimeline(options.chrome, store);
    }
    if (options.stat) {
        PrintSummary(Threads(store), options.json);
    } else if (options.chrome.empty() || options.json) {
        std::ranges::for_each(store.records, options.json ? ShowAsJson : ShowAsText);
    }
    if (!std::cout.flush()) {
        throw Failure(Cause::failed, "standard output: cannot be written");
    }
    if (store.dropped > 0) {
        std::cerr << "zavctl: " << options.file << ": " << store.dropped
                  << " records found no room\n";
    }
    if (store.damage) {
        throw std::runtime_error("damaged: " + *store.damage);
    }
} catch (const Failure&) {
    throw;
} catch (const std::exception& error) {
    throw Failure(Cause::failed, options.file + ": " + error.what());
}

} // namespace cli
