// SPDX-License-Identifier: MIT
/**
 * @file trace_store_test.cpp
 * The platform stand-ins, the reader of trace stores, and `zavctl trace`.
 *
 * The stand-ins read the environment in the process that uses them, so each scene runs in a process
 * of its own: this program again, in the transcripts `tracer`, with the scene's name. Its clock
 * takes a microsecond for each look at it.
 */
#include "FakeGio.h"
#include "LogPoint.h"
#include "TraceReader.h"
#include "ZAVServiceAPI.h"
#include "ZAVServiceBridgeAPI.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <iterator>
#include <set>
#include <sstream>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

// Of this program alone, in front of the C library's.
int clock_gettime(clockid_t clock, timespec* now) noexcept
{
    static std::atomic<long> looks{0};
    *now = {1'767'323'045, 678'000'000};
    if (clock == CLOCK_MONOTONIC) {
        const long look = ++looks;
        *now = {look / 1'000'000, look % 1'000'000 * 1000};
    }
    return 0;
}

namespace
{

constexpr int kThreads = 8;
constexpr int kRecordsEach = 3000;
constexpr int kShortThreads = 3000;

// ---- Scenes: what a program does that uses the stand-ins ----------------------------------------

void WriteNumber(int number)
{
    LOG_POINT(DLOG_INFO, "%d", number);
}

void WriteText(int number, size_t length)
{
    LOG_POINT(DLOG_INFO, "%d %s", number, std::string(length, 'x').c_str());
}

void WaitFor(const char* file)
{
    while (access(file, F_OK) != 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void InThreads(void (*body)(int))
{
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back(body, i);
    }
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
    WriteSample();
    const auto* pointer = reinterpret_cast<const void*>(0x1234ABCD);
    LOG_POINT(DLOG_INFO, "%p %p", pointer, static_cast<const void*>(nullptr));
    LOG_POINT(DLOG_INFO, "%02x %zu%%", static_cast<unsigned char>(10), SIZE_MAX);
    LOG_POINT(DLOG_INFO, "%d %d", true, static_cast<AudioEffect>(-100));
    // As long as can be: its length looks like a null pointer, and it needs a run of its own.
    LOG_POINT(DLOG_INFO, "%s", std::string(16383, 'x').c_str());
    const char* text = "\xFF\n\x1B";
    LOG_POINT_AS(DLOG_INFO, "Describe", "int Sample::Describe(bool)", "%d %s", true, text);
}

/** A record that is prepared and given up: bytes stay where shorter ones come to lie. */
void WriteBetweenAbandoned()
{
    for (int i = 1; i <= 2; ++i) {
        lumo::TCStorage& storage = TIStorageManager::Instance().Storage();
        std::memset(storage.PrepareCallBuffer(storage.ThreadHandle(), 200, 1, 1), 0x10, 200);
        WriteNumber(i);
    }
}

/** Counts in the file `progress` what has been committed, until it is killed. */
void CountForEver(void (*write)(int))
{
    const int file = open("progress", O_RDWR | O_CLOEXEC);
    auto* progress = static_cast<std::atomic<int>*>(
        mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
    for (int i = 0;; ++i) {
        write(i);
        progress->store(i + 1);
    }
}

void WriteAcrossAFork()
{
    WriteNumber(0);
    const pid_t child = fork();
    WriteNumber(child == 0 ? 1 : 2);
    if (child != 0) {
        waitpid(child, nullptr, 0);
    }
}

/** The last record of each comes when its thread has already handed on its chunk. */
void WriteInShortThreads()
{
    WriteNumber(9);
    pthread_key_t late = 0;
    pthread_key_create(&late, [](void*) { WriteNumber(9); });
    for (int i = 1; i < kShortThreads; ++i) {
        std::jthread([late] {
            for (int number = 0; number < 9; ++number) {
                WriteNumber(number);
            }
            pthread_setspecific(late, &kShortThreads);
        });
    }
}

/** In the end there is room left for a record, but no longer for the location that it needs. */
void FillTheStore()
{
    for (int i = 0; i < kRecordsEach; ++i) {
        WriteText(i, 100);
    }
    LOG_POINT(DLOG_INFO, "last");
}

/** Long records among short ones: the chunks of one give way to many, and the other way round. */
void WriteAllSizes(int thread)
{
    for (int i = 0; i < kRecordsEach; ++i) {
        WriteText(thread * kRecordsEach + i, static_cast<size_t>(i % 100 == 0 ? 16000 : i % 50));
    }
}

void WriteInTwoParts()
{
    WriteNumber(1);
    WaitFor("go-on");
    WriteNumber(2);
}

void LogMany(int thread)
{
    const std::string text(3000, 'x');
    for (int i = 0; i < 100; ++i) {
        __dlog_print(0, DLOG_INFO, "ZAV_API", "%d %s\n", thread * 1000 + i, text.c_str());
    }
}

void LogOneLine()
{
    errno = EBUSY;
    __dlog_print(0, DLOG_ERROR, "ZAV_API", "a\tb\nc\rd%d\n", 1);
    if (errno != EBUSY) {
        std::abort();
    }
}

void LogToAPipeThatNobodyReads()
{
    const int reader = open("fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    LogOneLine();
    char line[100];
    std::printf("%.*s", static_cast<int>(read(reader, line, sizeof line)), line);
    close(reader);
    LogOneLine();
    std::puts("alive");
}

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
    int modes[17] = {};
    int* list = modes;
    int count = 0;
    fake::reply = "(7,)";
    GetModeList(&list, &count);
    SetEqualizerLevel(list, 3);
    ZAVServiceAPI::SubscribeZAVCSharpCallback([](int, void*, int) { IsZAVReady(); });
    g_autoptr(GVariant) event =
        g_variant_parse(nullptr, "(1, [byte 1], 1)", nullptr, nullptr, nullptr);
    std::ranges::find(fake::subscriptions, "notifyZAVCsharpCallback", &fake::Subscription::member)
        ->handler(nullptr, "", "", "", "notifyZAVCsharpCallback", event, nullptr);
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

const std::map<std::string_view, void (*)()> kScenes = {
    {"nothing", [] {}},
    {"sample", WriteSample},
    {"types", WriteEveryType},
    {"abandon", WriteBetweenAbandoned},
    {"count", [] { CountForEver(WriteNumber); }},
    {"count-in-threads", [] { CountForEver([](int i) { std::jthread(WriteNumber, i); }); }},
    {"fork", WriteAcrossAFork},
    {"short-threads", WriteInShortThreads},
    {"full", FillTheStore},
    {"sizes", [] { InThreads(WriteAllSizes); }},
    {"parts", WriteInTwoParts},
    {"log", [] { InThreads(LogMany); }},
    {"line", LogOneLine},
    {"pipe", LogToAPipeThatNobodyReads},
    {"requests", MakeRequests},
    {"fragments", MakeFragments},
};

// ---- What is found afterwards -------------------------------------------------------------------

struct StoredRecord
{
    std::int64_t time;
    std::uint32_t thread;
    std::string message, payload;
};

struct Store
{
    explicit Store(const std::string& path)
    {
        trace::Reader reader(path);
        while (const trace::Record* record = reader.Next()) {
            records.push_back({record->time,
                               record->thread,
                               Message(*record),
                               {record->payload.begin(), record->payload.end()}});
        }
        dropped = reader.Dropped();
        overwritten = reader.Overwritten();
        process = reader.Process();
        damage = reader.Damage();
    }

    bool IsSorted() const { return std::ranges::is_sorted(records, {}, &StoredRecord::time); }

    std::vector<StoredRecord> records;
    std::uint64_t dropped, overwritten;
    std::uint32_t process;
    std::optional<std::string> damage;
};

std::string Content(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** Each test works in a folder of its own. */
class StandIns : public testing::Test
{
protected:
    void SetUp() override
    {
        char name[] = "/tmp/stand-ins-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        m_folder = name;
        std::filesystem::current_path(m_folder);
        std::filesystem::create_directory("bin");
        std::filesystem::create_symlink(ZAV_ITSELF, "bin/tracer");
        std::filesystem::create_symlink(ZAVCTL, "bin/zavctl");
        setenv("PATH", (m_folder + "/bin:" + m_path).c_str(), 1);
        setenv("TZ", "XYZ-05:30", 1);
        setenv("ZAV_LOG", "off", 1);
    }
    void TearDown() override
    {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(m_folder);
    }

    /** Runs what stands behind "$ ", which has to print what stands below it. */
    void Expect(const std::string& transcript) const
    {
        constexpr const char* tools = R"sh( slices() {
            sed -n 's/.*{"name":"\([^"]*\)".*"ph":"B".*"ts":\([0-9.]*\).*/<\2 \1/p
                    s/.*"ph":"E".*"ts":\([0-9.]*\).*/ \1>/p' $1 |
                tr -d '\n' | sed 's/<[0-9.]* export/\n&/g'; echo; }; )sh";
        std::istringstream lines(transcript);
        std::string replayed;
        for (std::string line; std::getline(lines, line);) {
            if (!line.starts_with("$ ")) {
                continue;
            }
            for (std::string more; line.ends_with('\\') && std::getline(lines, more);) {
                line += "\n" + more;
            }
            const std::string command = tools + line.substr(2);
            const int status = std::system(("{" + command + "\n} >out 2>&1").c_str());
            replayed += line + "\n" + Content("out");
            replayed += status ? "[exit " + std::to_string(WEXITSTATUS(status)) + "]\n" : "";
        }
        for (size_t at; (at = replayed.find(m_folder)) != std::string::npos;) {
            replayed.replace(at, m_folder.size(), "HERE");
        }
        EXPECT_EQ(transcript, replayed);
    }
    /** The store that a scene leaves. */
    static Store Trace(const std::string& scene, const std::string& environment = "")
    {
        EXPECT_EQ(std::system(("LUMO_TRACE=trace " + environment + " tracer " + scene).c_str()), 0);
        return Store("trace");
    }

    std::string m_folder;
    const std::string m_path = std::getenv("PATH");
};

TEST_F(StandIns, TraceIntoNothingThatIsNotTheirs)
{
    Expect(R"($ LUMO_TRACE=untouched tracer nothing
$ echo worth keeping >text; ln -s store link; ln -s nowhere dangling; mkfifo fifo; mkdir folder
$ LUMO_TRACE=store tracer sample; stat -c %A store; printf 'LUMOTRC1%200s' >old; touch empty
-rw-------
$ zavctl trace old
zavctl: old: this trace store has another format than today's
[exit 1]
$ for file in store old empty; do LUMO_TRACE=$file tracer abandon; zavctl trace $file | wc -l; done
2
2
2
$ for it in text link dangling fifo folder /dev/null no/store; do LUMO_TRACE=$it tracer sample; done
ruvi-lumo: cannot trace into LUMO_TRACE=HERE/text: it is a file, but no trace store
ruvi-lumo: cannot trace into LUMO_TRACE=HERE/link: it is no plain file
ruvi-lumo: cannot trace into LUMO_TRACE=HERE/dangling: it is no plain file
ruvi-lumo: cannot trace into LUMO_TRACE=HERE/fifo: it is no plain file
ruvi-lumo: cannot trace into LUMO_TRACE=HERE/folder: it is no plain file
ruvi-lumo: cannot trace into LUMO_TRACE=/dev/null: it is no plain file
ruvi-lumo: cannot trace into LUMO_TRACE=HERE/no/store: No such file or directory
$ LUMO_TRACE_LIMIT=19K LUMO_TRACE=new tracer sample
ruvi-lumo: cannot trace into LUMO_TRACE=HERE/new: LUMO_TRACE_LIMIT=19K is not from 20K to 1024M
$ for it in 4097M 12Q -1 99999999999; do LUMO_TRACE_LIMIT=$it LUMO_TRACE=new tracer sample; done 2>why
$ grep -c 'is not from' why
4
$ LUMO_TRACE_MODE=ring LUMO_TRACE=new tracer sample
ruvi-lumo: cannot trace into LUMO_TRACE=HERE/new: LUMO_TRACE_MODE=ring is neither keep nor overwrite
$ ulimit -f 100; LUMO_TRACE=new tracer sample
ruvi-lumo: cannot trace into LUMO_TRACE=HERE/new: RLIMIT_FSIZE is smaller than the store
$ LUMO_TRACE_LIMIT=1024M LUMO_TRACE=big tracer sample; [ $(du -k big | cut -f1) -lt 128 ]
$ for i in 1 2 3 4; do LUMO_TRACE=store tracer parts 2>>why-not & done; \
  until [ $(cat why-not | wc -l) = 3 ]; do sleep 0.01; done; touch go-on; wait; cat why-not
ruvi-lumo: cannot trace into LUMO_TRACE=HERE/store: another process traces into it
ruvi-lumo: cannot trace into LUMO_TRACE=HERE/store: another process traces into it
ruvi-lumo: cannot trace into LUMO_TRACE=HERE/store: another process traces into it
$ zavctl trace store | wc -l; cat text; ls | tr '\n' ' '; echo
2
worth keeping
big bin dangling empty fifo folder go-on link old out store text why why-not 
)");
}

TEST_F(StandIns, LogWhereTheEnvironmentSaysAndEndNobody)
{
    Expect(R"($ ZAV_LOG=log tracer line; stat -c %A log; cat log
-rw-------
2026-01-02 08:34:05.678 E ZAV_API: a	b c d1
$ for log in /dev/stderr /dev/fd/2 ""; do ZAV_LOG=$log tracer line; done
2026-01-02 08:34:05.678 E ZAV_API: a	b c d1
2026-01-02 08:34:05.678 E ZAV_API: a	b c d1
2026-01-02 08:34:05.678 E ZAV_API: a	b c d1
$ echo kept >file; ln -s file link; mkfifo fifo
$ for log in link fifo .; do ZAV_LOG=$log tracer line; done; cat file
platform-log: cannot open ZAV_LOG=link: Too many levels of symbolic links; logging to standard error
2026-01-02 08:34:05.678 E ZAV_API: a	b c d1
platform-log: cannot open ZAV_LOG=fifo: No such device or address; logging to standard error
2026-01-02 08:34:05.678 E ZAV_API: a	b c d1
platform-log: cannot open ZAV_LOG=.: Is a directory; logging to standard error
2026-01-02 08:34:05.678 E ZAV_API: a	b c d1
kept
$ ZAV_LOG=fifo tracer pipe
2026-01-02 08:34:05.678 E ZAV_API: a	b c d1
alive
$ ulimit -f 1; ZAV_LOG=limited tracer log
$ export ZAV_LOG=all; tracer log & tracer log; wait; sort all | uniq -cd | awk '$1 == 2 && length($NF) == 3000' | wc -l
800
)");
}

TEST_F(StandIns, WriteTheDocumentedExampleWhateverTheWordSize)
{
    Trace("sample", "LUMO_TRACE_LIMIT=20K");
    const std::string store = Content("trace");
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
    ASSERT_EQ(documented.size(), 22u * 16);
    // Process and clock; of two runs the threads and the start; of three records the time.
    for (const auto& [at, size] : {std::pair(20u, 12u),
                                   {76, 12},
                                   {96, 4},
                                   {116, 12},
                                   {136, 4},
                                   {152, 8},
                                   {296, 8},
                                   {320, 8}}) {
        written.replace(at, size, documented, at, size);
    }
    EXPECT_EQ(documented, written);
}

TEST_F(StandIns, LoseNothingThatWasCommittedWhenTheProcessIsKilled)
{
    const char* const times = std::getenv("ZAV_KILLS"); // of each kind; many, by hand
    for (int i = 0; i < (times ? std::atoi(times) : 5) * 4; ++i) {
        const bool overwrites = i % 2 == 0;
        std::ofstream("progress") << std::string(sizeof(int), '\0');
        const pid_t child = fork();
        if (child == 0) {
            setenv("LUMO_TRACE", "trace", 1);
            setenv("LUMO_TRACE_LIMIT", overwrites ? "52K" : "256M", 1);
            setenv("LUMO_TRACE_MODE", overwrites ? "overwrite" : "keep", 1);
            execlp("tracer", "tracer", i % 4 < 2 ? "count" : "count-in-threads", nullptr);
            _exit(1);
        }
        const int progress = open("progress", O_RDONLY | O_CLOEXEC);
        int done = 0;
        while (done < 200 + i * 7 && waitpid(child, nullptr, WNOHANG) == 0) {
            ASSERT_EQ(pread(progress, &done, sizeof done, 0), static_cast<ssize_t>(sizeof done));
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        ASSERT_EQ(pread(progress, &done, sizeof done, 0), static_cast<ssize_t>(sizeof done));
        close(progress);
        const Store store("trace");
        ASSERT_TRUE(!store.damage && store.dropped == 0) << "or too small for this test";
        int number = done - static_cast<int>(store.records.size());
        number = store.records.back().message == std::to_string(done) ? number + 1 : number;
        ASSERT_TRUE(number == 0 || (number > 0 && overwrites));
        for (const StoredRecord& record : store.records) {
            ASSERT_EQ(record.message, std::to_string(number++)) << "of kind " << i % 4;
        }
    }
}

TEST_F(StandIns, KeepEveryRecordOfThreadsThatFollowEachOther)
{
    const Store store = Trace("short-threads", "LUMO_TRACE_LIMIT=2M");
    EXPECT_TRUE(!store.damage && store.dropped == 0);
    EXPECT_EQ(store.records.size(), kShortThreads * 10u - 9);
    std::map<std::uint32_t, int> written; // the number of a thread may come again
    for (const StoredRecord& record : store.records) {
        if (record.thread != store.process) {
            ASSERT_EQ(record.message, std::to_string(written[record.thread]++ % 10));
        }
    }
    const Store forked = Trace("fork");
    EXPECT_EQ(forked.records.size(), 3u);
    for (const StoredRecord& record : forked.records) {
        EXPECT_EQ(record.thread == forked.process, record.message != "1") << record.message;
    }
}

TEST_F(StandIns, CountWhatIsLostWhileTheStoreIsRead)
{
    for (const bool overwrites : {false, true}) {
        auto writing = std::async(std::launch::async, Trace, "sizes",
                                  overwrites ? "LUMO_TRACE_LIMIT=512K LUMO_TRACE_MODE=overwrite"
                                             : "LUMO_TRACE_LIMIT=1M");
        while (writing.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            if (std::filesystem::exists("trace")) { // and is complete, then
                const Store meanwhile("trace");
                ASSERT_TRUE(!meanwhile.damage && meanwhile.IsSorted());
            }
        }
        const Store store = writing.get();
        ASSERT_TRUE(!store.damage && store.IsSorted());
        EXPECT_EQ(store.records.size() + store.dropped + store.overwritten,
                  kThreads * kRecordsEach);
        EXPECT_TRUE(overwrites ? store.dropped == 0 && store.overwritten > 0
                               : store.dropped > 0 && store.overwritten == 0);
        std::map<std::uint32_t, int> last;
        for (const StoredRecord& record : store.records) {
            const int number = std::stoi(record.message);
            EXPECT_LT(std::exchange(last.try_emplace(record.thread, -1).first->second, number),
                      number);
        }
        EXPECT_TRUE(!overwrites || std::ranges::any_of(last, [](const auto& thread) {
            return thread.second % kRecordsEach == kRecordsEach - 1;
        })) << "the newest of them";
        std::filesystem::remove("trace");
    }
}

// ---- The reader on damage -----------------------------------------------------------------------

/** What a store with these bytes yields; and how many records that were not written like this. */
std::pair<Store, std::ptrdiff_t> Read(const std::string& bytes, const Store& whole)
{
    static const int memory = memfd_create("damaged", MFD_CLOEXEC);
    EXPECT_EQ(ftruncate(memory, 0), 0);
    EXPECT_EQ(pwrite(memory, bytes.data(), bytes.size(), 0), std::ssize(bytes));
    Store store("/proc/self/fd/" + std::to_string(memory));
    const auto altered = std::ranges::count_if(store.records, [&](const StoredRecord& record) {
        return std::ranges::none_of(whole.records, [&](const StoredRecord& original) {
            return record.time == original.time && record.payload == original.payload;
        });
    });
    return {std::move(store), altered};
}

TEST_F(StandIns, AreReadUpToWhereTheyAreCutOff)
{
    const Store whole = Trace("types", "LUMO_TRACE_LIMIT=52K");
    const std::string bytes = Content("trace");
    std::size_t before = 0;
    for (std::size_t size = 0; size < bytes.size(); size += size < 128 ? 1 : 53) {
        if (size < sizeof(lumo::format::FileHeader)) {
            EXPECT_THROW(Read(bytes.substr(0, size), whole), std::runtime_error);
            continue;
        }
        const auto [store, altered] = Read(bytes.substr(0, size), whole);
        ASSERT_EQ(store.damage, "at byte " + std::to_string(size) + " of " +
                                    std::to_string(bytes.size()) + " the file is cut off");
        ASSERT_GE(store.records.size(), before) << size;
        ASSERT_EQ(altered, 0) << size;
        before = store.records.size();
    }
    EXPECT_EQ(before, 7u);

    trace::Reader reader("trace");
    ASSERT_NE(reader.Next(), nullptr);
    std::filesystem::resize_file("trace", 100); // while it is read
    while (reader.Next() != nullptr) {
    }
    EXPECT_TRUE(reader.Damage() && reader.Damage()->ends_with("the file is cut off"));
}

TEST_F(StandIns, AreToldToBeDamagedAndYieldNoRecordThatWasNotWritten)
{
    const Store whole = Trace("types", "LUMO_TRACE_LIMIT=52K");
    const std::string bytes = Content("trace");
    std::set<std::string> damages;
    for (std::size_t at = sizeof(lumo::format::FileHeader); at < bytes.size(); ++at) {
        if (bytes.compare(at, 64, std::string(64, bytes[at])) == 0) {
            continue; // zeros, or the long text
        }
        for (const int flip : {0x01, 0x04, 0x10, 0x80, 0xFF}) {
            std::string flipped = bytes;
            flipped[at] = static_cast<char>(flipped[at] ^ flip);
            const auto [store, altered] = Read(flipped, whole);
            ASSERT_LE(store.records.size(), 7u) << at;
            ASSERT_LE(altered, 1) << at;
            ASSERT_TRUE(store.damage || store.IsSorted()) << at;
            if (store.damage) {
                damages.insert(store.damage->substr(store.damage->find(" a")));
            }
        }
    }
    EXPECT_EQ(damages,
              (std::set<std::string>{" a location has the identifier of another one",
                                     " a location is malformed", " a record does not fit its place",
                                     " a record does not match the arguments of its location",
                                     " a record has a location that is not in the store",
                                     " a record has a time that cannot be",
                                     " an entry of the table of chunks is not valid"}));
}

// ---- What zavctl makes of it --------------------------------------------------------------------

TEST_F(StandIns, AreShownAsLinesOrAsJson)
{
    Expect(R"sh($ LUMO_TRACE=t tracer types; zavctl trace t | tr -s x | cut -d' ' -f1,2,4- | cat -v
2026-01-02 08:34:05.678004 Run: SID = abc, -7
2026-01-02 08:34:05.678005 Run: SID = (null), 100
2026-01-02 08:34:05.678007 WriteEveryType: 0x1234abcd (nil)
2026-01-02 08:34:05.678009 WriteEveryType: 0a 4294967295%
2026-01-02 08:34:05.678011 WriteEveryType: 1 -100
2026-01-02 08:34:05.678014 WriteEveryType: x
2026-01-02 08:34:05.678016 Describe: 1 M-^?  
$ zavctl trace t --json | tail -n 1 | sed 's/"thread":[0-9]*/"thread":1/; s/,"file".*,"message/.../'
{"time":"1767323045678016000","thread":1,"operation":"Describe","function":"int Sample::Describe(bool)"...":"1 �\n\u001b","format":"%d %s","arguments":[true,"�\n\u001b"]}
$ LUMO_TRACE=parts tracer parts & until [ -f parts ]; do sleep 0.01; done; \
  zavctl trace parts --follow | while read -r line; do touch go-on; echo "${line##* }"; done
1
2
)sh");
}

TEST_F(StandIns, AreSummedUpByOperationAndDrawnAsATimelineOfNestedSlices)
{
    Expect(R"($ LUMO_TRACE=t tracer requests; zavctl trace t --stat
operation requests median_us p99_us busy_waits gave_up no_proxy no_answer not_connected
GetModeList 1 8.0 8.0 0 0 0 0 0
GetWooferLevel 3 7.0 102.0 102 1 0 1 0
InitDbusConnection 2 2.0 2.0 0 0 0 0 1
IsSoundBarConnected 1 2.0 2.0 0 0 1 0 0
IsZAVReady 1 4.0 4.0 0 0 0 0 0
SetEqualizerLevel 1 2.0 2.0 0 0 0 0 0
SubscribeZAVCSharpCallback 1 - - 0 0 0 0 0
$ LUMO_TRACE=t tracer fragments; zavctl trace t --stat --json | head -n 1
{"operation":"GetWooferLevel","requests":2,"median_us":4.0,"p99_us":4.0,"busy_waits":0,"gave_up":0,"no_proxy":0,"no_answer":0,"not_connected":0}
$ LUMO_TRACE=t tracer requests; zavctl trace t --chrome c; slices c; grep -o 'main thread' c

<0.0 export IsSoundBarConnected<2.0 InitDbusConnection 4.0><6.0 IsSoundBarConnected 8.0> 8.0>
<10.0 export GetWooferLevel<11.0 InitDbusConnection 13.0><15.0 GetWooferLevel<17.0 wait for the lock 20.0><20.0 call 20.0> 22.0> 22.0>
<23.0 export GetWooferLevel<24.0 GetWooferLevel<25.0 wait for the lock 126.0> 126.0> 126.0>
<127.0 export GetWooferLevel<128.0 GetWooferLevel<128.0 call 129.0> 131.0> 131.0>
<133.0 export GetModeList<135.0 GetModeList<135.0 call 137.0> 143.0> 143.0>
<145.0 export SetEqualizerLevel<147.0 SetEqualizerLevel<147.0 call 149.0> 149.0> 149.0><151.0 SubscribeZAVCSharpCallback 151.0>
<157.0 export IsZAVReady<159.0 IsZAVReady<159.0 call 161.0> 163.0> 165.0>
main thread
$ LUMO_TRACE=t tracer fragments; zavctl trace t --chrome c; slices c; grep -c '"ph":"i"' c

<4.0 export GetWooferLevel<6.0 InitDbusConnection 8.0><10.0 GetWooferLevel<10.0 call 12.0> 14.0> 14.0><18.0 GetWooferLevel 18.0>
4
)");
}

TEST_F(StandIns, AreNeitherDestroyedNorShownInSilenceWhenTheyAreNotWhole)
{
    Expect(R"($ LUMO_TRACE=t tracer sample; ln t same; zavctl trace t --chrome same
zavctl: same: is a trace store; the timeline would destroy it
[exit 2]
$ zavctl trace t --chrome none/c
zavctl: none/c: cannot be written: No such file or directory
[exit 1]
$ zavctl trace t --follow --stat
zavctl: --follow shows records: not with --stat or --chrome
[exit 2]
$ zavctl trace none
zavctl: none: No such file or directory
[exit 1]
$ truncate -s 13000 t; zavctl trace t --chrome c
zavctl: t: damaged: at byte 13000 of 16777216 the file is cut off
[exit 1]
$ LUMO_TRACE=full LUMO_TRACE_LIMIT=20K tracer full; zavctl trace full | wc -l
zavctl: full: 2937 records found no room
64
$ LUMO_TRACE=full LUMO_TRACE_LIMIT=20K LUMO_TRACE_MODE=overwrite tracer full
$ zavctl trace full | cut -d' ' -f4 | tail -n 2
zavctl: full: 2944 records gave way to newer ones
WriteText:
FillTheStore:
)");
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
