// SPDX-License-Identifier: MIT
#include "ZavService.h"

#include "ZAVServiceTypes.h"
#include "zav-interfaces.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <functional>
#include <map>
#include <span>
#include <stdexcept>

namespace
{

struct Range
{
    int lowest;
    int highest;
    [[nodiscard]] bool Holds(int value) const { return value >= lowest && value <= highest; }
};

constexpr Range kModes = {0, 16};
constexpr Range kWooferLevels = {-6, 6};
constexpr Range kEqualizerLevels = {-10, 10};
constexpr Range kSelections = {0, 7};
constexpr Range kOffOn = {0, 1};
constexpr int kFirstManagerMode = 100; // InitSpeakerManager's number for mode 0
constexpr guint8 kStatusRequest = 's';
constexpr size_t kSpeakerRecordSize = sizeof(SCLSpkInfo);
constexpr size_t kConnectTypeOffset = offsetof(SCLSpkInfo, m_Connecttype);
constexpr int kWooferLevelEvent = 1;

GVariant* NewBytes(std::span<const guint8> bytes)
{
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1);
}

/** The elements of the array that is the first argument; they live as long as the arguments. */
template <class T>
std::span<const T> FirstArray(GVariant* args)
{
    const Variant array = Hold(g_variant_get_child_value(args, 0));
    gsize size = 0;
    const auto* elements =
        static_cast<const T*>(g_variant_get_fixed_array(array.get(), &size, sizeof(T)));
    return {elements, size};
}

int FirstInt(GVariant* args)
{
    int value = 0;
    g_variant_get_child(args, 0, "i", &value);
    return value;
}

bool Put(int& field, int value, Range range)
{
    if (!range.Holds(value)) {
        return false;
    }
    field = value;
    return true;
}

using Handler = std::function<GVariant*(ZavService&, GVariant*)>;

Handler Get(const char* reply, int ZavService::*field)
{
    return [=](ZavService& service, GVariant*) { return g_variant_new(reply, service.*field); };
}

Handler Set(int ZavService::*field, Range range)
{
    return [=](ZavService& service, GVariant* args) {
        return g_variant_new("(i)", Put(service.*field, FirstInt(args), range) ? 0 : -1);
    };
}

GVariant* GetEqualizerLevel(ZavService& service, GVariant* /*args*/)
{
    const auto& levels = service.equalizer;
    return g_variant_new("(@aii)",
                         g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, levels.data(),
                                                   levels.size(), sizeof levels[0]),
                         static_cast<int>(levels.size()));
}

GVariant* SetEqualizerLevel(ZavService& service, GVariant* args)
{
    int count = 0;
    g_variant_get_child(args, 1, "i", &count);
    const auto levels = FirstArray<gint32>(args);
    if (levels.size() <= ZAV_MAX_LEVELS && count == static_cast<int>(levels.size()) &&
        std::ranges::all_of(levels, [](int level) { return kEqualizerLevels.Holds(level); })) {
        service.equalizer.assign(levels.begin(), levels.end());
    }
    return g_variant_new("()");
}

GVariant* InitSpeakerManager(ZavService& service, GVariant* args)
{
    int mode = 0;
    int wooferLevel = 0;
    g_variant_get(args, "(iiaiibbiiii)", &mode, &wooferLevel, nullptr, &service.soundBarConnected,
                  &service.wooferModeAvailable, &service.equalizerAvailable, nullptr,
                  &service.featureSupport, &service.wooferState, &service.modeMask);
    Put(service.wooferLevel, wooferLevel, kWooferLevels);
    if (mode >= kFirstManagerMode) {
        Put(service.mode, mode - kFirstManagerMode, kModes);
    }
    service.emit(service.soundBarConnected ? "InvokeSignalHandler" : "DisconnectSignalHandler",
                 Hold(g_variant_new("()")));
    return g_variant_new("()");
}

GVariant* GetScl(ZavService& service, GVariant* /*args*/)
{
    std::vector<guint8> records(service.speakers.size() * kSpeakerRecordSize);
    auto record = records.begin();
    for (const auto& [name, connectType] : service.speakers) {
        std::copy_n(name.begin(), std::min(name.size(), kConnectTypeOffset), record);
        std::memcpy(&record[kConnectTypeOffset], &connectType, sizeof connectType);
        record += kSpeakerRecordSize;
    }
    return g_variant_new("(@ay)", NewBytes(records));
}

GVariant* SetCapability(ZavService& service, GVariant* args)
{
    service.capableDevices.insert(FirstInt(args));
    return g_variant_new("(b)", TRUE);
}

