// SPDX-License-Identifier: MIT
/**
 * @file Requests.h
 * Every operation of the library that asks the service or is exported: what it is called with, what
 * it sends, and how it ends on each path.
 */
#ifndef ZAV_TESTS_REQUESTS_H
#define ZAV_TESTS_REQUESTS_H

#include "ZAVServiceAPI.h"
#include "ZAVServiceBridgeAPI.h"

#include <algorithm>
#include <climits>
#include <ostream>
#include <string>
#include <vector>

using Operation = int (*)(int value); ///< a call with this value if it takes one, and its result

/** Lines are those of the boundary log; in those of the C function {} stands for its name. */
struct Request
{
    std::string name;             ///< of the method and of the C function
    Operation call;               ///< the method
    Operation exported = nullptr; ///< the C function, if there is one
    int value = 0;                ///< what both are called with, 0 for none
    int most = INT_MAX;           ///< what they may be called with at the most
    std::string logged = name;    ///< the name in the log
    std::string method = logged;  ///< on the bus; "" for none
    std::string announced = value != 0 ? std::to_string(value) : ""; ///< number when it begins
    std::string announcedAs = "int";                                 ///< its type in the trace
    std::string sent = value != 0 ? "(" + announced + ",)" : "()";   ///< body of the call
    std::string reply = "";        ///< a good one; "" for a call that does not wait
    int result = 0;                ///< with a good reply,
    int mistyped = 0;              ///< with one of another type, whose number is taken as 0,
    int unanswered = 0;            ///< without a reply,
    int refused = unanswered;      ///< and without a proxy or a turn
    int received = result;         ///< the number in a good reply
    std::string first = "";        ///< lines before all others,
    const char* read = nullptr;    ///< on a good reply, where they are of their own kind,
    const char* misread = nullptr; ///< on one of another type,
    std::string last = "";         ///< after the turn
    bool turn = true;              ///< whether it waits for one,
    const char* connected = "";    ///< and if not, lines with a connection
    const char* unconnected = "";  ///< and without one
    const char* entry = "6 {} > ZAV_API_BRIDGE\n"; ///< lines of the C function before it connects,
    bool connects = true;                          ///< if it does,
    const char* sending = "";                      ///< after that,
    const char* returned = "";                     ///< and at its end

    int Run() const { return call(value); }
};

/** In a list of tests: behind the name of the row. */
inline void PrintTo(const Request& one, std::ostream* out)
{
    *out << one.method;
}

