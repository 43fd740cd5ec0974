// SPDX-License-Identifier: MIT
/**
 * @file Recorder.h
 * The platform log and the trace library, played by the test program: each log point becomes a line
 * of the boundary log. Its two halves are checked against each other as they come in; what does not
 * fit is told in a line that begins with "broken:".
 */
#ifndef ZAV_TESTS_RECORDER_H
#define ZAV_TESTS_RECORDER_H

#include "lumo.h"

#include <functional>
#include <span>
#include <string>

namespace recorder
{

/** While true PrepareCallBuffer() returns NULL. */
extern bool storeIsFull;

/** Called with the message of a log point between its line and its record, if set; may throw. */
extern std::function<void(const std::string& message)> onRecord;

/** This thread's last record; its block is of the size that was asked for. */
std::span<const unsigned char> Record();

} // namespace recorder

#endif
