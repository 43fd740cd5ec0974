/* SPDX-License-Identifier: MIT */
/**
 * @file ZAVServiceBridgeAPI.h
 * The C interface of libzavservice-api.so, for the managed binding. Plain C11; no GLib.
 *
 * Each function forwards to the method of ZAVServiceAPI that has its name.
 *
 * **Connection.** InitDbusConnection() must have returned 0 before other threads call. Call it
 * yourself, before anything else, on the thread that iterates the GLib main context: the service's
 * signals are bound to the context that is that thread's default. The functions marked *connects*
 * call it first while there is no connection, on whatever thread they run, and ignore its result:
 * a failure shows as the request being refused.
 *
 * **Results.** *Refused* is what a request returns when it was not sent (not connected, or other
 * requests kept the proxy busy), *unanswered* what it returns when no reply came: the service
 * failed, is not there, or did not answer in time. A reply of another type counts as 0.
 *
 * **Threads.** From then on any thread may call any function at any time. One request is on the
 * wire at a time, and a thread that asks without a pause can keep others out: see docs/blocking.md.
 *
 * **Blocking.** *Up to 6 s*: up to 100 times 10 ms for its turn, then up to 5000 ms for the reply.
 * Whatever connects first waits for the bus and the service too, milliseconds as a rule and up to
 * 25 s more when the service hangs or cannot be started.
 *
 * **Values.** Numbers are forwarded as they are; the library checks no range. The ranges named here
 * are those of the simulated service.
 */
#ifndef ZAVSERVICEBRIDGEAPI_H
#define ZAVSERVICEBRIDGEAPI_H

#include "ZAVServiceTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Connects; then sets the callback for the signal "InvokeSignalHandler": a sound device is there.
 * Any thread; blocks only to connect.
 * @param callback replaces the one before; NULL for none. Nothing is stored if connecting failed.
 *                 See ZAVServiceTypes.h for the rules that callbacks keep
 */
ZAV_EXPORT void SignalSubscribe(ZAVCallBack callback);

/**
 * Connects; then sets the callback for the signal "DisconnectSignalHandler": the device is gone.
 * Any thread; blocks only to connect.
 * @param callback as in SignalSubscribe()
 */
ZAV_EXPORT void DisconnectSignalSubscribe(ZAVCallBack callback);

/**
 * Sets the callback for S/PDIF data from the service; does not connect.
 * Any thread; does not block.
 * @param callback  replaces the one before; not NULL
 * @param user_data given to the callback as it is; the caller's, may be NULL
 * @return 1; 0 and nothing stored when the callback is NULL
 */
ZAV_EXPORT int SetSendDataToSpkViaSPDIFcb(ZAVCallBack1 callback, void* user_data);

/**
 * Sets the callback for sound mode changes; does not connect. It can be replaced, never removed.
 * Any thread; does not block.
 * @param callback  replaces the one before; NULL is ignored
 * @param user_data given to the callback as it is; the caller's, may be NULL
 */
ZAV_EXPORT void ExtSpkSetSoundModeChangedCb(extspk_sound_mode_changed_cb callback, void* user_data);

/**
 * Removes the callback for S/PDIF data with its user data; does not connect.
 * Any thread; does not block.
 * @return 1
 */
ZAV_EXPORT int UnSetSendDataToSpkViaSPDIFcb(void);

/**
 * For the managed side to compare with its own.
 * Any thread; does not block.
 * @return 60, the size of SpeakerManagerState in bytes
 */
ZAV_EXPORT int get_size_of_SpeakerManagerState(void);

/**
 * Request; does not connect. Asks for the Corvala feature.
 * Any thread; up to 6 s.
 * @return 1 when it is available, 0 when not; refused and unanswered: -1
 */
ZAV_EXPORT int getQCorvalaAvailable(void);

