// SPDX-License-Identifier: MIT
//
// `zavctl trace`: shows what a trace store or a text log holds.
#include "Steps.h"
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
#include <optional>
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

// ---- The requests -------------------------------------------------------------------------------

/** A record as the requests see it. */
struct Line
{
    Step step;
    std::string_view operation;
    std::int64_t time;
    std::string text; ///< only for those who show it
};

/** A request, or the making of the connection, as far as its lines are in the trace. */
struct Request
{
    explicit Request(const Line& line)
        : first(line), end(line.time), outcome(line.step), m_last(line.step)
    {
    }

    Line first;
    std::optional<std::string> result; ///< the text of the line that tells how it went
    std::int64_t end;                  ///< time of its last line
    Step outcome;                      ///< what the line is that tells how it went
    std::optional<std::int64_t> returned;
    int waits = 0;
    std::int64_t firstWait = 0;
    std::int64_t lastWait = 0;

    /** @return whether the line is the request's; if not, its lines are over */
    bool Add(const Line& line)
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

    /** When it had the lock, or gave up; no line says so. */
    std::int64_t WaitEnd() const
    {
        const std::int64_t latest = returned.value_or(end);
        return Elapsed(lastWait, latest) < kPause ? latest
                                                  : lastWait + static_cast<std::int64_t>(kPause);
    }

private:
    Step m_last;
};

/**
 * A call into the library: of an exported function, or of a method that makes a request. Else a
 * line outside of calls.
 */
struct Call
{
    Call(const Thread& caller, const Line& line)
        : thread(caller), first(line), exported(line.step == Step::entry), end(line.time)
    {
        if (line.step == Step::connecting || line.step == Step::announced) {
            requests.emplace_back(line);
        }
    }

    Thread thread;
    Line first;
    bool exported;
    std::int64_t end;
    std::vector<Request> requests; ///< the making of the connection may come before the other

    bool IsOne() const { return exported || !requests.empty(); }

    /** @return whether the line is the call's; if not, the call is over */
    bool Add(const Line& line)
    {
        const Step step = line.step;
        const bool isOwn = exported && line.operation == first.operation;
        Request* const latest = requests.empty() ? nullptr : &requests.back();
        const bool isAsked =
            latest && latest->first.operation == first.operation; // what was called for
        bool added = false;
        if (exported && ((step == Step::connecting && !latest) ||
                         (step == Step::announced && isOwn && !isAsked))) {
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
};

/** Puts the lines of each thread together. */
class Calls
{
public:
    Calls(Source& source, bool withTexts) : m_source(source), m_withTexts(withTexts) {}

    /** The next call that is over, or line outside of calls; those of a thread in their order. */
    std::optional<Call> Next()
    {
        while (const Record* record = m_source.Next()) {
            const Line line = Read(*record);
            const auto current = m_current.find(record->thread);
            if (current != m_current.end() && current->second.Add(line)) {
                continue;
            }
            Call call(record->thread, line);
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

    /** The time of the first line. */
    std::int64_t Start() const { return m_start.value_or(0); }

private:
    Line Read(const Record& record)
    {
        m_start = m_start.value_or(record.time);
        return {StepOf(record.location->message), record.location->operation, record.time,
                m_withTexts ? Message(record) : ""};
    }

    Source& m_source;
    bool m_withTexts;
    std::map<Thread, Call> m_current; ///< of each thread
    std::optional<std::int64_t> m_start;
};

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

    void Add(const Request& request)
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
    Calls calls(source, false);
    while (const auto call = calls.Next()) {
        for (const Request& request : call->requests) {
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
        Calls calls(source, true);
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

    void Add(const Call& call)
    {
        const auto& [step, operation, start, text] = call.first;
        if (!call.IsOne()) {
            Add("i", start, {{"name", operation}, {"s", "t"}, {"args", {{"message", text}}}});
        }
        if (call.exported) {
            Begin(start, "export " + std::string(operation));
        }
        std::ranges::for_each(call.requests, [this](const Request& request) { Add(request); });
        if (call.exported) {
            End(call.end);
        }
    }

    void Add(const Request& request)
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
