// SPDX-License-Identifier: MIT
/**
 * @file ZAVServiceAPI.h
 * The C++ interface of libzavservice-api.so: requests to ZAVService over the system bus.
 *
 * **Results.** No operation throws by itself. *Refused* is what a request returns when it was not
 * sent (not connected, or other requests kept the proxy busy), *unanswered* what it returns when no
 * reply came: the service failed, is not there, or did not answer in time. The log tells which one
 * it was. A reply of another type counts as 0.
 *
 * **Threads.** InitDbusConnection() must have returned 0 before other threads call. From then on
 * any thread may call any method at any time. One request is on the wire at a time, and a thread
 * that asks without a pause can keep others out: see docs/blocking.md.
 *
 * **Blocking.** *Up to 6 s*: up to 100 times 10 ms for its turn, then up to 5000 ms for the reply.
 * A request that finds another one stuck is therefore refused after about a second.
 *
 * **Values.** Numbers are forwarded as they are; the library checks no range. The ranges named here
 * are those of the simulated service.
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
     * are delivered on the GLib main context that is the calling thread's default now: the
     * application has to iterate it to receive callbacks. May be called again after a failure;
     * does nothing once connected.
     * Any thread, also several at once: one connects, the others wait for it. Milliseconds; 25 s
     * when the service hangs or cannot be started.
     * @return 0 when connected, now or before; -1 when the bus or the proxy could not be had. A
     *         service that is not running is no failure.
     */
    static int InitDbusConnection();

    /** Only logs: a connection once made lasts for the life of the process. Any thread. */
    static void FiniDbusConnection();

    ///@}
    /** @name Scalar requests
     * Any thread; up to 6 s.
     */
    ///@{

    /** @return whether a sound bar is connected; refused and unanswered: false */
    static bool IsSoundBarConnected();

    /** @return the speakers in use, 0 to 7; refused: -1; unanswered: 0, a selection too */
    static int GetSpeakerSelection();

    /**
     * Sets which speakers are in use.
     * @param selection the service's number for them, 0 to 7
     * @return the service's result, 0 when it was set; refused and unanswered: -1
     */
    static int SetSpeakerSelection(int selection);

    /**
     * @return the sub-woofer's level, in steps of the service, -6 to 6; refused and unanswered: -1,
     *         a level too
     */
    static int GetWooferLevel();

    /**
     * Sets the sub-woofer's level.
     * @param level in steps of the service, -6 to 6
     * @return the service's result, 0 when it was set; refused and unanswered: -1
     */
    static int SetWooferLevel(int level);

    /** @return the service's number, 1 with a woofer; refused and unanswered: WOOFER_STATE_NONE */
    static woofer_state_e GetWooferState();

    /** @return 1 when the service can be used; refused and unanswered: -1 */
    static int IsZAVReady();

    /**
     * Tells the service about eARC.
     * @param value 1 when sound goes out over eARC, 0 when not
     * @return the service's result, 0 when it was taken; refused and unanswered: -1
     */
    static int SetEarcToZav(int value);

    /**
     * Switches the Corvala feature.
     * @param value 1 for on, 0 for off
     * @return the service's result, 0 when it was taken; refused and unanswered: -1
     */
    static int SetCorvalaVconf(int value);

    /**
     * Begins or ends a pre-trial.
     * @param value 1 to begin, 0 to end
     * @return the service's result, 0 when it was taken; refused and unanswered: -1
     */
    static int RequestPreTrial(int value);

    /** @return whether there is an equalizer; refused and unanswered: false */
    static bool IsAvailableEqualizer();

    /** @return 1 when the Corvala feature is available, else 0; refused and unanswered: -1 */
    static int getQCorvalaAvailable();

    /** @return the service's number; refused and unanswered: FEATURE_SUPPORT_UNKNOWN */
    static feature_support_e IsFeatureSupported();

    /**
     * Sets the sound mode.
     * @param mode AUDIO_EFFECT_STANDARD to AUDIO_EFFECT_SOUNDBAR_2; it travels minus 100
     * @return the service's result, 0 when it was set; refused and unanswered: -1
     */
    static int SetMode(AudioEffect mode);

    /**
     * @return the service's number plus 100; refused and unanswered: AUDIO_EFFECT_NONE. A reply of
     *         another type looks like AUDIO_EFFECT_STANDARD.
     */
    static AudioEffect GetMode();

    /** @return whether there is a sub-woofer to set; refused and unanswered: false */
    static bool IsAvailableWooferMode();

    /** @return whether GetMode() gives AUDIO_EFFECT_STANDARD; refused and unanswered: false */
    static bool GetEqualizerState();

    ///@}
    /** @name Equalizer
     * Levels are one `int` for each band in steps of the service, -10 to 10, in the order of its
     * bands; the library bounds neither their count nor their range.
     */
    ///@{

    /**
     * Sends levels without waiting for the reply: a failure of the service is never seen.
     * Any thread; up to 1 s for its turn.
     * @param levels caller-owned, read during the call
     * @param count  how many, 1 or more; with NULL or fewer nothing is sent
     */
    static void SetEqualizerLevel(int* levels, int count);

    /**
     * Reads the current levels. Refused, unanswered or without levels neither argument is written,
     * so that a preset `*count` tells.
     * Any thread; up to 6 s.
     * @param levels caller-owned, with room for every band that the service has
     * @param count  receives how many were written
     */
    static void GetEqualizerLevel(int* levels, int* count);

    ///@}
    /** @name Sound modes
     * The lists belong to the caller and must not be in use by another thread; NULL is not
     * protected against. Nothing clears them; what is added comes on top of what they hold.
     */
    ///@{

    /**
     * Adds the modes that the service offers, see createSoundEffectList().
     * Any thread; up to 6 s.
     * @param modes refused and unanswered: untouched
     */
    static void GetModeList(std::list<AudioEffect>* modes);

    /**
     * GetModeList(), and popSIDList() for the modes if there are any.
     * Any thread; up to 6 s.
     * @param modes as in GetModeList(); with NULL or none in it nothing is added to `sids`
     * @param sids  receives the display string identifiers
     */
    static void GetModeListwithSID(std::list<AudioEffect>* modes, std::list<std::string>* sids);

    /**
     * Adds the modes whose bits are set and sorts the whole list; then, if AUDIO_EFFECT_SMART was
     * added, makes it the second unless it is the smallest. The two sound bar modes are never
     * added.
     * Any thread; asks nobody.
     * @param modes receives them
     * @param mask  the service's mode mask, a bit for each mode; unknown bits are ignored
     */
    static void createSoundEffectList(std::list<AudioEffect>* modes, int mask);

    /**
     * Adds the display string identifier of each mode that has one.
     * Any thread; asks nobody.
     * @param sids  receives them
     * @param modes read only
     */
    static void popSIDList(std::list<std::string>* sids, std::list<AudioEffect>* modes);

    /**
     * Adds a fixed selection of modes, duplicates included, and sorts.
     * Any thread; asks nobody.
     * @param modes     receives them
     * @param selection which; another number than those of the enumeration selects nothing
     */
    static void popSoundEffectList(std::list<AudioEffect>* modes, ListSoundEffect selection);

    ///@}
    /** @name Speaker manager and speakers */
    ///@{

    /**
     * Hands the speaker-manager state to the service; the reply is not waited for, a failure never
     * seen.
     * Any thread; up to 1 s for its turn.
     * @param state read during the call; NULL is logged, but not protected against
     * @return 0 when it was handed to the bus; refused: -1
     */
    static int InitSpeakerManager(SpeakerManagerState* state);

    /**
     * Reads the speaker configuration list.
     * Any thread; up to 6 s.
     * @param list refused: untouched; else emptied, then one entry for each speaker
     * @return the number of entries; refused and unanswered: 0; reply without records: -1.
     *         More than ZAV_MAX_SPEAKERS records end the process by SIGABRT.
     */
    static int GetSCL(std::vector<SCLSpkInfo>& list);

    /**
     * GetSCL() into an array.
     * Any thread; up to 6 s.
     * @param out caller's, with room for ZAV_MAX_SPEAKERS entries; receives those of the result
     * @return as GetSCL()
     */
    static int getSCL(SCLSpkInfo* out);

    ///@}
    /** @name Common tunnel and S/PDIF
     * Data are caller-owned bytes, read during the call. NULL or a length below 1 is refused before
     * the connection is looked at. Any thread; up to 6 s.
     */
    ///@{

    /**
     * Gives an external device the capability.
     * @param id the device, the service's number
     * @return 0 whatever the service answered; refused and unanswered: -1
     */
    static int SetCapabilityCommonTunnelExternal(commonTunnel_external_id_e id);

    /**
     * Asks whether an external device has the capability.
     * @param id         the device, the service's number
     * @param capability receives 1 or 0 when answered; else untouched
     * @return 0; NULL, refused and unanswered: -1
     */
    static int GetCapabilityCommonTunnelExternal(commonTunnel_external_id_e id, int* capability);

    /**
     * Sends bytes, with the registered device's id.
     * @param data   the bytes
     * @param length how many; the library knows no limit
     * @return true once sent, answered or not; refused: false
     */
    static bool SendDataToCommonTunnelExternal(const unsigned char* data, int length);

    /** Asks the external device for its status, which comes as a signal. @return true always */
    static bool RequestStatusFromCommonTunnelExternal();

    /**
     * Forwards what the television received from a speaker over S/PDIF.
     * @param data   the bytes
     * @param length how many; of more than ZAV_MAX_SPDIF_DATA the first of them are sent
     */
    static void DataReceivedFromSpkViaSPDIF(const unsigned char* data, int length);

    ///@}
    /** @name Models */
    ///@{

    /**
     * Looks a device model up, byte for byte.
     * Any thread; asks nobody.
     * @param name the model's name, not NULL
     * @return its code; MODEL_NAME_UNKNOWN when it is not in the table
     */
    static model_name m_HashModelName(const char* name);

    ///@}
    /** @name Callbacks
     * One registration each; registering replaces. See ZAVServiceTypes.h for the rules that
     * callbacks keep. Any thread may register at any time, also while a signal is handled; none of
     * these blocks but SubscribeZAVCSharpCallback().
     */
    ///@{

    /**
     * Sets the callback for "InvokeSignalHandler": a sound device is there.
     * @param callback NULL for none; ignored while there is no connection
     */
    static void SignalSubscribe(ZAVCallBack callback);

    /**
     * Sets the callback for "DisconnectSignalHandler": the sound device is gone.
     * @param callback NULL for none; ignored while there is no connection
     */
    static void DisconnectSignalSubscribe(ZAVCallBack callback);

    /**
     * Sets the callback for "sendDataViaSpdif".
     * @param callback  not NULL
     * @param user_data given to the callback as it is
     * @return true; false and nothing stored when the callback is NULL
     */
    static bool SetSendDataToSpkViaSPDIFcb(ZAVCallBack1 callback, void* user_data);

    /** Removes the S/PDIF callback with its user data. @return true */
    static bool UnSetSendDataToSpkViaSPDIFcb();

    /**
     * Sets the callback for "SetCbSoundModeChange"; it can be replaced, never removed.
     * @param callback  NULL is ignored
     * @param user_data given to the callback as it is
     */
    static void ExtSpkSetSoundModeChangedCb(extspk_sound_mode_changed_cb callback, void* user_data);

    /**
     * Sets the callbacks for "receiveExternalDataViaCommonTunnel".
     * @param id        the device to listen to; its id also goes with the data that is sent
     * @param connected for status messages, may be NULL
     * @param data      for data, may be NULL
     * @param user_data given to both; not NULL, or nothing is stored
     * @return true; false when the user data are NULL
     */
    static bool SetDataReceivedFromCommonTunnelExternalcb(commonTunnel_external_id_e id,
                                                          ZavConnectedCallBack connected,
                                                          ZavDataReceivedCallBack data,
                                                          void* user_data);

    /** Removes all callbacks but the sound-mode and the managed one; user data and id stay. */
    static void ALLSignalUnSubscribe();

    /**
     * Sets the callback for "notifyZAVCsharpCallback", at its turn as a request, up to 1 s.
     * @param callback NULL for none
     * @return true; refused: false
     */
    static bool SubscribeZAVCSharpCallback(ZAVCsharpCallback callback);

    /** Removes the managed callback. */
    static void UnsubscribeZAVCSharpCallback();

    ///@}
    /** @name Signal handlers, for GDBus
     * Parameters of another type than the signal's are logged and dropped. Data that do not fit
     * (more than ZAV_SPDIF_BUFFER bytes, or ZAV_MAX_EVENT_DATA for the managed event) end the
     * process by SIGABRT.
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
