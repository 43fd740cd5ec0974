// SPDX-License-Identifier: MIT
/**
 * @file Platform.h
 * The platform log and the trace library, played for speed: lines are formatted and dropped, of the
 * trace only what came last is kept. Bytes written behind a record end the program.
 */
#ifndef ZAV_FUZZ_PLATFORM_H
#define ZAV_FUZZ_PLATFORM_H

#include "lumo.h"

#include <span>

namespace platform
{

/** The location that was registered last, and how many there were. */
extern lumo::TCCallLocation location;
extern unsigned locations;

/** The record that was committed last; its size is that of the block that was asked for. */
std::span<const unsigned char> Record();

} // namespace platform

#endif
