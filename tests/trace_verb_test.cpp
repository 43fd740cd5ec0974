// SPDX-License-Identifier: MIT
/**
 * @file trace_verb_test.cpp
 * `zavctl trace` on what the library itself has written.
 *
 * Tracing is switched on when a program is loaded, so each scene runs in a process of its own: this
 * program again, with the scene's name as its argument.
 */
#include "Failure.h"
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
#include <unistd.h>

namespace
{

using Json = nlohmann::json;
using Names = std::multiset<std::string>;

// ---- Scenes: what an application does -----------------------------------------------------------

void AskForWooferLevel(int lockFailures, const char* reply)
{
    fake::lockFailures = lockFailures;
    fake::reply = reply;
    GetWooferLevel();
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
    g_autoptr(GVariant) event =
        g_variant_parse(nullptr, "(1, [byte 1], 1)", nullptr, nullptr, nullptr);
    std::ranges::find(fake::subscriptions, "notifyZAVCsharpCallback", &fake::Subscription::member)
        ->handler(nullptr, "", "", "", "notifyZAVCsharpCallback", event, nullptr);
    const char* text = "\xFF\n\x1B";
    LOG_POINT_AS(DLOG_INFO, "Describe", "int Sample::Describe(bool)", "%d %s", true, text);
}

void MakeFragments()
{
    static constexpr const char* name = "GetWooferLevel";
    const auto logEnd = [] {
        LOG_POINT_AS(DLOG_INFO, name, name, "Returned from ZAVService...");
        LOG_POINT_AS(DLOG_INFO, name, name, "IntDataReceived: %d from ZAVService", 1);
    };
    logEnd();
    AskForWooferLevel(0, "(7,)");
    logEnd();
    LOG_POINT_AS(DLOG_INFO, name, name, "Sending Integer Data to ZAVService.....");
}

void FillTheStore()
{
    for (int i = 0; i < 4000; ++i) {
        LOG_POINT(DLOG_INFO, "again");
    }
}

const std::map<std::string, void (*)()> kScenes = {
    {"requests", MakeRequests}, {"fragments", MakeFragments}, {"full", FillTheStore}};

// ---- Tests: what zavctl makes of it -------------------------------------------------------------

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

