// SPDX-License-Identifier: MIT
/**
 * @file trace_verb_test.cpp
 * `zavctl trace` on what the library itself has written.
 *
 * Tracing is switched on when a program is loaded, so each scene runs in a process of its own: this
 * program again, with the scene's name as its argument.
 */
#include "FakeGio.h"
#include "LogPoint.h"
#include "TraceStore.h"
#include "TraceVerb.h"
#include "ZAVServiceAPI.h"
#include "ZAVServiceBridgeAPI.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

/** Log points like the library's; out of the unnamed namespace, which would show in their names. */
namespace sample
{

static void Describe(bool flag, const char* text)
{
    LOG_POINT(DLOG_INFO, "%d %s", flag, text);
}

struct Fragment
{
    static void GetWooferLevel(bool end)
    {
        if (end) {
            LOG_POINT(DLOG_INFO, "Returned from ZAVService...");
            LOG_POINT(DLOG_INFO, "IntDataReceived: %d from ZAVService", 1);
        } else {
            LOG_POINT(DLOG_INFO, "Sending Integer Data to ZAVService.....");
        }
    }
};

} // namespace sample

namespace
{

using sample::Describe;
using sample::Fragment;
using Json = nlohmann::json;
using Names = std::multiset<std::string>;

// ---- Scenes: what an application does -----------------------------------------------------------

void AskForWooferLevel(int lockFailures, const char* reply)
{
    fake::lockFailures = lockFailures;
    fake::reply = reply;
    GetWooferLevel();
}

void Signal(const std::string& member, const char* parameters)
{
    const auto found = std::ranges::find(fake::subscriptions, member, &fake::Subscription::member);
    g_autoptr(GVariant) value = g_variant_parse(nullptr, parameters, nullptr, nullptr, nullptr);
    found->handler(nullptr, "", "", "", member.c_str(), value, nullptr);
}

void MakeRequests()
{
    fake::bus = fake::Outcome::fails;
    IsSoundBarConnected();
    fake::bus = fake::Outcome::works;
    AskForWooferLevel(2, "(7,)");
    AskForWooferLevel(100, "(7,)");
    AskForWooferLevel(0, "");
    std::array<int, 17> modes{};
    int* list = modes.data();
    int count = 0;
    fake::reply = "(7,)";
    GetModeList(&list, &count);
    SetEqualizerLevel(list, 3);
    ZAVServiceAPI::SubscribeZAVCSharpCallback([](int, void*, int) { IsZAVReady(); });
    Signal("notifyZAVCsharpCallback", "(1, [byte 1], 1)");
    Describe(true, "\xFF\n\x1B");
}

void MakeFragments()
{
    Fragment::GetWooferLevel(true);
    AskForWooferLevel(0, "(7,)");
    Fragment::GetWooferLevel(true);
    Fragment::GetWooferLevel(false);
}

void FillTheStore()
{
    for (int i = 0; i < 3000; ++i) {
        Describe(true, "");
    }
}

const std::map<std::string, void (*)()> kScenes = {
    {"requests", MakeRequests}, {"fragments", MakeFragments}, {"full", FillTheStore}};

// ---- Tests: what zavctl makes of it -------------------------------------------------------------

std::vector<std::string> Lines(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

class TraceVerb : public testing::Test
{
protected:
    void SetUp() override
    {
        char name[] = "/tmp/trace-verb-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder = name;
        options.file = folder + "/trace";
    }
    void TearDown() override { std::filesystem::remove_all(folder); }

    void Play(const char* scene)
    {
        const pid_t child = fork();
        if (child == 0) {
            setenv("LUMO_TRACE", options.file.c_str(), 1);
            setenv("LUMO_TRACE_LIMIT", "52K", 1);
            setenv("ZAV_LOG", "off", 1);
            execl("/proc/self/exe", "scene", scene, nullptr);
            _exit(127);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
        store = trace::ReadStore(options.file);
    }
    std::vector<std::string> Run(int code = 0)
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(cli::Trace(options), code);
        errors = testing::internal::GetCapturedStderr();
        return Lines(testing::internal::GetCapturedStdout());
    }
    std::map<std::string, Json> RunForSummary()
    {
        options.stat = options.json = true;
        std::map<std::string, Json> summary;
        for (const std::string& line : Run()) {
            const Json row = Json::parse(line);
            summary[row["operation"]] = row;
        }
        return summary;
    }
    /** In µs, how long the requests of an operation took, the shortest first. */
    std::vector<double> Durations(const std::string& operation) const
    {
        std::vector<double> durations;
        std::int64_t start = 0;
        for (const trace::Record& record : store.records) {
            const std::string& message = record.location->message;
            if (Operation(*record.location) == operation && !message.starts_with("ZAV_API")) {
                if (message.starts_with("Sending")) {
                    start = record.time;
                    durations.emplace_back();
                }
                durations.back() = static_cast<double>(record.time - start) / 1000;
            }
        }
        std::ranges::sort(durations);
        return durations;
    }
    /** The slices of the timeline, e.g. "<outer<inner><inner>>". */
    std::string RunForTimeline()
    {
        options.chrome = folder + "/timeline";
        EXPECT_EQ(Run(), std::vector<std::string>());
        std::ifstream file(options.chrome);
        const Json timeline = Json::parse(file);
        std::string slices;
        double last = 0;
        for (const Json& event : timeline["traceEvents"]) {
            EXPECT_EQ(event["pid"], store.process);
            if (event["ph"] == "i") {
                instants.insert(event["name"]);
            } else if (event["ph"] == "M") {
                threads.insert(event["args"]["name"]);
            } else {
                EXPECT_GE(event["ts"], last) << event;
                last = event["ts"];
                slices += event["ph"] == "B" ? "<" + event["name"].get<std::string>() : ">";
            }
        }
        return slices;
    }

    std::string folder;
    cli::TraceOptions options;
    trace::Store store;
    std::string errors;
    Names instants, threads; ///< of the timeline
};

TEST_F(TraceVerb, ShowsEachRecordAsALineWithTheLocalTime)
{
    Play("requests");
    setenv("TZ", "XYZ-05:30", 1);
    tzset();
    const std::vector<std::string> lines = Run();
    ASSERT_EQ(lines.size(), store.records.size());
    const trace::Record& first = store.records.front();
    const std::time_t local = first.time / 1'000'000'000 + 19800;
    char start[64];
    strftime(start, sizeof start, "%F %T", gmtime(&local));
    const std::string micros = std::to_string(1'000'000 + first.time / 1000 % 1'000'000).substr(1);
    const std::string thread = std::to_string(store.process);
    EXPECT_EQ(lines.front(),
              start + ("." + micros) + " " + thread + " IsSoundBarConnected: ZAV_API_BRIDGE");
    EXPECT_EQ(lines.back().substr(26), " " + thread + " Describe: 1 \xFF  ");
    EXPECT_EQ(std::ranges::count_if(lines,
                                    [](const std::string& line) {
                                        return line.ends_with(" GetWooferLevel: GetWooferLevel API "
                                                              "is busy. wait 10msec timeout 100");
                                    }),
              2);
    EXPECT_EQ(errors, "");
}

TEST_F(TraceVerb, ShowsEachRecordAsJson)
{
    Play("requests");
    options.json = true;
    const std::vector<std::string> lines = Run();
    ASSERT_EQ(lines.size(), store.records.size());
    const trace::Record& last = store.records.back();
    EXPECT_EQ(Json::parse(lines.back()), (Json{{"time", last.time},
                                               {"thread", store.process},
                                               {"operation", "Describe"},
                                               {"function", last.location->function},
                                               {"file", __FILE__},
                                               {"line", last.location->line},
                                               {"message", "1 \uFFFD\n\x1B"},
                                               {"format", "%d %s"},
                                               {"arguments", {true, "\uFFFD\n\x1B"}}}));
    const auto busy = std::ranges::find_if(
        lines, [](const std::string& line) { return line.find("busy") != std::string::npos; });
    ASSERT_NE(busy, lines.end());
    EXPECT_EQ(Json::parse(*busy)["arguments"], (Json{"GetWooferLevel", 100}));
}

TEST_F(TraceVerb, SumsUpTheRequestsOfEachOperation)
{
    Play("requests");
    const std::map<std::string, Json> summary = RunForSummary();
    EXPECT_EQ(summary.size(), 6u);
    const std::vector<double> durations = Durations("GetWooferLevel");
    ASSERT_EQ(durations.size(), 3u);
    EXPECT_EQ(summary.at("GetWooferLevel"), (Json{{"operation", "GetWooferLevel"},
                                                  {"requests", 3},
                                                  {"median_us", durations[1]},
                                                  {"p99_us", durations[2]},
                                                  {"busy_waits", 102},
                                                  {"gave_up", 1},
                                                  {"no_proxy", 0},
                                                  {"no_answer", 1}}));
    EXPECT_EQ(summary.at("IsSoundBarConnected")["no_proxy"], 1);
    for (const char* operation : {"GetModeList", "SetEqualizerLevel", "IsZAVReady"}) {
        EXPECT_EQ(summary.at(operation)["requests"], 1);
        EXPECT_EQ(summary.at(operation)["median_us"], Durations(operation).at(0)) << operation;
    }
    EXPECT_EQ(summary.at("SubscribeZAVCSharpCallback")["median_us"], nullptr);

    options.json = false;
    const std::vector<std::string> rows = Run();
    ASSERT_EQ(rows.size(), 7u);
    EXPECT_EQ(rows[0], "operation requests median_us p99_us busy_waits gave_up no_proxy no_answer");
    EXPECT_TRUE(rows[2].starts_with("GetWooferLevel 3 ")) << rows[2];
    EXPECT_TRUE(rows[2].ends_with(" 102 1 0 1")) << rows[2];
    EXPECT_EQ(rows[6], "SubscribeZAVCSharpCallback 1 - - 0 0 0 0");
}

TEST_F(TraceVerb, DrawsATimelineOfNestedSlices)
{
    Play("requests");
    EXPECT_EQ(RunForTimeline(), "<export IsSoundBarConnected<IsSoundBarConnected>>"
                                "<export GetWooferLevel<GetWooferLevel<wait for the lock><call>>>"
                                "<export GetWooferLevel<GetWooferLevel<wait for the lock>>>"
                                "<export GetWooferLevel<GetWooferLevel<call>>>"
                                "<export GetModeList<GetModeList<call>>>"
                                "<export SetEqualizerLevel<SetEqualizerLevel<call>>>"
                                "<SubscribeZAVCSharpCallback>"
                                "<export IsZAVReady<IsZAVReady<call>>>");
    EXPECT_EQ(instants.count("NotifyZAVCsharpCallback"), 3u);
    EXPECT_EQ(instants.count("GetWooferLevel"), 0u);
    EXPECT_EQ(threads, Names{"main thread " + std::to_string(store.process)});
}

TEST_F(TraceVerb, TakesLinesWithoutTheirAnnouncementForNoRequest)
{
    Play("fragments");
    const Json row = RunForSummary().at("GetWooferLevel");
    EXPECT_EQ(row["requests"], 2); // the last one has no end
    const auto whole = static_cast<double>(store.records.at(7).time - store.records.at(5).time);
    EXPECT_EQ(row["p99_us"], whole / 1000);
    options.stat = options.json = false;
    EXPECT_EQ(RunForTimeline(), "<export GetWooferLevel<GetWooferLevel<call>>><GetWooferLevel>");
    EXPECT_EQ(instants.count("GetWooferLevel"), 4u);
}

TEST_F(TraceVerb, ShowsWhatIsSoundInADamagedStoreAndComplains)
{
    Play("requests");
    std::filesystem::resize_file(options.file, 4096 + 4000);
    const std::size_t shown = Run(1).size();
    EXPECT_GT(shown, 10u);
    EXPECT_LT(shown, store.records.size());
    EXPECT_TRUE(errors.starts_with("zavctl: " + options.file + ": damaged: at byte 8096 "))
        << errors;

    for (const char* content : {"", "no store, but long enough to be the header of one of them"}) {
        std::ofstream(options.file) << content;
        EXPECT_EQ(Run(1), std::vector<std::string>());
        EXPECT_EQ(errors, "zavctl: " + options.file + ": this is no trace store\n");
    }
    options.file += "s";
    Run(1);
    EXPECT_EQ(errors, "zavctl: " + options.file + ": No such file or directory\n");
}

TEST_F(TraceVerb, TellsWhatTheStoreHadNoRoomFor)
{
    Play("full");
    EXPECT_EQ(Run().size(), 3000 - store.dropped);
    EXPECT_EQ(errors, "zavctl: " + options.file + ": " + std::to_string(store.dropped) +
                          " records found no room\n");
    options.chrome = folder + "/none/timeline";
    EXPECT_EQ(Run(1), std::vector<std::string>());
    EXPECT_NE(errors.find(options.chrome + ": cannot be written: No such"), std::string::npos);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && kScenes.contains(argv[1])) {
        kScenes.at(argv[1])();
        return 0;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
