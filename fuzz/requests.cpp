// SPDX-License-Identifier: MIT
//
// Requests, registrations and signals in any order, with replies and signals of right and wrong
// types, against a model of what comes of them: results, deliveries, and which end the process.
#include "Criticals.h"
#include "FakeGio.h"
#include "Input.h"
#include "ZAVServiceAPI.h"
#include "ZAVServiceBridgeAPI.h"

#include <csetjmp>
#include <dlfcn.h>
#include <memory>
#include <utility>

using Api = ZAVServiceAPI;

namespace
{

// ---- Where the process must end, the end is noted and the input goes on

sigjmp_buf afterEnd;
bool endIsDue = false;
GVariant* lastChild = nullptr; // what an ended request leaves behind

template <class Call>
[[gnu::noinline]] void Run(bool mustEnd, const Call& call)
{
    if (!mustEnd) {
        return call(); // an end here is a finding by itself
    }
    endIsDue = true;
    if (sigsetjmp(afterEnd, 0) == 0) {
        call();
        Demand(false);
    }
    endIsDue = false;
}

} // namespace

void abort() noexcept
{
    if (endIsDue) {
        siglongjmp(afterEnd, 1);
    }
    Demand(false);
    __builtin_unreachable();
}

GVariant* g_variant_get_child_value(GVariant* value, gsize index)
{
    static const auto real = reinterpret_cast<GVariant* (*)(GVariant*, gsize)>(
        dlsym(RTLD_NEXT, "g_variant_get_child_value"));
    return lastChild = real(value, index);
}

namespace
{

// ---- What an operation meets

/** A reply or a signal's parameters; none: no reply comes, or a signal without parameters. */
struct Body
{
    GVariant* value = nullptr;

    bool Is(const char* type) const
    {
        return value != nullptr && strcmp(g_variant_get_type_string(value), type) == 0;
    }
    int Number(gsize index = 0) const
    {
        g_autoptr(GVariant) member = g_variant_get_child_value(value, index);
        return g_variant_is_of_type(member, G_VARIANT_TYPE_BOOLEAN) ? g_variant_get_boolean(member)
                                                                    : g_variant_get_int32(member);
    }
    std::string Array(gsize index) const
    {
        g_autoptr(GVariant) member = g_variant_get_child_value(value, index);
        const gsize size = g_variant_get_size(member);
        return {static_cast<const char*>(size == 0 ? "" : g_variant_get_data(member)), size};
    }
};

struct Scene
{
    bool refused;
    Body body;

    bool Answered() const { return !refused && body.value != nullptr; }
};

/** Whether it asks the service if it gets its turn. */
using Operation = bool (*)(Input&, const Scene&);

/** A tuple as the bus brings it; long arrays repeat what they begin with. */
GVariant* Sound(const char* type, Input& input)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_TUPLE);
    for (const char* c = type + 1; *c != ')'; ++c) {
        if (*c == 'a') {
            const gsize size = *++c == 'y' ? 1 : sizeof(int);
            const gsize count = input.Take<uint16_t>() % (size == 1 ? 8192 : 256);
            std::string bytes = input.Take(std::min<gsize>(count * size, 64));
            while (bytes.size() < count * size) {
                bytes += bytes;
            }
            g_variant_builder_add_value(
                &builder,
                g_variant_new_fixed_array(size == 1 ? G_VARIANT_TYPE_BYTE : G_VARIANT_TYPE_INT32,
                                          bytes.data(), count, size));
        } else if (*c == 'b') {
            g_variant_builder_add(&builder, "b", input.Byte() & 1);
        } else {
            g_variant_builder_add(&builder, "i", input.Int());
        }
    }
    return g_variant_builder_end(&builder);
}

