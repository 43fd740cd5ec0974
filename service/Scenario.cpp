// SPDX-License-Identifier: MIT
#include "Scenario.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <stdexcept>

namespace
{

Step ReadStep(const std::string& line)
{
    auto step = nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false);
    if (!step.is_object() || step.size() != 2 || !step.contains("at")) {
        throw std::invalid_argument(R"(expected {"at": MILLISECONDS, "VERB": "VALUE"})");
    }

    const auto at = step["at"];
    if (!at.is_number_unsigned() || at.get<guint64>() > G_MAXUINT) {
        throw std::invalid_argument("'at' is not a number of milliseconds");
    }

    step.erase("at");
    const auto verb = step.begin();
    if (!verb->is_string()) {
        throw std::invalid_argument("the value of '" + verb.key() + "' is not a string");
    }
    return {at.get<guint>(), Control::Parse(verb.key(), verb->get<std::string>())};
}

} // namespace

std::vector<Step> ReadScenario(std::istream& lines)
{
    std::vector<Step> steps;
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) {
            continue;
        }
        try {
            steps.push_back(ReadStep(line));
        } catch (const std::invalid_argument& fault) {
            throw std::invalid_argument(std::to_string(number) + ": " + fault.what());
        }
    }
    std::ranges::stable_sort(steps, {}, &Step::at);
    return steps;
}