/**
 * Connects to the system bus and to ZAVService, and subscribes the service's signals, which are
 * delivered on the GLib main context that is the calling thread's default now. May be called again
 * after a failure; does nothing once connected.
 * Any thread, also several at once: one connects, the others wait for it. Milliseconds; 25 s when
 * the service hangs or cannot be started.
 * @return 0 when connected, now or before; -1 when the bus or the proxy could not be had. A service
 *         that is not running is no failure.
 */
ZAV_EXPORT int InitDbusConnection(void);

/** Only logs: a connection once made lasts for the life of the process. Any thread. */
ZAV_EXPORT void FiniDbusConnection(void);

/**
 * Request; connects. Asks for a sound bar.
 * Any thread; up to 6 s.
 * @return 1 when one is connected, else 0; refused and unanswered: 0
 */
ZAV_EXPORT int IsSoundBarConnected(void);

/**
 * Request; connects. Asks which features the sound devices support.
 * Any thread; up to 6 s.
 * @return the service's number, a feature_support_e; refused and unanswered: -4
 */
ZAV_EXPORT int IsFeatureSupported(void);

/**
 * Request; connects. Asks for the sound mode.
 * Any thread; up to 6 s.
 * @return the mode; refused and unanswered: AUDIO_EFFECT_NONE. A reply of another type looks like
 *         AUDIO_EFFECT_STANDARD.
 */
ZAV_EXPORT AudioEffect GetMode(void);

/**
 * Request; connects. Sets the sound mode.
 * Any thread; up to 6 s.
 * @param mode AUDIO_EFFECT_STANDARD to AUDIO_EFFECT_SOUNDBAR_2; it travels minus 100
 * @return the service's result, 0 when it was set; refused and unanswered: -1
 */
ZAV_EXPORT int SetMode(AudioEffect mode);

/**
 * Request; connects. Asks for the sub-woofer's level.
 * Any thread; up to 6 s.
 * @return the level, in steps of the service, -6 to 6; refused and unanswered: -1, which is a level
 *         too
 */
ZAV_EXPORT int GetWooferLevel(void);

/**
 * Request; connects. Sets the sub-woofer's level.
 * Any thread; up to 6 s.
 * @param level in steps of the service, -6 to 6
 * @return the service's result, 0 when it was set; refused and unanswered: -1
 */
ZAV_EXPORT int SetWooferLevel(int level);

/**
 * Request; connects. Tells the service about eARC.
 * Any thread; up to 6 s.
 * @param value 1 when sound goes out over eARC, 0 when not
 * @return the service's result, 0 when it was taken; refused and unanswered: -1
 */
ZAV_EXPORT int SetEarcToZav(int value);

/**
 * Request; connects. Asks for a sub-woofer that can be set.
 * Any thread; up to 6 s.
 * @return whether there is one; refused and unanswered: false
 */
ZAV_EXPORT bool IsAvailableWooferMode(void);

/**
 * Request; connects. Asks for an equalizer.
 * Any thread; up to 6 s.
 * @return whether there is one; refused and unanswered: false
 */
ZAV_EXPORT bool IsAvailableEqualizer(void);

/**
 * Request; connects. Reads the equalizer levels, one for each band.
 * Any thread; up to 6 s.
 * @param levels address of the caller's buffer, with room for ZAV_MAX_LEVELS levels; each in steps
 *               of the service, -10 to 10
 * @param count  receives how many were written, of more than ZAV_MAX_LEVELS the first of them; 0
 *               when refused, unanswered or without levels
 */
ZAV_EXPORT void GetEqualizerLevel(int** levels, int* count);

/**
 * Request; connects. Sends equalizer levels; the reply is not waited for, a failure never seen.
 * Any thread; up to 1 s for its turn.
 * @param levels one for each band, in steps of the service, -10 to 10; read during the call
 * @param count  how many, 1 or more; with NULL or fewer nothing is sent
 */
ZAV_EXPORT void SetEqualizerLevel(int* levels, int count);

/**
 * Connects; then removes all callbacks but those for sound mode changes and for managed events.
 * Any thread; blocks only to connect.
 */
