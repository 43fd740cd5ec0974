// SPDX-License-Identifier: MIT
/**
 * @file ZAVServiceAPI.h
 * The C++ interface of libzavservice-api.so: requests to ZAVService over the system bus.
 *
 * **Results.** No operation throws by itself. A request that fails returns its default, which is
 * named with each request: *refused* when it was not sent (not connected, or other requests kept
 * the proxy busy), *unanswered* when no reply came. The log tells which one it was.
 *
 * **Threads.** The first InitDbusConnection() must have finished before other threads call. From
 * then on any thread may call any request at any time; only one is on the wire at a time.
 *
 * **Blocking.** A request waits up to 100 times 10 ms for its turn and up to 5000 ms for the
 * reply. A request that finds another one stuck is therefore refused after about a second.
 */
#ifndef ZAVSERVICEAPI_H
#define ZAVSERVICEAPI_H

#include "ZAVServiceTypes.h"

#include <gio/gio.h>
#include <list>
#include <string>
#include <vector>

/** All operations and all state are static: there is one connection for each process. */
class ZAV_EXPORT ZAVServiceAPI
{
public:
    /** @name Connection */
    ///@{

    /**
     * Connects to the system bus and to ZAVService, and subscribes the service's signals, which
     * are then delivered on the GLib main context that is the calling thread's default now: the
     * application has to iterate it to receive callbacks. Blocks for the bus's answers. May be
     * called again after a failure; does nothing once connected.
     * @return 0 when connected, now or before; -1 when the bus or the proxy could not be had
     */
    static int InitDbusConnection();

    /** Only logs: a connection once made lasts for the life of the process. */
    static void FiniDbusConnection();

    ///@}
    /** @name Scalar requests
     * Numbers without a unit here are the service's: the library forwards them untouched.
     */
    ///@{

    /** @return whether a sound bar is connected; refused and unanswered: false */
    static bool IsSoundBarConnected();

    /** @return the selected speaker; refused: -1; unanswered: 0 */
    static int GetSpeakerSelection();

    /** @return the service's result; refused and unanswered: -1 */
    static int SetSpeakerSelection(int selection);

    /** @return the level; refused and unanswered: -1 */
    static int GetWooferLevel();

    /** @return the service's result; refused and unanswered: -1 */
    static int SetWooferLevel(int level);

    /** @return the state; refused and unanswered: WOOFER_STATE_NONE */
    static woofer_state_e GetWooferState();

    /** @return the service's readiness; refused and unanswered: -1 */
    static int IsZAVReady();

    /** @return the service's result; refused and unanswered: -1 */
    static int SetEarcToZav(int value);

    /** @return the service's result; refused and unanswered: -1 */
    static int SetCorvalaVconf(int value);

    /** @return the service's result; refused and unanswered: -1 */
    static int RequestPreTrial(int value);

    /** @return whether the equalizer is available; refused and unanswered: false */
    static bool IsAvailableEqualizer();

    /** @return availability of the Corvala feature; refused and unanswered: -1 */
    static int getQCorvalaAvailable();

    /** @return the supported features; refused and unanswered: FEATURE_SUPPORT_UNKNOWN */
    static feature_support_e IsFeatureSupported();

    /**
     * @param mode any value; it travels minus 100
     * @return the service's result; refused and unanswered: -1
     */
    static int SetMode(AudioEffect mode);

    /** @return the service's number plus 100; refused and unanswered: AUDIO_EFFECT_NONE */
    static AudioEffect GetMode();

    /** @return whether the woofer mode is available; refused and unanswered: false */
    static bool IsAvailableWooferMode();

    /** @return whether GetMode() gives AUDIO_EFFECT_STANDARD; false when it could not be asked */
    static bool GetEqualizerState();

    ///@}
    /** @name Equalizer
     * Levels are one `int` for each band, the service's numbers in its order; the library bounds
     * neither their count nor their range.
     */
    ///@{

    /**
     * Sends levels without waiting for the reply: a failure of the service is never seen.
     * @param levels caller-owned, read during the call
     * @param count  how many, 1 or more; with NULL or fewer nothing is sent
     */
    static void SetEqualizerLevel(int* levels, int count);