/** That, or any bytes as one of its types or as a tuple of any type. */
GVariant* TakeBody(Input& input)
{
    static constexpr const char* types[] = {"()",   "(b)",   "(i)",    "(aii)",
                                            "(ay)", "(ayi)", "(ayii)", "(iayi)"};
    const unsigned char choice = input.Byte();
    const char* const known = types[choice % std::size(types)];
    if (choice < 128) {
        g_autoptr(GVariant) value = g_variant_ref_sink(Sound(known, input));
        return fake::CountedReply(g_variant_get_type(value), g_variant_get_data(value),
                                  g_variant_get_size(value));
    }
    const std::string any = choice < 192 ? known : "(" + input.Take(input.Byte() % 32);
    const bool isType = g_variant_is_signature(any.c_str()) != FALSE &&
                        g_variant_type_string_is_valid(any.c_str()) != FALSE;
    const std::string bytes = input.Take(input.Byte());
    return fake::CountedReply(G_VARIANT_TYPE(isType ? any.c_str() : "(v)"), bytes.data(),
                              bytes.size());
}

// ---- Requests for one value

struct Scalar
{
    int (*call)(int value);
    const char* type;
    int refused, unanswered, offset = 0;
};

template <auto Function>
constexpr auto kQuery = [](int) { return static_cast<int>(Function()); };

constexpr Scalar scalars[] = {
    {kQuery<::IsSoundBarConnected>, "(b)", 0, 0},
    {kQuery<::IsAvailableWooferMode>, "(b)", 0, 0},
    {kQuery<::IsAvailableEqualizer>, "(b)", 0, 0},
    {kQuery<::getQCorvalaAvailable>, "(i)", -1, -1},
    {kQuery<::IsFeatureSupported>, "(i)", -4, -4},
    {kQuery<::GetMode>, "(i)", 117, 117, 100},
    {kQuery<::GetWooferLevel>, "(i)", -1, -1},
    {kQuery<::GetWooferState>, "(i)", 0, 0},
    {kQuery<::GetSpeakerSelection>, "(i)", -1, 0},
    {kQuery<::IsZAVReady>, "(i)", -1, -1},
    {[](int mode) { return ::SetMode(AudioEffect{mode}); }, "(i)", -1, -1},
    {::SetWooferLevel, "(i)", -1, -1},
    {::SetEarcToZav, "(i)", -1, -1},
    {::RequestPreTrial, "(i)", -1, -1},
    {::SetSpeakerSelection, "(i)", -1, -1},
    {::SetCorvalaVconf, "(i)", -1, -1},
    {[](int id) {
         int capability = -7;
         Api::GetCapabilityCommonTunnelExternal(commonTunnel_external_id_e{id}, &capability);
         return capability;
     },
     "(i)", -7, -7},
};

bool AskScalar(Input& input, const Scene& scene)
{
    const Scalar& scalar = scalars[input.Byte() % std::size(scalars)];
    int expected = scene.refused ? scalar.refused : scalar.unanswered;
    if (scene.Answered()) {
        const int value = scene.body.Is(scalar.type) ? scene.body.Number() : 0;
        expected =
            static_cast<int>(static_cast<unsigned>(value) + static_cast<unsigned>(scalar.offset));
    }
    Demand(scalar.call(input.Int()) == expected);
    return true;
}

// ---- Lists and records, into memory of exactly the room that they need

bool GetLevels(Input& input, const Scene& scene)
{
    std::vector<int> expected;
    if (!scene.refused && scene.body.Is("(aii)")) {
        const std::string bytes = scene.body.Array(0);
        expected.resize(bytes.size() % sizeof(int) == 0 ? bytes.size() / sizeof(int) : 0);
        bytes.copy(reinterpret_cast<char*>(expected.data()), expected.size() * sizeof(int));
    }
    const bool throughExport = (input.Byte() & 1) != 0;
    const int nothing = throughExport ? 0 : -7;
    int count = -7;
    expected.resize(std::min<size_t>(expected.size(), throughExport ? 100 : SIZE_MAX));
    std::vector<int> levels(expected.size());
    int* out = expected.empty() ? &count + 1 : levels.data();
    throughExport ? ::GetEqualizerLevel(&out, &count) : Api::GetEqualizerLevel(out, &count);
    Demand(count == (expected.empty() ? nothing : static_cast<int>(expected.size())));
    Demand(levels == expected);
    return true;
}

