// SPDX-License-Identifier: MIT
//
// The verbs for equalizer, speakers, external devices and the speaker manager.
#include "Request.h"
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
std::string Bar(int64_t level, int64_t furthest)
{
    constexpr int half = 20;
    const auto length = static_cast<size_t>(std::abs(level) * half / furthest);
    std::string bar(half, ' ');
    bar += '|';
    return level < 0 ? bar.replace(half - length, length, length, '#') : bar.append(length, '#');
}

std::vector<int> ReadLevels()
{
    std::vector<int> levels = Request(
        [] {
            std::vector<int> read(ZAV_MAX_LEVELS);
            int* buffer = read.data();
            int count = 0;
            GetEqualizerLevel(&buffer, &count); // the export, which keeps to the room there is
            read.resize(static_cast<size_t>(count));
            return read;
        },
        Step::returned);
    if (levels.empty()) {
        throw Failure(Cause::kRefused, "ZAVService answered without equalizer levels");
    }
    return levels;
}

void ShowLevels()
{
    const std::vector<int> levels = ReadLevels();
    const auto [lowest, highest] = std::ranges::minmax(levels);
    const auto furthest = std::max<int64_t>({10, highest, -int64_t{lowest}});
    std::vector<Row> rows;
    for (const int level : levels) {
        rows.push_back({rows.size() + 1, level});
        if (OnTerminal()) {
            rows.back().emplace_back(Bar(level, furthest));
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
        throw Failure::For(Cause::kRefused, "it has other levels than these");
    }
    Print({{"levels", levels}}, {});
}

Action Equalizer(CLI::App& verb)
{
    static std::vector<int> levels;
    verb.add_option("LEVEL", levels, "One for each band")->check(WholeNumber(), "");
    return [] { levels.empty() ? ShowLevels() : SetLevels(levels); };
}

Action Speakers(CLI::App& /*verb*/)
{
    return [] {
        const auto [count, speakers] = Request(
            [] {
                std::vector<SCLSpkInfo> read;
                const int size = Api::GetSCL(read);
                return std::pair(size, read);
            },
            Step::listed);
        if (count < 0) {
            throw Failure(Cause::kRefused, "ZAVService answered without speaker records");
        }
        json list = json::array();
        std::vector<Row> rows;
        for (const SCLSpkInfo& speaker : speakers) {
            const auto* text = reinterpret_cast<const char*>(speaker.opaque1);
            list.push_back({{"connect-type", int{speaker.m_Connecttype}},
                            {"text", std::string(text, strnlen(text, sizeof speaker.opaque1))}});
            rows.push_back(Values(list.back(), {list.size()}));
        }
        Print({{"speakers", list}}, rows);
    };
}

/** Makes a request that is answered with whether it was accepted; only the log tells. */
template <class Call>
void RequestAcceptance(Call call)
{
    const int accepted = Request([call] {
        call();
        return EndOfRequest(Step::answered);
    });
    if (accepted == 0) {
        throw Failure(Cause::kRefused, "ZAVService did not accept it");
    }
}

commonTunnel_external_id_e id = COMMON_TUNNEL_EXTERNAL_ID_DEFAULT; // of each verb for a device

void DeviceOption(CLI::App& verb)
{
    verb.add_option("--id", id, "The external device")->type_name("INT")->capture_default_str();
}

Action TunnelCapability(CLI::App& verb)
{
    static bool set = false;
    verb.add_option("ID", id, "The external device")->type_name("INT")->required();
    verb.add_flag("--set", set, "Give the capability");
    return [] {
        if (set) {
            RequestAcceptance([] { Api::SetCapabilityCommonTunnelExternal(id); });
            return Print({{"id", id}, {"capability", 1}}, {});
        }
        const int capability = Request([] {
            int read = 0;
            Api::GetCapabilityCommonTunnelExternal(id, &read);
            return read;
        });
        Print({{"id", id}, {"capability", capability}}, {{"capability", capability}});
    };
}

std::vector<int> numbers; // of each verb that sends bytes

void BytesArgument(CLI::App& verb)
{
    verb.add_option("BYTES", numbers, "0 to 255, also as 0x00 to 0xff")
        ->required()
        ->check(WholeNumber(0, 255), "");
}

Action TunnelSend(CLI::App& verb)
{
    BytesArgument(verb);
    DeviceOption(verb);
    return [] {
        // The id goes with a registration, which has to have user data.
        Api::SetDataReceivedFromCommonTunnelExternalcb(id, nullptr, nullptr, &id);
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
            id,
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
              {{"connected", answer.connected}, {"text", answer.text}});
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
        verb.add_option(name, member, help)->check(WholeNumber(), "")->capture_default_str();
    };
    verb.add_option("--mode", mode, "The sound mode, by number or name")
        ->type_name("MODE")
        ->capture_default_str();
    add("--woofer-level", state.SubWooferLevel, "The sub-woofer's level");
    verb.add_option("--values", values, "Seven values, passed through")
        ->check(WholeNumber(), "")
        ->expected(7);
    add("--connection", state.ConnectionStatus, "0 without a sound device");
    verb.add_flag("--woofer-available", state.SubWooferAvailable, "There is a sub-woofer to set");
    verb.add_flag("--equalizer-available", state.EqualizerAvailable, "There is an equalizer");
    add("--state", state.State, "The speaker manager's state");
    add("--features", state.FeatureSupported, "The supported features");
    add("--woofer-connected", state.WooferConnected, "Whether a woofer is connected");
    add("--effects", state.EffectList, "The mask of the modes");
    return [] {
        state.AudioEffect = ParseMode(mode);
        std::ranges::copy(values, state.ValueArray);
        Request([] { return Api::InitSpeakerManager(&state); });
        Touch(); // the service answers to none of it, but the bus keeps the order
        json data = {{"sent", true}};
        data.update(DescribeMode(state.AudioEffect));
        Print(data, {{"sent"}});
    };
}

Action Model(CLI::App& verb)
{
    static std::string name;
    verb.add_option("NAME", name, "Such as MODEL_DEFAULT")->required();
    return [] {
        const int code = Api::m_HashModelName(name.c_str());
        if (code == MODEL_NAME_UNKNOWN) {
            throw Failure(Cause::kFailed, "no device model is called '" + name + "'");
        }
        Print({{"model", name}, {"code", code}}, {{code}});
    };
}

} // namespace

const Verbs kDeviceVerbs = {
    {"equalizer", "Show the equalizer levels, or set them", Equalizer},
    {"speakers", "List the networked speakers", Speakers},
    {"tunnel", "Talk to external devices through the tunnel"},
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
