// SPDX-License-Identifier: MIT
#include "Output.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <unistd.h>

namespace cli
{

bool OnTerminal()
{
    return isatty(STDOUT_FILENO) == 1;
}

std::string Coloured(const std::string& text, int colour)
{
    const char* none = std::getenv("NO_COLOR");
    if (!OnTerminal() || (none != nullptr && *none != '\0')) {
        return text;
    }
    return "\033[" + std::to_string(colour) + "m" + text + "\033[0m";
}

void PrintJson(const json& data)
{
    std::cout << data.dump(-1, ' ', false, json::error_handler_t::replace) << std::endl;
}

void PrintRows(const std::vector<Row>& rows)
{
    std::vector<size_t> widths;
    for (const Row& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    for (const Row& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) {
                line.append(OnTerminal() ? widths[i] - row[i].size() + 2 : 1, ' ');
            }
        }
        std::cout << line << '\n';
    }
    std::cout.flush();
}

void Print(bool asJson, const json& data, const std::vector<Row>& rows)
{
    if (asJson) {
        PrintJson(data);
    } else {
        PrintRows(rows);
    }
}

int Report(const Failure& failure, bool asJson, json data)
{
    std::cerr << "zavctl: " << failure.what() << std::endl;
    if (asJson) {
        data["error"] = {
            {"cause", failure.Key()}, {"message", failure.what()}, {"exit", failure.ExitCode()}};
        PrintJson(data);
    }
    return failure.ExitCode();
}

} // namespace cli