bool GetModes(Input& input, const Scene& scene)
{
    constexpr int modeOfBit[] = {100, 106, 105, 102, 103, 104, 101, 107,
                                 108, 109, 110, 111, 112, 113, 114};
    std::list<AudioEffect> modes;
    if (const unsigned char mode = input.Byte(); mode > 1) {
        modes = {AUDIO_EFFECT_SMART, AudioEffect{mode}};
    }
    std::vector<int> expected(modes.begin(), modes.end());
    if (scene.Answered()) {
        const int mask = scene.body.Is("(i)") ? scene.body.Number() : 0;
        for (size_t bit = 0; bit < std::size(modeOfBit); ++bit) {
            if ((mask >> bit & 1) != 0) {
                expected.push_back(modeOfBit[bit]);
            }
        }
        std::ranges::sort(expected);
        const auto smart = std::ranges::find(expected, 107);
        if ((mask & 0x80) != 0 && smart != expected.begin()) {
            std::rotate(expected.begin() + 1, smart, smart + 1);
        }
    }
    if (modes.empty()) {
        std::vector<int> received(expected.size());
        int* out = received.data();
        int count = -7;
        ::GetModeList(&out, &count);
        Demand(received == expected && count == static_cast<int>(expected.size()));
        return true;
    }
    std::list<std::string> sids;
    Api::GetModeListwithSID(&modes, &sids);
    Demand(std::ranges::equal(expected, modes));
    const auto hasSid = [](int m) { return m >= 100 && m <= 116 && m != 113 && m != 114; };
    Demand(std::cmp_equal(sids.size(), std::ranges::count_if(expected, hasSid)));
    return true;
}

bool GetSpeakers(Input& input, const Scene& scene)
{
    std::string bytes;
    if (scene.Answered() && g_str_has_prefix(g_variant_get_type_string(scene.body.value), "(ay")) {
        bytes = scene.body.Array(0);
    }
    const auto count = bytes.size() / sizeof(SCLSpkInfo);
    const bool mustEnd = count > ZAV_MAX_SPEAKERS;
    const unsigned char choice = input.Byte() % 3;
    std::vector<SCLSpkInfo> list(choice == 0 ? 2 : count);
    int result = -7;
    Run(mustEnd, [&] {
        result = choice == 0   ? Api::GetSCL(list)
                 : choice == 1 ? Api::getSCL(list.data())
                               : ::GetSCL(list.data());
    });
    if (mustEnd) {
        g_variant_unref(lastChild);
        g_variant_unref(scene.body.value);
        fake::FreeLock();
        return true;
    }
    Demand(result == (scene.Answered() && bytes.empty() ? -1 : static_cast<int>(count)));
    Demand(list.size() == (choice == 0 && scene.refused ? 2 : count));
    Demand(count == 0 || memcmp(list.data(), bytes.data(), count * sizeof(SCLSpkInfo)) == 0);
    return true;
}

// ---- What is sent, or asks nobody

/** Bytes for the service, sometimes none or with a length that cannot be. */
struct Data
{
    std::string bytes;
    int length;

    explicit Data(Input& input)
        : bytes(input.Take(input.Byte())),
          length(input.Byte() == 0 ? -1 : static_cast<int>(bytes.size()))
    {
    }
    unsigned char* Start()
    {
        return bytes.empty() ? nullptr : reinterpret_cast<unsigned char*>(bytes.data());
    }
};

constexpr Operation others[] = {
    [](Input&, const Scene& scene) {
        const bool isStandard = !scene.body.Is("(i)") || scene.body.Number() == 0;
        Demand(Api::GetEqualizerState() == (scene.Answered() && isStandard));
        return true;
    },
    [](Input& input, const Scene& scene) {
        const commonTunnel_external_id_e id{input.Int()};
        Demand(Api::SetCapabilityCommonTunnelExternal(id) == (scene.Answered() ? 0 : -1));
        return true;
    },
    [](Input& input, const Scene& scene) {
        Data data(input);
        Demand(Api::SendDataToCommonTunnelExternal(data.Start(), data.length) ==
               (data.length > 0 && !scene.refused));
        return data.length > 0;
    },
    [](Input&, const Scene&) { return Api::RequestStatusFromCommonTunnelExternal(); },
    [](Input& input, const Scene&) {
        Data data(input);
        ::DataReceivedFromSpkViaSPDIF(data.Start(), data.length);
        return data.length > 0;
    },
    [](Input& input, const Scene&) {
        Data data(input);
        std::vector<int> levels(data.bytes.begin(), data.bytes.end());
        ::SetEqualizerLevel(levels.data(), data.length);
        return data.length > 0;
    },
    [](Input& input, const Scene& scene) {
        SpeakerManagerState state;
        memcpy(static_cast<void*>(&state), input.Take(sizeof state).data(), sizeof state);
        Demand(::InitSpeakerManager(state) == (scene.refused ? -1 : 0));
        return true;
    },
    [](Input& input, const Scene&) {
        std::list<AudioEffect> modes;
        Api::popSoundEffectList(&modes, ListSoundEffect{input.Byte()});
        Demand(std::ranges::is_sorted(modes) && modes.size() <= 7);
        const int code = Api::m_HashModelName(input.Take(input.Byte() % 32).c_str());
        Demand(code >= 0 && code <= MODEL_NAME_UNKNOWN);
        return false;
    },
    [](Input&, const Scene&) {
        ::FiniDbusConnection();
        Demand(::get_size_of_SpeakerManagerState() == 60);
        Demand(Api::proxy == nullptr || ::InitDbusConnection() == 0);
        return false;
    },
};

