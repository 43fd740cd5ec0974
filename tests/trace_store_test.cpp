// SPDX-License-Identifier: MIT
/**
 * @file trace_store_test.cpp
 * The platform stand-ins and the reader of the trace store.
 *
 * The stand-ins read the environment when they are loaded, so each scene runs in a process of its
 * own: this program again, with the scene's name as its argument.
 */
#include "TraceStore.h"

#include "dlog.h"
#include "lumo.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fnmatch.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

using Environment = std::map<std::string, std::string>;
constexpr int Threads = 8;
constexpr int RecordsEach = 3000;
constexpr int LinesEach = 100;

// ---- Scenes: what a program that uses the stand-ins does ----------------------------------------

std::uint32_t NewLocation(const char* message, const std::vector<std::string>& types)
{
    lumo::TCCallLocation location;
    location.id = TIStorageManager::Instance().NewLocationId();
    location.file = "src/Sample.cpp";
    location.line = 42;
    location.function = "static int Sample::Run(char*)";
    location.message = message;
    location.argTypeNames = types;
    for (const std::string& type : types) {
        const bool isByte = type == "bool" || type == "unsigned char";
        location.argKinds.push_back(1);
        location.argSizes.push_back(type == "char*" ? 0x3FFF : isByte ? 1 : 4);
    }
    TIStorageManager::Instance().Storage().SaveLocation(location);
    return location.id;
}

bool Write(std::uint32_t location, const std::string& payload, bool commit = true)
{
    lumo::TCStorage& storage = TIStorageManager::Instance().Storage();
    lumo::TCThreadHandle* handle = storage.ThreadHandle();
    unsigned char* place =
        storage.PrepareCallBuffer(handle, static_cast<unsigned>(payload.size()), 1, location);
    if (!place) {
        return false;
    }
    std::ranges::copy(payload, place);
    if (commit) {
        storage.Commit(handle);
    }
    return true;
}

