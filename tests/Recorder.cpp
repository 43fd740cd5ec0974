// SPDX-License-Identifier: MIT
#include "Recorder.h"

#include "dlog.h"

#include <cstdarg>
#include <cstdio>
#include <map>
#include <mutex>
#include <utility>

namespace
{

/** A log point between its first half and its last. One for each thread. */
struct Pending
{
    int priority = 0;
    std::string format, file, function, text, payload;
    int line = 0;
    bool logged = false, traced = false;
};

std::mutex guard;
recorder::Transcript transcript;
std::vector<std::string> rawCalls;
std::vector<lumo::TCCallLocation> locations;

thread_local Pending pending;
thread_local std::vector<unsigned char> buffer;
thread_local unsigned bufferLocation = 0;

void Raw(const std::string& call)
{
    const std::lock_guard lock(guard);
    rawCalls.push_back(call);
}

void Broken(const std::string& what)
{
    const std::lock_guard lock(guard);
    transcript.push_back("broken: " + what + " at " + pending.function + " > " + pending.text);
}

std::string ShortName(const std::string& signature)
{
    const size_t end = signature.find('(');
    const size_t start = signature.find_last_of(" :*", end) + 1;
    return signature.substr(start, end - start);
}

} // namespace

namespace recorder
{

bool storeIsFull = false;
std::function<void(const std::string& line)> onLine;
std::function<void()> onTrace;

void Reset()
{
    Take();
    const std::lock_guard lock(guard);
    rawCalls.clear();
    TIStorageManagerState::enabled = 1;
    storeIsFull = false;
    onLine = nullptr;
    onTrace = nullptr;
}

Transcript Take()
{
    const std::lock_guard lock(guard);
    return std::exchange(transcript, {});
}

const std::vector<lumo::TCCallLocation>& Locations()
{
    return locations;
}

std::vector<std::string> RawCalls()
{
    const std::lock_guard lock(guard);
    return rawCalls;
}

} // namespace recorder

extern "C" int __dlog_print(int log_id, int priority, const char* tag, const char* format, ...)
{
    static const std::string prefix = "%s: %s(%d) > ";
    Raw("log");
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    char line[2048];
    vsnprintf(line, sizeof line, format, args);
    va_end(args);

    pending = {};
    pending.logged = true;
    pending.priority = priority;
    pending.format = format;
    if (log_id != 0 || std::string(tag) != "ZAV_API" || pending.format.rfind(prefix, 0) != 0) {
        Broken("log call");
    }
    pending.format.erase(0, prefix.size());
    pending.file = va_arg(again, const char*);
    pending.function = va_arg(again, const char*);
    pending.line = va_arg(again, int);
    va_end(again);
    const std::string head =
        pending.file + ": " + pending.function + "(" + std::to_string(pending.line) + ") > ";
    pending.text = std::string(line).substr(head.size());
    if (recorder::onLine) {
        recorder::onLine(line);
    }
    return 0;
}

namespace lumo
{

TCLogger::TCLogger(const TSCodeLocation& location)
{
    Raw("logger");
    if (!pending.logged || location.line != pending.line ||
        ShortName(location.function) != pending.function ||
        std::string(location.file).find("/src/" + pending.file) == std::string::npos) {
        Broken("logger");
    }
}

TCLogger::~TCLogger()
{
    Raw("logger gone");
    if (TIStorageManagerState::enabled != 0 && !recorder::storeIsFull && !pending.traced) {
        Broken("no record");
    }
    const std::lock_guard lock(guard);
    transcript.push_back(std::to_string(pending.priority) + " " + pending.function + " > " +
                         pending.text + (pending.payload.empty() ? "" : " |" + pending.payload));
    pending = {};
}

TCCallLocation::TCCallLocation() = default;

void TCStorage::SaveLocation(const TCCallLocation& location)
{
    Raw("save " + std::to_string(location.id));
    if (recorder::onTrace) {
        recorder::onTrace();
    }
    if (location.message != pending.format || location.line != pending.line) {
        Broken("registered message '" + location.message + "'");
    }
    const std::lock_guard lock(guard);
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
    Raw("prepare " + std::to_string(payloadSize) + " " + std::to_string(flag) + " " +
        std::to_string(locationId));
    if (recorder::onTrace) {
        recorder::onTrace();
    }
    if (thread != ThreadHandle() || flag != 1) {
        Broken("prepare");
    }
    if (recorder::storeIsFull) {
        return nullptr;
    }
    buffer.assign(payloadSize + 1, 0xEE); // one more, to see a write beyond the end
    bufferLocation = locationId;
    return buffer.data();
}

void TCStorage::Commit(TCThreadHandle* thread)
{
    Raw("commit");
    if (thread != ThreadHandle() || buffer.back() != 0xEE) {
        Broken("commit");
    }
    pending.traced = true;
    for (size_t i = 0; i + 1 < buffer.size(); ++i) {
        char hex[4];
        snprintf(hex, sizeof hex, " %02x", buffer[i]);
        pending.payload += hex;
    }
    const std::lock_guard lock(guard);
    for (const TCCallLocation& location : locations) {
        if (location.id == bufferLocation && location.line == pending.line &&
            ShortName(location.function) == pending.function) {
            return;
        }
    }
    transcript.push_back("broken: record of another log point at " + pending.function);
}

std::string TSDemangler::Demangle(const char* name)
{
    static const std::map<std::string, std::string> names = {
        {"i", "int"},
        {"j", "unsigned int"},
        {"b", "bool"},
        {"h", "unsigned char"},
        {"v", "void"},
        {"Pc", "char*"},
        {"11AudioEffect", "AudioEffect"},
        {"26commonTunnel_external_id_e", "commonTunnel_external_id_e"}};
    return names.at(name);
}

} // namespace lumo