bool DoOther(Input& input, const Scene& scene)
{
    return others[input.Byte() % std::size(others)](input, scene);
}

// ---- Callbacks, and what they heard

std::string heard;

void Hear(const std::string& what, const void* data, size_t size, const void* user = &heard)
{
    Demand(user == &heard);
    heard = what + std::string(static_cast<const char*>(data), size);
}

constexpr ZAVCallBack onSignal = [] { heard = "signal"; };
constexpr ZAVCallBack onDisconnect = [] { heard = "disconnect"; };
constexpr ZAVCallBack1 onSpdif = [](const void* data, void* user) { Hear("", data, 44, user); };
constexpr extspk_sound_mode_changed_cb onMode = [](int mode, void* user) {
    Hear(std::to_string(mode), "", 0, user);
};
constexpr ZavConnectedCallBack onConnected = [](int connected, char* text, void* user) {
    Hear(connected == 1 ? "connected" : "gone", text, 18, user);
};
constexpr ZavDataReceivedCallBack onData = [](unsigned char* data, int length, void* user) {
    Hear("data", data, static_cast<size_t>(length), user);
};
constexpr ZAVCsharpCallback onEvent = [](int event, void* data, int count) {
    const void* bytes = nullptr;
    memcpy(&bytes, data, sizeof bytes);
    Hear(std::to_string(event), bytes == nullptr ? "" : bytes, static_cast<size_t>(count));
};

/** Sets a slot, or clears it where that can be. */
bool Register(Input& input, const Scene& scene)
{
    const unsigned char choice = input.Byte();
    const bool set = (choice & 1) == 0;
    switch (choice / 2 % 8) {
    case 0:
        ::SignalSubscribe(set ? onSignal : nullptr);
        Demand(Api::CallBackFunc == (set ? onSignal : nullptr));
        break;
    case 1:
        ::DisconnectSignalSubscribe(set ? onDisconnect : nullptr);
        break;
    case 2:
        Demand(::SetSendDataToSpkViaSPDIFcb(set ? onSpdif : nullptr, &heard) == (set ? 1 : 0));
        break;
    case 3:
        Demand(::UnSetSendDataToSpkViaSPDIFcb() == 1);
        break;
    case 4:
        ::ExtSpkSetSoundModeChangedCb(set ? onMode : nullptr, &heard);
        break;
    case 5: {
        const commonTunnel_external_id_e id{input.Byte() % 32};
        Demand(Api::SetDataReceivedFromCommonTunnelExternalcb(
            id, set ? onConnected : nullptr, (input.Byte() & 1) != 0 ? onData : nullptr, &heard));
        break;
    }
    case 6:
        ::ALLSignalUnSubscribe();
        break;
    default:
        if (set) {
            Demand(::SubscribeZAVCSharpCallback(onEvent) == !scene.refused);
        } else {
            ::UnsubscribeZAVCSharpCallback();
        }
    }
    return false;
}

