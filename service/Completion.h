// SPDX-License-Identifier: MIT
/**
 * @file Completion.h
 * What may come next on a command line. The completion scripts of the shells ask the program
 * itself, by its first argument `--complete`: so they know every verb, option and value that it
 * has.
 */
#ifndef ZAV_SERVICE_COMPLETION_H
#define ZAV_SERVICE_COMPLETION_H

#include <CLI/CLI.hpp>

#include <map>
#include <string>
#include <vector>

using Words = std::vector<std::string>;

/** The methods and the signals of the service. */
Words Methods();
Words Signals();

/**
 * Prints what may be the last word of a command line that begins with `--complete`, one a line;
 * ":file" for file names.
 * @param app    parses the words before, without its callbacks
 * @param values what an option or argument may be, by the beginning of its type's name: "METHOD=MS"
 *               has those of METHOD, each with "=" behind it
 * @return whether it is such a command line
 */
bool PrintCandidates(CLI::App& app, int argc, char** argv,
                     const std::map<std::string, Words>& values);

#endif
