// SPDX-License-Identifier: MIT
/**
 * @file TraceFormat.h
 * Layout of a trace store, shared by its writer and its reader; docs/trace-format.md explains it.
 *
 * A store is a FileHeader, a table with a Chunk for each chunk, and from the next multiple of
 * kBlock on the chunks themselves. A run of one or more adjoining chunks is described by the entry
 * of its first one; records follow one another in it, each from a multiple of 8 bytes on. All
 * integers are little-endian and of fixed width.
 *
 * The payload of a record is what the log point wrote. In a run of locations it describes a log
 * point, packed:
 *
 *     id u32, line i32, file text, function text, message text,
 *     count u16, then for each argument: kind u8, size u16, type name text
 *
 * where a text is its length u32 and its bytes. In a run of records a record without a location
 * has the number of a thread as its payload, a u32: the records from there on are that thread's.
 */
#ifndef PLATFORM_LUMO_TRACEFORMAT_H
#define PLATFORM_LUMO_TRACEFORMAT_H

#include <bit>
#include <cstddef>
#include <cstdint>

namespace lumo::format
{

static_assert(std::endian::native == std::endian::little, "integers are stored as they are");

inline constexpr std::uint64_t kMagic = 0x32'43'52'54'4F'4D'55'4C;      ///< the bytes "LUMOTRC2"
inline constexpr std::uint64_t kMagicOfAny = 0x00'FF'FF'FF'FF'FF'FF'FF; ///< without the version
inline constexpr std::uint32_t kBlock = 4096; ///< the chunks begin at a multiple of it
inline constexpr std::uint32_t kChunkSize = 8192;
inline constexpr std::uint32_t kSmallestStore = 20U << 10;
inline constexpr std::uint32_t kLargestStore = 1U << 30;

/** The size that describes an argument of variable length, a text. */
inline constexpr std::uint16_t kVariableSize = 0x3FFF;

/** What becomes of the records when the store is full. */
enum class Mode : std::uint32_t
{
    keep,     ///< the oldest stay, new ones are dropped
    overwrite ///< the newest stay
};

struct FileHeader
{
    std::uint64_t magic;
    std::uint32_t chunkSize;
    std::uint32_t chunkCount;
    Mode mode;
    std::uint32_t process;               ///< that created the store
    alignas(8) std::int64_t clockOffset; ///< realtime minus monotonic clock, ns, when created
    std::uint32_t lastLocation;          ///< the identifier that was handed out last
    std::uint32_t cursor;                ///< the chunk where the next new run is looked for
    alignas(8) std::uint64_t dropped;    ///< records and locations that found no room
    std::uint64_t overwritten;           ///< records that gave way to newer ones
    std::uint32_t recordsRest;           ///< 1 + a run with room that no thread writes to; 0: none
    std::uint32_t locationsRest;         ///< the same of locations
    unsigned char lock[64];              ///< the writers' own
};
static_assert(sizeof(FileHeader) == 128 && offsetof(FileHeader, clockOffset) == 24 &&
              offsetof(FileHeader, dropped) == 40 && offsetof(FileHeader, lock) == 64);

enum class ChunkState : std::uint32_t
{
    unused, ///< or within a run, or about to be overwritten
    taken,  ///< by a thread that has not come to write yet
    locations,
    records, ///< with room for more
    closed   ///< records, and no more of them
};

/** Entry of the table; but for `state` it means something only at the first chunk of a run. */
struct Chunk
{
    ChunkState state;
    std::uint32_t span;   ///< chunks in this run
    std::uint32_t lap;    ///< how often a run has begun here: changes when it is overwritten
    std::uint32_t thread; ///< whose the first record is
    alignas(8) std::uint64_t start; ///< monotonic clock, ns: no record of the run is older
    std::uint32_t records;          ///< set when a thread leaves the run, as are the next three
    std::uint32_t used;             ///< bytes
    std::uint32_t lastThread;       ///< whose the last record is
    std::uint32_t nextRest;         ///< as in the header
};
static_assert(sizeof(Chunk) == 40 && offsetof(Chunk, start) == 16);

struct RecordHeader
{
    std::uint32_t length;          ///< of this header and the payload; 0 until committed
    std::uint32_t location;        ///< 0: none
    alignas(8) std::uint64_t time; ///< monotonic clock, ns
};
static_assert(sizeof(RecordHeader) == 16);

/** Offset of the first chunk. */
constexpr std::uint64_t ChunksOffset(std::uint64_t chunkCount)
{
    return (sizeof(FileHeader) + chunkCount * sizeof(Chunk) + kBlock - 1) / kBlock * kBlock;
}

/** Size of the file. */
constexpr std::uint64_t StoreSize(std::uint64_t chunkCount)
{
    return ChunksOffset(chunkCount) + chunkCount * kChunkSize;
}

/** What a record of this length takes up: the next one is aligned again. */
constexpr std::uint64_t Padded(std::uint64_t length)
{
    return (length + 7) / 8 * 8;
}

/** Chunks that a run needs in order to have room for a record of this length. */
constexpr std::uint64_t ChunksFor(std::uint64_t length)
{
    return (Padded(length) + kChunkSize - 1) / kChunkSize;
}

} // namespace lumo::format

#endif
