// SPDX-License-Identifier: MIT
/** @file Output.h What zavctl prints: tables for people, lines and JSON for scripts. */
#ifndef CLI_OUTPUT_H
#define CLI_OUTPUT_H

#include "Failure.h"

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace cli
{

using json = nlohmann::ordered_json;
using Row = std::vector<std::string>;

/** Whether a person reads standard output. */
bool OnTerminal();

/** The text in a colour, e.g. 31 for red, where colours are wanted. */
std::string Coloured(const std::string& text, int colour);

/** A line of JSON; bytes that are no text are replaced. */
void PrintJson(const json& data);

/** Lines of words; on a terminal the columns stand below each other. */
void PrintRows(const std::vector<Row>& rows);

/** One of the two. */
void Print(bool asJson, const json& data, const std::vector<Row>& rows);

/**
 * A plain line on standard error, and for scripts the data so far with the error.
 * @return the exit code
 */
int Report(const Failure& failure, bool asJson, json data = json::object());

} // namespace cli

#endif
