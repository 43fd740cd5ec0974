// SPDX-License-Identifier: MIT
/**
 * @file Storage.cpp
 * Stand-in for the platform's trace storage: one memory-mapped file that outlives the process.
 *
 * LUMO_TRACE=FILE turns it on when the library is loaded; the first log point makes the file. Each
 * thread has a run of chunks of its own, so writing a record needs neither a lock nor a system
 * call. Who takes a run or leaves one holds the lock in the header.
 */
#include "StoreFile.h"
#include "TraceFormat.h"
#include "lumo.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <optional>
#include <pthread.h>
#include <stdexcept>
#include <string_view>
#include <unistd.h>
#include <utility>

using namespace lumo::format;

unsigned char TIStorageManagerState::enabled = 0;

/** Where a thread writes. */
struct lumo::TCThreadHandle
{
    unsigned char* next;    ///< where the next record goes
    unsigned char* end;     ///< of the run; null without one
    std::uint32_t prepared; ///< length of the record at `next`
    std::uint32_t records;  ///< in the run
    std::uint32_t thread;   ///< its number; 0 until it has taken a run
    std::uint32_t chunk;    ///< the first of the run
};

namespace
{

using lumo::TCThreadHandle;

constexpr std::uint32_t kDefaultLimit = 16U << 20;

// Bytes; a run with less is not handed on. Twice what nearly every record needs, so that the run
// that was left last does for the next thread.
constexpr std::uint32_t kSmallestRest = 512;

/** The file to trace into, made when the first log point fires; null: none. */
constinit const std::string* wanted = nullptr;

// Of a trivial type and in the static TLS block: reaching it takes no call.
constinit thread_local __attribute__((tls_model("initial-exec"))) TCThreadHandle ownHandle{};

std::uint64_t Now()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
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
    if (error != std::errc() || limit < kSmallestStore || limit > kLargestStore) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(limit);
}

// ---- The store ----------------------------------------------------------------------------------

using Rest = std::uint32_t FileHeader::*;

pthread_key_t threadEnd; // has a destructor, which runs when a thread ends

void Leave(TCThreadHandle& handle, Rest rest);

FileHeader* MakeWantedStore()
{
    const char* const limitText = secure_getenv("LUMO_TRACE_LIMIT");
    const auto limit = limitText ? ParseLimit(limitText) : kDefaultLimit;
    if (!limit) {
        throw std::runtime_error(std::string("LUMO_TRACE_LIMIT=") + limitText +
                                 " is not from 20K to 1024M");
    }
    const char* const modeText = secure_getenv("LUMO_TRACE_MODE");
    const std::string_view mode = modeText ? modeText : "keep";
    if (mode != "keep" && mode != "overwrite") {
        throw std::runtime_error("LUMO_TRACE_MODE=" + std::string(mode) +
                                 " is neither keep nor overwrite");
    }
    return lumo::MakeStore(*wanted, *limit, mode == "keep" ? Mode::keep : Mode::overwrite);
}

FileHeader* OpenStore()
{
    // Stands in for a store that is full from the start, so that nothing has to ask for one.
    static constinit FileHeader none{};
    if (wanted == nullptr) {
        return &none;
    }
    const int callersErrno = errno;
    try {
        FileHeader* const store = MakeWantedStore();
        pthread_key_create(&threadEnd, [](void* handle) {
            Leave(*static_cast<TCThreadHandle*>(handle), &FileHeader::recordsRest);
        });
        // The one thread that a fork leaves must not go on in its parent's run.
        pthread_atfork(nullptr, nullptr, [] { ownHandle = {}; });
        errno = callersErrno;
        return store;
    } catch (const std::exception& reason) {
        std::fprintf(stderr, "ruvi-lumo: cannot trace into LUMO_TRACE=%s: %s\n", wanted->c_str(),
                     reason.what());
    }
    errno = callersErrno;
    std::atomic_ref(TIStorageManagerState::enabled).store(0, std::memory_order_relaxed);
    return &none;
}

FileHeader& Store()
{
    static FileHeader* const store = OpenStore();
    return *store;
}

/** Kept whole: a program that leaves for another folder traces into the file that was meant. */
__attribute__((constructor)) void ReadEnvironment()
{
    const char* const path = secure_getenv("LUMO_TRACE");
    if (path && *path) {
        std::error_code error; // without a working folder: as it is
        const auto whole = std::filesystem::absolute(path, error);
        wanted = new std::string(error ? path : whole.string());
        TIStorageManagerState::enabled = 1;
    }
}