GVariant* GetCapability(ZavService& service, GVariant* args)
{
    return g_variant_new("(i)", service.capableDevices.contains(FirstInt(args)) ? 1 : 0);
}

GVariant* SendTunnelData(ZavService& service, GVariant* args)
{
    static constexpr std::array<guint8, 20> status = {'q', 1, 'z', 'a', 'v', '-', 's', 'i', 'm'};
    int id = 0;
    g_variant_get_child(args, 2, "i", &id);
    auto data = FirstArray<guint8>(args);
    if (data.size() == 1 && data[0] == kStatusRequest) {
        data = status;
    }
    if (data.size() <= ZAV_MAX_TUNNEL_DATA) { // clients drop what is longer, or end
        service.emit(
            "receiveExternalDataViaCommonTunnel",
            Hold(g_variant_new("(@ayii)", NewBytes(data), static_cast<int>(data.size()), id)));
    }
    return g_variant_new("(b)", TRUE);
}

GVariant* ReceiveSpdifData(ZavService& service, GVariant* args)
{
    const auto data = FirstArray<guint8>(args);
    const bool accepted = data.size() <= ZAV_MAX_SPDIF_DATA;
    if (accepted) {
        service.emit("sendDataViaSpdif",
                     Hold(g_variant_new("(@ayi)", NewBytes(data), static_cast<int>(data.size()))));
    }
    return g_variant_new("(b)", accepted);
}

using Z = ZavService;

const std::map<std::string, Handler> kHandlers = {
    {"IsSoundBarConnected", Get("(b)", &Z::soundBarConnected)},
    {"GetSpeakerSelection", Get("(i)", &Z::speakerSelection)},
    {"SetSpeakerSelection", Set(&Z::speakerSelection, kSelections)},
    {"GetWooferLevel", Get("(i)", &Z::wooferLevel)},
    {"SetWooferLevel", Set(&Z::wooferLevel, kWooferLevels)},
    {"GetWooferState", Get("(i)", &Z::wooferState)},
    {"IsZAVReady", Get("(i)", &Z::ready)},
    {"SetEarcToZav", Set(&Z::earc, kOffOn)},
    {"SetCorvalaVconf", Set(&Z::corvala, kOffOn)},
    {"RequestPreTrial", Set(&Z::preTrial, kOffOn)},
    {"IsAvailableEqualizer", Get("(b)", &Z::equalizerAvailable)},
    {"getQCorvalaAvailable", Get("(i)", &Z::corvala)},
    {"IsFeatureSupported", Get("(i)", &Z::featureSupport)},
    {"SetMode", Set(&Z::mode, kModes)},
    {"GetMode", Get("(i)", &Z::mode)},
    {"IsAvailableWooferMode", Get("(b)", &Z::wooferModeAvailable)},
    {"GetModeList", Get("(i)", &Z::modeMask)},
    {"SetEqualizerLevel", SetEqualizerLevel},
    {"GetEqualizerLevel", GetEqualizerLevel},
    {"InitSpeakerManager", InitSpeakerManager},
    {"GetSCL", GetScl},
    {"setCapabilityViaCommonTunnel", SetCapability},
    {"getCapabilityViaCommonTunnel", GetCapability},
    {"sendExternalDataViaCommonTunnel", SendTunnelData},
    {"ReceivedDataFromSpdif", ReceiveSpdifData},
};

} // namespace

ZavService::ZavService(Emit onSignal) : emit(std::move(onSignal))
{
    for (auto* const* method = org_kelmar_tv_zav_interface.methods; *method != nullptr; ++method) {
        if (!kHandlers.contains((*method)->name)) {
            throw std::runtime_error(std::string("no answer to the method ") + (*method)->name);
        }
    }
}

Variant ZavService::Answer(const std::string& method, GVariant* args)
{
    const int modeBefore = mode;
    const int wooferLevelBefore = wooferLevel;
    Variant reply = Hold(kHandlers.at(method)(*this, args));

    // A change is announced in one place, whichever method brought it.
    if (mode != modeBefore) {
        emit("SetCbSoundModeChange", Hold(g_variant_new("(i)", mode)));
    }
    if (wooferLevel != wooferLevelBefore) {
        const auto level = std::bit_cast<std::array<guint8, sizeof wooferLevel>>(wooferLevel);
        emit("notifyZAVCsharpCallback",
             Hold(g_variant_new("(i@ayi)", kWooferLevelEvent, NewBytes(level),
                                static_cast<int>(level.size()))));
    }
    return reply;
}
