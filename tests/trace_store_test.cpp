// SPDX-License-Identifier: MIT
/**
 * @file trace_store_test.cpp
 * What the platform stand-ins write, and the reader of trace stores.
 *
 * The stand-ins read the environment in the process that uses them, so each scene runs in a process
 * of its own: this program again, with the scene's name. So do the transcripts `traces`, `logs` and
 * `views`, where it is called `tracer`. Its clock takes a microsecond for each look at it.
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
    StandIns()
    {
        EXPECT_NE(mkdtemp(m_folder.data()), nullptr);
        std::filesystem::current_path(m_folder);
        setenv("ZAV_LOG", "off", 1);
    }
    ~StandIns() override
    {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(m_folder);
    }

    /** The store that a scene leaves. */
    static Store Trace(const std::string& scene, const std::string& environment)
    {
        const std::string command = "LUMO_TRACE=trace " + environment + " " ZAV_ITSELF " " + scene;
        EXPECT_EQ(std::system(command.c_str()), 0);
        return Store("trace");
    }

    std::string m_folder = "/tmp/stand-ins-XXXXXX";
};

TEST_F(StandIns, WriteTheDocumentedExampleWhateverTheWordSize)
{
    Trace("sample", "LUMO_TRACE_LIMIT=20K");
    const std::string store = Content("trace");
    // Process and clock; of two runs the threads and the start; of three records the time.
    constexpr std::pair<std::size_t, std::size_t> varying[] = {
        {20, 32},   {140, 152},   {160, 164},     {180, 192},
        {200, 204}, {4104, 4112}, {12296, 12304}, {12320, 12328}};
    std::ifstream page(ZAV_TRACE_FORMAT);
    int compared = 0;
    for (std::string line; std::getline(page, line);) {
        for (std::size_t i = 0; line.starts_with("0000") && i < 16; ++i, ++compared) {
            const std::size_t at = std::stoul(line, nullptr, 16) + i;
            const int documented =
                std::stoi(line.substr(10 + i / 2 * 5 + i % 2 * 2, 2), nullptr, 16);
            EXPECT_TRUE(static_cast<unsigned char>(store[at]) == documented ||
                        std::ranges::any_of(varying,
                                            [at](const auto& part) {
                                                return part.first <= at && at < part.second;
                                            }))
                << "byte " << at;
        }
    }
    EXPECT_EQ(compared, 22 * 16);
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
            execl(ZAV_ITSELF, ZAV_ITSELF, i % 4 < 2 ? "count" : "count-in-threads", nullptr);
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
    const Store forked = Trace("fork", "");
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

class Damaged : public StandIns
{
protected:
    /** What a store with these bytes yields: but for so many records, what was written. */
    Store Read(const std::string& bytes, int altered) const
    {
        static const int memory = memfd_create("damaged", MFD_CLOEXEC);
        EXPECT_EQ(ftruncate(memory, 0), 0);
        EXPECT_EQ(pwrite(memory, bytes.data(), bytes.size(), 0), std::ssize(bytes));
        Store store("/proc/self/fd/" + std::to_string(memory));
        EXPECT_LE(store.records.size(), m_whole.records.size());
        EXPECT_LE(std::ranges::count_if(store.records,
                                        [this](const StoredRecord& read) {
                                            return std::ranges::none_of(
                                                m_whole.records,
                                                [&read](const StoredRecord& written) {
                                                    return read.time == written.time &&
                                                           read.payload == written.payload;
                                                });
                                        }),
                  altered);
        return store;
    }

    const Store m_whole = Trace("types", "LUMO_TRACE_LIMIT=52K");
    const std::string m_bytes = Content("trace");
};

TEST_F(Damaged, StoreIsReadUpToWhereItIsCutOff)
{
    std::size_t before = 0;
    for (std::size_t size = 0; size < m_bytes.size(); size += size < 128 ? 1 : 53) {
        if (size < sizeof(lumo::format::FileHeader)) {
            EXPECT_THROW(Read(m_bytes.substr(0, size), 0), std::runtime_error);
            continue;
        }
        const Store store = Read(m_bytes.substr(0, size), 0);
        ASSERT_EQ(store.damage, "at byte " + std::to_string(size) + " of " +
                                    std::to_string(m_bytes.size()) + " the file is cut off");
        ASSERT_TRUE(!HasFailure() && store.records.size() >= before) << size;
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

TEST_F(Damaged, StoreIsToldToBeSoAndYieldsNoRecordThatWasNotWritten)
{
    std::set<std::string> damages;
    for (std::size_t at = sizeof(lumo::format::FileHeader); at < m_bytes.size(); ++at) {
        if (m_bytes.compare(at, 64, std::string(64, m_bytes[at])) == 0) {
            continue; // zeros, or the long text
        }
        for (const int flip : {0x01, 0x04, 0x10, 0x80, 0xFF}) {
            std::string flipped = m_bytes;
            flipped[at] = static_cast<char>(flipped[at] ^ flip);
            const Store store = Read(flipped, 1);
            ASSERT_TRUE(!HasFailure() && (store.damage || store.IsSorted())) << at;
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
