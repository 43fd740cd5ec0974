// SPDX-License-Identifier: MIT
/**
 * @file Verbs.h
 * The verbs of zavctl: each is a row in the list of its subject, beside the function that it names.
 */
#ifndef CLI_VERBS_H
#define CLI_VERBS_H

#include "Output.h"

#include <CLI/CLI.hpp>
#include <climits>
#include <functional>
#include <string>
#include <vector>

namespace cli
{

/** Carries a verb out; throws Failure. What was given lies in static variables of the verb's own.
 */
using Action = std::function<void()>;

struct Verb
{
    const char* name; ///< one word, or two below a row with the first
    const char* help;
    /** Adds the verb's options and arguments; the action is run when they have been read. */
    Action (*define)(CLI::App&) = nullptr;
};

using Verbs = std::vector<Verb>;

extern const Verbs kScalarVerbs;   ///< get, set, status, modes
extern const Verbs kDeviceVerbs;   ///< equalizer, speakers, tunnel, spdif, init-manager, model
extern const Verbs kWatchingVerbs; ///< monitor, wait
extern const Verbs kDoctorVerbs;   ///< doctor
extern const Verbs kSimVerbs;      ///< sim
extern const Verbs kTraceVerbs;    ///< trace
extern const Verbs kScenarioVerbs; ///< scenario

/** Its number and its name, "" for a mode without one. */
json DescribeMode(int mode);

/** A mode by its number or, in any case, by its name. @throws Failure */
int ParseMode(const std::string& text);

/** The values and how they can be accessed, for --help. */
std::vector<Row> ScalarTable();

/** A whole number, also as 0x3. @throws Failure */
int ParseNumber(const std::string& text, int least = INT_MIN, int most = INT_MAX);

/** For CLI::Option::check(): what is wrong with a number, "" for nothing. */
using Check = std::function<std::string(const std::string&)>;
Check WholeNumber(int least = INT_MIN, int most = INT_MAX);
std::string CheckSeconds(const std::string& text);

} // namespace cli

#endif
