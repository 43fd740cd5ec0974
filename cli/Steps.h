// SPDX-License-Identifier: MIT
/**
 * @file Steps.h
 * What a line of the library's log says about the request that it belongs to. Told by the line's
 * format, which a call of the platform log and a trace record both have: arguments cannot be
 * mistaken for a step.
 */
#ifndef CLI_STEPS_H
#define CLI_STEPS_H

#include <string_view>

namespace cli
{

/** The steps in the order in which a request goes through them. */
enum class Step
{
    entry,        ///< an exported function has been entered
    connecting,   ///< begins; these three are an operation of their own, InitDbusConnection
    connected,    ///< now or before
    notConnected, ///< no bus, or no proxy
    bridge,       ///< another line of an exported function
    announced,
    wrongParameter, ///< the caller's
    waiting,        ///< for its turn; once for each attempt
    returned,       ///< the call has, with an answer or without
    answered,       ///< by a number, which is in the line; or sent, where no answer is waited for
    line,           ///< any other line: an item of a list, a registration
    listed,         ///< the answer is a list: its size, or one of its levels
    gaveUp,         ///< its turn never came
    noProxy,
    noAnswer,
    byte, ///< of an S/PDIF signal; one line for each
    over  ///< not a line: the request takes no more of them
};

/** @param format of a log line, with or without the prefix of the log; or of a trace location */
Step StepOf(std::string_view format);

} // namespace cli

#endif
