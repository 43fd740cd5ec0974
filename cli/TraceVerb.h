// SPDX-License-Identifier: MIT
/**
 * @file TraceVerb.h
 * `zavctl trace`: shows what a trace store holds.
 */
#ifndef CLI_TRACEVERB_H
#define CLI_TRACEVERB_H

#include <string>

namespace cli
{

struct TraceOptions
{
    std::string file;
    bool json = false;   ///< one JSON object a line
    bool stat = false;   ///< a summary for each operation
    bool follow = false; ///< go on with the records that come while somebody traces
    std::string chrome;  ///< where to write a timeline, "" for none
};

/**
 * Writes to standard output.
 * @throws Failure when it could not be shown whole; what is sound has been written
 */
void Trace(const TraceOptions& options);

} // namespace cli

#endif
