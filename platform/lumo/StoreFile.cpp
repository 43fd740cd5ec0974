// SPDX-License-Identifier: MIT
#include "StoreFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

using namespace lumo::format;

namespace
{

[[noreturn]] void Fail()
{
    throw std::system_error(errno, std::generic_category());
}

/** Closed at the end of the scope unless it is kept. */
class File
{
public:
    explicit File(int descriptor) : m_descriptor(descriptor)
    {
        if (descriptor < 0) {
            Fail();
        }
    }
    ~File()
    {
        if (m_descriptor >= 0) {
            close(m_descriptor);
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int Descriptor() const { return m_descriptor; }
    void Keep() { m_descriptor = -1; }

    /** Held as long as this process, or one that it forked, has the file open. */
    bool Lock() const
    {
        struct flock whole = {};
        whole.l_type = F_WRLCK;
        whole.l_whence = SEEK_SET;
        return fcntl(m_descriptor, F_OFD_SETLK, &whole) == 0;
    }

private:
    int m_descriptor;
};

/** A name for the file until it is complete. */
struct TemporaryName
{
    std::string text;
    ~TemporaryName() { unlink(text.c_str()); }
};

bool IsSameFile(const struct stat& one, const struct stat& other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/** Frees the name if a store has it that nobody needs; throws if anything else has it. */
void RemoveOldStore(const char* path)
{
    struct stat named = {};
    if (lstat(path, &named) != 0) {
        return; // gone by itself
    }
    if (!S_ISREG(named.st_mode)) {
        throw std::runtime_error("it is no plain file");
    }
    if (named.st_uid != geteuid()) {
        throw std::runtime_error("it belongs to another user");
    }
    const File old(open(path, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    std::uint64_t magic = kMagic; // also of an empty file, as mktemp makes one
    if (read(old.Descriptor(), &magic, sizeof magic) < 0) {
        Fail();
    }
    if (((magic ^ kMagic) & kMagicOfAny) != 0) {
        throw std::runtime_error("it is a file, but no trace store");
    }
    if (!old.Lock()) {
        throw std::runtime_error("another process traces into it");
    }
    // Whoever replaces a store holds its lock: the name does not change while we do.
    struct stat opened = {};
    if (fstat(old.Descriptor(), &opened) == 0 && lstat(path, &named) == 0 &&
        IsSameFile(opened, named)) {
        unlink(path);
    }
}

/** Threads and forked processes share it; one that is killed does not keep it for ever. */
void MakeLock(unsigned char (&place)[64])
{
    static_assert(sizeof(pthread_mutex_t) <= sizeof place);
    auto* const lock = reinterpret_cast<pthread_mutex_t*>(place);
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    if (pthread_mutex_init(lock, &attributes) != 0) { // an emulator need not know robust ones
        pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_STALLED);
        pthread_mutex_init(lock, &attributes);
    }
    pthread_mutexattr_destroy(&attributes);
}

std::int64_t Now(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

FileHeader* Map(const File& file, std::uint32_t chunkCount)
{
    const auto size = static_cast<std::size_t>(StoreSize(chunkCount));
    rlimit limit{};
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < size) {
        throw std::runtime_error("RLIMIT_FSIZE is smaller than the store"); // and SIGXFSZ deadly
    }
    if (ftruncate(file.Descriptor(), static_cast<off_t>(size)) != 0) {
        Fail();
    }
    void* const memory =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.Descriptor(), 0);
    if (memory == MAP_FAILED) {
        Fail();
    }
    // To bring the pages around into memory as well pays for those who trace much, but not before.
    const auto first = static_cast<std::size_t>(ChunksOffset(chunkCount) + (1U << 20));
    madvise(memory, std::min(size, first), MADV_RANDOM);
    int error = lumo::Populate(memory, sizeof(FileHeader));
    if (error == EINVAL) {
        error = posix_fallocate(file.Descriptor(), 0, static_cast<off_t>(size));
    }
    if (error != 0) {
        munmap(memory, size);
        throw std::system_error(error, std::generic_category());
    }
    return static_cast<FileHeader*>(memory);
}

/** Gives the complete file its name, and a lock as the sign that it is in use. */
void Publish(const File& file, const char* temporary, const char* path)
{
    if (!file.Lock()) {
        Fail();
    }
    while (link(temporary, path) != 0) {
        if (errno != EEXIST) {
            Fail();
        }
        RemoveOldStore(path);
    }
}

} // namespace

namespace lumo
{

int Populate(void* start, std::size_t size)
{
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto before = reinterpret_cast<std::uintptr_t>(start) % page;
    if (madvise(static_cast<char*>(start) - before, size + before, MADV_POPULATE_WRITE) == 0) {
        return 0;
    }
    return errno == EFAULT ? ENOSPC : errno;
}

FileHeader* MakeStore(const std::string& path, std::uint32_t limit, Mode mode)
{
    std::uint32_t chunks = limit / kChunkSize;
    while (StoreSize(chunks) > limit) {
        --chunks;
    }
    TemporaryName temporary{path + ".XXXXXX"};
    File file(mkostemp(temporary.text.data(), O_CLOEXEC));
    FileHeader* const store = Map(file, chunks);
    try {
        store->magic = kMagic;
        store->chunkSize = kChunkSize;
        store->chunkCount = chunks;
        store->mode = mode;
        store->process = static_cast<std::uint32_t>(getpid());
        store->clockOffset = Now(CLOCK_REALTIME) - Now(CLOCK_MONOTONIC);
        MakeLock(store->lock);
        Publish(file, temporary.text.c_str(), path.c_str());
    } catch (...) {
        munmap(store, static_cast<std::size_t>(StoreSize(chunks)));
        throw;
    }
    file.Keep(); // for its lock
    return store;
}

} // namespace lumo
