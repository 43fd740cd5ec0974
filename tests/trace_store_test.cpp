// SPDX-License-Identifier: MIT
/**
 * @file trace_store_test.cpp
 * The platform stand-ins and the reader of the trace store.
 *
 * The stand-ins read the environment when they are loaded, so each scene runs in a process of its
 * own: this program again, with the scene's name as its argument.
 */
#include "LogPoint.h"
#include "TraceStore.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fnmatch.h>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <iterator>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

enum Level : int
{
};

namespace
{

constexpr int Threads = 8;
constexpr int RecordsEach = 3000;
constexpr int LinesEach = 100;

// ---- Scenes: what a program that uses the stand-ins does ----------------------------------------

void InThreads(void (*body)(int))
{
    std::vector<std::jthread> threads;
    for (int i = 0; i < Threads; ++i) {
        threads.emplace_back(body, i);
    }
}

std::string LongLine(int thread, int line)
{
    return std::to_string(line) + std::string(3000, static_cast<char>('a' + thread));
}

/** What docs/trace-format.md shows byte by byte. */
void WriteSample()
{
    static uint32_t id = 0;
    static constexpr TSCodeLocation place{"src/Sample.cpp", 42, "static int Sample::Run(char*)",
                                          &id};
    for (const auto& [text, number] : {std::pair<const char*, int>("abc", -7), {nullptr, 100}}) {
        log_point::Write(place, DLOG_INFO, "Run", LOG_POINT_PREFIX "SID = %s, %d",
                         lumo::ArgList(text, number));
    }
}

void WriteEveryType()
{
    for (const char* text : {"abc", static_cast<const char*>(nullptr)}) {
        LOG_POINT_AS(DLOG_INFO, "Run", "static int Sample::Run(char*)", "SID = %s, %d", text, -7);
    }
    const auto* pointer = reinterpret_cast<const void*>(0x1234ABCD);
    LOG_POINT(DLOG_INFO, "%p %p", pointer, static_cast<const void*>(nullptr));
    LOG_POINT(DLOG_INFO, "%02x %zu%%", static_cast<unsigned char>(10), SIZE_MAX);
    LOG_POINT(DLOG_INFO, "%d %d", true, static_cast<Level>(-100));
    // As long as can be: its length looks like a null pointer, and it needs a run of two chunks.
    LOG_POINT(DLOG_INFO, "%s", std::string(16383, 'x').c_str());
    LOG_POINT(DLOG_INFO, "done");
}

void WriteAndDie()
{
    const auto abandon = [] {
        lumo::TCStorage& storage = TIStorageManager::Instance().Storage();
        std::memset(storage.PrepareCallBuffer(storage.ThreadHandle(), 64, 1, 1), 0x10, 64);
    };
    abandon();
    LOG_POINT(DLOG_INFO, "bare");
    LOG_POINT(DLOG_INFO, "%d", 1);
    abandon();
    raise(SIGKILL);
}

void WriteAcrossAFork()
{
    LOG_POINT(DLOG_INFO, "first");
    const pid_t child = fork();
    LOG_POINT(DLOG_INFO, "%s", child == 0 ? "child" : "parent");
    if (child != 0) {
        waitpid(child, nullptr, 0);
    }
}

void WriteMany(int /*thread*/)
{
    for (int i = 0; i < RecordsEach; ++i) {
        LOG_POINT(DLOG_INFO, "%d", i);
    }
}

/** In the end there is room left for a record, but no longer for the location that it needs. */
void FillTheStore()
{
    const std::string text(100, 'x');
    for (int i = 0; i < RecordsEach; ++i) {
        LOG_POINT(DLOG_INFO, "%s", text.c_str());
    }
    LOG_POINT(DLOG_INFO, "last");
}

void LogMany(int thread)
{
    for (int i = 0; i < LinesEach; ++i) {
        __dlog_print(0, DLOG_INFO, "ZAV_API", "%s\n", LongLine(thread, i).c_str());
    }
}

void LogOneLine()
{
    errno = EBUSY;
    __dlog_print(0, DLOG_ERROR, "ZAV_API", "a\tb\nc%d\n", 1);
    if (errno != EBUSY) {
        std::abort();
    }
}

const std::map<std::string, void (*)()> scenes = {{"sample", WriteSample},
                                                  {"types", WriteEveryType},
                                                  {"die", WriteAndDie},
                                                  {"fork", WriteAcrossAFork},
                                                  {"full", FillTheStore},
                                                  {"line", LogOneLine},
                                                  {"threads", [] { InThreads(WriteMany); }},
                                                  {"log", [] { InThreads(LogMany); }}};

// ---- Tests: what is found afterwards ------------------------------------------------------------

std::string Content(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> Messages(const trace::Store& store)
{
    std::vector<std::string> messages;
    std::ranges::transform(store.records, std::back_inserter(messages), trace::Message);
    return messages;
}

class StandIns : public testing::Test
{
protected:
    void SetUp() override
    {
        char name[] = "/tmp/stand-ins-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder = name;
    }
    void TearDown() override { std::filesystem::remove_all(folder); }

    /** @return the status of the scene's process */
    int Play(const std::string& scene, const std::string& environment) const
    {
        const std::string command =
            environment + " exec " ZAV_ITSELF " " + scene + " 2>>" + Path("errors");
        return std::system(command.c_str());
    }
    trace::Store Trace(const std::string& scene, const std::string& limit = "1M",
                       int status = 0) const
    {
        EXPECT_EQ(
            Play(scene, "ZAV_LOG=off LUMO_TRACE=" + Path("trace") + " LUMO_TRACE_LIMIT=" + limit),
            status);
        return trace::ReadStore(Path("trace"));
    }
    std::string Path(const char* name) const { return folder + "/" + name; }
    std::string Errors() const { return Content(Path("errors")); }

    std::string folder;
};

TEST_F(StandIns, KeepEveryRecordOfEveryThreadAndCanBeReadMeanwhile)
{
    auto writing = std::async(std::launch::async, [this] {
        return Play("threads", "ZAV_LOG=off LUMO_TRACE=" + Path("trace"));
    });
    trace::Store store;
    for (bool running = true; running;) {
        running = writing.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
        try {
            store = trace::ReadStore(Path("trace"));
        } catch (const std::runtime_error&) {
            ASSERT_TRUE(running && store.records.empty()) << "not made yet is the only excuse";
        }
        ASSERT_EQ(store.damage, std::nullopt);
    }
    EXPECT_EQ(writing.get(), 0);
    EXPECT_EQ(store.records.size(), Threads * RecordsEach);
    std::map<std::uint32_t, std::int64_t> next;
    for (const trace::Record& record : store.records) {
        ASSERT_EQ(Arguments(record).at(0), trace::Value(next[record.thread]++));
    }
    EXPECT_EQ(next.size(), Threads);
}

TEST_F(StandIns, RenderEveryTypeAsPrintfDoes)
{
    const trace::Store store = Trace("types");
    std::vector<std::string> messages = Messages(store);
    EXPECT_EQ(std::erase(messages, std::string(16383, 'x')), 1u);
    EXPECT_EQ(messages,
              (std::vector<std::string>{"SID = abc, -7", "SID = (null), -7", "0x1234abcd (nil)",
                                        "0a 4294967295%", "1 -100", "done"}));
    std::string types;
    for (const trace::Record& record : store.records) {
        for (const trace::ArgumentType& type : record.location->arguments) {
            types += type.typeName + "; ";
        }
    }
    EXPECT_EQ(types, "char*; int; char*; int; *_void; *_void; unsigned char; unsigned int; bool; "
                     "enum_Level; char*; ");
    EXPECT_EQ(store.damage, std::nullopt);
    const trace::Location& location = *store.records.front().location;
    EXPECT_EQ(location.file + " " + Operation(location), __FILE__ " Run");
    EXPECT_NEAR(static_cast<double>(store.records.front().time) / 1e9,
                static_cast<double>(std::time(nullptr)), 600);
}

TEST_F(StandIns, WriteTheDocumentedExampleWhateverTheWordSize)
{
    Trace("sample", "20K");
    const std::string store = Content(Path("trace"));
    std::ifstream page(ZAV_TRACE_FORMAT);
    std::string documented, written;
    for (std::string line; std::getline(page, line);) {
        if (!line.starts_with("0000")) {
            continue; // none of the hex dump
        }
        const std::size_t start = std::stoul(line, nullptr, 16);
        for (std::size_t i = 0; i < 16; ++i) {
            documented += static_cast<char>(
                std::stoi(line.substr(10 + i / 2 * 5 + i % 2 * 2, 2), nullptr, 16));
        }
        written += store.substr(start, 16);
    }
    ASSERT_EQ(documented.size(), 15u * 16);
    // Clock and process; of the run the thread; of three records the time.
    for (const auto& [at, size] : {std::pair(32u, 12u), {56, 4}, {72, 8}, {192, 8}, {216, 8}}) {
        written.replace(at, size, documented, at, size);
    }
    EXPECT_EQ(documented, written);
}

TEST_F(StandIns, KeepWhatAKilledProcessCommittedAndNothingElse)
{
    const trace::Store store = Trace("die", "1M", SIGKILL);
    EXPECT_EQ(Messages(store), (std::vector<std::string>{"bare", "1"}));
    EXPECT_EQ(store.damage, std::nullopt);
}

TEST_F(StandIns, CountWhatFindsNoRoom)
{
    const trace::Store store = Trace("full", "20K");
    EXPECT_GT(store.records.size(), 100u);
    EXPECT_EQ(store.records.size() + store.dropped, RecordsEach + 2u); // a record and its location
    EXPECT_EQ(store.damage, std::nullopt);
    EXPECT_EQ(std::filesystem::file_size(Path("trace")), 20u << 10);
}

TEST_F(StandIns, KeepTheRecordsOfAForkApart)
{
    const trace::Store store = Trace("fork");
    EXPECT_EQ(store.damage, std::nullopt);
    std::multiset<std::string> found;
    for (const trace::Record& record : store.records) {
        found.insert(Message(record) +
                     (record.thread == store.process ? " by parent" : " by child"));
    }
    EXPECT_EQ(found, (std::multiset<std::string>{"first by parent", "parent by parent",
                                                 "child by child"}));
}

TEST_F(StandIns, TraceNothingWithoutAFile)
{
    EXPECT_EQ(TIStorageManagerState::enabled, 0);
    lumo::TCStorage& storage = TIStorageManager::Instance().Storage();
    EXPECT_EQ(storage.PrepareCallBuffer(storage.ThreadHandle(), 4, 1, 1), nullptr);
    EXPECT_EQ(Play("types", "LUMO_TRACE=" + folder), 0);
    EXPECT_NE(Errors().find("cannot make LUMO_TRACE=" + folder), std::string::npos);
    EXPECT_THROW(trace::ReadStore(folder), std::runtime_error);
    for (const char* limit : {"19K", "4097M", "12Q", "-1", "99999999999"}) {
        EXPECT_THROW(Trace("types", limit), std::runtime_error) << limit;
    }
}

class DamagedStore : public StandIns
{
protected:
    void SetUp() override
    {
        StandIns::SetUp();
        whole = Trace("types", "68K"); // one chunk in use, a run of two, one unused
        const std::string content = Content(Path("trace"));
        bytes.assign(content.begin(), content.end());
        ASSERT_EQ(whole.records.size(), 7u);
    }
    /** How many records were not written like this. */
    std::ptrdiff_t Altered(const trace::Store& store) const
    {
        return std::ranges::count_if(store.records, [&](const trace::Record& record) {
            return std::ranges::none_of(whole.records, [&](const trace::Record& original) {
                return record.time == original.time && record.payload == original.payload;
            });
        });
    }

    static constexpr std::size_t firstChunk = 4096;
    static constexpr std::size_t chunkSize = 16384;
    static constexpr std::size_t secondRun = firstChunk + chunkSize;
    trace::Store whole;
    std::vector<unsigned char> bytes;
};

TEST_F(DamagedStore, IsReadUpToWhereItIsCutOff)
{
    std::size_t before = 0;
    for (std::size_t size = 0; size < bytes.size(); size += size < firstChunk + 1500 ? 1 : 501) {
        // Copied, so that a sanitizer sees a read beyond the end.
        const std::vector<unsigned char> part(bytes.data(), bytes.data() + size);
        if (size < 48) {
            EXPECT_THROW(trace::ParseStore(part), std::runtime_error);
            continue;
        }
        const trace::Store store = trace::ParseStore(part);
        ASSERT_EQ(store.damage,
                  "at byte " + std::to_string(size) + " of 69632 the file is cut off");
        ASSERT_GE(store.records.size(), before) << size;
        ASSERT_EQ(Altered(store), 0) << size;
        before = store.records.size();
    }
    EXPECT_EQ(before, whole.records.size());
}

TEST_F(DamagedStore, IsToldAndYieldsNoRecordThatWasNotWritten)
{
    constexpr std::size_t markAndSpan = 8;
    std::set<std::string> damages;
    for (std::size_t at = firstChunk; at < secondRun + markAndSpan; ++at) {
        if (at == firstChunk + 1500) {
            at = secondRun;
        }
        for (const int flip : {0x01, 0x04, 0x10, 0x80, 0xFF}) {
            std::vector<unsigned char> flipped = bytes;
            flipped[at] = static_cast<unsigned char>(flipped[at] ^ flip);
            const trace::Store store = trace::ParseStore(flipped);
            ASSERT_LE(store.records.size(), whole.records.size()) << at;
            ASSERT_LE(Altered(store), 1) << at;
            const bool inHeader = (at - firstChunk) % chunkSize < markAndSpan;
            ASSERT_TRUE(store.damage || !inHeader) << at;
            if (store.damage) {
                damages.insert(store.damage->substr(store.damage->find(" a ")));
            }
        }
    }
    EXPECT_EQ(damages,
              (std::set<std::string>{" a chunk has no valid header",
                                     " a record does not fit its place", " a location is malformed",
                                     " a location has the identifier of another one",
                                     " a record has a location that is not in the store",
                                     " a record does not match the arguments of its location"}));
}

TEST_F(StandIns, NeverMixLinesOfThreadsAndProcesses)
{
    const auto play = [this] { return Play("log", "ZAV_LOG=" + Path("log")); };
    auto other = std::async(std::launch::async, play);
    EXPECT_EQ(play(), 0);
    EXPECT_EQ(other.get(), 0);
    std::multiset<std::string> lines;
    std::ifstream log(Path("log"));
    for (std::string line; std::getline(log, line);) {
        lines.insert(line.substr(line.find("ZAV_API: ") + 9));
    }
    EXPECT_EQ(lines.size(), 2u * Threads * LinesEach);
    for (int i = 0; i < Threads * LinesEach; ++i) {
        ASSERT_EQ(lines.count(LongLine(i % Threads, i / Threads)), 2u);
    }
}

TEST_F(StandIns, WriteOneLineForACallWhereTheEnvironmentSays)
{
    const std::string line = "2*-*-* *:*:*.* E ZAV_API: a\tb c1\n";
    EXPECT_EQ(Play("line", "ZAV_LOG=off"), 0);
    EXPECT_EQ(Play("line", "ZAV_LOG=" + Path("log")), 0);
    EXPECT_EQ(fnmatch(line.c_str(), Content(Path("log")).c_str(), 0), 0);
    EXPECT_EQ(Errors(), "");
    EXPECT_EQ(Play("line", "ZAV_LOG=" + folder), 0);
    EXPECT_EQ(fnmatch(("*cannot open ZAV_LOG=*\n" + line).c_str(), Errors().c_str(), 0), 0);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && scenes.contains(argv[1])) {
        scenes.at(argv[1])();
        return 0;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
