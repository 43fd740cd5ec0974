// SPDX-License-Identifier: MIT
/**
 * @file lumo.h
 * The platform's trace library, as this library uses it. libruvi-lumo.so defines it.
 *
 * Names, signatures, member order and the order of the virtual functions are the platform's and
 * part of its binary interface: nothing here may be reordered or made inline.
 */
#ifndef PLATFORM_LUMO_LUMO_H
#define PLATFORM_LUMO_LUMO_H

#include <cstdint>
#include <string>
#include <vector>

/** Where a log point stands; one static record for each log point. */
struct TSCodeLocation
{
    const char* file;     ///< path of the source file
    int32_t line;         ///< line in it
    const char* function; ///< signature of the enclosing function
    uint32_t* locationId; ///< the log point's identifier word: 0 until it has been registered
};

/** The switch of the trace library. */
struct TIStorageManagerState
{
    static unsigned char enabled; ///< 0 while tracing is off
};

namespace lumo
{

struct TCThreadHandle;

/** What is registered once for each log point: its place, its message and its argument types. */
class TCCallLocation
{
public:
    TCCallLocation();

    int32_t line = 0;
    std::string file;
    uint32_t id = 0;
    std::vector<uint8_t> argKinds;
    std::vector<uint16_t> argSizes;
    std::vector<std::string> argTypeNames;
    std::string message;
    uint32_t reserved = 0; ///< the trace library's own
    std::string function;
    std::string reservedText; ///< the trace library's own
};

/** Takes locations and records. Safe for concurrent callers. */
class TCStorage
{
public:
    /** Registers a location; copies what it keeps. */
    void SaveLocation(const TCCallLocation& location);

    /** The calling thread's handle; valid until the thread ends. */
    TCThreadHandle* ThreadHandle();

    /**
     * Reserves a record on the calling thread's handle.
     * @param payloadSize bytes that the caller is going to write
     * @param flag        always 1
     * @param locationId  the registered log point
     * @return where to write the payload (no alignment), NULL when no record can be taken
     */
    unsigned char* PrepareCallBuffer(TCThreadHandle* thread, unsigned payloadSize,
                                     unsigned char flag, unsigned locationId);

    /** Publishes the record that was prepared last on this handle. */
    void Commit(TCThreadHandle* thread);
};

/** Makes type names readable. */
struct TSDemangler
{
    /** @param name a run-time type name, e.g. "Pc" @return its text, e.g. "char*" */
    static std::string Demangle(const char* name);
};

/** Stands around the writing of each record. */
class TCLogger
{
public:
    explicit TCLogger(const TSCodeLocation& location);
    ~TCLogger(); // NOLINT(performance-trivially-destructible): the platform's is not
    TCLogger(const TCLogger&) = delete;
    TCLogger& operator=(const TCLogger&) = delete;

private:
    /** What the trace library keeps here is its business. */
    alignas(16) [[maybe_unused]] unsigned char m_opaque[64];
};

} // namespace lumo

/** The process-wide storage manager. */
class TIStorageManager
{
public:
    static TIStorageManager& Instance();

    virtual uint32_t NewLocationId();   ///< a fresh identifier, never 0
    virtual lumo::TCStorage& Storage(); ///< where to write

protected:
    ~TIStorageManager() = default;
};

#endif