    void Play(const std::string& scene)
    {
        const std::string command = "LUMO_TRACE=" + options.file +
                                    " LUMO_TRACE_LIMIT=52K ZAV_LOG=off " ZAV_ITSELF " " + scene;
        ASSERT_EQ(std::system(command.c_str()), 0);
        store = trace::ReadStore(options.file);
    }
    /** @return the lines it wrote */
    std::vector<std::string> Run(int code = 0)
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        int ended = 0;
        std::string failure;
        try {
            cli::Trace(options);
        } catch (const cli::Failure& thrown) {
            ended = thrown.ExitCode();
            failure = std::string("zavctl: ") + thrown.what() + "\n";
        }
        EXPECT_EQ(ended, code);
        errors = testing::internal::GetCapturedStderr() + failure;
        std::istringstream output(testing::internal::GetCapturedStdout());
        std::vector<std::string> lines;
        for (std::string line; std::getline(output, line);) {
            lines.push_back(line);
        }
        return lines;
    }
    std::map<std::string, Json> RunForSummary()
    {
        options.stat = options.json = true;
        std::map<std::string, Json> summary;
        for (const std::string& line : Run()) {
            const Json row = Json::parse(line);
            summary[row["operation"]] = row;
        }
        options.stat = options.json = false;
        return summary;
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

TEST_F(TraceVerb, ShowsEachRecordAsALineWithTheLocalTimeOrAsJson)
{
    Play("requests");
    setenv("TZ", "XYZ-05:30", 1);
    tzset();
    const std::vector<std::string> lines = Run();
    ASSERT_EQ(lines.size(), store.records.size());
    std::tm local{};
    const char* micros = strptime(lines.front().c_str(), "%F %T.", &local);
    ASSERT_NE(micros, nullptr) << lines.front();
    EXPECT_EQ((timegm(&local) - 19800) * 1'000'000 + std::atoi(micros),
              store.records.front().time / 1000);
    const std::string thread = " " + std::to_string(store.process);
    EXPECT_EQ(lines.front().substr(26), thread + " IsSoundBarConnected: ZAV_API_BRIDGE");
    EXPECT_EQ(lines.back().substr(26), thread + " Describe: 1 \xFF  ");
    EXPECT_EQ(errors, "");

    options.json = true;
    const std::vector<std::string> objects = Run();
    ASSERT_EQ(objects.size(), store.records.size());
    const trace::Record& last = store.records.back();
    EXPECT_EQ(Json::parse(objects.back()), (Json{{"time", last.time},
                                                 {"thread", store.process},
                                                 {"operation", "Describe"},
                                                 {"function", "int Sample::Describe(bool)"},
                                                 {"file", __FILE__},
                                                 {"line", last.location->line},
                                                 {"message", "1 \uFFFD\n\x1B"},
                                                 {"format", "%d %s"},
                                                 {"arguments", {true, "\uFFFD\n\x1B"}}}));
    EXPECT_EQ(std::ranges::count_if(
                  objects,
                  [](const std::string& object) {
                      return Json::parse(object)["arguments"] == Json{"GetWooferLevel", 100};
                  }),
              2);
}

TEST_F(TraceVerb, SumsUpTheRequestsOfEachOperation)
{
    Play("requests");
    std::map<std::string, std::vector<double>> durations; // in µs, by operation
    std::int64_t start = 0;
    for (const trace::Record& record : store.records) {
        const std::string& message = record.location->message;
        std::vector<double>& those = durations[Operation(*record.location)];
        if (message.starts_with("Sending")) {
            start = record.time;
            those.emplace_back();
        } else if (!message.starts_with("ZAV_API") && !those.empty()) {
            those.back() = static_cast<double>(record.time - start) / 1000;
        }
    }
    std::vector<double>& those = durations["GetWooferLevel"];
    ASSERT_EQ(those.size(), 3u);
    std::ranges::sort(those);
    const std::map<std::string, Json> summary = RunForSummary();
    EXPECT_EQ(summary.at("GetWooferLevel"), (Json{{"operation", "GetWooferLevel"},
                                                  {"requests", 3},
                                                  {"median_us", those[1]},
                                                  {"p99_us", those[2]},
                                                  {"busy_waits", 102},
                                                  {"gave_up", 1},
                                                  {"no_proxy", 0},
                                                  {"no_answer", 1}}));
    EXPECT_EQ(summary.at("IsSoundBarConnected")["no_proxy"], 1);
    for (const char* operation : {"GetModeList", "SetEqualizerLevel", "IsZAVReady"}) {
        EXPECT_EQ(summary.at(operation)["median_us"], durations[operation].at(0)) << operation;
    }

    options.stat = true;
    const std::vector<std::string> rows = Run();
    ASSERT_EQ(rows.size(), 7u);
    EXPECT_EQ(rows[0], "operation requests median_us p99_us busy_waits gave_up no_proxy no_answer");
    EXPECT_TRUE(rows[2].starts_with("GetWooferLevel 3 ")) << rows[2];
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
    EXPECT_EQ(RunForTimeline(), "<export GetWooferLevel<GetWooferLevel<call>>><GetWooferLevel>");
    EXPECT_EQ(instants.count("GetWooferLevel"), 4u);
}

TEST_F(TraceVerb, ShowsWhatIsSoundInADamagedOrFullStoreAndComplains)
{
    const std::string subject = "zavctl: " + options.file;
    Play("full");
    EXPECT_EQ(Run().size(), 4000 - store.dropped);
    EXPECT_EQ(errors, subject + ": " + std::to_string(store.dropped) + " records found no room\n");

    options.chrome = folder + "/none/timeline";
    EXPECT_EQ(Run(1), std::vector<std::string>());
    EXPECT_NE(errors.find(options.chrome + ": cannot be written: No such"), std::string::npos);
    options.chrome = "";

    std::filesystem::resize_file(options.file, 4096 + 4000);
    const std::size_t shown = Run(1).size();
    EXPECT_GT(shown, 10u);
    EXPECT_LT(shown, store.records.size());
    EXPECT_NE(errors.find(subject + ": damaged: at byte 8096 "), std::string::npos) << errors;

    std::ofstream(options.file) << "no store, but long enough to be the header of one of them";
    EXPECT_EQ(Run(1), std::vector<std::string>());
    EXPECT_EQ(errors, subject + ": this is no trace store\n");
    std::filesystem::remove(options.file);
    Run(1);
    EXPECT_EQ(errors, subject + ": No such file or directory\n");
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
