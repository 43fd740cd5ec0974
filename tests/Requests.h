// SPDX-License-Identifier: MIT
/**
 * @file Requests.h
 * Every request of the library, and how it ends on each path.
 */
#ifndef ZAV_TESTS_REQUESTS_H
#define ZAV_TESTS_REQUESTS_H

#include "ZAVServiceAPI.h"
#include "ZAVServiceBridgeAPI.h"

#include <ostream>
#include <string>
#include <vector>

struct Request
{
    std::string name; // in the log
    std::string method;
    std::string signature; // as the compiler writes it; "" for one whose lines are of its own kind
    int (*run)();
    std::string announced; // argument in the announce line, "" for none
    std::string sent;      // body of the call
    std::string reply;     // a good one; "" for one that does not wait
    int received;          // taken out of it
    int result, mistyped, unanswered, refused;
};

inline void PrintTo(const Request& one, std::ostream* out)
{
    *out << one.name;
}

namespace requests
{

using Api = ZAVServiceAPI;

constexpr auto kDevice = static_cast<commonTunnel_external_id_e>(5);
inline unsigned char bytes[300] = {1, 2, 3};
inline int levels[2] = {1, 2};
inline SCLSpkInfo speakers[ZAV_MAX_SPEAKERS];
inline const std::string kNode = "([byte 7" + [] {
    std::string rest;
    for (size_t i = 1; i < sizeof(SCLSpkInfo); ++i) {
        rest += ", 0";
    }
    return rest;
}() + "],)";

// A request that does not wait is followed by one that does: then it has reached the service too.
inline const std::vector<Request> kAll = {
    {"IsSoundBarConnected", "IsSoundBarConnected",
     "static bool ZAVServiceAPI::IsSoundBarConnected()",
     [] { return int(Api::IsSoundBarConnected()); }, "", "none", "(true,)", 1, 1, 0, 0, 0},
    {"GetSpeakerSelection", "GetSpeakerSelection",
     "static int ZAVServiceAPI::GetSpeakerSelection()", [] { return Api::GetSpeakerSelection(); },
     "", "none", "(3,)", 3, 3, 0, 0, -1},
    {"SetSpeakerSelection", "SetSpeakerSelection",
     "static int ZAVServiceAPI::SetSpeakerSelection(int)",
     [] { return Api::SetSpeakerSelection(2); }, "2", "(2,)", "(0,)", 0, 0, 0, -1, -1},
    {"GetWooferLevel", "GetWooferLevel", "static int ZAVServiceAPI::GetWooferLevel()",
     [] { return Api::GetWooferLevel(); }, "", "none", "(-6,)", -6, -6, 0, -1, -1},
    {"SetWooferLevel", "SetWooferLevel", "static int ZAVServiceAPI::SetWooferLevel(int)",
     [] { return Api::SetWooferLevel(-3); }, "-3", "(-3,)", "(7,)", 7, 7, 0, -1, -1},
    {"GetWooferState", "GetWooferState", "static woofer_state_e ZAVServiceAPI::GetWooferState()",
     [] { return int(Api::GetWooferState()); }, "", "none", "(9,)", 9, 9, 0, 0, 0},
    {"IsZAVReady", "IsZAVReady", "static int ZAVServiceAPI::IsZAVReady()",
     [] { return Api::IsZAVReady(); }, "", "none", "(1,)", 1, 1, 0, -1, -1},
    {"SetEarcToZav", "SetEarcToZav", "static int ZAVServiceAPI::SetEarcToZav(int)",
     [] { return Api::SetEarcToZav(4); }, "4", "(4,)", "(0,)", 0, 0, 0, -1, -1},
    {"SetCorvalaVconf", "SetCorvalaVconf", "static int ZAVServiceAPI::SetCorvalaVconf(int)",
     [] { return Api::SetCorvalaVconf(5); }, "5", "(5,)", "(0,)", 0, 0, 0, -1, -1},
    {"RequestPreTrial", "RequestPreTrial", "static int ZAVServiceAPI::RequestPreTrial(int)",
     [] { return Api::RequestPreTrial(6); }, "6", "(6,)", "(2,)", 2, 2, 0, -1, -1},
    {"IsAvailableEqualizer", "IsAvailableEqualizer",
     "static bool ZAVServiceAPI::IsAvailableEqualizer()",
     [] { return int(Api::IsAvailableEqualizer()); }, "", "none", "(true,)", 1, 1, 0, 0, 0},
    {"getQCorvalaAvailable", "getQCorvalaAvailable",
     "static int ZAVServiceAPI::getQCorvalaAvailable()", [] { return Api::getQCorvalaAvailable(); },
     "", "none", "(2147483647,)", 2147483647, 2147483647, 0, -1, -1},
    {"IsFeatureSupported", "IsFeatureSupported",
     "static feature_support_e ZAVServiceAPI::IsFeatureSupported()",
     [] { return int(Api::IsFeatureSupported()); }, "", "none", "(12,)", 12, 12, 0, -4, -4},
    {"SetMode", "SetMode", "static int ZAVServiceAPI::SetMode(AudioEffect)",
     [] { return Api::SetMode(AUDIO_EFFECT_SOUNDBAR_2); }, "116", "(16,)", "(0,)", 0, 0, 0, -1, -1},
    {"GetMode", "GetMode", "static AudioEffect ZAVServiceAPI::GetMode()",
     [] { return int(Api::GetMode()); }, "", "none", "(5,)", 5, 105, 100, 117, 117},
    {"IsAvailableWooferMode", "IsAvailableWooferMode",
     "static bool ZAVServiceAPI::IsAvailableWooferMode()",
     [] { return int(Api::IsAvailableWooferMode()); }, "", "none", "(false,)", 0, 0, 0, 0, 0},
    {"SetCapabilityCommonTunnelExternal", "setCapabilityViaCommonTunnel",
     "static int ZAVServiceAPI::SetCapabilityCommonTunnelExternal(commonTunnel_external_id_e)",
     [] { return Api::SetCapabilityCommonTunnelExternal(kDevice); }, "5", "(5,)", "(false,)", 0, 0,
     0, -1, -1},
    {"GetCapabilityCommonTunnelExternal", "getCapabilityViaCommonTunnel",
     "static int ZAVServiceAPI::GetCapabilityCommonTunnelExternal(commonTunnel_external_id_e, "
     "int*)",
     [] {
         int capability = -9; // which only an answered request changes
         const int result = Api::GetCapabilityCommonTunnelExternal(kDevice, &capability);
         return result == 0 ? capability : capability + result;
     },
     "5", "(5,)", "(77,)", 77, 77, 0, -10, -10},
    {"SendDataToCommonTunnelExternal", "sendExternalDataViaCommonTunnel",
     "static bool ZAVServiceAPI::SendDataToCommonTunnelExternal(const unsigned char*, int)",
     [] { return int(Api::SendDataToCommonTunnelExternal(bytes, 3)); }, "3",
     "([byte 0x01, 0x02, 0x03], 3, 16)", "(false,)", 0, 1, 1, 1, 0},
    {"DataReceivedFromSpkViaSPDIF", "ReceivedDataFromSpdif",
     "static void ZAVServiceAPI::DataReceivedFromSpkViaSPDIF(const unsigned char*, int)",
     [] { return Api::DataReceivedFromSpkViaSPDIF(bytes, 3), 0; }, "3",
     "([byte 0x01, 0x02, 0x03], 3)", "(true,)", 1, 0, 0, 0, 0},

    {"GetEqualizerLevel", "GetEqualizerLevel", "",
     [] {
         int count = -7; // which only an answered request changes
         Api::GetEqualizerLevel(levels, &count);
         return count;
     },
     "", "none", "([1, 2], 3)", 0, 2, -7, -7, -7},
    {"SetEqualizerLevel", "SetEqualizerLevel", "",
     [] { return Api::SetEqualizerLevel(levels, 2), 0; }, "2", "([1, 2], 2)", "", 0, 0, 0, 0, 0},
    {"InitSpeakerManager", "InitSpeakerManager", "",
     [] {
         SpeakerManagerState state{};
         return Api::InitSpeakerManager(&state);
     },
     "", "(0, 0, [0, 0, 0, 0, 0, 0, 0], 0, false, false, 0, 0, 0, 0)", "", 0, 0, 0, 0, -1},
    {"GetModeListwithSID", "GetModeList", "",
     [] {
         std::list<AudioEffect> modes;
         std::list<std::string> sids;
         Api::GetModeListwithSID(&modes, &sids);
         return int(modes.size() + sids.size());
     },
     "", "none", "(0x18021,)", 0, 4, 0, 0, 0},
    {"GetSCL", "GetSCL", "",
     [] {
         std::vector<SCLSpkInfo> list;
         return Api::GetSCL(list);
     },
     "", "none", kNode, 0, 1, -1, 0, 0},
    {"getSCL", "GetSCL", "", [] { return Api::getSCL(speakers); }, "", "none", kNode, 0, 1, -1, 0,
     0},
};

} // namespace requests

#endif