/** What is to be heard of a signal; in `end` whether it ends the process instead. */
std::string Delivered(std::string_view member, const Body& body, bool& end)
{
    if (member == "InvokeSignalHandler") {
        return Api::CallBackFunc != nullptr ? "signal" : "";
    }
    if (member == "DisconnectSignalHandler") {
        return Api::DisconnectCallBackFunc != nullptr ? "disconnect" : "";
    }
    if (member == "SetCbSoundModeChange" && body.Is("(i)")) {
        return Api::Sound_mode_changed_cb != nullptr ? std::to_string(body.Number()) : "";
    }
    if (member == "notifyZAVCsharpCallback" && body.Is("(iayi)")) {
        end = body.Array(1).size() > 550;
        return Api::CSharpCallbackFunction != nullptr
                   ? std::to_string(body.Number()) + body.Array(1)
                   : "";
    }
    if (member == "sendDataViaSpdif" && body.Is("(ayi)")) {
        std::string bytes = body.Array(0);
        end = bytes.size() > 44;
        bytes.resize(44);
        return Api::SendDataToSpkViaSPDIF_cb != nullptr ? bytes : "";
    }
    if (member == "receiveExternalDataViaCommonTunnel" && body.Is("(ayii)")) {
        const std::string bytes = body.Array(0);
        const bool isListenedTo = body.Number(2) == Api::ReceiveExternalDataViaCommonTunnel_id;
        if (bytes.empty() || !(isListenedTo || body.Number(2) == 16)) {
            return "";
        }
        end = bytes.size() > 44;
        if (bytes.size() == 20 && bytes[0] == 'q' &&
            Api::ReceiveExternalDataViaCommonTunnel_connected_cb != nullptr) {
            return (bytes[1] != 0 ? "connected" : "gone") + bytes.substr(2);
        }
        if (bytes.size() <= 40 && isListenedTo &&
            Api::ReceiveExternalDataViaCommonTunnel_data_cb != nullptr) {
            return "data" + bytes;
        }
    }
    return "";
}

bool Signal(Input& input, const Scene& scene)
{
    const auto& [member, handler] = fake::subscriptions[input.Byte() % fake::subscriptions.size()];
    bool mustEnd = false;
    const std::string expected = Delivered(member, scene.body, mustEnd);
    heard.clear();
    Run(mustEnd, [h = handler, &scene] {
        h(nullptr, nullptr, nullptr, nullptr, nullptr, scene.body.value, nullptr);
    });
    Demand(heard == (mustEnd ? "" : expected));
    return false;
}

// ----

/** Afterwards nothing is held, and the service was asked once, or never as it must be. */
void Step(Input& input)
{
    constexpr Operation operations[] = {AskScalar, GetLevels, GetModes, GetSpeakers,
                                        DoOther,   Register,  Signal};
    enum
    {
        silent = 252,
        notConnected,
        nearlyBusy,
        busy
    };
    const Operation operation = operations[input.Byte() % std::size(operations)];
    const unsigned char circumstance = input.Byte();
    GDBusProxy* const proxy = Api::proxy;
    Api::proxy = circumstance == notConnected ? nullptr : proxy;
    fake::lockFailures = circumstance == busy ? 100 : circumstance == nearlyBusy ? 99 : 0;
    fake::replyValue = circumstance == silent ? nullptr : TakeBody(input);
    const Scene scene = {circumstance == notConnected || circumstance == busy, {fake::replyValue}};

    const bool asks = operation(input, scene);
    int asked = 0;
    for (const std::string& action : fake::TakeActions()) {
        Demand(!action.ends_with("without the lock"));
        asked += action.starts_with("call ") || action.starts_with("send ") ? 1 : 0;
    }
    Demand(asked == (asks && !scene.refused ? 1 : 0));
    Api::proxy = proxy;
    g_clear_pointer(&fake::replyValue, g_variant_unref);
    Demand(fake::AllReleased());
}

/** As before any registration. */
void ClearSlots()
{
    ::ALLSignalUnSubscribe();
    ::UnsubscribeZAVCSharpCallback();
    Api::Sound_mode_changed_cb = nullptr;
    Api::ReceiveExternalDataViaCommonTunnel_id = COMMON_TUNNEL_EXTERNAL_ID_DEFAULT;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    fake::Reset();
    Demand(::InitDbusConnection() == 0);
    ClearSlots();
    fake::TakeActions();
    Input input(data, size);
    for (int step = 0; step < 16 && !input.IsEmpty(); ++step) {
        Step(input);
    }
    return 0;
}
