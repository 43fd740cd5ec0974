// SPDX-License-Identifier: MIT
//
// The exported C functions, in the order of the managed binding's imports. Each forwards to the
// class method of its name; what it returns is converted only as far as C requires.
#include "ZAVServiceBridgeAPI.h"

#include "LogPoint.h"
#include "ZAVServiceAPI.h"

#include <algorithm>
#include <array>
#include <atomic>

bool checkDbusConnection();

bool checkDbusConnection()
{
    // Another thread may be setting it.
    return std::atomic_ref(ZAVServiceAPI::m_bDBusConnectionState).load(std::memory_order_acquire);
}

// Of ZAVServiceAPI.cpp, not exported.
void ReadEqualizerLevel(int* levels, int* count, size_t capacity);
bool IsTrue(const bool& foreign);

namespace
{

/** A failure is not reported: the request that follows is refused and says so. */
void Connect()
{
    if (!checkDbusConnection()) {
        ZAVServiceAPI::InitDbusConnection();
    }
}

} // namespace

/** An error line on purpose: the calls of the managed side show at every log level. */
#define LOG_ENTRY() LOG_POINT(DLOG_ERROR, "ZAV_API_BRIDGE")

/** The frame of most functions. */
#define ENTER()                                                                                    \
    LOG_ENTRY();                                                                                   \
    Connect()

void SignalSubscribe(ZAVCallBack callback)
{
    Connect();
    ZAVServiceAPI::SignalSubscribe(callback);
}

void DisconnectSignalSubscribe(ZAVCallBack callback)
{
    Connect();
    ZAVServiceAPI::DisconnectSignalSubscribe(callback);
}

int SetSendDataToSpkViaSPDIFcb(ZAVCallBack1 callback, void* user_data)
{
    return ZAVServiceAPI::SetSendDataToSpkViaSPDIFcb(callback, user_data);
}

void ExtSpkSetSoundModeChangedCb(extspk_sound_mode_changed_cb callback, void* user_data)
{
    ZAVServiceAPI::ExtSpkSetSoundModeChangedCb(callback, user_data);
}

int UnSetSendDataToSpkViaSPDIFcb()
{
    return ZAVServiceAPI::UnSetSendDataToSpkViaSPDIFcb();
}

int get_size_of_SpeakerManagerState()
{
    return sizeof(SpeakerManagerState);
}

int getQCorvalaAvailable()
{
    return ZAVServiceAPI::getQCorvalaAvailable();
}

int InitDbusConnection()
{
    LOG_ENTRY();
    return ZAVServiceAPI::InitDbusConnection();
}

void FiniDbusConnection()
{
    LOG_ENTRY();
    ZAVServiceAPI::FiniDbusConnection();
}

int IsSoundBarConnected()
{
    ENTER();
    return ZAVServiceAPI::IsSoundBarConnected();
}

int IsFeatureSupported()
{
    ENTER();
    return ZAVServiceAPI::IsFeatureSupported();
}

AudioEffect GetMode()
{
    ENTER();
    return ZAVServiceAPI::GetMode();
}

int SetMode(AudioEffect mode)
{
    ENTER();
    return ZAVServiceAPI::SetMode(mode);
}

int GetWooferLevel()
{
    ENTER();
    return ZAVServiceAPI::GetWooferLevel();
}

int SetWooferLevel(int level)
{
    ENTER();
    return ZAVServiceAPI::SetWooferLevel(level);
}

int SetEarcToZav(int value)
{
    ENTER();
    return ZAVServiceAPI::SetEarcToZav(value);
}

bool IsAvailableWooferMode()
{
    ENTER();
    return ZAVServiceAPI::IsAvailableWooferMode();
}

bool IsAvailableEqualizer()
{
    ENTER();
    return ZAVServiceAPI::IsAvailableEqualizer();
}

