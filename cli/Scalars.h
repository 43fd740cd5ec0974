// SPDX-License-Identifier: MIT
/** @file Scalars.h The values that can be read and set by name, and the names of the modes. */
#ifndef CLI_SCALARS_H
#define CLI_SCALARS_H

#include "Output.h"

#include <string>
#include <vector>

namespace cli
{

/** Its number and its name, "" for a mode without one. */
json DescribeMode(int mode);

/** A mode by its number or, in any case, by its name. @throws Failure */
int ParseMode(const std::string& text);

/** The names for `set`, or for `get`, and those of the modes. */
std::vector<std::string> ScalarNames(bool toSet);
std::vector<std::string> ModeNames();

/** The values and how they can be accessed, for --help. */
std::vector<Row> ScalarTable();

} // namespace cli

#endif
