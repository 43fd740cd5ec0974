// SPDX-License-Identifier: MIT
#include "Scalars.h"

#include "Request.h"
#include "Verbs.h"
#include "ZAVServiceAPI.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <optional>
#include <sstream>

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
    const char* name;
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

constexpr struct
{
    int mode;
    const char* name;
} modes[] = {
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

const Scalar& Find(const std::string& name, const std::vector<std::string>& allowed,
                   const char* what)
{
    if (std::ranges::find(allowed, name) == allowed.end()) {
        throw Failure(Cause::usage,
                      "'" + name + "' cannot be " + what + "; these can: " + Listed(allowed));
    }
    return *std::ranges::find(scalars, name,
                              [](const Scalar& row) { return std::string(row.name); });
}

std::vector<std::string> Names(bool (*wanted)(const Scalar&))
{
    std::vector<std::string> names;
    for (const Scalar& scalar : scalars) {
        if (wanted(scalar)) {
            names.emplace_back(scalar.name);
        }
    }
    return names;
}

int ParseNumber(const std::string& text)
{
    const std::string wrong = CheckNumber(text);
    if (!wrong.empty()) {
        throw Failure(Cause::usage, wrong);
    }
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 0));
}

int Ask(const Scalar& scalar)
{
    return Request([get = scalar.get] { return get(); }).result;
}

std::string Text(const Scalar& scalar, int value)
{
    switch (scalar.kind) {
    case Kind::flag:
        return value != 0 ? "yes" : "no";
    case Kind::mode:
        return ModeText(value);
    default:
        return std::to_string(value);
    }
}

/** A mode has its name beside it, so that the number stays one. */
void Add(json& data, const Scalar& scalar, int value)
{
    if (scalar.kind == Kind::flag) {
        data[scalar.name] = value != 0;
    } else {
        data[scalar.name] = value;
    }
    if (scalar.kind == Kind::mode) {
        data["mode-name"] = ModeName(value);
    }
}

Action Get(CLI::App& verb)
{
    const auto name = std::make_shared<std::string>();
    verb.add_option("NAME", *name, "Which value")->required()->type_name("READABLE");
    verb.footer(ScalarHelp());
    return [name] {
        const Scalar& scalar = Find(*name, ReadableNames({}), "read");
        const int value = Ask(scalar);
        json data;
        Add(data, scalar, value);
        Print(data, {{Text(scalar, value)}});
    };
}

Action Set(CLI::App& verb)
{
    struct Given
    {
        std::string name, value;
    };
    const auto given = std::make_shared<Given>();
    verb.add_option("NAME", given->name, "Which value")->required()->type_name("SETTABLE");
    verb.add_option("VALUE", given->value, "What to")->required()->type_name("SETTING");
    verb.footer(ScalarHelp());
    return [given] {
        const Scalar& scalar = Find(given->name, SettableNames({}), "set");
        const int value =
            scalar.kind == Kind::mode ? ParseMode(given->value) : ParseNumber(given->value);
        const int result = Request([set = scalar.set, value] { return set(value); }).result;
        if (result < 0) {
            throw Failure::For(Cause::refused, given->name + " " + given->value + " (result " +
                                                   std::to_string(result) + ")");
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
        for (const Scalar& scalar : scalars) {
            if (scalar.get == nullptr) {
                continue;
            }
            data[scalar.name] = nullptr;
            rows.push_back({scalar.name, "-"});
            try {
                const int value = Ask(scalar);
                Add(data, scalar, value);
                rows.back()[1].text = Text(scalar, value);
            } catch (const Failure& thrown) {
                failure = thrown;
                // Only a value that was refused or late by itself says nothing of the next.
                if (abandoned ||
                    (thrown.cause != Cause::refused && thrown.cause != Cause::noAnswer)) {
                    break;
                }
            }
        }
        if (!failure) {
            return Print(data, rows);
        }
        if (!asJson) {
            PrintRows(rows);
        }
        throw Failure(failure->cause, failure->what(), data);
    };
}

Action Modes(CLI::App& verb)
{
    const auto sids = std::make_shared<bool>(false);
    verb.add_flag("--sid", *sids, "With the identifiers of their display strings");
    return [sids] {
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
            if (*sids) {
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

std::string CheckNumber(const std::string& text)
{
    errno = 0;
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 0);
    const bool whole = !text.empty() && *end == '\0' && errno == 0;
    return whole && value >= INT_MIN && value <= INT_MAX
               ? ""
               : "'" + text + "' is not a whole number of 32 bits";
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
    const auto* found = std::ranges::find(modes, mode, [](const auto& row) { return row.mode; });
    return found == std::end(modes) ? "" : found->name;
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
    const auto* found =
        std::ranges::find(modes, name, [](const auto& row) { return std::string(row.name); });
    if (found != std::end(modes)) {
        return found->mode;
    }
    if (!CheckNumber(text).empty()) {
        throw Failure(Cause::usage, "there is no mode '" + text + "'; it is a number, or one of " +
                                        Listed(ModeNames({})));
    }
    return ParseNumber(text);
}

std::vector<std::string> ReadableNames(const std::vector<std::string>& /*before*/)
{
    return Names([](const Scalar& scalar) { return scalar.get != nullptr; });
}

std::vector<std::string> SettableNames(const std::vector<std::string>& /*before*/)
{
    return Names([](const Scalar& scalar) { return scalar.set != nullptr; });
}

std::vector<std::string> ModeNames(const std::vector<std::string>& /*before*/)
{
    std::vector<std::string> names;
    for (const auto& row : modes) {
        names.emplace_back(row.name);
    }
    return names;
}

std::vector<std::string> SettingsOf(const std::vector<std::string>& before)
{
    return before.back() == "mode" ? ModeNames({}) : std::vector<std::string>();
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