ZAV_EXPORT void ALLSignalUnSubscribe(void);

/**
 * Request; connects. Forwards what the television received from a speaker over S/PDIF.
 * Any thread; up to 6 s.
 * @param data   the bytes, read during the call
 * @param length how many, 1 or more; of more than ZAV_MAX_SPDIF_DATA the first of them; with NULL
 *               or fewer nothing is sent
 */
ZAV_EXPORT void DataReceivedFromSpkViaSPDIF(const unsigned char* data, int length);

/**
 * Request; connects. Asks for a woofer.
 * Any thread; up to 6 s.
 * @return the service's number, 1 with a woofer; refused and unanswered: WOOFER_STATE_NONE
 */
ZAV_EXPORT woofer_state_e GetWooferState(void);

/**
 * Request; connects. Reads the speaker configuration list.
 * Any thread; up to 6 s.
 * @param list caller's array with room for ZAV_MAX_SPEAKERS records of 148 bytes
 * @return how many were written; refused and unanswered: 0; reply without records: -1.
 *         More than ZAV_MAX_SPEAKERS records end the process by SIGABRT.
 */
ZAV_EXPORT int GetSCL(SCLSpkInfo* list);

/**
 * Request; connects. Begins or ends a pre-trial.
 * Any thread; up to 6 s.
 * @param value 1 to begin, 0 to end
 * @return the service's result, 0 when it was taken; refused and unanswered: -1
 */
ZAV_EXPORT int RequestPreTrial(int value);

/**
 * Request; connects. Asks which speakers are in use.
 * Any thread; up to 6 s.
 * @return the selection, 0 to 7; refused: -1; unanswered: 0, which is a selection too
 */
ZAV_EXPORT int GetSpeakerSelection(void);

/**
 * Request; connects. Sets which speakers are in use.
 * Any thread; up to 6 s.
 * @param selection the service's number for them, 0 to 7
 * @return the service's result, 0 when it was set; refused and unanswered: -1
 */
ZAV_EXPORT int SetSpeakerSelection(int selection);

/**
 * Request; connects. Switches the Corvala feature.
 * Any thread; up to 6 s.
 * @param value 1 for on, 0 for off
 * @return the service's result, 0 when it was taken; refused and unanswered: -1
 */
ZAV_EXPORT int SetCorvalaVconf(int value);

/**
 * Connects; then sets the callback for managed events, at its turn as a request, but asks nothing
 * of the service.
 * Any thread; up to 1 s for its turn.
 * @param callback replaces the one before; NULL for none
 * @return true; refused: false
 */
ZAV_EXPORT bool SubscribeZAVCSharpCallback(ZAVCsharpCallback callback);

/** Connects; then removes the callback for managed events. Any thread; blocks only to connect. */
ZAV_EXPORT void UnsubscribeZAVCSharpCallback(void);

/**
 * Request; connects. Lists the sound modes that the service offers, in ascending order, but
 * AUDIO_EFFECT_SMART second unless it is the smallest.
 * Any thread; up to 6 s.
 * @param list  address of the caller's buffer, with room for ZAV_MAX_LEVELS AudioEffect values
 * @param count receives how many were written; 0 when refused or unanswered
 */
ZAV_EXPORT void GetModeList(int** list, int* count);

/**
 * Request; connects. Asks whether the service can be used.
 * Any thread; up to 6 s.
 * @return 1 when it can; refused and unanswered: -1
 */
ZAV_EXPORT int IsZAVReady(void);

/**
 * Request; connects. Hands the speaker-manager state to the service; the reply is not waited for, a
 * failure never seen.
 * Any thread; up to 1 s for its turn.
 * @param state see SpeakerManagerState
 * @return 0 when it was handed to the bus; refused: -1
 */
ZAV_EXPORT int InitSpeakerManager(SpeakerManagerState state);

#ifdef __cplusplus
}
#endif

#endif