namespace requests
{

using Api = ZAVServiceAPI;

constexpr int kUntouched = -7; // what is not written to keeps this

constexpr int kBytes = 300;  // to send, at the most
constexpr int kLevels = 256; // to send or to receive
inline unsigned char bytes[kBytes] = {1, 2, 3};
inline int levels[kLevels] = {1, -2};
inline int exportedLevels[100]; // all the room that an application has
inline SCLSpkInfo speakers[ZAV_MAX_SPEAKERS];
inline const std::string kNode = "([byte 7" + [] {
    std::string rest;
    for (size_t i = 1; i < sizeof(SCLSpkInfo); ++i) {
        rest += ", 0";
    }
    return rest;
}() + "],)";

inline SpeakerManagerState State(int mode)
{
    return {mode, -3, {1, -2, 3, INT_MAX, INT_MIN, 6, 7}, 8, true, false, 9, 10, 11, 12};
}

/** What a function is called with that takes this type: the value, or something of the kind. */
template <class T>
T Argument([[maybe_unused]] int value)
{
    if constexpr (std::is_same_v<T, const unsigned char*> || std::is_same_v<T, void*>) {
        return bytes;
    } else if constexpr (std::is_same_v<T, int*>) {
        return levels;
    } else if constexpr (std::is_same_v<T, SCLSpkInfo*>) {
        return speakers;
    } else if constexpr (std::is_same_v<T, SpeakerManagerState>) {
        return State(value);
    } else if constexpr (std::is_pointer_v<T>) {
        return [](auto...) {}; // a callback
    } else {
        return T{value};
    }
}

template <class Result, class... Arguments>
int Call(Result (*function)(Arguments...), [[maybe_unused]] int value)
{
    if constexpr (std::is_void_v<Result>) {
        function(Argument<Arguments>(value)...);
        return 0;
    } else {
        return static_cast<int>(function(Argument<Arguments>(value)...));
    }
}

/** A function as an operation. */
template <auto function>
int Of(int value)
{
    return Call(function, value);
}

constexpr const char* kModeLines =
    "4 GetModeList > IntDataReceived: 32801 from ZAVService | int\n"
    "4 createSoundEffectList > Unknown Sound Mode Found 115 | enum_AudioEffect\n"
    "4 GetModeList > GetModeList MODE: 100 | enum_AudioEffect\n"
    "4 GetModeList > GetModeList MODE: 104 | enum_AudioEffect\n";

/** A method and the C function of its name. */
#define BOTH(function) .name = #function, .call = Of<Api::function>, .exported = Of<::function>

// clang-format off

// A request that does not wait is followed by one that does: then it has reached the service too.
inline const std::vector<Request> kAll = {
    {BOTH(IsSoundBarConnected), .reply = "(true,)", .result = 1},
    {BOTH(GetSpeakerSelection), .reply = "(3,)", .result = 3, .refused = -1},
    {BOTH(SetSpeakerSelection), .value = 2, .reply = "(4,)", .result = 4, .unanswered = -1},
    {BOTH(GetWooferLevel), .reply = "(-6,)", .result = -6, .unanswered = -1},
    {BOTH(SetWooferLevel), .value = -3, .reply = "(7,)", .result = 7, .unanswered = -1},
    {BOTH(GetWooferState), .reply = "(9,)", .result = 9},
    {BOTH(IsZAVReady), .reply = "(1,)", .result = 1, .unanswered = -1,
     .returned = "6 {} > ZAV_API_BRIDGE IsZAVReady returned #  | int\n"},
    {BOTH(SetEarcToZav), .value = 4, .reply = "(12,)", .result = 12, .unanswered = -1},
    {BOTH(SetCorvalaVconf), .value = 5, .reply = "(13,)", .result = 13, .unanswered = -1},
    {BOTH(RequestPreTrial), .value = 6, .reply = "(-14,)", .result = -14, .unanswered = -1},
    {BOTH(IsAvailableEqualizer), .reply = "(true,)", .result = 1},
    {BOTH(getQCorvalaAvailable), .reply = "(2147483647,)", .result = INT_MAX, .unanswered = -1,
     .entry = "", .connects = false},
    {BOTH(IsFeatureSupported), .reply = "(15,)", .result = 15, .unanswered = -4},
    {BOTH(SetMode), .value = 99, .announcedAs = "enum_AudioEffect", .sent = "(-1,)",
     .reply = "(17,)", .result = 17, .unanswered = -1},
    {BOTH(GetMode), .reply = "(5,)", .result = 105, .mistyped = 100, .unanswered = 117,
     .received = 5},
    {.name = "GetEqualizerState", .call = Of<Api::GetEqualizerState>, .logged = "GetMode",
     .reply = "(5,)", .mistyped = 1, .received = 5},
    {BOTH(IsAvailableWooferMode), .reply = "(true,)", .result = 1},
    {.name = "SetCapabilityCommonTunnelExternal",
     .call = Of<Api::SetCapabilityCommonTunnelExternal>, .value = 5,
     .method = "setCapabilityViaCommonTunnel", .announcedAs = "enum_commonTunnel_external_id_e",
     .reply = "(true,)", .unanswered = -1, .received = 1},
    {.name = "GetCapabilityCommonTunnelExternal",
     .call = [](int id) {
         int capability = kUntouched;
         const int result = Api::GetCapabilityCommonTunnelExternal(
             static_cast<commonTunnel_external_id_e>(id), &capability);
         return capability + result; // 0, or -1 and the capability untouched
     },
     .value = 5, .method = "getCapabilityViaCommonTunnel",
     .announcedAs = "enum_commonTunnel_external_id_e", .reply = "(77,)", .result = 77,
     .unanswered = kUntouched - 1},
    {.name = "SendDataToCommonTunnelExternal", .call = Of<Api::SendDataToCommonTunnelExternal>,
     .value = 3, .most = kBytes, .method = "sendExternalDataViaCommonTunnel",
     .sent = "([byte 0x01, 0x02, 0x03], 3, 16)", .reply = "(false,)", .result = 1, .mistyped = 1,
     .unanswered = 1, .refused = 0, .received = 0},
    {.name = "RequestStatusFromCommonTunnelExternal",
     .call = Of<Api::RequestStatusFromCommonTunnelExternal>,
     .logged = "SendDataToCommonTunnelExternal", .method = "sendExternalDataViaCommonTunnel",
     .announced = "1", .sent = "([byte 0x73], 1, 16)", .reply = "(false,)", .result = 1,
     .mistyped = 1, .unanswered = 1, .received = 0},
    {BOTH(DataReceivedFromSpkViaSPDIF), .value = 3, .most = kBytes,
     .method = "ReceivedDataFromSpdif", .sent = "([byte 0x01, 0x02, 0x03], 3)",
     .reply = "(true,)", .received = 1},
    {.name = "GetEqualizerLevel",
     .call = [](int) {
         int count = kUntouched;
         Api::GetEqualizerLevel(levels, &count);
         return count;
     },
     .exported = [](int) {
         int count = kUntouched;
         int* out = exportedLevels;
         ::GetEqualizerLevel(&out, &count);
         return count != 0 ? count : kUntouched; // it tells of a failure by 0
     },
     .reply = "([1, -2], 3)", .result = 2, .mistyped = kUntouched, .unanswered = kUntouched,
     .read = "4 GetEqualizerLevel > From: [ZAVService] To: [ZAVService-api] Byteno.: 1 Recieved "
             "EqualizerLevel : 1 | unsigned int int\n"
             "4 GetEqualizerLevel > From: [ZAVService] To: [ZAVService-api] Byteno.: 2 Recieved "
             "EqualizerLevel : -2 | unsigned int int\n",
     .misread = ""},
    {BOTH(SetEqualizerLevel), .value = 2, .most = kLevels, .sent = "([1, -2], 2)"},
    {.name = "InitSpeakerManager",
     .call = [](int mode) {
         SpeakerManagerState state = State(mode);
         return Api::InitSpeakerManager(&state);
     },
     .exported = Of<::InitSpeakerManager>, .value = 104, .announced = "",
     .sent = "(104, -3, [1, -2, 3, 2147483647, -2147483648, 6, 7], 8, true, false, 9, 10, 11, 12)",
     .refused = -1,
     .entry = "6 {} > ZAV_API_BRIDGE AudioEffect 104 | int\n"
              "6 {} > ZAV_API_BRIDGE SubWooferLevel -3 | int\n"
              "6 {} > ZAV_API_BRIDGE ConnectionStatus 8 | int\n"
              "6 {} > ZAV_API_BRIDGE SubWooferAvailable 1 | bool\n"
              "6 {} > ZAV_API_BRIDGE EqualizerAvailable 0 | bool\n"
              "6 {} > ZAV_API_BRIDGE State 9 | int\n"
              "6 {} > ZAV_API_BRIDGE FeatureSupported 10 | int\n"
              "6 {} > ZAV_API_BRIDGE WooferConnected 11 | int\n"
              "6 {} > ZAV_API_BRIDGE EffectList 12 | int\n",
     .sending = "6 {} > Sending InitSpeakerManager  data to ZAVService for processing.....\n"},
    {.name = "GetModeList",
     .call = [](int) {
         std::list<AudioEffect> modes;
         Api::GetModeList(&modes);
         return static_cast<int>(modes.size());
     },
     .exported = [](int) {
         int list[17];
         int* out = list;
         int count = kUntouched;
         ::GetModeList(&out, &count);
         return count;
     },
     .reply = "(32801,)", .result = 2,
     .read = kModeLines},
    {.name = "GetModeListwithSID",
     .call = [](int) {
         std::list<AudioEffect> modes;
         std::list<std::string> sids;
         Api::GetModeListwithSID(&modes, &sids);
         return static_cast<int>(modes.size() + sids.size());
     },
     .logged = "GetModeList", .reply = "(32801,)", .result = 4,
     .first = "4 GetModeListwithSID > GetModeListwithSID\n",
     .read = kModeLines,
     .last = "4 GetModeListwithSID > #GetModeList and MODE ID : 100 SID = SID_STANDARD_KR_SOUND | "
             "enum_AudioEffect char*\n"
             "4 GetModeListwithSID > #GetModeList and MODE ID : 104 SID = SID_MOVIE_KR_SOUND | "
             "enum_AudioEffect char*\n"},
    {.name = "GetSCL",
     .call = [](int) {
         std::vector<SCLSpkInfo> list;
         return Api::GetSCL(list);
     },
     .exported = Of<::GetSCL>, .reply = kNode, .result = 1, .mistyped = -1,
     .read = "4 GetSCL > elenum[148], sizeof(CNetSpkNodeInfo)[148] | unsigned int unsigned int\n"
             "4 GetSCL > spk[1]: m_Connecttype: 0 | int int\n"
             "4 GetSCL > Speaker Size[1] | int\n",
     .misread = "6 GetSCL > pByteArray is NULL\n"
                "4 GetSCL > Speaker Size[-1] | int\n"},
};

/** For the simulated service, so that it gives the good replies. */
inline std::string ReplyOptions()
{
    std::string options;
    for (const Request& one : kAll) {
        options += one.reply.empty() ? "" : " --reply '" + one.method + "=" + one.reply + "'";
    }
    return options;
}

/** What asks nobody. */
inline const std::vector<Request> kOthers = {
    {BOTH(SubscribeZAVCSharpCallback), .method = "", .result = 1},
    {BOTH(UnsubscribeZAVCSharpCallback), .turn = false},
    {BOTH(SignalSubscribe), .first = "4 SignalSubscribe > SignalSubscribe  called !!!!\n",
     .turn = false, .unconnected = "4 SignalSubscribe > connection is NULL\n", .entry = ""},
    {BOTH(DisconnectSignalSubscribe),
     .first = "4 DisconnectSignalSubscribe > DisconnectSignalSubscribe  called !!!!\n",
     .turn = false, .unconnected = "4 DisconnectSignalSubscribe > connection is NULL\n",
     .entry = ""},
    {BOTH(SetSendDataToSpkViaSPDIFcb), .result = 1, .refused = 1,
     .first = "4 SetSendDataToSpkViaSPDIFcb > called !!!!\n", .turn = false, .entry = "",
     .connects = false},
    {BOTH(UnSetSendDataToSpkViaSPDIFcb), .result = 1, .refused = 1,
     .first = "4 UnSetSendDataToSpkViaSPDIFcb >  called !!!!\n", .turn = false, .entry = "",
     .connects = false},
    {BOTH(ExtSpkSetSoundModeChangedCb),
     .first = "4 ExtSpkSetSoundModeChangedCb > ExtSpkSetSoundModeChangedCb Setting\n",
     .turn = false, .entry = "", .connects = false},
    {BOTH(ALLSignalUnSubscribe),
     .first = "4 ALLSignalUnSubscribe > ALLSignalUnSubscribe  called !!!!\n", .turn = false},
    {BOTH(InitDbusConnection), .refused = -1, .turn = false,
     .connected = "4 InitDbusConnection > Called\n"
                  "4 InitDbusConnection > Already initialized... \n"},
    {BOTH(FiniDbusConnection), .first = "4 FiniDbusConnection > FiniDbusConnection \n",
     .turn = false, .connects = false},
    {.name = "get_size_of_SpeakerManagerState", .call = Of<::get_size_of_SpeakerManagerState>,
     .exported = Of<::get_size_of_SpeakerManagerState>, .result = 60, .refused = 60,
     .turn = false, .entry = "", .connects = false},
};

// clang-format on

} // namespace requests

#endif
