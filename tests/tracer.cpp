// SPDX-License-Identifier: MIT
/**
 * @file tracer.cpp
 * tracer SCENE: a program that logs and is traced, for the transcripts `stores`, `traces`, `logs`
 * and `views`. The stand-ins read the environment once: each scene is a run of its own. Its clock
 * takes a microsecond for each look at it.
 */
#include "Boundary.h"
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
#include <iostream>
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

/** Tells of each record that has been committed by a byte, until it is killed. */
void CountForEver(void (*write)(int))
{
    for (int i = 0;; ++i) {
        write(i);
        if (::write(STDOUT_FILENO, "x", 1) != 1) {
            std::abort();
        }
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

// ---- The reader on damage

using Record = std::pair<std::int64_t, std::string>; // time and payload
using Records = std::vector<Record>;

void Expect(bool holds, const char* what, std::size_t at)
{
    if (!holds) {
        std::cout << what << ", byte " << at << "\n";
    }
}

/** What a reader yields of a store, and the damage that it tells of. */
std::pair<Records, std::string> Read(const std::string& store)
{
    static const int file = memfd_create("store", MFD_CLOEXEC);
    if (ftruncate(file, 0) != 0 || pwrite(file, store.data(), store.size(), 0) < 0) {
        std::abort();
    }
    trace::Reader reader("/proc/self/fd/" + std::to_string(file));
    Records records;
    while (const trace::Record* record = reader.Next()) {
        records.push_back({record->time, {record->payload.begin(), record->payload.end()}});
    }
    return {records, reader.Damage().value_or("")};
}

/** Reads the store cut off, then with a byte of it changed; prints each damage once. */
void ReadDamagedStores()
{
    std::ifstream file("whole", std::ios::binary);
    const std::string store{std::istreambuf_iterator<char>(file), {}};
    const Records whole = Read(store).first;
    std::set<std::string> damages;
    const auto read = [&](const std::string& damaged, int altered, std::size_t at) {
        const auto [records, damage] = Read(damaged);
        const auto isOther = [&](const auto& one) { return std::ranges::count(whole, one) == 0; };
        Expect(records.size() <= whole.size(), "more records than were written", at);
        Expect(std::ranges::count_if(records, isOther) <= altered, "one was not written", at);
        Expect(!damage.empty() || std::ranges::is_sorted(records, {}, &Record::first), "no order",
               at);
        damages.insert(boundary::Replaced(damage, "[0-9]+", "N"));
        return records.size();
    };
    std::size_t before = 0;
    for (std::size_t size = sizeof(lumo::format::FileHeader); size < store.size(); size += 53) {
        const std::size_t records = read(store.substr(0, size), 0, size);
        Expect(records >= before, "fewer records than of less", size);
        before = records;
    }
    Expect(before == whole.size(), "records are lost", before);
    for (std::size_t at = sizeof(lumo::format::FileHeader); at < store.size(); ++at) {
        if (store.compare(at, 64, std::string(64, store[at])) == 0) {
            continue; // zeros, or the long text
        }
        for (const int flip : {0x01, 0x04, 0x10, 0x80, 0xFF}) {
            std::string altered = store;
            altered[at] = static_cast<char>(altered[at] ^ flip);
            read(altered, 1, at);
        }
    }
    damages.erase(""); // of what no reader looks at
    std::ranges::copy(damages, std::ostream_iterator<std::string>(std::cout, "\n"));
}

void ReadAStoreThatShrinks()
{
    trace::Reader reader("whole");
    reader.Next();
    std::filesystem::resize_file("whole", 100);
    while (reader.Next() != nullptr) {
    }
    std::cout << reader.Damage().value_or("no damage") << "\n";
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
    {"damage", ReadDamagedStores},
    {"shrink", ReadAStoreThatShrinks},
};

} // namespace

int main(int /*argc*/, char** argv)
{
    kScenes.at(argv[1])();
    return 0;
}
