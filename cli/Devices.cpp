// SPDX-License-Identifier: MIT
//
// The verbs for equalizer, speakers, external devices and the speaker manager.
#include "Request.h"
#include "Scalars.h"
#include "Verbs.h"
#include "ZAVServiceAPI.h"
#include "ZAVServiceBridgeAPI.h"

#include <algorithm>
#include <cstring>

namespace cli
{

namespace
{

using Api = ZAVServiceAPI;

/** A level as a bar to the left or right of the middle. */
std::string Bar(int64_t level, int64_t highest)
{
    constexpr int half = 20;
    const auto length = static_cast<size_t>(std::abs(level) * half / highest);
    std::string bar(half, ' ');
    bar += '|';
    return level < 0 ? bar.replace(half - length, length, length, '#') : bar.append(length, '#');
}

int ShowEqualizer(const Options& options)
{
    // The C function hands on what there is room for; the method all that the service sends.
    std::vector<int> levels(ZAV_MAX_LEVELS);
    int* room = levels.data();
    int count = 0;
    Request([&] { ::GetEqualizerLevel(&room, &count); });
    if (count == 0) {
        throw Failure(Cause::refused, "ZAVService answered without equalizer levels");
    }
    levels.resize(static_cast<size_t>(count));

    int64_t highest = 10;
    for (const int64_t level : levels) {
        highest = std::max(highest, std::abs(level));
    }
    std::vector<Row> rows;
    for (const int level : levels) {
        rows.push_back({std::to_string(rows.size() + 1), std::to_string(level)});
        if (OnTerminal()) {
            rows.back().push_back(Bar(level, highest));
        }
    }
    Print(options.json, {{"levels", levels}}, rows);
    return 0;
}

int SetEqualizer(const Options& options)
{
    std::vector<int> levels = options.numbers;
    Request([&] { Api::SetEqualizerLevel(levels.data(), static_cast<int>(levels.size())); });
    Deliver();
    Print(options.json, {{"levels", levels}}, {});
    return 0;
}

std::vector<unsigned char> Bytes(const Options& options)
{
    return {options.numbers.begin(), options.numbers.end()};
}

/** What the service answered is told by the log alone. */
void RequireAccepted(std::optional<int> answer)
{
    if (answer == 0) {
        throw Failure(Cause::refused, "ZAVService did not accept it");
    }
}

/** The text at the beginning of a record, if it begins with one. */
std::string Text(const SCLSpkInfo& speaker)
{
    const std::string head(reinterpret_cast<const char*>(speaker.opaque1), sizeof speaker.opaque1);
    const auto end = std::ranges::find_if(
        head, [](char c) { return !std::isprint(static_cast<unsigned char>(c)); });
    return {head.begin(), end};
}

struct TunnelAnswer
{
    bool came = false;
    bool connected = false;
    std::string text;
};

void OnTunnelStatus(int connected, char* text, void* answer)
{
    constexpr size_t length = 18;
    *static_cast<TunnelAnswer*>(answer) = {true, connected != 0,
                                           std::string(text, strnlen(text, length))};
}

commonTunnel_external_id_e Device(const Options& options)
{
    return static_cast<commonTunnel_external_id_e>(options.id);
}

} // namespace

int Equalizer(const Options& options)
{
    return options.numbers.empty() ? ShowEqualizer(options) : SetEqualizer(options);
}

int Speakers(const Options& options)
{
    std::vector<SCLSpkInfo> speakers;
    int count = 0;
    Request([&] { count = Api::GetSCL(speakers); });
    if (count < 0) {
        throw Failure(Cause::refused, "ZAVService answered without speaker records");
    }
    json list = json::array();
    std::vector<Row> rows;
    for (const SCLSpkInfo& speaker : speakers) {
        const int type = speaker.m_Connecttype;
        list.push_back({{"connect-type", type}, {"text", Text(speaker)}});
        rows.push_back({std::to_string(list.size()), std::to_string(type), Text(speaker)});
    }
    Print(options.json, {{"speakers", list}}, rows);
    return 0;
}

int TunnelCapability(const Options& options)
{
    int capability = 1;
    if (options.flag) {
        RequireAccepted(Request([&] { Api::SetCapabilityCommonTunnelExternal(Device(options)); }));
        Print(options.json, {{"id", options.id}, {"capability", capability}}, {});
        return 0;
    }
    Request([&] { Api::GetCapabilityCommonTunnelExternal(Device(options), &capability); });
    Print(options.json, {{"id", options.id}, {"capability", capability}},
          {{"capability", std::to_string(capability)}});
    return 0;
}

int TunnelSend(const Options& options)
{
    const auto bytes = Bytes(options);
    int listener = 0; // the id goes with a registration, which has to have user data
    Api::SetDataReceivedFromCommonTunnelExternalcb(Device(options), nullptr, nullptr, &listener);
    RequireAccepted(Request([&] {
        Api::SendDataToCommonTunnelExternal(bytes.data(), static_cast<int>(bytes.size()));
    }));
    Print(options.json, {{"id", options.id}, {"sent", bytes.size()}}, {});
    return 0;
}

int TunnelStatus(const Options& options)
{
    static TunnelAnswer answer; // signals may come as long as the process lives
    Api::SetDataReceivedFromCommonTunnelExternalcb(Device(options), OnTunnelStatus, nullptr,
                                                   &answer);
    RequireAccepted(Request([] { Api::RequestStatusFromCommonTunnelExternal(); }));
    bool late = false;
    g_timeout_add_seconds(
        5, [](gpointer flag) -> gboolean { return !(*static_cast<bool*>(flag) = true); }, &late);
    while (!answer.came && !late) {
        g_main_context_iteration(nullptr, TRUE);
    }
    if (!answer.came) {
        throw Failure(Cause::noAnswer, "the external device sent no status in time");
    }
    Print(options.json,
          {{"id", options.id}, {"connected", answer.connected}, {"text", answer.text}},
          {{"connected", answer.connected ? "yes" : "no"}, {"text", answer.text}});
    return 0;
}

int Spdif(const Options& options)
{
    const auto bytes = Bytes(options);
    RequireAccepted(Request(
        [&] { Api::DataReceivedFromSpkViaSPDIF(bytes.data(), static_cast<int>(bytes.size())); }));
    Print(options.json, {{"sent", std::min<size_t>(bytes.size(), 40)}}, {});
    return 0;
}

int InitManager(const Options& options)
{
    SpeakerManagerState state = options.state;
    state.AudioEffect = ParseMode(options.mode);
    std::ranges::copy(options.numbers, state.ValueArray);
    Request([&] { Api::InitSpeakerManager(&state); });
    Deliver();
    Print(options.json, {{"mode", state.AudioEffect}, {"mode-name", ModeName(state.AudioEffect)}},
          {});
    return 0;
}

int Model(const Options& options)
{
    const int code = Api::m_HashModelName(options.name.c_str());
    if (code == MODEL_NAME_UNKNOWN) {
        throw Failure(Cause::failed, "no device model is called '" + options.name + "'");
    }
    Print(options.json, {{"model", options.name}, {"code", code}}, {{std::to_string(code)}});
    return 0;
}

} // namespace cli