    /**
     * Reads the current levels. On any failure neither argument is written, so that a preset
     * `*count` tells.
     * @param levels caller-owned, with room for every band that the service has
     * @param count  receives how many were written
     */
    static void GetEqualizerLevel(int* levels, int* count);

    ///@}
    /** @name Sound modes
     * The lists belong to the caller and must not be in use by another thread. Nothing clears
     * them; what is added comes on top of what they hold.
     */
    ///@{

    /** Adds the modes that the service offers, see createSoundEffectList(); failing: nothing. */
    static void GetModeList(std::list<AudioEffect>* modes);

    /** GetModeList(), and popSIDList() for the modes if there are any. */
    static void GetModeListwithSID(std::list<AudioEffect>* modes, std::list<std::string>* sids);

    /**
     * Adds the modes whose bits are set and sorts the whole list; then, if AUDIO_EFFECT_SMART was
     * added, makes it the second unless it is the first. The two sound bar modes are never added.
     * @param mask the service's mode mask; unknown bits are ignored
     */
    static void createSoundEffectList(std::list<AudioEffect>* modes, int mask);

    /** Adds the display string identifier of each mode that has one. */
    static void popSIDList(std::list<std::string>* sids, std::list<AudioEffect>* modes);

    /** Adds a fixed selection of modes, duplicates included, and sorts. Asks nobody. */
    static void popSoundEffectList(std::list<AudioEffect>* modes, ListSoundEffect selection);

    ///@}
    /** @name Speakers */
    ///@{

    /**
     * Hands the speaker-manager state to the service without waiting for the reply.
     * @param state read during the call; NULL is not protected against
     * @return 0 when it was handed to the bus; refused: -1
     */
    static int InitSpeakerManager(SpeakerManagerState* state);

    /**
     * Reads the speaker configuration list.
     * @param list emptied unless refused, then one entry for each speaker
     * @return the number of entries; refused and unanswered: 0; reply without records: -1.
     *         More than ZAV_MAX_SPEAKERS records end the process by SIGABRT.
     */
    static int GetSCL(std::vector<SCLSpkInfo>& list);

    /** The same into an array with room for ZAV_MAX_SPEAKERS entries. */
    static int getSCL(SCLSpkInfo* out);

    /** @return the code of a device model's name, byte for byte; MODEL_NAME_UNKNOWN else */
    static model_name m_HashModelName(const char* name);

    ///@}
    /** @name Common tunnel and S/PDIF
     * Data are caller-owned bytes, read during the call; NULL or a length below 1 is refused
     * before the connection is looked at.
     */
    ///@{

    /** @return 0 whatever the service answered; refused and unanswered: -1 */
    static int SetCapabilityCommonTunnelExternal(commonTunnel_external_id_e id);

    /** @param capability receives it on success @return 0; NULL, refused and unanswered: -1 */
    static int GetCapabilityCommonTunnelExternal(commonTunnel_external_id_e id, int* capability);

    /**
     * Sends bytes, of any length, with the registered device's id.
     * @return true once sent, answered or not; refused: false
     */
    static bool SendDataToCommonTunnelExternal(const unsigned char* data, int length);

    /** Asks the external device for its status, which comes as a signal. @return true */
    static bool RequestStatusFromCommonTunnelExternal();

    /** Forwards what a speaker sent over S/PDIF; of more than 40 bytes only the first 40. */
    static void DataReceivedFromSpkViaSPDIF(const unsigned char* data, int length);

    ///@}
    /** @name Callbacks
     * One slot each; registering replaces. See ZAVServiceTypes.h for the rules that callbacks
     * keep. Any thread may register at any time, none of these blocks but
     * SubscribeZAVCSharpCallback(); a callback and its user data are two words: replace a
     * registration that has user data only while no signal can arrive.
     */
    ///@{

    /** Stores a callback, or NULL, for "InvokeSignalHandler"; ignored before a connection. */
    static void SignalSubscribe(ZAVCallBack callback);

    /** Stores a callback, or NULL, for "DisconnectSignalHandler"; ignored before a connection. */
    static void DisconnectSignalSubscribe(ZAVCallBack callback);

