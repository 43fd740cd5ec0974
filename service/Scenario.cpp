// SPDX-License-Identifier: MIT
#include "Scenario.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <stdexcept>

namespace
{

guint Milliseconds(const nlohmann::json& step, const char* key, guint least)
{
    const auto& value = step[key];
    if (!value.is_number_unsigned() || value > G_MAXUINT || value < least) {
        throw std::invalid_argument("'" + std::string(key) + "' is not a number of milliseconds");
    }
    return value.get<guint>();
}

Step ReadStep(const std::string& line)
{
    auto step = nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false);
    if (!step.is_object() || !step.contains("at") || step.size() != 2U + step.contains("every")) {
        throw std::invalid_argument(R"(expected {"at": MILLISECONDS, "VERB": "VALUE"})");
    }
    const guint at = Milliseconds(step, "at", 0);
    const guint every = step.contains("every") ? Milliseconds(step, "every", 1) : 0;
    step.erase("at");
    step.erase("every");
    const auto verb = step.begin();
    if (!verb->is_string()) {
        throw std::invalid_argument("the value of '" + verb.key() + "' is not a string");
    }
    return {at, every, Control::Parse(verb.key() + " " + verb->get<std::string>())};
}

} // namespace

std::vector<Step> ReadScenario(std::istream& lines)
{
    std::vector<Step> steps;
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        const size_t start = line.find_first_not_of(" \t\r");
        if (start == std::string::npos || line[start] == '#') {
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
