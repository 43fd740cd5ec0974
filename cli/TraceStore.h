// SPDX-License-Identifier: MIT
/**
 * @file TraceStore.h
 * Reads a trace store: also one that is still being written, that a killed process left behind,
 * or that is damaged.
 */
#ifndef CLI_TRACESTORE_H
#define CLI_TRACESTORE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace trace
{

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
};

/** One firing of a log point. */
struct Record
{
    std::int64_t time;        ///< ns since 1970, by the clock as it was set when the store was made
    std::uint32_t thread;     ///< the kernel's number of the thread
    const Location* location; ///< belongs to the store
    std::vector<unsigned char> payload; ///< the arguments' bytes; they match the location's types
};

/** Move-only: the records point to the locations. */
struct Store
{
    std::map<std::uint32_t, std::unique_ptr<const Location>> locations; ///< by identifier
    std::vector<Record> records;                                        ///< sorted by time
    std::uint64_t dropped = 0;         ///< records and locations that found no room when written
    std::uint32_t process = 0;         ///< that made the store
    std::optional<std::string> damage; ///< the first damage and its place; what is sound was kept
};

/**
 * Reads the store in a file; safe while the file is being written.
 * @throws std::runtime_error when there is none to read; its text says why, without the path
 */
Store ReadStore(const std::string& path);

/** The same from memory, which begins at a multiple of 8. */
Store ParseStore(std::span<const unsigned char> bytes);

/** An argument's value: a null text, a number (an address is its low half), or a text. */
using Value = std::variant<std::nullptr_t, std::int64_t, std::string>;

/**
 * The arguments of a record, in the order of its location's types.
 * @throws std::runtime_error when the payload does not match them; no record of a Store does so
 */
std::vector<Value> Arguments(const Record& record);

/** The message with its arguments in it, as printf would have put them. */
std::string Message(const Record& record);

/** The plain name of the function, e.g. "GetModeList". */
std::string Operation(const Location& location);

} // namespace trace

#endif
