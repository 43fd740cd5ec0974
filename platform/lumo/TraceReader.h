// SPDX-License-Identifier: MIT
/**
 * @file TraceReader.h
 * Reads a trace store: also one that is still being written, that a killed process left behind,
 * or that is damaged. Takes memory for the runs that are being read, not for the store.
 */
#ifndef PLATFORM_LUMO_TRACEREADER_H
#define PLATFORM_LUMO_TRACEREADER_H

#include "TraceFormat.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

namespace trace
{

using Bytes = std::span<const unsigned char>;

struct ArgumentType
{
    std::uint8_t kind;
    std::uint16_t size; ///< bytes in a record; 0x3FFF for a text
    std::string typeName;
};

/** A log point. */
struct Location
{
    std::uint32_t id;
    std::int32_t line;
    std::string file;
    std::string function; ///< its whole signature
    std::string message;  ///< as for printf
    std::vector<ArgumentType> arguments;
    std::string operation = {}; ///< the plain name of the function, see Operation()
};

/** The kernel's numbers; 0 for what is not known. */
struct Thread
{
    bool operator<(const Thread& other) const
    {
        return std::tie(process, number) < std::tie(other.process, other.number);
    }

    std::uint32_t process;
    std::uint32_t number;
};

/** One firing of a log point. */
struct Record
{
    std::int64_t time; ///< ns since 1970, by the clock as it was set when the store was made
    Thread thread;
    const Location* location; ///< belongs to the reader
    Bytes payload;            ///< the arguments' bytes; they match the location's types
};

/** An argument's value: a null text, a number (an address is its low half), or a text. */
using Value = std::variant<std::nullptr_t, std::int64_t, std::string_view>;

/** Where records come from. */
class Source
{
public:
    virtual ~Source() = default;

    /**
     * The records of all threads in the order of time; null when there are no more. A call after
     * that goes on with what has been written meanwhile.
     * @return valid until the next call
     * @throws std::runtime_error when nothing can be read any more; its text says why and where
     */
    virtual const Record* Next() = 0;

    /** Whether more records may still come. */
    virtual bool IsInUse() const { return false; }

    /** What could not be shown so far: how many, and in words what of them. */
    virtual std::vector<std::pair<std::uint64_t, const char*>> Losses() = 0;

    /** The first damage and its place; what is sound is read all the same. */
    virtual std::optional<std::string> Damage() const { return std::nullopt; }
};

class Reader : public Source
{
public:
    /** @throws std::runtime_error when there is no store to read; its text says why, not where */
    explicit Reader(const std::string& path);

    const Record* Next() override;

    /** Whether a process still traces into the store. */
    bool IsInUse() const override;

    std::vector<std::pair<std::uint64_t, const char*>> Losses() override;
    std::optional<std::string> Damage() const override { return m_damage; }

private:
    std::uint64_t Dropped();
    /** A run, of records or of locations, and how far it has been read. */
    struct Run
    {
        std::uint32_t chunk;
        std::uint32_t lap;
        std::uint64_t time; ///< of the record; before there is one, of the run
        std::uint32_t thread = 0;
        std::uint64_t base = 0; ///< where `data` stands in the run
        std::vector<unsigned char> data = {};
        std::size_t at = 0;   ///< of the next record in `data`
        bool isOpen = true;   ///< more may be written into it
        Record record = {};   ///< the next, once there is one
        bool isReady = false; ///< it has not been returned yet
    };
    struct Raw
    {
        std::uint64_t offset; ///< in the file
        lumo::format::RecordHeader header;
        Bytes payload;
    };

    void Damaged(std::uint64_t offset, const std::string& what);
    std::size_t Read(void* to, std::size_t size, std::uint64_t offset);
    std::vector<lumo::format::Chunk> ReadTable();
    bool Load(Run& run);
    std::uint64_t Offset(const Run& run) const;
    std::optional<Raw> Take(Run& run);
    void ReadLocations(const std::vector<lumo::format::Chunk>& table);
    const Location* Find(std::uint32_t id);
    void LookForRuns();
    bool Advance(Run& run);

    std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_file;
    lumo::format::FileHeader m_header{};
    std::uint64_t m_wholeSize = 0; ///< of the file, as the header says
    std::uint64_t m_fileSize = 0;  ///< when it was opened
    std::optional<std::string> m_damage;
    std::unordered_map<std::uint32_t, Location> m_locations; ///< by identifier
    std::map<std::uint32_t, Run> m_locationRuns;             ///< by chunk
    std::set<std::uint32_t> m_missing; ///< identifiers that were looked for twice
    std::uint64_t m_unreadable = 0;    ///< records whose location found no room
    bool m_wasInUse = false;           ///< when runs were looked for
    std::vector<std::uint32_t> m_laps; ///< of each chunk: the run that was found last
    std::vector<Run> m_waiting;        ///< those that have been read to their end for now
    /** By the time of their next record, or while that has not been read by their own; by chunk. */
    std::map<std::pair<std::uint64_t, std::uint32_t>, Run> m_runs;
    std::vector<Value> m_values; ///< kept for its memory
};

/**
 * The arguments of a record, in the order of its location's types; views into its payload.
 * @throws std::runtime_error when the payload does not match them; no record of a reader does so
 */
std::vector<Value> Arguments(const Record& record);

/** The message with its arguments in it, as printf would have put them. */
std::string Message(const Record& record);

/** The plain name of the function, e.g. "GetModeList". */
std::string Operation(const Location& location);

} // namespace trace

#endif