    /** For "sendDataViaSpdif". @return false and nothing stored when the callback is NULL */
    static bool SetSendDataToSpkViaSPDIFcb(ZAVCallBack1 callback, void* user_data);

    /** Clears the S/PDIF callback and its user data. @return true */
    static bool UnSetSendDataToSpkViaSPDIFcb();

    /** For "SetCbSoundModeChange"; NULL is ignored: this slot is never cleared. */
    static void ExtSpkSetSoundModeChangedCb(extspk_sound_mode_changed_cb callback, void* user_data);

    /**
     * For "receiveExternalDataViaCommonTunnel".
     * @param id        the device to listen to; its id also goes with the data that is sent
     * @param connected for status messages, may be NULL
     * @param data      for data, may be NULL
     * @param user_data not NULL, or nothing is stored and the result is false
     */
    static bool SetDataReceivedFromCommonTunnelExternalcb(commonTunnel_external_id_e id,
                                                          ZavConnectedCallBack connected,
                                                          ZavDataReceivedCallBack data,
                                                          void* user_data);

    /** Clears all callbacks but the sound-mode and the managed one; user data and id stay. */
    static void ALLSignalUnSubscribe();

    /**
     * Stores the callback for "notifyZAVCsharpCallback". Waits for its turn as a request does.
     * @return true; refused: false
     */
    static bool SubscribeZAVCSharpCallback(ZAVCsharpCallback callback);

    /** Clears the managed callback. */
    static void UnsubscribeZAVCSharpCallback();

    ///@}
    /** @name Signal handlers, for GDBus
     * Parameters of another type than the signal's are logged and dropped. Data that does not fit
     * (more than 44 bytes, or 550 for the managed event) ends the process by SIGABRT.
     */
    ///@{
    static void m_OnSignalCallBack(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                   const gchar*, GVariant*, gpointer) noexcept;
    static void m_OnDisconnectSignalCallBack(GDBusConnection*, const gchar*, const gchar*,
                                             const gchar*, const gchar*, GVariant*,
                                             gpointer) noexcept;
    static void m_OnSendDataViaSpdifSignalCallBack(GDBusConnection*, const gchar*, const gchar*,
                                                   const gchar*, const gchar*, GVariant*,
                                                   gpointer) noexcept;
    static void m_OnReceiveExternalDataViaCommonTunnelCallBack(GDBusConnection*, const gchar*,
                                                               const gchar*, const gchar*,
                                                               const gchar*, GVariant*,
                                                               gpointer) noexcept;
    static void m_OnSoundModeChangeEvent(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                         const gchar*, GVariant*, gpointer) noexcept;
    static void NotifyZAVCsharpCallback(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                        const gchar*, GVariant*, gpointer) noexcept;

    ///@}
    /** @name State, for debuggers; not to be written by applications */
    ///@{
    static GDBusConnection* connection; ///< NULL until connected
    static GDBusProxy* proxy;           ///< NULL until connected
    static bool m_bDBusConnectionState; ///< true from the first successful connection on

    /** Subscription ids of the six signals. */
    static guint m_sigIdSignal, m_sigIdDisconnectSignal, m_sigIdSendDataSpdif,
        m_sigIdReceiveExternalViaCommonTunnel, m_sigIdSoundModeChange,
        m_sigIdNotifyZAVCsharpCallback;

    static ZAVCallBack CallBackFunc;
    static ZAVCallBack DisconnectCallBackFunc;
    static ZAVCallBack1 SendDataToSpkViaSPDIF_cb;
    static void* SendDataToSpkViaSPDIF_user_data;
    static extspk_sound_mode_changed_cb Sound_mode_changed_cb;
    static void* Sound_mode_changed_user_data;
    static commonTunnel_external_id_e ReceiveExternalDataViaCommonTunnel_id;
    static ZavConnectedCallBack ReceiveExternalDataViaCommonTunnel_connected_cb;
    static ZavDataReceivedCallBack ReceiveExternalDataViaCommonTunnel_data_cb;
    static void* ReceiveExternalDataViaCommonTunnel_user_data;
    static ZAVCsharpCallback CSharpCallbackFunction;
    ///@}
};

#endif
