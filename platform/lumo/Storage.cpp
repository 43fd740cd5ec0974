// SPDX-License-Identifier: MIT
/**
 * @file Storage.cpp
 * Stand-in for the platform's trace storage: one memory-mapped file that outlives the process.
 *
 * LUMO_TRACE=FILE turns it on when the library is loaded, LUMO_TRACE_LIMIT=BYTES bounds the file.
 * Each thread takes chunks of its own, so writing a record needs neither a lock nor a system call.
 */
#include "TraceFormat.h"
#include "lumo.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <pthread.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace lumo::format;

unsigned char TIStorageManagerState::enabled = 0;

struct lumo::TCThreadHandle
{
    unsigned char* next;    ///< where the next record goes
    unsigned char* end;     ///< of the thread's current run of chunks
    std::uint32_t prepared; ///< length of the record at `next`
    std::uint32_t thread;   ///< its number; 0 until it has taken a chunk
};

namespace
{

constexpr std::uint32_t DefaultLimit = 16U << 20;

// Without a file this header stands in for a store that is full from the start, so that nothing
// else has to ask whether there is one.
constinit FileHeader noStore{};
constinit FileHeader* store = &noStore;

// Of a trivial type and in the static TLS block: reaching it takes no call.
constinit thread_local __attribute__((tls_model("initial-exec"))) lumo::TCThreadHandle ownHandle{};

std::uint64_t Nanoseconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
           static_cast<std::uint64_t>(now.tv_nsec);
}

std::optional<std::uint32_t> ParseLimit(std::string_view text)
{
    std::uint32_t number = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    std::uint64_t limit = number;
    const std::string_view unit = text.substr(static_cast<std::size_t>(rest - text.data()));
    if (unit == "K") {
        limit <<= 10;
    } else if (unit == "M") {
        limit <<= 20;
    } else if (!unit.empty()) {
        return std::nullopt;
    }
    if (error != std::errc() || limit < SmallestStore || limit > LargestStore) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(limit);
}

/**
 * Reserves the space as well: a disk that is full is found now, not as a SIGBUS later. And brings
 * it into memory: a page that is first touched by a record costs as much as dozens of them.
 */
void* MapNewFile(const char* path, std::uint32_t size)
{
    // A file of an earlier run is replaced, not rewritten: another process may still have it
    // mapped. Anything but a plain file is left alone, and O_EXCL then fails.
    struct stat existing;
    if (lstat(path, &existing) == 0 && S_ISREG(existing.st_mode)) {
        unlink(path);
    }
    const int file = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file < 0) {
        return MAP_FAILED;
    }
    void* memory = MAP_FAILED;
    errno = posix_fallocate(file, 0, static_cast<off_t>(size));
    if (errno == 0) {
        memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    }
    const int error = errno;
    close(file);
    if (memory == MAP_FAILED) {
        unlink(path);
    } else {
        madvise(memory, size, MADV_POPULATE_WRITE); // before Linux 5.14 it does nothing
    }
    errno = error;
    return memory;
}

__attribute__((constructor)) void OpenStore()
{
    const char* path = secure_getenv("LUMO_TRACE");
    if (!path || !*path) {
        return;
    }
    const char* limitText = secure_getenv("LUMO_TRACE_LIMIT");
    const auto limit = limitText ? ParseLimit(limitText) : DefaultLimit;
    if (!limit) {
        std::fprintf(stderr,
                     "ruvi-lumo: LUMO_TRACE_LIMIT=%s is not from 20K to 1024M; not tracing\n",
                     limitText);
        return;
    }
    const std::uint32_t chunks = (*limit - HeaderBlock) / ChunkSize;
    void* memory = MapNewFile(path, HeaderBlock + chunks * ChunkSize);
    if (memory == MAP_FAILED) {
        std::fprintf(stderr, "ruvi-lumo: cannot make LUMO_TRACE=%s: %s; not tracing\n", path,
                     std::strerror(errno));
        return;
    }
    store = static_cast<FileHeader*>(memory);
    store->chunkSize = ChunkSize;
    store->chunkCount = chunks;
    store->clockOffset =
        static_cast<std::int64_t>(Nanoseconds(CLOCK_REALTIME) - Nanoseconds(CLOCK_MONOTONIC));
    store->process = static_cast<std::uint32_t>(getpid());
    std::atomic_ref(store->magic).store(Magic, std::memory_order_release);
    // The one thread that a fork leaves must not go on in its parent's chunk.
    pthread_atfork(nullptr, nullptr, [] { ownHandle = {}; });
    TIStorageManagerState::enabled = 1;
}