void GetEqualizerLevel(int** levels, int* count)
{
    ENTER();
    std::array<int, ZAV_MAX_LEVELS> received;
    int size = -1;
    ReadEqualizerLevel(received.data(), &size, received.size());
    if (size < 0) {
        *count = 0;
        return;
    }
    std::copy_n(received.begin(), size, *levels);
    *count = size;
}

void SetEqualizerLevel(int* levels, int count)
{
    ENTER();
    ZAVServiceAPI::SetEqualizerLevel(levels, count);
}

void ALLSignalUnSubscribe()
{
    ENTER();
    ZAVServiceAPI::ALLSignalUnSubscribe();
}

void DataReceivedFromSpkViaSPDIF(const unsigned char* data, int length)
{
    ENTER();
    ZAVServiceAPI::DataReceivedFromSpkViaSPDIF(data, length);
}

woofer_state_e GetWooferState()
{
    ENTER();
    return ZAVServiceAPI::GetWooferState();
}

int GetSCL(SCLSpkInfo* list)
{
    ENTER();
    return ZAVServiceAPI::getSCL(list);
}

int RequestPreTrial(int value)
{
    ENTER();
    return ZAVServiceAPI::RequestPreTrial(value);
}

int GetSpeakerSelection()
{
    ENTER();
    return ZAVServiceAPI::GetSpeakerSelection();
}

int SetSpeakerSelection(int selection)
{
    ENTER();
    return ZAVServiceAPI::SetSpeakerSelection(selection);
}

int SetCorvalaVconf(int value)
{
    ENTER();
    return ZAVServiceAPI::SetCorvalaVconf(value);
}

bool SubscribeZAVCSharpCallback(ZAVCsharpCallback callback)
{
    ENTER();
    return ZAVServiceAPI::SubscribeZAVCSharpCallback(callback);
}

void UnsubscribeZAVCSharpCallback()
{
    ENTER();
    ZAVServiceAPI::UnsubscribeZAVCSharpCallback();
}

void GetModeList(int** list, int* count)
{
    ENTER();
    std::list<AudioEffect> modes;
    ZAVServiceAPI::GetModeList(&modes);
    *count = static_cast<int>(modes.size());
    if (!modes.empty()) {
        std::copy(modes.begin(), modes.end(), *list);
    }
}

int IsZAVReady()
{
    ENTER();
    const int ready = ZAVServiceAPI::IsZAVReady();
    LOG_POINT(DLOG_ERROR, "ZAV_API_BRIDGE IsZAVReady returned %d ", ready);
    return ready;
}

int InitSpeakerManager(SpeakerManagerState state)
{
    const bool subWoofer = IsTrue(state.SubWooferAvailable);
    const bool equalizer = IsTrue(state.EqualizerAvailable);
    LOG_POINT(DLOG_ERROR, "ZAV_API_BRIDGE AudioEffect %d", state.AudioEffect);
    LOG_POINT(DLOG_ERROR, "ZAV_API_BRIDGE SubWooferLevel %d", state.SubWooferLevel);
    LOG_POINT(DLOG_ERROR, "ZAV_API_BRIDGE ConnectionStatus %d", state.ConnectionStatus);
    LOG_POINT(DLOG_ERROR, "ZAV_API_BRIDGE SubWooferAvailable %d", subWoofer);
    LOG_POINT(DLOG_ERROR, "ZAV_API_BRIDGE EqualizerAvailable %d", equalizer);
    LOG_POINT(DLOG_ERROR, "ZAV_API_BRIDGE State %d", state.State);
    LOG_POINT(DLOG_ERROR, "ZAV_API_BRIDGE FeatureSupported %d", state.FeatureSupported);
    LOG_POINT(DLOG_ERROR, "ZAV_API_BRIDGE WooferConnected %d", state.WooferConnected);
    LOG_POINT(DLOG_ERROR, "ZAV_API_BRIDGE EffectList %d", state.EffectList);
    Connect();
    LOG_POINT(DLOG_ERROR, "Sending InitSpeakerManager  data to ZAVService for processing.....");
    return ZAVServiceAPI::InitSpeakerManager(&state);
}
