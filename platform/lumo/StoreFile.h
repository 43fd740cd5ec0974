// SPDX-License-Identifier: MIT
/** @file StoreFile.h The file of a trace store, for its writer. */
#ifndef PLATFORM_LUMO_STOREFILE_H
#define PLATFORM_LUMO_STOREFILE_H

#include "TraceFormat.h"

#include <string>

namespace lumo
{

/**
 * Makes a store and maps it, for this process and those that it forks. The file appears under its
 * name as a whole. A store that stands there already is replaced if it belongs to the same user and
 * no process traces into it; anything else stays.
 *
 * What lies behind the header takes up neither memory nor disk until Populate().
 *
 * @param path  an absolute one: it is used now
 * @param limit what the file may take up, from kSmallestStore to kLargestStore
 * @throws std::runtime_error with the reason
 */
format::FileHeader* MakeStore(const std::string& path, std::uint32_t limit, format::Mode mode);

/**
 * Brings a part of the store into memory and reserves its place on the disk, at a fraction of what
 * touching each page costs.
 * @return 0; ENOSPC when touching it would be a SIGBUS, as no room is left; EINVAL before
 * Linux 5.14, where the store has been reserved as a whole
 */
int Populate(void* start, std::size_t size);

} // namespace lumo

#endif