/** Gives the thread a new run of chunks with room for a record of this length, or counts a drop. */
bool TakeChunks(lumo::TCThreadHandle& handle, std::uint64_t length)
{
    const std::uint64_t span = ChunksFor(length);
    const std::atomic_ref nextChunk(store->nextChunk);
    std::uint32_t first = nextChunk.load(std::memory_order_relaxed);
    do {
        if (span > store->chunkCount - first) {
            std::atomic_ref(store->dropped).fetch_add(1, std::memory_order_relaxed);
            return false;
        }
    } while (!nextChunk.compare_exchange_weak(first, first + static_cast<std::uint32_t>(span),
                                              std::memory_order_relaxed));
    if (handle.thread == 0) {
        handle.thread = static_cast<std::uint32_t>(gettid());
    }

    unsigned char* run = reinterpret_cast<unsigned char*>(store) + HeaderBlock +
                         static_cast<std::size_t>(first) * ChunkSize;
    auto* header = reinterpret_cast<ChunkHeader*>(run);
    header->span = static_cast<std::uint32_t>(span);
    header->thread = handle.thread;
    std::atomic_ref(header->mark).store(ChunkMark, std::memory_order_release);
    handle.next = run + sizeof(ChunkHeader);
    handle.end = run + static_cast<std::size_t>(span) * ChunkSize;
    return true;
}

template <typename Integer>
void Append(std::string& entry, Integer value)
{
    entry.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void AppendText(std::string& entry, const std::string& text)
{
    Append(entry, static_cast<std::uint32_t>(text.size()));
    entry += text;
}

} // namespace

namespace lumo
{

void TCStorage::SaveLocation(const TCCallLocation& location)
{
    std::string entry;
    Append(entry, location.id);
    Append(entry, location.line);
    AppendText(entry, location.file);
    AppendText(entry, location.function);
    AppendText(entry, location.message);
    const std::size_t count = location.argTypeNames.size();
    Append(entry, static_cast<std::uint16_t>(count));
    for (std::size_t i = 0; i < count; ++i) {
        Append(entry, location.argKinds[i]);
        Append(entry, location.argSizes[i]);
        AppendText(entry, location.argTypeNames[i]);
    }
    const auto size = static_cast<unsigned>(entry.size());
    if (unsigned char* place = PrepareCallBuffer(&ownHandle, size, 1, 0)) {
        entry.copy(reinterpret_cast<char*>(place), entry.size());
        Commit(&ownHandle);
    }
}

TCThreadHandle* TCStorage::ThreadHandle()
{
    return &ownHandle;
}

unsigned char* TCStorage::PrepareCallBuffer(TCThreadHandle* thread, unsigned payloadSize,
                                            unsigned char, unsigned locationId)
{
    const std::uint64_t length = sizeof(RecordHeader) + std::uint64_t{payloadSize};
    if (Padded(length) > static_cast<std::uint64_t>(thread->end - thread->next) &&
        !TakeChunks(*thread, length)) {
        return nullptr;
    }
    auto* record = reinterpret_cast<RecordHeader*>(thread->next);
    record->location = locationId;
    record->time = Nanoseconds(CLOCK_MONOTONIC);
    thread->prepared = static_cast<std::uint32_t>(length);
    return thread->next + sizeof(RecordHeader);
}

void TCStorage::Commit(TCThreadHandle* thread)
{
    auto* record = reinterpret_cast<RecordHeader*>(thread->next);
    thread->next += Padded(thread->prepared);
    // A record that was prepared here and given up may have left bytes where the next one begins.
    if (thread->next < thread->end) {
        reinterpret_cast<RecordHeader*>(thread->next)->length = 0;
    }
    std::atomic_ref(record->length).store(thread->prepared, std::memory_order_release);
}

} // namespace lumo

TIStorageManager& TIStorageManager::Instance()
{
    static constinit TIStorageManager manager;
    return manager;
}

// The count lies in the store: processes that share it after a fork share the identifiers too.
uint32_t TIStorageManager::NewLocationId()
{
    return std::atomic_ref(store->lastLocation).fetch_add(1, std::memory_order_relaxed) + 1;
}

lumo::TCStorage& TIStorageManager::Storage()
{
    static constinit lumo::TCStorage storage;
    return storage;
}
