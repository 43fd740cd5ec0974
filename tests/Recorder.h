// SPDX-License-Identifier: MIT
/**
 * @file Recorder.h
 * The platform log and the trace library, played by the test program: what the library under test
 * hands to them is kept as a transcript, one line for each log point:
 *
 *     4 GetWooferLevel > IntDataReceived: 7 from ZAVService | 07 00 00 00
 *
 * that is priority, short name, text, and the record's payload if it has one. The two halves of a
 * log point are checked against each other as they come in (order, names, lines, message); what
 * does not fit stands in the transcript as a line that begins with "broken:".
 */
#ifndef ZAV_TESTS_RECORDER_H
#define ZAV_TESTS_RECORDER_H

#include "lumo.h"

#include <functional>
#include <string>
#include <vector>

namespace recorder
{

using Transcript = std::vector<std::string>;

/** Forgets what was recorded; tracing is on again and nothing fails. Registrations stay. */
void Reset();

/** What was recorded since Reset() or the last call of this function. */
Transcript Take();

/** The locations registered so far in this process, in order. */
const std::vector<lumo::TCCallLocation>& Locations();

/** The raw calls since Reset(), e.g. "log", "logger", "prepare 4 1 17", "commit", "logger gone". */
std::vector<std::string> RawCalls();

/** While true PrepareCallBuffer() returns NULL. */
extern bool storeIsFull;

/** Called at the end of each __dlog_print, if set; may throw or block. */
extern std::function<void(const std::string& line)> onLine;

/** Called at the start of each registration and each record, if set; may throw. */
extern std::function<void()> onTrace;

} // namespace recorder

#endif
