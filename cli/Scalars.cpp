// SPDX-License-Identifier: MIT
#include "Request.h"
#include "Verbs.h"
#include "ZAVServiceAPI.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string_view>

namespace cli
{

namespace
{

using Api = ZAVServiceAPI;

template <auto getter>
json Read()
{
    return getter();
}

int SetMode(int mode)
{
    return Api::SetMode(static_cast<AudioEffect>(mode));
}

constexpr struct Scalar
{
    std::string_view name;
    const char* help;
    json (*get)();
    int (*set)(int);
} kScalars[] = {
    {"mode", "sound mode, by number or name", Read<Api::GetMode>, SetMode},
    {"woofer-level", "level of the sub-woofer", Read<Api::GetWooferLevel>, Api::SetWooferLevel},
    {"woofer-state", "state of the woofer", Read<Api::GetWooferState>, nullptr},
    {"woofer-available", "whether there is a sub-woofer to set", Read<Api::IsAvailableWooferMode>,
     nullptr},
    {"speaker", "speaker selection", Read<Api::GetSpeakerSelection>, Api::SetSpeakerSelection},
    {"sound-bar", "whether a sound bar is connected", Read<Api::IsSoundBarConnected>, nullptr},
    {"equalizer-available", "whether there is an equalizer", Read<Api::IsAvailableEqualizer>,
     nullptr},
    {"equalizer-state", "whether the mode is the standard one", Read<Api::GetEqualizerState>,
     nullptr},
    {"ready", "readiness of the service", Read<Api::IsZAVReady>, nullptr},
    {"features", "supported features", Read<Api::IsFeatureSupported>, nullptr},
    {"corvala-available", "availability of the Corvala feature", Read<Api::getQCorvalaAvailable>,
     nullptr},
    {"corvala", "Corvala feature on or off", nullptr, Api::SetCorvalaVconf},
    {"earc", "eARC link", nullptr, Api::SetEarcToZav},
    {"pre-trial", "pre-trial", nullptr, Api::RequestPreTrial},
};

constexpr struct Mode
{
    int mode;
    std::string_view name;
} kModes[] = {
#include "Modes.inc"
};

std::vector<std::string> Names(bool toSet)
{
    std::vector<std::string> names;
    for (const Scalar& scalar : kScalars) {
        if (toSet ? scalar.set != nullptr : scalar.get != nullptr) {
            names.emplace_back(scalar.name);
        }
    }
    return names;
}

json Describe(std::string_view name, const json& value)
{
    return name == "mode" ? DescribeMode(value) : json{{name, value}};
}

json Ask(const std::string& name)
{
    return Describe(name, Request(std::ranges::find(kScalars, name, &Scalar::name)->get));
}

Action Get(CLI::App& verb)
{
    static std::string name;
    verb.add_option("NAME", name, "Which value")->required()->check(CLI::IsMember(Names(false)));
    return [] {
        const json data = Ask(name);
        Print(data, {Values(data)});
    };
}

Action Set(CLI::App& verb)
{
    static std::string name;
    static std::string text;
    verb.add_option("NAME", name, "Which value")->required()->check(CLI::IsMember(Names(true)));
    verb.add_option("VALUE", text, "What to")->required();
    return [] {
        const int value = name == "mode" ? ParseMode(text) : ParseNumber(text);
        const auto* scalar = std::ranges::find(kScalars, name, &Scalar::name);
        const int result = Request([set = scalar->set, value] { return set(value); });
        if (result < 0) {
            throw Failure::For(Cause::kRefused,
                               name + " " + text + " (result " + std::to_string(result) + ")");
        }
        json data = Describe(name, value);
        data["result"] = result;
        Print(data, {});
    };
}

Action Status(CLI::App& /*verb*/)
{
    return [] {
        json data;
        std::vector<Row> rows;
        std::optional<Failure> failure; // of a value; the others are shown none the less
        for (const std::string& name : Names(false)) {
            // Only a value that was refused or late by itself says nothing of the next.
            if (abandoned || (failure && failure->cause != Cause::kRefused &&
                              failure->cause != Cause::kNoAnswer)) {
                break;
            }
            json found = {{name, nullptr}};
            try {
                found = Ask(name);
            } catch (const Failure& thrown) {
                failure = thrown;
            }
            data.update(found);
            rows.push_back(Values(found, {name}));
        }
        PrintOrThrow(data, rows, failure);
    };
}

Action Modes(CLI::App& verb)
{
    static bool withSids = false;
    verb.add_flag("--sid", withSids, "With the identifiers of their display strings");
    return [] {
        const auto offered = Request([] {
            std::list<AudioEffect> list;
            Api::GetModeList(&list);
            return list;
        });
        json list = json::array();
        for (const AudioEffect mode : offered) {
            list.push_back(DescribeMode(mode));
            if (withSids) {
                std::list<AudioEffect> one{mode};
                std::list<std::string> sid;
                Api::popSIDList(&sid, &one); // one by one: a mode without one adds none
                list.back()["sid"] = sid.empty() ? json() : json(sid.front());
            }
        }
        Print({{"modes", list}}, Table(list));
    };
}

} // namespace

const Verbs kScalarVerbs = {
    {"get", "Show one value", Get},
    {"set", "Set one value", Set},
    {"status", "Show all values", Status},
    {"modes", "List the sound modes that the service offers", Modes},
};

int ParseNumber(const std::string& text, int least, int most)
{
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || value < least || value > most) {
        throw Failure(Cause::kUsage, "'" + text + "' is not a whole number from " +
                                         std::to_string(least) + " to " + std::to_string(most));
    }
    return static_cast<int>(value);
}

Check WholeNumber(int least, int most)
{
    return [=](const std::string& text) -> std::string {
        try {
            ParseNumber(text, least, most);
            return "";
        } catch (const Failure& failure) {
            return failure.what();
        }
    };
}

std::string CheckSeconds(const std::string& text)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    const bool number = !text.empty() && *end == '\0' && std::isfinite(value) && value >= 0;
    return number ? "" : "'" + text + "' is not a number of seconds";
}

json DescribeMode(int mode)
{
    const auto* found = std::ranges::find(kModes, mode, &Mode::mode);
    return {{"mode", mode}, {"mode-name", found == std::end(kModes) ? "" : found->name}};
}

int ParseMode(const std::string& text)
{
    std::string name = text;
    std::ranges::transform(name, name.begin(),
                           [](char c) { return c == '-' ? '_' : g_ascii_toupper(c); });
    const auto* found = std::ranges::find(kModes, name, &Mode::name);
    if (found == std::end(kModes) && !WholeNumber()(text).empty()) {
        std::string names;
        for (const Mode& row : kModes) {
            names += (names.empty() ? "" : ", ") + std::string(row.name);
        }
        throw Failure(Cause::kUsage,
                      "there is no mode '" + text + "'; it is a number, or one of " + names);
    }
    return found == std::end(kModes) ? ParseNumber(text) : found->mode;
}

std::vector<Row> ScalarTable()
{
    std::vector<Row> rows;
    for (const auto& [name, help, get, set] : kScalars) {
        const std::string access{get != nullptr ? 'r' : '-', set != nullptr ? 'w' : '-'};
        rows.push_back({"", name, access, help});
    }
    return rows;
}

} // namespace cli
