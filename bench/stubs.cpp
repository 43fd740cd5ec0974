// SPDX-License-Identifier: MIT
/**
 * @file stubs.cpp
 * Preloaded in front of the platform: text and records go nowhere. What remains of a log point is
 * the library's own. A shared object by itself, so that a profile tells its instructions from the
 * library's. STUB_TRACE turns tracing on.
 */
#include "dlog.h"
#include "lumo.h"

#include <cstdlib>

unsigned char TIStorageManagerState::enabled = std::getenv("STUB_TRACE") != nullptr ? 1 : 0;

int __dlog_print(int /*log_id*/, int /*priority*/, const char* /*tag*/, const char* /*format*/, ...)
{
    return 0;
}

namespace lumo
{

TCCallLocation::TCCallLocation() = default;

TCLogger::TCLogger(const TSCodeLocation& /*location*/) {}
TCLogger::~TCLogger() = default;

std::string TSDemangler::Demangle(const char* name)
{
    return name;
}

void TCStorage::SaveLocation(const TCCallLocation& /*location*/) {}

TCThreadHandle* TCStorage::ThreadHandle()
{
    return nullptr;
}

unsigned char* TCStorage::PrepareCallBuffer(TCThreadHandle* /*thread*/, unsigned /*payloadSize*/,
                                            unsigned char /*flag*/, unsigned /*locationId*/)
{
    static unsigned char buffer[1 << 10];
    return buffer;
}

void TCStorage::Commit(TCThreadHandle* /*thread*/) {}

} // namespace lumo

TIStorageManager& TIStorageManager::Instance()
{
    static constinit TIStorageManager manager;
    return manager;
}

uint32_t TIStorageManager::NewLocationId()
{
    return 1;
}

lumo::TCStorage& TIStorageManager::Storage()
{
    static constinit lumo::TCStorage storage;
    return storage;
}
