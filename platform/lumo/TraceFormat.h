// SPDX-License-Identifier: MIT
/**
 * @file TraceFormat.h
 * Layout of a trace store, shared by its writer and its reader; docs/trace-format.md explains it.
 *
 * A store is a FileHeader in a block of its own, then chunks of one size. A run of one or more
 * adjoining chunks begins with a ChunkHeader and belongs to one thread; records follow one another
 * in it, each from a multiple of 8 bytes on. All integers are little-endian and of fixed width.
 *
 * The payload of a record with a location is what the log point wrote. A record without one
 * (location 0) describes a location, packed:
 *
 *     id u32, line i32, file text, function text, message text,
 *     count u16, then for each argument: kind u8, size u16, type name text
 *
 * where a text is its length u32 and its bytes.
 */
#ifndef PLATFORM_LUMO_TRACEFORMAT_H
#define PLATFORM_LUMO_TRACEFORMAT_H

#include <bit>
#include <cstddef>
#include <cstdint>

namespace lumo::format
{

static_assert(std::endian::native == std::endian::little, "integers are stored as they are");

inline constexpr std::uint64_t Magic = 0x31'43'52'54'4F'4D'55'4C; ///< the bytes "LUMOTRC1"
inline constexpr std::uint32_t ChunkMark = 0x4B'4E'48'43;         ///< the bytes "CHNK"
inline constexpr std::uint32_t HeaderBlock = 4096;                ///< offset of the first chunk
inline constexpr std::uint32_t ChunkSize = 16384;
inline constexpr std::uint32_t SmallestStore = HeaderBlock + ChunkSize;
inline constexpr std::uint32_t LargestStore = 1U << 30;

/** The size that describes an argument of variable length, a text. */
inline constexpr std::uint16_t VariableSize = 0x3FFF;

struct FileHeader
{
    std::uint64_t magic;
    std::uint32_t chunkSize;
    std::uint32_t chunkCount;            ///< the limit of the store
    std::uint32_t nextChunk;             ///< chunks before it have been taken
    std::uint32_t lastLocation;          ///< the identifier that was handed out last
    alignas(8) std::uint64_t dropped;    ///< records and locations that found no room
    alignas(8) std::int64_t clockOffset; ///< realtime minus monotonic clock, ns, when created
    std::uint32_t process;               ///< that created the store
    std::uint32_t reserved;              ///< 0
};
static_assert(sizeof(FileHeader) == 48 && offsetof(FileHeader, nextChunk) == 16 &&
              offsetof(FileHeader, dropped) == 24 && offsetof(FileHeader, process) == 40);

struct ChunkHeader
{
    std::uint32_t mark;     ///< ChunkMark; 0 while the header is being written
    std::uint32_t span;     ///< chunks in this run
    std::uint32_t thread;   ///< whose records these are
    std::uint32_t reserved; ///< 0
};
static_assert(sizeof(ChunkHeader) == 16);

struct RecordHeader
{
    std::uint32_t length;          ///< of this header and the payload; 0 until committed
    std::uint32_t location;        ///< 0: the payload describes a location
    alignas(8) std::uint64_t time; ///< monotonic clock, ns
};
static_assert(sizeof(RecordHeader) == 16);

/** What a record of this length takes up: the next one is aligned again. */
constexpr std::uint64_t Padded(std::uint64_t length)
{
    return (length + 7) / 8 * 8;
}

/** Chunks that a run needs in order to begin with a record of this length. */
constexpr std::uint64_t ChunksFor(std::uint64_t length)
{
    return (sizeof(ChunkHeader) + Padded(length) + ChunkSize - 1) / ChunkSize;
}

} // namespace lumo::format

#endif
