// SPDX-License-Identifier: MIT
#include "Recorder.h"

#include "Boundary.h"
#include "TraceReader.h"
#include "dlog.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstring>
#include <glib.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace recorder
{

bool storeIsFull = false;
std::function<void(const std::string& message)> onRecord;

} // namespace recorder

namespace
{

constexpr std::string_view kPrefix = "%s: %s(%d) > ";
constexpr unsigned char kGuard = 0xEE;

std::vector<lumo::TCCallLocation> locations; // that were registered

/** A log point between its first call and its last. */
struct Point
{
    int priority = 0;
    std::string file, function, message, text, record;
    bool logging = false; // between the logger's begin and its end
    int line = 0;
};

thread_local Point point;
thread_local std::unique_ptr<unsigned char[]> block; // a guard byte longer than the record
thread_local unsigned blockSize = 0;
thread_local unsigned blockLocation = 0;

/** Where no log is kept, the program ends. */
void Expect(bool holds, const char* what)
{
    if (!holds && !boundary::kept) {
        __builtin_trap();
    }
    if (!holds) {
        boundary::Write("broken: ", what, " of ", point.function, " > ", point.text);
    }
}

bool IsOfPoint(int line, const std::string& file, const std::string& function)
{
    return line == point.line && file.ends_with("/src/" + point.file) &&
           trace::Operation({0, line, file, function, "", {}}) == point.function;
}

/** With the addresses called by their names: whole ones, or their low halves as records have. */
std::string Named(std::string text, bool low)
{
    const std::lock_guard lock(boundary::guard);
    for (size_t place = 0; (place = text.find("0x", place)) != std::string::npos; ++place) {
        char* end = nullptr;
        const uint64_t number = strtoull(&text[place], &end, 16);
        const auto named = std::ranges::find_if(boundary::names, [&](const auto& one) {
            const auto address = reinterpret_cast<uintptr_t>(one.first);
            return number == (low ? uint32_t(address) : address);
        });
        if (named != boundary::names.end()) {
            text.replace(place, static_cast<size_t>(end - &text[place]), named->second);
        }
    }
    return text;
}

/** The types of the record's arguments; its message too, where it is not that of the text line. */
std::string Described(const lumo::TCCallLocation& registered)
{
    trace::Location location{registered.id, registered.line, "", "", registered.message, {}};
    std::string types;
    for (size_t i = 0; i < registered.argTypeNames.size(); ++i) {
        const std::string& name = registered.argTypeNames[i];
        location.arguments.push_back({registered.argKinds.at(i), registered.argSizes.at(i), name});
        types += (types.empty() ? " | " : " ") + name;
    }
    const auto record = recorder::Record();
    std::string message;
    try {
        message = Named(trace::Message({0, {}, &location, {record.begin(), record.end()}}), true);
    } catch (const std::runtime_error& error) {
        message = error.what();
    }
    return message == point.text ? types : types + ", but its record says: " + message;
}

} // namespace

std::span<const unsigned char> recorder::Record()
{
    return {block.get(), blockSize};
}

/** To an address checker: to define what a shared library defines too is the point of this file. */
extern "C" const char* __asan_default_options();

const char* __asan_default_options()
{
    return "detect_odr_violation=0";
}

extern "C" int __dlog_print(int log_id, int priority, const char* tag, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    if (!boundary::kept) {
        vsnprintf(nullptr, 0, format, args); // reads all that it is to read
    } else {
        va_list again;
        va_copy(again, args);
        const g_autofree char* line = g_strdup_vprintf(format, again);
        va_end(again);
        point = {};
        const bool prefixed = std::string_view(format).starts_with(kPrefix);
        Expect(log_id == 0 && std::string_view(tag) == "ZAV_API" && prefixed, "the log call");
        point.priority = priority;
        point.file = va_arg(args, const char*);
        point.function = va_arg(args, const char*);
        point.line = va_arg(args, int);
        point.message = format + kPrefix.size();
        const std::string head =
            point.file + ": " + point.function + "(" + std::to_string(point.line) + ") > ";
        point.text = Named(line + head.size(), false);
        point.record = " | no record";
    }
    va_end(args);
    return 0;
}

unsigned char TIStorageManagerState::enabled = 1;

TIStorageManager& TIStorageManager::Instance()
{
    static struct : TIStorageManager
    {
    } manager;
    return manager;
}

uint32_t TIStorageManager::NewLocationId()
{
    static std::atomic<uint32_t> last = 0;
    return ++last;
}

lumo::TCStorage& TIStorageManager::Storage()
{
    static lumo::TCStorage storage;
    return storage;
}

namespace lumo
{

TCLogger::TCLogger(const TSCodeLocation& location)
{
    if (boundary::kept) {
        memset(static_cast<void*>(this), kGuard, sizeof *this); // the real one may use all its room
        Expect(IsOfPoint(location.line, location.file, location.function), "the location");
        point.logging = true;
        if (recorder::onRecord) {
            recorder::onRecord(point.message);
        }
    }
}

TCLogger::~TCLogger()
{
    if (boundary::kept) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(this);
        Expect(std::count(bytes, bytes + sizeof *this, kGuard) == sizeof *this,
               "the logger's room");
        g_autofree char* text = g_strescape(point.text.c_str(), nullptr); // on one line
        point.logging = false;
        boundary::Add(point.priority, " ", point.function, " > ", text, point.record);
    }
}

TCCallLocation::TCCallLocation() = default;

void TCStorage::SaveLocation(const TCCallLocation& location)
{
    if (boundary::kept) {
        Expect(location.message == point.message &&
                   IsOfPoint(location.line, location.file, location.function) &&
                   std::ranges::count(location.argKinds, 1) == std::ssize(location.argTypeNames) &&
                   point.logging && TIStorageManagerState::enabled != 0,
               "the registration");
    }
    const std::lock_guard lock(boundary::guard);
    locations.push_back(location);
}

struct TCThreadHandle
{
};

TCThreadHandle* TCStorage::ThreadHandle()
{
    static thread_local TCThreadHandle handle;
    return &handle;
}

unsigned char* TCStorage::PrepareCallBuffer(TCThreadHandle* thread, unsigned payloadSize,
                                            unsigned char flag, unsigned locationId)
{
    Expect(thread == ThreadHandle() && flag == 1 && (point.logging || !boundary::kept),
           "the preparation");
    if (recorder::storeIsFull) {
        return nullptr;
    }
    block.reset(new unsigned char[payloadSize + 1]);
    block[payloadSize] = kGuard;
    blockSize = payloadSize;
    blockLocation = locationId;
    return block.get();
}

void TCStorage::Commit(TCThreadHandle* thread)
{
    Expect(thread == ThreadHandle() && block[blockSize] == kGuard, "the record");
    if (boundary::kept) {
        std::unique_lock lock(boundary::guard);
        const auto location = std::ranges::find(locations, blockLocation, &TCCallLocation::id);
        const auto found = location != locations.end() ? std::optional(*location) : std::nullopt;
        lock.unlock();
        point.record = found ? Described(*found) : ", its record of nowhere";
    }
}

} // namespace lumo
