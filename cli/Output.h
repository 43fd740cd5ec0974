// SPDX-License-Identifier: MIT
/**
 * @file Output.h
 * What zavctl prints: tables for people, lines and JSON for scripts. Texts may come from anywhere:
 * control characters and bytes that are not UTF-8 never reach the output as they are.
 */
#ifndef CLI_OUTPUT_H
#define CLI_OUTPUT_H

#include "Failure.h"

#include <optional>
#include <string>
#include <vector>

namespace cli
{

extern bool asJson; ///< --json

/** A text, on a terminal perhaps in a colour, e.g. 31 for red. */
struct Cell
{
    Cell(std::string words, int shade = 0) : text(std::move(words)), colour(shade) {}
    Cell(const char* words) : text(words) {}

    std::string text;
    int colour = 0;
};

using Row = std::vector<Cell>;

/** Whether a person reads standard output. */
bool OnTerminal();

/** Valid UTF-8, with control characters as \uXXXX. */
std::string Printable(const std::string& text);

/** A line of JSON. @throws Failure when it cannot be written, as with all that follow */
void PrintJson(const json& data);

/** Lines of words; on a terminal the columns stand below each other. */
void PrintRows(const std::vector<Row>& rows);

/** One of the two. */
void Print(const json& data, const std::vector<Row>& rows);

/** What was found out, and then what failed, if anything did. */
void PrintOrThrow(const json& data, const std::vector<Row>& rows,
                  const std::optional<Failure>& failure);

/** Text as it is, such as a help page. */
void PrintText(const std::string& text);

/** A plain line on standard error, and for scripts the data so far with the error. */
void Report(const Failure& failure);

} // namespace cli

#endif
