// SPDX-License-Identifier: MIT
#include "Platform.h"

#include "Input.h"
#include "dlog.h"

#include <cstdarg>
#include <cxxabi.h>
#include <memory>

namespace platform
{

lumo::TCCallLocation location;
unsigned locations = 0;

namespace
{

constexpr unsigned char kGuard = 0xEE;
std::unique_ptr<unsigned char[]> block; // of its exact size and a guard byte
unsigned blockSize = 0;
bool prepared = false;

} // namespace

std::span<const unsigned char> Record()
{
    return {block.get(), blockSize};
}

} // namespace platform

using namespace platform;

extern "C" int __dlog_print(int, int, const char*, const char* format, ...)
{
    char line[256];
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(line, sizeof line, format, args);
    va_end(args);
    return length;
}

namespace lumo
{

TCLogger::TCLogger(const TSCodeLocation&) {}
TCLogger::~TCLogger() {} // NOLINT(modernize-use-equals-default): as it is declared

TCCallLocation::TCCallLocation() = default;

void TCStorage::SaveLocation(const TCCallLocation& saved)
{
    location = saved;
    ++locations;
}

TCThreadHandle* TCStorage::ThreadHandle()
{
    return nullptr;
}

unsigned char* TCStorage::PrepareCallBuffer(TCThreadHandle*, unsigned payloadSize,
                                            unsigned char flag, unsigned locationId)
{
    Demand(flag == 1 && locationId != 0 && !prepared);
    block.reset(new unsigned char[payloadSize + 1]);
    blockSize = payloadSize;
    block[blockSize] = kGuard;
    prepared = true;
    return block.get();
}

void TCStorage::Commit(TCThreadHandle*)
{
    Demand(prepared && block[blockSize] == kGuard);
    prepared = false;
}

std::string TSDemangler::Demangle(const char* name)
{
    const std::unique_ptr<char, decltype(&free)> text(
        abi::__cxa_demangle(name, nullptr, nullptr, nullptr), free);
    Demand(text != nullptr);
    return text.get();
}

} // namespace lumo