std::string Int(int value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

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

void WriteSample()
{
    const std::uint32_t location = NewLocation("SID = %s, %d", {"char*", "int"});
    Write(location, "\3abc" + Int(-7));
    Write(location, "\xFF\x7F" + Int(100));
}

void WriteEveryType()
{
    WriteSample();
    Write(NewLocation("%p %p", {"*_void", "*_void"}), Int(0x1234ABCD) + Int(0));
    Write(NewLocation("%02x %zu%%", {"unsigned char", "unsigned int"}), "\x0A" + Int(-1));
    Write(NewLocation("%d", {"bool"}), "\1");
    Write(NewLocation("%d", {"enum_AudioEffect"}), Int(-100));
    // As long as can be: its length looks like a null pointer, and it needs a run of two chunks.
    Write(NewLocation("%s", {"char*"}), "\xFF\x7F" + std::string(16383, 'x'));
    Write(NewLocation("done", {}), "");
}

void WriteMismatch()
{
    WriteSample();
    Write(NewLocation("%d", {"int"}), "five!");
}

void WriteAndDie()
{
    const std::uint32_t location = NewLocation("%d", {"int"});
    const std::uint32_t bare = NewLocation("bare", {});
    Write(location, std::string(64, '\x10'), false);
    Write(bare, "");
    Write(location, Int(1));
    Write(location, Int(2), false);
    raise(SIGKILL);
}

void WriteAcrossAFork()
{
    const std::uint32_t location = NewLocation("%d", {"int"});
    Write(location, Int(1));
    const pid_t child = fork();
    Write(location, Int(child == 0 ? 2 : 3));
    Write(NewLocation("last", {}), "");
    if (child != 0) {
        waitpid(child, nullptr, 0);
    }
}

void WriteMany(int thread)
{
    const std::uint32_t location = NewLocation("%d: %d", {"int", "int"});
    for (int i = 0; i < RecordsEach; ++i) {
        Write(location, Int(thread) + Int(i));
    }
}

void WriteBeyondTheLimit()
{
    WriteMany(0);
    NewLocation("no room", {});
}

/** The chunk has room left for a record, but no longer for the location that it needs. */
void WriteWithoutItsLocation()
{
    const std::uint32_t location = NewLocation("text", {"char*"});
    while (Write(location, char(100) + std::string(100, 'x'))) {
    }
    Write(NewLocation(std::string(200, 'x').c_str(), {}), "");
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
                                                  {"mismatch", WriteMismatch},
                                                  {"fork", WriteAcrossAFork},
                                                  {"full", WriteBeyondTheLimit},
                                                  {"lost", WriteWithoutItsLocation},
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
    for (const trace::Record& record : store.records) {
        messages.push_back(Message(record));
    }
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

    pid_t Start(const char* scene, const Environment& environment) const
    {
        const pid_t child = fork();
        if (child == 0) {
            for (const auto& [name, value] : environment) {
                setenv(name.c_str(), value.c_str(), 1);
            }
            dup2(open(Path("errors").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDERR_FILENO);
            execl("/proc/self/exe", "scene", scene, nullptr);
            _exit(127);
        }
        return child;
    }
    static int Finish(pid_t child)
    {
        int status = -1;
        waitpid(child, &status, 0);
        return status;
    }
    trace::Store Trace(const char* scene, const char* limit = "1M", int status = 0) const
    {
        const Environment environment = {{"LUMO_TRACE", Path("trace")},
                                         {"LUMO_TRACE_LIMIT", limit}};
        EXPECT_EQ(Finish(Start(scene, environment)), status);
        return trace::ReadStore(Path("trace"));
    }
    std::string Path(const char* name) const { return folder + "/" + name; }
    std::string Errors() const { return Content(Path("errors")); }

    std::string folder;
};

TEST_F(StandIns, KeepEveryRecordOfEveryThreadAndCanBeReadMeanwhile)
{
    const pid_t child = Start("threads", {{"LUMO_TRACE", Path("trace")}});
    int status = 0;
    trace::Store store;
    for (bool running = true; running;) {
        running = waitpid(child, &status, WNOHANG) == 0;
        try {
            store = trace::ReadStore(Path("trace"));
        } catch (const std::runtime_error&) {
            ASSERT_TRUE(running && store.records.empty()) << "not made yet is the only excuse";
        }
        ASSERT_EQ(store.damage, std::nullopt);
    }
    EXPECT_EQ(status, 0);
    EXPECT_EQ(store.process, static_cast<std::uint32_t>(child));
    EXPECT_EQ(store.records.size(), Threads * RecordsEach);
    std::map<std::uint32_t, std::int64_t> next;
    std::set<std::int64_t> writers;
    for (const trace::Record& record : store.records) {
        const std::vector<trace::Value> arguments = Arguments(record);
        writers.insert(std::get<std::int64_t>(arguments[0]));
        ASSERT_EQ(arguments[1], trace::Value(next[record.thread]++));
    }
    EXPECT_EQ(next.size(), Threads);
    EXPECT_EQ(writers.size(), Threads);
}

TEST_F(StandIns, RenderEveryTypeAsPrintfDoes)
{
    const trace::Store store = Trace("types");
    std::vector<std::string> messages = Messages(store);
    EXPECT_EQ(std::erase(messages, std::string(16383, 'x')), 1u);
    EXPECT_EQ(messages,
              (std::vector<std::string>{"SID = abc, -7", "SID = (null), 100", "0x1234abcd (nil)",
                                        "0a 4294967295%", "1", "-100", "done"}));
    EXPECT_EQ(store.damage, std::nullopt);
    const trace::Location& location = *store.records.front().location;
    EXPECT_EQ(location.file, "src/Sample.cpp");
    EXPECT_EQ(location.line, 42);
    EXPECT_EQ(Operation(location), "Run");
    EXPECT_NEAR(static_cast<double>(store.records.front().time) / 1e9,
                static_cast<double>(std::time(nullptr)), 600);
}

TEST_F(StandIns, KeepWhatAKilledProcessCommittedAndNothingElse)
{
    const trace::Store store = Trace("die", "1M", SIGKILL);
    EXPECT_EQ(Messages(store), (std::vector<std::string>{"bare", "1"}));
    EXPECT_EQ(store.damage, std::nullopt);
}

TEST_F(StandIns, LeaveOutARecordThatDoesNotMatchItsLocation)
{
    const trace::Store store = Trace("mismatch");
    EXPECT_EQ(store.records.size(), 2u);
    ASSERT_TRUE(store.damage.has_value());
    EXPECT_TRUE(store.damage->ends_with("a record does not match the arguments of its location"));
}

TEST_F(StandIns, CountWhatFindsNoRoom)
{
    const trace::Store store = Trace("full", "20K");
    EXPECT_GT(store.records.size(), 500u);
    EXPECT_EQ(store.records.size() + store.dropped, RecordsEach + 1u);
    EXPECT_EQ(store.locations.size(), 1u);
    EXPECT_EQ(std::filesystem::file_size(Path("trace")), 20u << 10);

    const trace::Store lost = Trace("lost", "20K");
    EXPECT_EQ(lost.dropped, 3u); // one text, a location, and the record that needs it
    EXPECT_EQ(lost.damage, std::nullopt);
}

TEST_F(StandIns, KeepTheRecordsOfAForkApart)
{
    const trace::Store store = Trace("fork");
    EXPECT_EQ(store.damage, std::nullopt);
    std::multiset<std::string> found;
    for (const trace::Record& record : store.records) {
        found.insert((record.thread == store.process ? "parent: " : "child: ") + Message(record));
    }
    EXPECT_EQ(found, (std::multiset<std::string>{"parent: 1", "parent: 3", "parent: last",
                                                 "child: 2", "child: last"}));
}

TEST_F(StandIns, TraceNothingWithoutAFile)
{
    EXPECT_EQ(TIStorageManagerState::enabled, 0);
    TIStorageManagerState::enabled = 1;
    EXPECT_FALSE(Write(NewLocation("%d", {"int"}), Int(1)));
    TIStorageManagerState::enabled = 0;

    EXPECT_EQ(Finish(Start("sample", {{"LUMO_TRACE", folder}})), 0);
    EXPECT_NE(Errors().find("cannot make LUMO_TRACE=" + folder), std::string::npos);
    for (const char* limit : {"19K", "4097M", "12Q", "-1", "99999999999"}) {
        EXPECT_THROW(Trace("sample", limit), std::runtime_error) << limit;
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
        ASSERT_EQ(whole.records.size(), 8u);
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
    trace::Store ParseFlipped(std::size_t at, int flip)
    {
        bytes[at] = static_cast<unsigned char>(bytes[at] ^ flip);
        trace::Store store = trace::ParseStore(bytes);
        bytes[at] = static_cast<unsigned char>(bytes[at] ^ flip);
        return store;
    }

    static constexpr std::size_t firstChunk = 4096;
    static constexpr std::size_t secondRun = firstChunk + 16384;
    trace::Store whole;
    std::vector<unsigned char> bytes;
};

TEST_F(DamagedStore, IsReadUpToWhereItIsCutOff)
{
    std::size_t before = 0;
    for (std::size_t size = 0; size < bytes.size(); size += size < firstChunk + 1000 ? 1 : 501) {
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

TEST_F(DamagedStore, YieldsNoRecordThatWasNotWritten)
{
    for (std::size_t at = firstChunk; at < firstChunk + 1000; ++at) {
        for (const int flip : {0x01, 0x04, 0x10, 0x80, 0xFF}) {
            const trace::Store store = ParseFlipped(at, flip);
            ASSERT_LE(store.records.size(), whole.records.size()) << at;
            ASSERT_LE(Altered(store), 1) << at;
        }
    }
}

TEST_F(DamagedStore, IsToldByTheHeaderOfARun)
{
    constexpr std::size_t markAndSpan = 8;
    for (const std::size_t run : {firstChunk, secondRun}) {
        for (std::size_t at = run; at < run + markAndSpan; ++at) {
            for (int flip = 1; flip < 256; flip += 7) {
                ASSERT_TRUE(ParseFlipped(at, flip).damage.has_value()) << at << " " << flip;
            }
        }
    }
}

TEST_F(DamagedStore, IsToldFromAFileThatIsNone)
{
    std::ofstream(Path("text")) << std::string(10000, 'x');
    EXPECT_THROW(trace::ReadStore(Path("text")), std::runtime_error);
    EXPECT_THROW(trace::ReadStore(Path("missing")), std::runtime_error);
    EXPECT_THROW(trace::ReadStore(folder), std::runtime_error);
}

TEST(Demangler, GivesTheTextsThatLocationsCarry)
{
    std::string texts;
    for (const char* name : {"i", "j", "b", "h", "v", "Pc", "11AudioEffect", "9Short"}) {
        texts += lumo::TSDemangler::Demangle(name) + "; ";
    }
    EXPECT_EQ(texts, "int; unsigned int; bool; unsigned char; void; char*; AudioEffect; 9Short; ");
    EXPECT_EQ(lumo::TSDemangler::Demangle(nullptr), "");
}

TEST_F(StandIns, NeverMixLinesOfThreadsAndProcesses)
{
    const Environment environment = {{"ZAV_LOG", Path("log")}};
    const pid_t first = Start("log", environment);
    const pid_t second = Start("log", environment);
    EXPECT_EQ(Finish(first), 0);
    EXPECT_EQ(Finish(second), 0);
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
    EXPECT_EQ(Finish(Start("line", {{"ZAV_LOG", "off"}})), 0);
    EXPECT_EQ(Finish(Start("line", {{"ZAV_LOG", Path("log")}})), 0);
    EXPECT_EQ(fnmatch(line.c_str(), Content(Path("log")).c_str(), 0), 0);
    EXPECT_EQ(Errors(), "");
    EXPECT_EQ(Finish(Start("line", {{"ZAV_LOG", folder}})), 0);
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
