// SPDX-License-Identifier: MIT
#include "Output.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <glib.h>
#include <iostream>
#include <map>
#include <unistd.h>

namespace cli
{

bool asJson = false;

namespace
{

std::string Text(const json& cell)
{
    if (cell.is_string()) {
        return Printable(cell.get<std::string>());
    }
    if (cell.is_array()) {
        std::string bytes;
        for (const unsigned byte : cell) {
            g_autofree char* text = g_strdup_printf("%s%02x", bytes.empty() ? "" : " ", byte);
            bytes += text;
        }
        return bytes;
    }
    return cell.is_null() ? "-" : cell.is_boolean() ? (cell ? "yes" : "no") : cell.dump();
}

size_t Width(const std::string& text)
{
    return static_cast<size_t>(g_utf8_strlen(text.c_str(), -1));
}

std::string Coloured(const std::string& text)
{
    static const std::map<std::string, const char*> colours = {
        {"ok", "\033[32m"}, {"warn", "\033[33m"}, {"fail", "\033[31m"}};
    const char* none = std::getenv("NO_COLOR");
    const bool wanted = OnTerminal() && (none == nullptr || *none == '\0');
    return wanted && colours.contains(text) ? colours.at(text) + text + "\033[0m" : text;
}

} // namespace

bool OnTerminal()
{
    return isatty(STDOUT_FILENO) == 1;
}

std::string Printable(const std::string& text)
{
    if (std::ranges::all_of(text, [](char c) { return g_ascii_isprint(c); })) {
        return text; // as nearly all are, of which a trace has many
    }
    g_autofree char* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
    std::string shown;
    for (const char* c = valid; *c != '\0'; c = g_utf8_next_char(c)) {
        const gunichar character = g_utf8_get_char(c);
        if (g_unichar_iscntrl(character) != FALSE) {
            g_autofree char* escaped = g_strdup_printf("\\u%04x", character);
            shown += escaped;
        } else {
            shown.append(c, static_cast<size_t>(g_utf8_next_char(c) - c));
        }
    }
    return shown;
}

std::string Dump(const json& data)
{
    return Printable(data.dump(-1, ' ', false, json::error_handler_t::replace));
}

void PrintText(const std::string& text)
{
    if (!(std::cout << text << std::flush)) {
        throw Failure(Cause::kFailed,
                      std::string("standard output cannot be written: ") + std::strerror(errno));
    }
}

void PrintJson(const json& data)
{
    PrintText(Dump(data) + '\n');
}

Row Values(const json& object, Row before)
{
    std::ranges::copy_if(object, std::back_inserter(before),
                         [](const json& value) { return value != json(""); });
    return before;
}

std::vector<Row> Table(const json& list)
{
    std::vector<Row> rows;
    for (const json& object : list) {
        rows.push_back(Values(object));
    }
    return rows;
}

std::string Lines(const std::vector<Row>& rows, bool aligned)
{
    std::vector<size_t> widths;
    for (const Row& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], Width(Text(row[i])));
        }
    }
    std::string lines;
    for (const Row& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string text = Text(row[i]);
            lines += i == 0 ? Coloured(text) : text;
            if (i + 1 < row.size()) {
                lines.append(aligned ? widths[i] - Width(text) + 2 : 1, ' ');
            }
        }
        lines += '\n';
    }
    return lines;
}

void Print(const json& data, const std::vector<Row>& rows)
{
    PrintText(asJson ? Dump(data) + '\n' : Lines(rows, OnTerminal()));
}

void PrintOrThrow(const json& data, const std::vector<Row>& rows,
                  const std::optional<Failure>& failure)
{
    if (!failure || !asJson) {
        Print(data, rows);
    }
    if (failure) {
        throw Failure(failure->cause, failure->what(), data);
    }
}

void Report(const Failure& failure)
{
    std::cerr << "zavctl: " << Printable(failure.what()) << std::endl;
    if (asJson) {
        json data = failure.data;
        data["error"] = {{"cause", failure.cause.key},
                         {"message", failure.what()},
                         {"exit", failure.cause.exitCode}};
        try {
            PrintJson(data);
        } catch (const Failure&) { // told already, or the lesser of two
        }
    }
}

} // namespace cli
