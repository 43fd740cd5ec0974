// SPDX-License-Identifier: MIT
//
// What every player of the trace library has in common: tracing is on, there is one manager with
// one storage, and it counts.
#include "lumo.h"

#include <atomic>

/** To an address checker: to define what a shared library defines too is the point of this file. */
extern "C" const char* __asan_default_options();

const char* __asan_default_options()
{
    return "detect_odr_violation=0";
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
