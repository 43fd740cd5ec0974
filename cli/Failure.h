// SPDX-License-Identifier: MIT
/** @file Failure.h Why zavctl did not do what it was asked. */
#ifndef CLI_FAILURE_H
#define CLI_FAILURE_H

#include <stdexcept>
#include <string>

namespace cli
{

enum class Cause
{
    refused,    ///< by the service
    failed,     ///< a check of ours
    usage,      ///< the command line
    noAnswer,   ///< in time
    notRunning, ///< the service
    noBus,
    denied, ///< by the bus
    busy    ///< other requests of the process
};

struct Failure : std::runtime_error
{
    Failure(Cause why, const std::string& message) : std::runtime_error(message), cause(why) {}

    Cause cause;

    int ExitCode() const
    {
        constexpr int codes[] = {1, 1, 2, 3, 4, 5, 5, 6};
        return codes[static_cast<int>(cause)];
    }

    /** For scripts: stays as it is. */
    const char* Key() const
    {
        constexpr const char* keys[] = {"refused",     "failed", "usage",  "no-answer",
                                        "not-running", "no-bus", "denied", "busy"};
        return keys[static_cast<int>(cause)];
    }
};

} // namespace cli

#endif
