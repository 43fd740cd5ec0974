// SPDX-License-Identifier: MIT
//
// `zavctl trace`: shows what a trace store holds.
#include "Steps.h"
#include "TraceReader.h"
#include "Verbs.h"

#include <algorithm>
#include <array>
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
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

namespace cli
{
namespace
{

using trace::Record;

struct
{
    std::string file;
    bool stat = false;   ///< a summary for each operation
    bool follow = false; ///< go on with the records that come while somebody traces
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
    const nanoseconds sinceEpoch(time);
    const auto second = floor<seconds>(sinceEpoch);
    static std::time_t shown = -1; // worked out once a second: it costs more than a line
    static std::array<char, 64> text{};
    static std::size_t length = 0;
    if (const std::time_t clock = second.count(); clock != shown || length == 0) {
        std::tm local{};
        localtime_r(&clock, &local);
        length = std::strftime(text.data(), text.size(), "%F %T", &local);
        shown = clock;
    }
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

/** A log point, and what its lines are to the requests. */
struct Point
{
    Step step;
    std::string operation;
};

/** A record as the requests see it. */
struct Line
{
    const Point* point;
    std::int64_t time;
    std::uint32_t thread;
    std::string text; ///< only for those who show it
};

/** The log points of a reader. */
class Points
{
public:
    const Point& Of(const Record& record)
    {
        auto found = m_points.find(record.location);
        if (found == m_points.end()) {
            const auto& location = *record.location;
            const Point point{StepOf(location.message), Operation(location)};
            found = m_points.emplace(&location, point).first;
        }
        return found->second;
    }

private:
    std::unordered_map<const trace::Location*, Point> m_points;
};

/** A request, or the making of the connection, as far as its lines are in the trace. */
struct Request
{
    explicit Request(const Line& line)
        : operation(line.point->operation), announcement(line.text), start(line.time),
          end(line.time), outcome(line.point->step), last(line.point->step)
    {
    }

    const std::string& operation;
    std::string announcement;
    std::optional<std::string> result; ///< the text of the line that tells how it went
    std::int64_t start;
    std::int64_t end; ///< time of its last line
    Step outcome;     ///< what the line is that tells how it went
    std::optional<std::int64_t> returned;
    int waits = 0;
    std::int64_t firstWait = 0;
    std::int64_t lastWait = 0;

    /** Whether the line is the request's; if not, its lines are over. */
    bool Takes(const Line& line)
    {
        const Step step = line.point->step;
        const bool item = step == Step::line || step == Step::listed;
        const bool repeats = step == Step::waiting || item;
        if (step < last || (step == last && !repeats)) {
            // The line belongs to a request whose announcement is not in the trace.
            last = Step::over;
            return false;
        }
        last = step;
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
    Step last;
};

bool Begins(Step step)
{
    return step == Step::entry || step == Step::connecting || step == Step::announced;
}

/** A call into the library: of an exported function, or of a method that makes a request. */
struct Call
{
    explicit Call(const Line& line)
        : operation(line.point->operation), exported(line.point->step == Step::entry),
          start(line.time), end(line.time)
    {
        if (!exported) {
            requests.emplace_back(line);
        }
    }

    const std::string& operation;
    bool exported;
    std::int64_t start;
    std::int64_t end;
    std::vector<Request> requests; ///< the making of the connection may come before the other

