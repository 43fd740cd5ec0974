// SPDX-License-Identifier: MIT
#include "Scalars.h"

#include "Request.h"
#include "Verbs.h"
#include "ZAVServiceAPI.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <optional>
#include <sstream>
#include <string_view>

namespace cli
{

namespace
{

using Api = ZAVServiceAPI;

enum class Kind
{
    number,
    flag,
    mode
};

struct Scalar
{
    std::string_view name;
    Kind kind;
    const char* help;
    int (*get)();
    int (*set)(int);
};

template <auto getter>
int Getter()
{
    return static_cast<int>(getter());
}

int SetMode(int mode)
{
    return Api::SetMode(static_cast<AudioEffect>(mode));
}

constexpr Scalar scalars[] = {
    {"mode", Kind::mode, "sound mode, by number or name", Getter<Api::GetMode>, SetMode},
    {"woofer-level", Kind::number, "level of the sub-woofer", Api::GetWooferLevel,
     Api::SetWooferLevel},
    {"woofer-state", Kind::number, "state of the woofer", Getter<Api::GetWooferState>, nullptr},
    {"woofer-available", Kind::flag, "whether there is a sub-woofer to set",
     Getter<Api::IsAvailableWooferMode>, nullptr},
    {"speaker", Kind::number, "speaker selection", Api::GetSpeakerSelection,
     Api::SetSpeakerSelection},
    {"sound-bar", Kind::flag, "whether a sound bar is connected", Getter<Api::IsSoundBarConnected>,
     nullptr},
    {"equalizer-available", Kind::flag, "whether there is an equalizer",
     Getter<Api::IsAvailableEqualizer>, nullptr},
    {"equalizer-state", Kind::flag, "whether the mode is the standard one",
     Getter<Api::GetEqualizerState>, nullptr},
    {"ready", Kind::number, "readiness of the service", Api::IsZAVReady, nullptr},
    {"features", Kind::number, "supported features", Getter<Api::IsFeatureSupported>, nullptr},
    {"corvala-available", Kind::number, "availability of the Corvala feature",
     Api::getQCorvalaAvailable, nullptr},
    {"corvala", Kind::number, "Corvala feature on or off", nullptr, Api::SetCorvalaVconf},
    {"earc", Kind::number, "eARC link", nullptr, Api::SetEarcToZav},
    {"pre-trial", Kind::number, "pre-trial", nullptr, Api::RequestPreTrial},
};

#define MODE(name)                                                                                 \
    {                                                                                              \
        AUDIO_EFFECT_##name, #name                                                                 \
    }

struct Mode
{
    int mode;
    std::string_view name;
};

constexpr Mode modes[] = {
    MODE(STANDARD),
    MODE(MUSIC),
    MODE(CLEAR_VOICE),
    MODE(SPORTS),
    MODE(MOVIE),
    MODE(NIGHT),
    MODE(SURROUND),
    MODE(SMART),
    MODE(GAME),
    MODE(ADAPTIVE),
    MODE(DTS_VIRTUAL_X),
    MODE(BASS_BOOST),
    MODE(ADAPTIVE_SOUND_PLUS),
    MODE(UNLABELLED_1),
    MODE(UNLABELLED_2),
    MODE(SOUNDBAR_1),
    MODE(SOUNDBAR_2),
};

std::string Listed(const std::vector<std::string>& names)
{
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

const Scalar& Find(const std::string& name, bool toSet)
{
    const auto names = ScalarNames(toSet);
    if (std::ranges::find(names, name) == names.end()) {
        throw Failure(Cause::usage, "'" + name + "' cannot be " + (toSet ? "set" : "read") +
                                        "; these can: " + Listed(names));
    }
    return *std::ranges::find(scalars, name, &Scalar::name);
}

int Ask(const Scalar& scalar)
{
    return Request([get = scalar.get] { return get(); }).result;
}

std::string Text(const Scalar& scalar, int value)
{
    return scalar.kind == Kind::flag   ? value != 0 ? "yes" : "no"
           : scalar.kind == Kind::mode ? ModeText(value)
                                       : std::to_string(value);
}

/** A mode has its name beside it, so that the number stays one. */
void Add(json& data, const Scalar& scalar, int value)
{
    data[scalar.name] = scalar.kind == Kind::flag ? json(value != 0) : json(value);
    if (scalar.kind == Kind::mode) {
        data["mode-name"] = ModeName(value);
    }
}

Action Get(CLI::App& verb)
{
    static std::string name;
    verb.add_option("NAME", name, "Which value")->required()->type_name("READABLE");
    return [] {
        const Scalar scalar = Find(name, false);
        const int value = Ask(scalar);
        json data;
        Add(data, scalar, value);
        Print(data, {{Text(scalar, value)}});
    };
}

Action Set(CLI::App& verb)
{
    static std::string name;
    static std::string text;
    verb.add_option("NAME", name, "Which value")->required()->type_name("SETTABLE");
    verb.add_option("VALUE", text, "What to")->required()->type_name("SETTING");
    return [] {
        const Scalar scalar = Find(name, true);
        const int value = scalar.kind == Kind::mode ? ParseMode(text) : ParseNumber(text);
        const int result = Request([set = scalar.set, value] { return set(value); }).result;
        if (result < 0) {
            throw Failure::For(Cause::refused,
                               name + " " + text + " (result " + std::to_string(result) + ")");
        }
        json data;
        Add(data, scalar, value);
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
        for (const std::string& name : ScalarNames(false)) {
            // Only a value that was refused or late by itself says nothing of the next.
            if (abandoned || (failure && failure->cause != Cause::refused &&
                              failure->cause != Cause::noAnswer)) {
                break;
            }
            data[name] = nullptr;
            rows.push_back({name, "-"});
            try {
                const Scalar scalar = Find(name, false);
                const int value = Ask(scalar);
                Add(data, scalar, value);
                rows.back()[1].text = Text(scalar, value);
            } catch (const Failure& thrown) {
                failure = thrown;
            }
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
        std::vector<Row> rows;
        for (const AudioEffect mode : offered.result) {
            rows.push_back({std::to_string(mode), ModeName(mode)});
            list.push_back({{"mode", static_cast<int>(mode)}, {"mode-name", ModeName(mode)}});
            if (withSids) {
                std::list<AudioEffect> one{mode};
                std::list<std::string> sid;
                Api::popSIDList(&sid, &one); // one by one: a mode without one adds none
                rows.back().emplace_back(sid.empty() ? "-" : sid.front());
                list.back()["sid"] = sid.empty() ? json() : json(sid.front());
            }
        }
        Print({{"modes", list}}, rows);
    };
}

} // namespace

const Verbs scalarVerbs = {
    {"get", "Show one value", Get},
    {"set", "Set one value", Set},
    {"status", "Show all values", Status},
    {"modes", "List the sound modes that the service offers", Modes},
};

int ParseNumber(const std::string& text)
{
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || value != static_cast<int>(value)) {
        throw Failure(Cause::usage, "'" + text + "' is not a whole number of 32 bits");
    }
    return static_cast<int>(value);
}

std::string CheckNumber(const std::string& text)
try {
    ParseNumber(text);
    return "";
} catch (const Failure& failure) {
    return failure.what();
}

std::function<std::string(const std::string&)> CheckRange(int least, int most)
{
    return [=](const std::string& text) {
        std::string fault = CheckNumber(text);
        if (fault.empty() && (ParseNumber(text) < least || ParseNumber(text) > most)) {
            fault = "'" + text + "' is not in the range " + std::to_string(least) + " to " +
                    std::to_string(most);
        }
        return fault;
    };
}

std::string CheckSeconds(const std::string& text)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    const bool number = !text.empty() && *end == '\0' && std::isfinite(value) && value >= 0;
    return number ? "" : "'" + text + "' is not a number of seconds";
}

std::string ModeName(int mode)
{
    const auto* found = std::ranges::find(modes, mode, &Mode::mode);
    return found == std::end(modes) ? "" : std::string(found->name);
}

std::string ModeText(int mode)
{
    const std::string name = ModeName(mode);
    return std::to_string(mode) + (name.empty() ? "" : " " + name);
}

int ParseMode(const std::string& text)
{
    std::string name = text;
    std::ranges::transform(name, name.begin(), [](char c) {
        return c == '-' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    });
    const auto* found = std::ranges::find(modes, name, &Mode::name);
    if (found != std::end(modes)) {
        return found->mode;
    }
    if (!CheckNumber(text).empty()) {
        throw Failure(Cause::usage, "there is no mode '" + text + "'; it is a number, or one of " +
                                        Listed(ModeNames()));
    }
    return ParseNumber(text);
}

std::vector<std::string> ScalarNames(bool toSet)
{
    std::vector<std::string> names;
    for (const Scalar& scalar : scalars) {
        if (toSet ? scalar.set != nullptr : scalar.get != nullptr) {
            names.emplace_back(scalar.name);
        }
    }
    return names;
}

std::vector<std::string> ModeNames()
{
    std::vector<std::string> names;
    for (const Mode& row : modes) {
        names.emplace_back(row.name);
    }
    return names;
}

std::string ScalarHelp()
{
    std::ostringstream help;
    help << "Values (r: can be read, w: can be set):\n";
    for (const Scalar& scalar : scalars) {
        help << "  " << std::left << std::setw(21) << scalar.name
             << (scalar.get != nullptr ? 'r' : '-') << (scalar.set != nullptr ? 'w' : '-') << "  "
             << scalar.help << '\n';
    }
    return help.str();
}

} // namespace cli
