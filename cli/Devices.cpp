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
using Bytes = std::vector<unsigned char>;

/** A level as a bar to the left or right of the middle. */
std::string Bar(int64_t level, int64_t highest)
{
    constexpr int half = 20;
    const auto length = static_cast<size_t>(std::abs(level) * half / highest);
    std::string bar(half, ' ');
    bar += '|';
    return level < 0 ? bar.replace(half - length, length, length, '#') : bar.append(length, '#');
}

std::vector<int> ReadLevels()
{
    const auto levels = Request(
        [] {
            std::vector<int> read(ZAV_MAX_LEVELS);
            int* buffer = read.data();
            int count = 0;
            GetEqualizerLevel(&buffer, &count); // the export, which keeps to the room there is
            read.resize(static_cast<size_t>(count));
            return read;
        },
        Step::returned);
    if (levels.result.empty()) {
        throw Failure(Cause::refused, "ZAVService answered without equalizer levels");
    }
    return levels.result;
}

void ShowLevels()
{
    const std::vector<int> levels = ReadLevels();
    int64_t highest = 10;
    for (const int64_t level : levels) {
        highest = std::max(highest, std::abs(level));
    }
    std::vector<Row> rows;
    for (const int level : levels) {
        rows.push_back({std::to_string(rows.size() + 1), std::to_string(level)});
        if (OnTerminal()) {
            rows.back().emplace_back(Bar(level, highest));
        }
    }
    Print({{"levels", levels}}, rows);
}

/** The service does not answer to levels: what came of them is read back. */
void SetLevels(const std::vector<int>& levels)
{
    Request([sent = levels]() mutable {
        Api::SetEqualizerLevel(sent.data(), static_cast<int>(sent.size()));
        return true;
    });
    if (ReadLevels() != levels) {
        throw Failure::For(Cause::refused, "it has other levels than these");
    }
    Print({{"levels", levels}}, {});
}

Action Equalizer(CLI::App& verb)
{
    static std::vector<int> levels;
    verb.add_option("LEVEL", levels, "One for each band")->check(CheckNumber, "");
    return [] { levels.empty() ? ShowLevels() : SetLevels(levels); };
}

/** The text that a record begins with. */
std::string Text(const SCLSpkInfo& speaker)
{
    const auto* head = reinterpret_cast<const char*>(speaker.opaque1);
    return {head, strnlen(head, sizeof speaker.opaque1)};
}

Action Speakers(CLI::App& /*verb*/)
{
    return [] {
        const auto speakers = Request(
            [] {
                std::vector<SCLSpkInfo> list;
                const int count = Api::GetSCL(list);
                return std::pair(count, list);
            },
            Step::listed);
        const auto& [count, records] = speakers.result;
        if (count < 0) {
            throw Failure(Cause::refused, "ZAVService answered without speaker records");
        }
        json list = json::array();
        std::vector<Row> rows;
        for (const SCLSpkInfo& speaker : records) {
            const int type = speaker.m_Connecttype;
            list.push_back({{"connect-type", type}, {"text", Text(speaker)}});
            rows.push_back({std::to_string(list.size()), std::to_string(type), Text(speaker)});
        }
        Print({{"speakers", list}}, rows);
    };
}

/** Makes a request that is answered with whether it was accepted; only the log tells. */
template <class Call>
void RequestAcceptance(Call call)
{
    const auto answer = Request([call] {
        call();
        return true;
    });
    if (answer.number == 0) {
        throw Failure(Cause::refused, "ZAVService did not accept it");
    }
}

using Device = commonTunnel_external_id_e;

int id = COMMON_TUNNEL_EXTERNAL_ID_DEFAULT; // of each verb for an external device

Device ExternalDevice()
{
    return Device{id};
}

void DeviceOption(CLI::App& verb)
{
    verb.add_option("--id", id, "The external device")->capture_default_str();
}

Action TunnelCapability(CLI::App& verb)
{
    static bool set = false;
    verb.add_option("ID", id, "The external device")->required();
    verb.add_flag("--set", set, "Give the capability");
    return [] {
        if (set) {
            RequestAcceptance([] { Api::SetCapabilityCommonTunnelExternal(ExternalDevice()); });
            return Print({{"id", id}, {"capability", 1}}, {});
        }
        const auto capability = Request([] {
            int read = 0;
            Api::GetCapabilityCommonTunnelExternal(ExternalDevice(), &read);
            return read;
        });
        Print({{"id", id}, {"capability", capability.result}},
              {{"capability", std::to_string(capability.result)}});
    };
}

std::vector<int> numbers; // of each verb that sends bytes

void BytesArgument(CLI::App& verb)
{
    verb.add_option("BYTES", numbers, "0 to 255, also as 0x00 to 0xff")
        ->required()
        ->check(CheckRange(0, 255), "");
}

