// SPDX-License-Identifier: MIT
#include "Scalars.h"

#include "Request.h"
#include "Verbs.h"
#include "ZAVServiceAPI.h"

#include <algorithm>
#include <charconv>
#include <iomanip>
#include <map>
#include <numeric>
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

/** From AUDIO_EFFECT_STANDARD on. */
constexpr const char* modeNames[] = {
    "STANDARD",
    "MUSIC",
    "CLEAR_VOICE",
    "SPORTS",
    "MOVIE",
    "NIGHT",
    "SURROUND",
    "SMART",
    "GAME",
    "ADAPTIVE",
    "DTS_VIRTUAL_X",
    "BASS_BOOST",
    "ADAPTIVE_SOUND_PLUS",
    "UNLABELLED_1",
    "UNLABELLED_2",
    "SOUNDBAR_1",
    "SOUNDBAR_2",
};

/** How many letters to insert, remove or replace to get from one to the beginning of the other. */
size_t Distance(const std::string& from, const std::string& to)
{
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
        }
    }
    return *std::ranges::min_element(row);
}

std::string Nearest(const std::string& name, std::vector<std::string> names)
{
    std::ranges::stable_sort(names, {}, [&name](const auto& one) { return Distance(name, one); });
    return names.at(0) + ", " + names.at(1) + ", " + names.at(2);
}

const Scalar& Find(const std::string& name, const std::vector<std::string>& allowed)
{
    if (std::ranges::find(allowed, name) == allowed.end()) {
        throw Failure(Cause::usage, "there is no value '" + name + "' for this; the nearest are " +
                                        Nearest(name, allowed));
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

int ParseInt(const std::string& text)
{
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw Failure(Cause::usage, "'" + text + "' is not a number of 32 bits");
    }
    return value;
}

int Ask(const Scalar& scalar)
{
    int value = 0;
    Request([&] { value = scalar.get(); });
    return value;
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

} // namespace

std::string ModeName(int mode)
{
    const int index = mode - AUDIO_EFFECT_STANDARD;
    return index >= 0 && index < std::ssize(modeNames) ? modeNames[index] : "";
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
        std::ranges::find(modeNames, name, [](const char* one) { return std::string(one); });
    if (found != std::end(modeNames)) {
        return static_cast<int>(found - modeNames) + AUDIO_EFFECT_STANDARD;
    }
    if (std::ranges::any_of(text, [](unsigned char c) { return std::isalpha(c); })) {
        throw Failure(Cause::usage, "there is no mode '" + text + "'; the nearest are " +
                                        Nearest(name, ModeNames()));
    }
    return ParseInt(text);
}

std::vector<std::string> GetterNames()
{
    return Names([](const Scalar& scalar) { return scalar.get != nullptr; });
}

std::vector<std::string> SetterNames()
{
    return Names([](const Scalar& scalar) { return scalar.set != nullptr; });
}

std::vector<std::string> ModeNames()
{
    return {std::begin(modeNames), std::end(modeNames)};
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

int Get(const Options& options)
{
    const Scalar scalar = Find(options.name, GetterNames());
    const int value = Ask(scalar);
    json data;
    Add(data, scalar, value);
    Print(options.json, data, {{Text(scalar, value)}});
    return 0;
}

int Set(const Options& options)
{
    const Scalar scalar = Find(options.name, SetterNames());
    const int value =
        scalar.kind == Kind::mode ? ParseMode(options.value) : ParseInt(options.value);
    int result = 0;
    Request([&] { result = scalar.set(value); });
    if (result < 0) {
        throw Failure(Cause::refused, "ZAVService refused " + options.name + " " + options.value +
                                          " (result " + std::to_string(result) + ")");
    }
    json data;
    Add(data, scalar, value);
    data["result"] = result;
    Print(options.json, data, {});
    return 0;
}

int Status(const Options& options)
{
    json data;
    std::vector<Row> rows;
    std::optional<Failure> refused; // one value is; the others are shown none the less
    for (const Scalar& scalar : scalars) {
        if (scalar.get == nullptr) {
            continue;
        }
        try {
            const int value = Ask(scalar);
            Add(data, scalar, value);
            rows.push_back({scalar.name, Text(scalar, value)});
        } catch (const Failure& failure) {
            if (failure.cause != Cause::refused) {
                throw;
            }
            refused = failure;
            data[scalar.name] = nullptr;
            rows.push_back({scalar.name, "-"});
        }
    }
    if (refused && options.json) {
        return Report(*refused, true, data);
    }
    Print(options.json, data, rows);
    return refused ? Report(*refused, false) : 0;
}

int Modes(const Options& options)
{
    std::list<AudioEffect> modes;
    Request([&] { Api::GetModeList(&modes); });
    json list = json::array();
    std::vector<Row> rows;
    for (const AudioEffect mode : modes) {
        rows.push_back({std::to_string(mode), ModeName(mode)});
        list.push_back({{"mode", static_cast<int>(mode)}, {"mode-name", ModeName(mode)}});
        if (options.flag) {
            std::list<AudioEffect> one{mode};
            std::list<std::string> sid;
            Api::popSIDList(&sid, &one); // one by one: a mode without one adds none
            rows.back().push_back(sid.empty() ? "-" : sid.front());
            list.back()["sid"] = sid.empty() ? json() : json(sid.front());
        }
    }
    Print(options.json, {{"modes", list}}, rows);
    return 0;
}

} // namespace cli