    bool Takes(const Line& line)
    {
        const auto& [step, name] = *line.point;
        const bool isOwn = exported && name == operation;
        Request* const latest = requests.empty() ? nullptr : &requests.back();
        const bool isAsked = latest && latest->operation == operation; // what was called for
        bool takes = false;
        if (exported && ((step == Step::connecting && !latest) ||
                         (step == Step::announced && isOwn && !isAsked))) {
            requests.emplace_back(line);
            takes = true;
        } else if (step == Step::bridge || !latest || latest->operation != name) {
            takes = isOwn && step != Step::entry && (step == Step::bridge || !isAsked);
        } else {
            takes = step != Step::entry && latest->Takes(line);
        }
        end = takes ? line.time : end;
        return takes;
    }
};

/**
 * Hands each call to the view when it is over, those of a thread in their order, and the lines
 * outside of calls as they come.
 */
template <class View>
void ShowCalls(trace::Reader& reader, View& view)
{
    Points points;
    std::map<std::uint32_t, std::optional<Call>> threads; // the current call of each
    while (const Record* record = reader.Next()) {
        const Line line{&points.Of(*record), record->time, record->thread,
                        View::kWithTexts ? Message(*record) : std::string()};
        if (threads.empty()) {
            view.Start(line.time);
        }
        std::optional<Call>& call = threads[line.thread];
        if (call && call->Takes(line)) {
            continue;
        }
        if (!Begins(line.point->step)) {
            view.Add(line);
            continue;
        }
        if (call) {
            view.Add(line.thread, *call);
        }
        call.emplace(line);
    }
    for (const auto& [thread, call] : threads) {
        if (call) {
            view.Add(thread, *call);
        }
    }
}

// ---- The records --------------------------------------------------------------------------------

void ShowAsText(const Record& record, const Point& point)
{
    std::string line = LocalTime(record.time) + ' ' + std::to_string(record.thread) + ' ' +
                       point.operation + ": " + trace::Message(record);
    std::ranges::replace_if(
        line, [](unsigned char c) { return c < ' ' || c == 0x7F; }, ' ');
    std::cout << line << '\n';
}

void ShowAsJson(const Record& record, const Point& point)
{
    json arguments = json::array();
    auto type = record.location->arguments.begin();
    for (const trace::Value& value : trace::Arguments(record)) {
        json argument;
        std::visit([&argument](const auto& plain) { argument = plain; }, value);
        arguments.push_back((type++)->typeName == "bool" ? json(argument != 0) : argument);
    }
    std::cout << Dump({{"time", std::to_string(record.time)}, // more digits than a double has
                       {"thread", record.thread},
                       {"operation", point.operation},
                       {"function", record.location->function},
                       {"file", record.location->file},
                       {"line", record.location->line},
                       {"message", trace::Message(record)},
                       {"format", record.location->message},
                       {"arguments", std::move(arguments)}})
              << '\n';
}

/** Shows the records there are; or, to follow them, also those that come while somebody traces. */
void ShowRecords(trace::Reader& reader)
{
    Points points;
    bool mayCome = true;
    while (mayCome) {
        mayCome = options.follow && reader.IsInUse(); // asked before the last look
        while (const Record* record = reader.Next()) {
            (asJson ? ShowAsJson : ShowAsText)(*record, points.Of(*record));
        }
        if (mayCome && std::cout.flush()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        mayCome = mayCome && std::cout;
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
            durations.push_back(Elapsed(request.start, request.end));
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

    json Describe(const std::string& operation)
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
struct Summaries : std::map<std::string, Summary>
{
    static constexpr bool kWithTexts = false;

    void Start(std::int64_t /*time*/) {}
    void Add(const Line& /*line*/) {}
    void Add(std::uint32_t /*thread*/, const Call& call)
    {
        for (const Request& request : call.requests) {
            (*this)[request.operation].Add(request);
        }
    }

    void Print()
    {
        std::vector<Row> table(1);
        const json names = Summary().Describe("");
        for (const auto& [name, value] : names.items()) {
            table[0].push_back(name);
        }
        for (auto& [operation, summary] : *this) {
            const json values = summary.Describe(operation);
            if (asJson) {
                PrintJson(values);
            }
            table.push_back(Values(values));
        }
        if (!asJson) {
            PrintRows(table);
        }
    }
};

// ---- The timeline -------------------------------------------------------------------------------

/**
 * Slices are written as pairs of events: with one event for both ends, each a rounded time and a
 * rounded length, a slice might reach beyond the one around it.
 */
class Timeline
{
public:
    static constexpr bool kWithTexts = true;

    Timeline(std::ostream& out, std::uint32_t process) : m_out(out), m_process(process)
    {
        m_out << "{\"traceEvents\":[";
    }

    void Start(std::int64_t time) { m_start = time; }

    void Finish()
    {
        m_out << "],\n\"displayTimeUnit\":\"ms\",\n\"otherData\":"
              << Dump({{"start", LocalTime(m_start)}}) << "}\n";
    }

    void Add(const Line& line)
    {
        Write(line.thread, "i", line.time,
              {{"name", line.point->operation}, {"s", "t"}, {"args", {{"message", line.text}}}});
    }

    void Add(std::uint32_t thread, const Call& call)
    {
        if (call.exported) {
            Begin(thread, call.start, "export " + call.operation);
        }
        for (const Request& request : call.requests) {
            AddRequest(thread, request);
        }
        if (call.exported) {
            End(thread, call.end);
        }
    }

private:
    void Write(std::uint32_t thread, const char* phase, std::int64_t time, json event)
    {
        if (m_named.insert(thread).second) {
            const std::string name = (thread == m_process ? "main thread " : "thread ");
            Put(thread, "M", m_start,
                {{"name", "thread_name"}, {"args", {{"name", name + std::to_string(thread)}}}});
        }
        Put(thread, phase, time, std::move(event));
    }

    void Put(std::uint32_t thread, const char* phase, std::int64_t time, json event)
    {
        event["ph"] = phase;
        event["pid"] = m_process;
        event["tid"] = thread;
        event["ts"] = Microseconds(Elapsed(m_start, time));
        m_out << std::exchange(m_separator, ",\n") << Dump(event);
    }

    void Begin(std::uint32_t thread, std::int64_t time, const std::string& name,
               const json& args = json::object())
    {
        Write(thread, "B", time, {{"name", name}, {"args", args}});
    }

    void End(std::uint32_t thread, std::int64_t time) { Write(thread, "E", time, json::object()); }

    void AddRequest(std::uint32_t thread, const Request& request)
    {
        json args = {{"announcement", request.announcement}, {"busy_waits", request.waits}};
        if (request.result) {
            args["result"] = *request.result;
        }
        Begin(thread, request.start, request.operation, args);
        if (request.waits > 0) {
            Begin(thread, request.firstWait, "wait for the lock");
            End(thread, request.WaitEnd());
        }
        if (request.returned) {
            Begin(thread, request.waits > 0 ? request.WaitEnd() : request.start, "call");
            End(thread, *request.returned);
        }
        End(thread, request.end);
    }

    std::ostream& m_out;
    const std::uint32_t m_process;
    std::int64_t m_start = 0;
    std::set<std::uint32_t> m_named;
    const char* m_separator = "\n";
};

/** A timeline is made anew, but not where a trace is. */
void CheckIsNoTrace(const std::string& path)
{
    std::uint64_t magic = 0;
    if (std::filesystem::is_regular_file(path) &&
        std::ifstream(path).read(reinterpret_cast<char*>(&magic), sizeof magic) &&
        ((magic ^ lumo::format::kMagic) & lumo::format::kMagicOfAny) == 0) {
        throw Failure(Cause::usage, path + ": is a trace store; the timeline would destroy it");
    }
}

void WriteTimeline(const std::string& path, trace::Reader& reader)
{
    CheckIsNoTrace(path);
    std::ofstream out(path);
    Timeline timeline(out, reader.Process());
    ShowCalls(reader, timeline);
    timeline.Finish();
    out.close();
    if (!out) {
        throw Failure(Cause::failed,
                      path + ": cannot be written: " + std::generic_category().message(errno));
    }
}

void Tell(const std::string& file, std::uint64_t count, const char* what)
{
    if (count > 0) {
        std::cerr << "zavctl: " << file << ": " << count << what << '\n';
    }
}

void Show()
try {
    if (options.follow && (options.stat || !options.chrome.empty())) {
        throw Failure(Cause::usage, "--follow shows records: not with --stat or --chrome");
    }
    std::optional<trace::Reader> reader; // each view reads the store for itself
    if (!options.chrome.empty()) {
        WriteTimeline(options.chrome, reader.emplace(options.file));
    }
    if (options.stat) {
        Summaries summaries;
        ShowCalls(reader.emplace(options.file), summaries);
        summaries.Print();
    } else if (options.chrome.empty() || asJson) {
        ShowRecords(reader.emplace(options.file));
    }
    if (!std::cout.flush()) {
        throw Failure(Cause::failed, "standard output: cannot be written");
    }
    Tell(options.file, reader->Dropped(), " records found no room");
    Tell(options.file, reader->Overwritten(), " records gave way to newer ones");
    if (reader->Damage()) {
        throw std::runtime_error("damaged: " + *reader->Damage());
    }
} catch (const Failure&) {
    throw;
} catch (const std::exception& error) {
    throw Failure(Cause::failed, options.file + ": " + error.what());
}

Action Trace(CLI::App& verb)
{
    verb.add_option("FILE", options.file, "The trace store")->required()->type_name("FILE");
    verb.add_flag("--stat", options.stat, "A summary for each operation");
    verb.add_flag("--follow", options.follow, "Go on while the program runs that traces");
    verb.add_option("--chrome", options.chrome, "Write a timeline to this file")->type_name("FILE");
    return Show;
}

} // namespace

const Verbs traceVerbs = {
    {"trace", "Show what a trace store holds", Trace},
};

} // namespace cli