Action TunnelSend(CLI::App& verb)
{
    BytesArgument(verb);
    DeviceOption(verb);
    return [] {
        // The id goes with a registration, which has to have user data.
        Api::SetDataReceivedFromCommonTunnelExternalcb(ExternalDevice(), nullptr, nullptr, &id);
        RequestAcceptance([bytes = Bytes(numbers.begin(), numbers.end())] {
            Api::SendDataToCommonTunnelExternal(bytes.data(), static_cast<int>(bytes.size()));
        });
        Print({{"id", id}, {"sent", numbers.size()}}, {});
    };
}

Action TunnelStatus(CLI::App& verb)
{
    static struct
    {
        bool came;
        bool connected;
        std::string text;
    } answer;
    DeviceOption(verb);
    return [] {
        Api::SetDataReceivedFromCommonTunnelExternalcb(
            ExternalDevice(),
            [](int connected, char* text, void* /*user*/) {
                answer = {true, connected != 0, {text, strnlen(text, ZAV_TUNNEL_STATUS_TEXT)}};
            },
            nullptr, &answer);
        RequestAcceptance([] { Api::RequestStatusFromCommonTunnelExternal(); });
        WaitUntil("the external device", [] {
            g_usleep(1000);
            g_main_context_iteration(nullptr, FALSE);
            return answer.came;
        });
        Print({{"id", id}, {"connected", answer.connected}, {"text", answer.text}},
              {{"connected", answer.connected ? "yes" : "no"}, {"text", answer.text}});
    };
}

Action Spdif(CLI::App& verb)
{
    BytesArgument(verb);
    return [] {
        RequestAcceptance([bytes = Bytes(numbers.begin(), numbers.end())] {
            Api::DataReceivedFromSpkViaSPDIF(bytes.data(), static_cast<int>(bytes.size()));
        });
        Print({{"sent", std::min<size_t>(numbers.size(), ZAV_MAX_SPDIF_DATA)}}, {});
    };
}

Action InitManager(CLI::App& verb)
{
    static SpeakerManagerState state;
    static std::string mode = "STANDARD";
    static std::vector<int> values;
    const auto add = [&verb](const char* name, int32_t& member, const char* help) {
        verb.add_option(name, member, help)->check(CheckNumber, "")->capture_default_str();
    };
    verb.add_option("--mode", mode, "The sound mode, by number or name")
        ->type_name("MODE")
        ->capture_default_str();
    add("--woofer-level", state.SubWooferLevel, "The sub-woofer's level");
    verb.add_option("--values", values, "Seven values, passed through")
        ->check(CheckNumber, "")
        ->expected(7);
    add("--connection", state.ConnectionStatus, "0 without a sound device");
    verb.add_flag("--woofer-available", state.SubWooferAvailable, "There is a sub-woofer to set");
    verb.add_flag("--equalizer-available", state.EqualizerAvailable, "There is an equalizer");
    add("--state", state.State, "The speaker manager's state");
    add("--features", state.FeatureSupported, "The supported features");
    add("--woofer-connected", state.WooferConnected, "Whether a woofer is connected");
    add("--effects", state.EffectList, "The mask of the modes");
    return [] {
        const int number = state.AudioEffect = ParseMode(mode);
        std::ranges::copy(values, state.ValueArray);
        Request([] { return Api::InitSpeakerManager(&state); });
        Touch(); // the service answers to none of it, but the bus keeps the order
        Print({{"sent", true}, {"mode", number}, {"mode-name", ModeName(number)}}, {{"sent"}});
    };
}

Action Model(CLI::App& verb)
{
    static std::string name;
    verb.add_option("NAME", name, "Such as MODEL_DEFAULT")->required();
    return [] {
        const int code = Api::m_HashModelName(name.c_str());
        if (code == MODEL_NAME_UNKNOWN) {
            throw Failure(Cause::failed, "no device model is called '" + name + "'");
        }
        Print({{"model", name}, {"code", code}}, {{std::to_string(code)}});
    };
}

} // namespace

const Verbs deviceVerbs = {
    {"equalizer", "Show the equalizer levels, or set them", Equalizer},
    {"speakers", "List the networked speakers", Speakers},
    {"tunnel cap", "Show whether an external device has the capability, or give it",
     TunnelCapability},
    {"tunnel send", "Send bytes to an external device", TunnelSend},
    {"tunnel status", "Ask an external device for its status", TunnelStatus},
    {"spdif", "Forward bytes as received from a speaker over S/PDIF; of more than 40 the first 40",
     Spdif},
    {"init-manager", "Send the speaker manager's state to the service", InitManager},
    {"model", "Show the code of a device model's name", Model},
};

} // namespace cli
