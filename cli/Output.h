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

/** Cells: a text as it is, "yes" and "no", "-" for null, an array of bytes as hexadecimal numbers.
 */
using Row = std::vector<json>;

/** What the members of an object are, without those that are empty texts, behind other cells. */
Row Values(const json& object, Row before = {});

/** The values of each object in a list. */
std::vector<Row> Table(const json& list);

/** Whether a person reads standard output. */
bool OnTerminal();

/** Valid UTF-8, with control characters as \uXXXX. */
std::string Printable(const std::string& text);

/** JSON on one line, with texts as printable as by Printable(). */
std::string Dump(const json& data);

/** A line of JSON. @throws Failure when it cannot be written, as with all that follow */
void PrintJson(const json& data);

/** Lines of words, perhaps with the columns below each other. How a check went has a colour. */
std::string Lines(const std::vector<Row>& rows, bool aligned);

/** JSON or a table, which is aligned on a terminal. @throws Failure as PrintJson() */
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
