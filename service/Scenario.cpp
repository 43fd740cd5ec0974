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

/** A step whose time stands under this key. */
Step ReadStep(nlohmann::json line, const char* time)
{
    if (line.size() != 2U + line.contains("every")) {
        throw std::invalid_argument(R"(expected {"at": MILLISECONDS, "VERB": "VALUE"})");
    }
    const guint at = Milliseconds(line, time, 0);
    const guint every = line.contains("every") ? Milliseconds(line, "every", 1) : 0;
    line.erase(time);
    line.erase("every");
    const auto verb = line.begin();
    if (!verb->is_string()) {
        throw std::invalid_argument("the value of '" + verb.key() + "' is not a string");
    }
    return {at, every, Control::Parse(verb.key() + " " + verb->get<std::string>())};
}

void ReadLine(const std::string& text, Scenario& scenario)
{
    const auto line = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (line.is_object() && line.contains("at")) {
        scenario.steps.push_back(ReadStep(line, "at"));
    } else if (line.is_object() && line.contains("after") && !scenario.calls.empty()) {
        scenario.calls.back().steps.push_back(ReadStep(line, "after"));
    } else if (line.is_object() && line.size() == 1 && line.contains("call") &&
               line["call"].is_string()) {
        scenario.calls.push_back(
            {Control::Parse("hang " + line["call"].get<std::string>()).name, {}});
    } else {
        throw std::invalid_argument(
            R"(expected {"at": MILLISECONDS, "VERB": "VALUE"}, or {"call": "METHOD"} and behind it )"
            R"({"after": MILLISECONDS, "VERB": "VALUE"})");
    }
}

} // namespace

Scenario ReadScenario(std::istream& lines)
{
    Scenario scenario;
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        const size_t start = line.find_first_not_of(" \t\r");
        if (start == std::string::npos || line[start] == '#') {
            continue;
        }
        try {
            ReadLine(line, scenario);
        } catch (const std::invalid_argument& fault) {
            throw std::invalid_argument(std::to_string(number) + ": " + fault.what());
        }
    }
    std::ranges::stable_sort(scenario.steps, {}, &Step::at);
    for (Expected& call : scenario.calls) {
        std::ranges::stable_sort(call.steps, {}, &Step::at);
    }
    return scenario;
}