class Lock
{
public:
    Lock() : m_mutex(reinterpret_cast<pthread_mutex_t*>(Store().lock))
    {
        if (pthread_mutex_lock(m_mutex) == EOWNERDEAD) {
            pthread_mutex_consistent(m_mutex);
        }
    }
    ~Lock() { pthread_mutex_unlock(m_mutex); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    pthread_mutex_t* const m_mutex;
};

Chunk& Entry(std::uint32_t chunk)
{
    return reinterpret_cast<Chunk*>(&Store() + 1)[chunk];
}

unsigned char* Begin(std::uint32_t chunk)
{
    return reinterpret_cast<unsigned char*>(&Store()) + ChunksOffset(Store().chunkCount) +
           std::size_t{chunk} * kChunkSize;
}

ChunkState StateOf(Chunk& entry)
{
    return std::atomic_ref(entry.state).load(std::memory_order_relaxed);
}

/**
 * Readers look at the entry before and after they read the run: nothing that is written later may
 * be seen earlier, and nothing that was written earlier later.
 */
void SetState(Chunk& entry, ChunkState state)
{
    std::atomic_ref(entry.state).exchange(state, std::memory_order_acq_rel);
}

/** Whether a part of the store can be written to. */
bool HasPlace(void* start, std::size_t size)
{
    const int error = lumo::Populate(start, size);
    return error == 0 || error == EINVAL;
}

void CountDropped()
{
    std::atomic_ref(Store().dropped).fetch_add(1, std::memory_order_relaxed);
}

// ---- Runs, with the lock held -------------------------------------------------------------------

/** Adjoining chunks; more than were looked for where a longer run gave way. */
struct Place
{
    std::uint32_t first;
    std::uint32_t end;
};

/** Looks from the cursor on; where old records give way, all around. */
std::optional<Place> FindPlace(std::uint32_t span)
{
    const FileHeader& store = Store();
    const bool overwrites = store.mode == Mode::overwrite;
    std::uint32_t at = store.cursor;
    std::uint32_t free = 0; // chunks before `at`
    for (std::uint32_t looked = 0; looked < 2 * store.chunkCount;) {
        if (at == store.chunkCount) {
            if (!overwrites) {
                break;
            }
            at = free = 0;
        }
        Chunk& entry = Entry(at);
        const ChunkState state = StateOf(entry);
        const bool isUnused = state == ChunkState::unused;
        const bool isFree = isUnused || (overwrites && state == ChunkState::closed);
        const std::uint32_t length = isUnused ? 1 : entry.span;
        at += length;
        looked += length;
        free = isFree ? free + length : 0;
        if (free >= span) {
            return Place{at - free, at};
        }
    }
    return std::nullopt;
}

bool TakeNew(TCThreadHandle& handle, std::uint32_t span)
{
    FileHeader& store = Store();
    const auto place = FindPlace(span);
    if (!place || !HasPlace(&Entry(place->first), (place->end - place->first) * sizeof(Chunk))) {
        return false;
    }
    for (std::uint32_t i = place->first; i < place->end; ++i) {
        Chunk& old = Entry(i);
        if (old.state == ChunkState::closed) {
            SetState(old, ChunkState::unused);
            store.overwritten += old.records;
            ++old.lap;
        }
    }
    store.cursor = place->first + span;
    Chunk& entry = Entry(place->first);
    ++entry.lap;
    entry.span = span;
    SetState(entry, ChunkState::taken);
    handle.chunk = place->first;
    handle.next = Begin(handle.chunk);
    handle.records = 0;
    return true;
}

/** The one that was left last, if it has room. */
bool TakeRest(TCThreadHandle& handle, std::uint64_t length, std::uint32_t& rest)
{
    if (rest == 0) {
        return false;
    }
    const Chunk& entry = Entry(rest - 1);
    const std::uint64_t room = std::uint64_t{entry.span} * kChunkSize - entry.used;
    if (room < length + kSmallestRest / 2) { // the thread's number comes first
        return false;
    }
    handle.chunk = rest - 1;
    handle.next = Begin(handle.chunk) + entry.used;
    handle.records = entry.records;
    rest = entry.nextRest;
    return true;
}

void Put(TCThreadHandle& handle, std::uint32_t& rest)
{
    Chunk& entry = Entry(handle.chunk);
    entry.records = handle.records;
    entry.used = static_cast<std::uint32_t>(handle.next - Begin(handle.chunk));
    entry.lastThread = handle.thread;
    if (handle.end - handle.next >= std::ptrdiff_t{kSmallestRest}) {
        entry.nextRest = std::exchange(rest, handle.chunk + 1);
    } else if (entry.state == ChunkState::records) {
        SetState(entry, ChunkState::closed);
    }
    handle.next = handle.end = nullptr;
}

// ---- Records ------------------------------------------------------------------------------------

RecordHeader* HeaderAt(unsigned char* place)
{
    return reinterpret_cast<RecordHeader*>(place);
}

unsigned char* Prepare(TCThreadHandle& handle, std::uint64_t length, std::uint32_t location)
{
    RecordHeader* const record = HeaderAt(handle.next);
    record->location = location;
    record->time = Now();
    handle.prepared = static_cast<std::uint32_t>(length);
    return handle.next + sizeof *record;
}

void Publish(TCThreadHandle& handle)
{
    RecordHeader* const record = HeaderAt(handle.next);
    handle.next += Padded(handle.prepared);
    // A record that was prepared here and given up may have left bytes where the next one begins.
    if (handle.next < handle.end) {
        HeaderAt(handle.next)->length = 0;
    }
    std::atomic_ref(record->length).store(handle.prepared, std::memory_order_release);
}

/** A run that another thread has begun tells from where on it is this one's. */
void WriteThread(TCThreadHandle& handle)
{
    std::memcpy(Prepare(handle, sizeof(RecordHeader) + sizeof handle.thread, 0), &handle.thread,
                sizeof handle.thread);
    Publish(handle);
}

void Leave(TCThreadHandle& handle, Rest rest)
{
    if (handle.end != nullptr) {
        const Lock lock;
        Put(handle, Store().*rest);
    }
}

/** Gives the handle a run of this kind with room for a record of this length, or counts a drop. */
bool Take(TCThreadHandle& handle, std::uint64_t length, ChunkState kind, Rest rest)
{
    Leave(handle, rest);
    if (handle.thread == 0) {
        handle.thread = static_cast<std::uint32_t>(gettid());
    }
    {
        const Lock lock;
        if (!TakeRest(handle, length, Store().*rest) &&
            !TakeNew(handle, static_cast<std::uint32_t>(ChunksFor(length)))) {
            CountDropped();
            return false;
        }
    }
    Chunk& entry = Entry(handle.chunk);
    handle.end = Begin(handle.chunk) + std::size_t{entry.span} * kChunkSize;
    const auto room = static_cast<std::size_t>(handle.end - handle.next);
    if (!HasPlace(handle.next, room)) {
        Leave(handle, rest); // until there is room again
        CountDropped();
        return false;
    }
    if (entry.state == ChunkState::taken) {
        entry.thread = handle.thread;
        entry.start = Now();
        HeaderAt(handle.next)->length = 0;
        SetState(entry, kind);
    } else if (kind == ChunkState::records && entry.lastThread != handle.thread) {
        WriteThread(handle);
    }
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
    const std::uint64_t length = sizeof(RecordHeader) + entry.size();
    TCThreadHandle run{};
    if (Take(run, length, ChunkState::locations, &FileHeader::locationsRest)) {
        entry.copy(reinterpret_cast<char*>(Prepare(run, length, 0)), entry.size());
        Publish(run);
        Leave(run, &FileHeader::locationsRest);
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
    if (Padded(length) > static_cast<std::uint64_t>(thread->end - thread->next)) {
        if (!Take(*thread, length, ChunkState::records, &FileHeader::recordsRest)) {
            return nullptr;
        }
        pthread_setspecific(threadEnd, thread);
    }
    return Prepare(*thread, length, locationId);
}

void TCStorage::Commit(TCThreadHandle* thread)
{
    Publish(*thread);
    ++thread->records;
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
    return std::atomic_ref(Store().lastLocation).fetch_add(1, std::memory_order_relaxed) + 1;
}

lumo::TCStorage& TIStorageManager::Storage()
{
    static constinit lumo::TCStorage storage;
    return storage;
}
