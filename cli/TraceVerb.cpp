// SPDX-License-Identifier: MIT
//
// `zavctl trace`: shows what a trace store or a text log holds.
#include "Calls.h"
#include "TextLog.h"
#include "TraceReader.h"
#include "Verbs.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <deque>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

namespace cli
{
namespace
{

using trace::Record;
using trace::Source;
using trace::Thread;

struct
{
    std::string file;
    bool stat = false;   ///< a summary for each operation
    bool follow = false; ///< go on with the records that come while somebody traces
    bool plain = false;  ///< without what differs from run to run
    std::string chrome;  ///< where to write a timeline, "" for none
} options;

double Microseconds(std::uint64_t nanoseconds)
{
    return static_cast<double>(nanoseconds) / 1000;
}

std::string LocalTime(std::int64_t time)
{
    using namespace std::chrono;
    static std::time_t shown = -1; // worked out once a second: it costs more than a line
    static char text[64] = "";
    const nanoseconds sinceEpoch(time);
    const auto second = floor<seconds>(sinceEpoch);
    if (const std::time_t clock = second.count(); clock != shown) {
        std::tm local{};
        std::strftime(text, sizeof text, "%F %T.", localtime_r(&clock, &local));
        shown = clock;
    }
    const auto micros = duration_cast<microseconds>(sinceEpoch - second + 1s).count();
    return text + std::to_string(micros).substr(1);
}

// ---- The records --------------------------------------------------------------------------------

/** The message, if need be without the digits of its addresses. */
std::string MessageOf(const Record& record)
{
    std::string text = Message(record);
    for (std::size_t at = 0; options.plain && (at = text.find("0x", at)) != std::string::npos;) {
        at += 2;
        text.replace(at, text.find_first_not_of("0123456789abcdef", at) - at, "..");
    }
    return text;
}

void ShowAsText(const Record& record)
{
    if (!options.plain) {
        std::cout << LocalTime(record.time) << ' ' << record.thread.number << ' ';
    }
    std::cout << Printable(record.location->operation + ": " + MessageOf(record)) << '\n';
}

json ArgumentsOf(const Record& record)
{
    json arguments = json::array();
    auto type = record.location->arguments.begin();
    for (const trace::Value& value : trace::Arguments(record)) {
        json argument;
        std::visit([&argument](const auto& plain) { argument = plain; }, value);
        arguments.push_back((type++)->typeName == "bool" ? json(argument != 0) : argument);
    }
    return arguments;
}

void ShowAsJson(const Record& record)
{
    json line = {{"time", std::to_string(record.time)}, // more digits than a double has
                 {"process", record.thread.process},
                 {"thread", record.thread.number},
                 {"operation", record.location->operation},
                 {"function", record.location->function},
                 {"file", record.location->file},
                 {"line", record.location->line},
                 {"message", MessageOf(record)},
                 {"format", record.location->message},
                 {"arguments", ArgumentsOf(record)}};
    if (options.plain) {
        for (const char* varying : {"time", "process", "thread", "arguments"}) {
            line.erase(varying);
        }
    }
    std::cout << Dump(line) << '\n';
}

void ShowRecords(Source& source)
{
    for (bool goesOn = true; goesOn && std::cout;) {
        goesOn = options.follow && source.IsInUse(); // asked before the last look
        while (const Record* record = source.Next()) {
            (asJson ? ShowAsJson : ShowAsText)(*record);
        }
        if (goesOn && std::cout.flush()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
}

// ---- The summary --------------------------------------------------------------------------------

struct Summary
{
    int requests = 0;
    int waits = 0;
    std::deque<std::uint64_t> durations; ///< of the requests whose end is in the trace
    std::map<Step, int> outcomes;

    void Add(const TracedRequest& request)
    {
        ++requests;
        waits += request.waits;
        ++outcomes[request.outcome];
        if (request.result) {
            durations.push_back(Elapsed(request.first.time, request.end));
        }
    }

    /** By the nearest rank; null when no request has ended. */
    json Percentile(std::size_t percent)
    {
        if (durations.empty()) {
            return nullptr;
        }
        const std::size_t rank = (durations.size() * percent + 99) / 100;
        const auto place = durations.begin() + static_cast<std::ptrdiff_t>(rank - 1);
        std::ranges::nth_element(durations, place);
        return Microseconds(*place);
    }

    json Describe(std::string_view operation)
    {
        return {{"operation", operation},
                {"requests", requests},
                {"median_us", Percentile(50)},
                {"p99_us", Percentile(99)},
                {"busy_waits", waits},
                {"gave_up", outcomes[Step::gaveUp]},
                {"no_proxy", outcomes[Step::noProxy]},
                {"no_answer", outcomes[Step::noAnswer]},
                {"not_connected", outcomes[Step::notConnected]}};
    }
};

/** Adds the requests up by operation. */
void ShowSummaries(Source& source)
{
    std::map<std::string_view, Summary> summaries;
    TracedCalls calls(source, false);
    while (const auto call = calls.Next()) {
        for (const TracedRequest& request : call->requests) {
            summaries[request.first.operation].Add(request);
        }
    }
    std::vector<Row> table(1);
    const json names = Summary().Describe("");
    for (const auto& [name, value] : names.items()) {
        table[0].push_back(name);
    }
    for (auto& [operation, summary] : summaries) {
        const json values = summary.Describe(operation);
        asJson ? PrintJson(values) : table.push_back(Values(values));
    }
    PrintText(asJson ? "" : Lines(table, OnTerminal()));
}

// ---- The timeline -------------------------------------------------------------------------------

/**
 * Slices are written as pairs of events: with one event for both ends, each a rounded time and a
 * rounded length, a slice might reach beyond the one around it.
 */
class Timeline
{
public:
    explicit Timeline(std::ostream& out) : m_out(out) {}

    void Write(Source& source)
    {
        m_out << "{\"traceEvents\":[";
        TracedCalls calls(source, true);
        while (const auto call = calls.Next()) {
            m_start = calls.Start();
            m_threads.insert(m_thread = call->thread);
            Add(*call);
        }
        for (const Thread& thread : m_threads) {
            const auto& [process, number] = m_thread = thread;
            const std::string name = (number == process ? "main thread " : "thread ");
            Add("M", m_start,
                {{"name", "thread_name"}, {"args", {{"name", name + std::to_string(number)}}}});
        }
        m_out << "],\n\"displayTimeUnit\":\"ms\",\n\"otherData\":"
              << Dump({{"start", LocalTime(m_start)}}) << "}\n";
    }

private:
    void Add(const char* phase, std::int64_t time, json event)
    {
        event["ph"] = phase;
        event["pid"] = m_thread.process;
        event["tid"] = m_thread.number;
        event["ts"] = Microseconds(Elapsed(m_start, time));
        m_out << std::exchange(m_separator, ",\n") << Dump(event);
    }

    void Begin(std::int64_t time, const std::string& name, const json& args = json::object())
    {
        Add("B", time, {{"name", name}, {"args", args}});
    }

    void End(std::int64_t time) { Add("E", time, json::object()); }

    void Add(const TracedCall& call)
    {
        const auto& [step, operation, start, text] = call.first;
        if (!call.IsOne()) {
            Add("i", start, {{"name", operation}, {"s", "t"}, {"args", {{"message", text}}}});
        }
        if (call.exported) {
            Begin(start, "export " + std::string(operation));
        }
        std::ranges::for_each(call.requests,
                              [this](const TracedRequest& request) { Add(request); });
        if (call.exported) {
            End(call.end);
        }
    }

    void Add(const TracedRequest& request)
    {
        json args = {{"announcement", request.first.text}, {"busy_waits", request.waits}};
        if (request.result) {
            args["result"] = *request.result;
        }
        Begin(request.first.time, std::string(request.first.operation), args);
        if (request.waits > 0) {
            Begin(request.firstWait, "wait for the lock");
            End(request.WaitEnd());
        }
        if (request.returned) {
            Begin(request.waits > 0 ? request.WaitEnd() : request.first.time, "call");
            End(*request.returned);
        }
        End(request.end);
    }

    std::ostream& m_out;
    Thread m_thread = {}; ///< whose events are being added
    std::int64_t m_start = 0;
    std::set<Thread> m_threads;
    const char* m_separator = "\n";
};

bool IsStore(const std::string& path)
{
    std::uint64_t magic = 0;
    return std::filesystem::is_regular_file(path) &&
           std::ifstream(path).read(reinterpret_cast<char*>(&magic), sizeof magic) &&
           ((magic ^ lumo::format::kMagic) & lumo::format::kMagicOfAny) == 0;
}

/** It is made anew, but not where a trace is. */
void WriteTimeline(Source& source)
{
    const std::string& path = options.chrome;
    std::error_code error; // of a file that is not there
    if (IsStore(path) || std::filesystem::equivalent(path, options.file, error)) {
        throw Failure(Cause::kUsage, path + ": is a trace; the timeline would destroy it");
    }
    std::ofstream out(path);
    Timeline(out).Write(source);
    out.close();
    if (!out) {
        throw Failure(Cause::kFailed,
                      path + ": cannot be written: " + std::generic_category().message(errno));
    }
}

std::unique_ptr<Source> Open()
{
    static std::ifstream file; // stays open as long as its source
    if (options.file == "-") {
        return std::make_unique<TextLog>(std::cin);
    }
    if (IsStore(options.file)) {
        return std::make_unique<trace::Reader>(options.file);
    }
    file = std::ifstream(options.file);
    if (!file) {
        throw std::system_error(errno, std::generic_category());
    }
    return std::make_unique<TextLog>(file);
}

void Show()
try {
    const bool hasTimeline = !options.chrome.empty();
    const bool hasAnother = !hasTimeline || options.stat || asJson;
    if (hasTimeline && hasAnother && options.file == "-") {
        throw Failure(Cause::kUsage, "standard input can be read once: --chrome or another view");
    }
    auto source = Open();
    if (hasTimeline) {
        WriteTimeline(*source);
        source = hasAnother ? Open() : std::move(source); // each view reads for itself
    }
    if (hasAnother) {
        options.stat ? ShowSummaries(*source) : ShowRecords(*source);
    }
    PrintText("");
    for (const auto& [count, what] : source->Losses()) {
        if (count > 0) {
            std::cerr << "zavctl: " << options.file << ": " << count << ' ' << what << '\n';
        }
    }
    if (const auto damage = source->Damage()) {
        throw std::runtime_error("damaged: " + *damage);
    }
} catch (const Failure&) {
    throw;
} catch (const std::exception& error) {
    throw Failure(Cause::kFailed, options.file + ": " + error.what());
}

Action Trace(CLI::App& verb)
{
    verb.add_option("FILE", options.file, "A trace store, or a text log; - for standard input")
        ->required()
        ->type_name("FILE");
    verb.add_flag("--stat", options.stat, "A summary for each operation");
    verb.add_option("--chrome", options.chrome, "Write a timeline to this file")->type_name("FILE");
    verb.add_flag("--follow", options.follow, "Go on while the program runs that traces")
        ->excludes("--stat", "--chrome");
    verb.add_flag("--plain", options.plain, "Leave out times, threads and addresses")
        ->excludes("--stat", "--chrome");
    return Show;
}

} // namespace

const Verbs kTraceVerbs = {
    {"trace", "Show what a trace store or a text log holds", Trace},
};

} // namespace cli
