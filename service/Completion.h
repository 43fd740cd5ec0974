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

#include <functional>
#include <map>
#include <string>
#include <vector>

using Words = std::vector<std::string>;

/**
 * The values that an option or argument takes, by the beginning of its type's name: "METHOD=MS" has
 * those of METHOD, each with "=" behind it. They may depend on the words before.
 */
using Values = std::map<std::string, std::function<Words(const Words& before)>>;

/** The methods and the signals of the service. */
Words Methods(const Words& before);
Words Signals(const Words& before);

/**
 * Prints what may be the last word if the first is `--complete`, one a line; ":file" for file
 * names.
 * @return whether it was
 */
bool AnswerCompletion(const CLI::App& app, int argc, char** argv, const Values& values);

#endif
