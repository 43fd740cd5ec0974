/* SPDX-License-Identifier: MIT */
/**
 * @file ZAVServiceBridgeAPI.h
 * The C interface of libzavservice-api.so, for the managed binding. Plain C11; no GLib.
 *
 * Each function forwards to the method of ZAVServiceAPI that has its name.
 *
 * **Connection.** The functions marked *connects* call InitDbusConnection() first while there is
 * no connection, which binds the service's signals to the calling thread's GLib main context; its
 * failure shows as the forwarded request being refused. Call InitDbusConnection() yourself, on the
 * thread that iterates the main context, before anything else.
 *
 * **Results.** *Refused* is what a request returns when it was not sent (not connected, or other
 * requests kept the proxy busy), *unanswered* what it returns when no reply came.
 *
 * **Threads.** The first InitDbusConnection() must have finished before other threads call. From
 * then on any thread may call any function at any time; only one request is on the wire at a time.
 *
 * **Blocking.** A request waits up to 100 times 10 ms for its turn and up to 5000 ms for the
 * reply; one that connects first blocks for the bus's answers as well.
 *
 * Numbers without a unit here are the service's: the library forwards them untouched.
 */
#ifndef ZAVSERVICEBRIDGEAPI_H
#define ZAVSERVICEBRIDGEAPI_H

#include "ZAVServiceTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Connects; then stores a callback, or NULL, for the signal "InvokeSignalHandler". Nothing is
 * stored when connecting failed. See ZAVServiceTypes.h for the rules that callbacks keep.
 */
ZAV_EXPORT void SignalSubscribe(ZAVCallBack callback);

/** The same for the signal "DisconnectSignalHandler". */
ZAV_EXPORT void DisconnectSignalSubscribe(ZAVCallBack callback);

/**
 * Stores the callback for S/PDIF data and its user data; does not connect.
 * @return 1; 0 and nothing stored when the callback is NULL
 */
ZAV_EXPORT int SetSendDataToSpkViaSPDIFcb(ZAVCallBack1 callback, void* user_data);

/**
 * Stores the callback for sound mode changes and its user data; does not connect. NULL is ignored:
 * the callback can be replaced but never unregistered.
 */
ZAV_EXPORT void ExtSpkSetSoundModeChangedCb(extspk_sound_mode_changed_cb callback, void* user_data);

/** Clears the callback for S/PDIF data and its user data; does not connect. @return 1 */
ZAV_EXPORT int UnSetSendDataToSpkViaSPDIFcb(void);

/** @return 60, the size of SpeakerManagerState in bytes, for the managed side to compare */
ZAV_EXPORT int get_size_of_SpeakerManagerState(void);

/** A request; does not connect. @return availability; refused and unanswered: -1 */
ZAV_EXPORT int getQCorvalaAvailable(void);

/**
 * Connects to the system bus and to ZAVService, and subscribes the service's signals, which are
 * then delivered on the GLib main context that is the calling thread's default now. Blocks for
 * the bus's answers. May be called again after a failure; does nothing once connected.
 * @return 0 when connected, now or before; -1 when the bus or the proxy could not be had
 */
ZAV_EXPORT int InitDbusConnection(void);

/** Only logs: a connection once made lasts for the life of the process. */
ZAV_EXPORT void FiniDbusConnection(void);

/** A request; connects. @return 1 when a sound bar is connected, else 0; refused, unanswered: 0 */
ZAV_EXPORT int IsSoundBarConnected(void);

/** A request; connects. @return a feature_support_e value; refused and unanswered: -4 */
ZAV_EXPORT int IsFeatureSupported(void);

/** A request; connects. @return the mode; refused and unanswered: AUDIO_EFFECT_NONE */
ZAV_EXPORT AudioEffect GetMode(void);

/**
 * A request; connects.
 * @param mode any value; it travels minus 100
 * @return the service's result; refused and unanswered: -1
 */
ZAV_EXPORT int SetMode(AudioEffect mode);

/** A request; connects. @return the level; refused and unanswered: -1 */
ZAV_EXPORT int GetWooferLevel(void);

/** A request; connects. @return the service's result; refused and unanswered: -1 */
ZAV_EXPORT int SetWooferLevel(int level);

/** A request; connects. @return the service's result; refused and unanswered: -1 */
ZAV_EXPORT int SetEarcToZav(int value);

/** A request; connects. @return the woofer mode's availability; refused and unanswered: false */
ZAV_EXPORT bool IsAvailableWooferMode(void);

/** A request; connects. @return the equalizer's availability; refused and unanswered: false */
ZAV_EXPORT bool IsAvailableEqualizer(void);

/**
 * A request; connects. Reads the equalizer levels, one for each band.
 * @param levels address of the caller's buffer, which must have room for 100 levels
 * @param count  receives how many were written, of more than 100 the first 100; 0 when refused,
 *               unanswered or without levels
 */
ZAV_EXPORT void GetEqualizerLevel(int** levels, int* count);

/**
 * A request that does not wait for the reply; connects.
 * @param levels caller-owned, read during the call
 * @param count  how many, 1 or more; with NULL or fewer nothing is sent
 */
ZAV_EXPORT void SetEqualizerLevel(int* levels, int count);

/**
 * Connects; then clears all callbacks but those for sound mode changes and for managed events.
 */
ZAV_EXPORT void ALLSignalUnSubscribe(void);

/**
 * A request; connects. Forwards what a speaker sent over S/PDIF.
 * @param data   caller-owned, read during the call
 * @param length bytes, 1 or more; of more than 40 only the first 40; with NULL or fewer nothing
 *               is sent
 */
ZAV_EXPORT void DataReceivedFromSpkViaSPDIF(const unsigned char* data, int length);

/** A request; connects. @return the state; refused and unanswered: WOOFER_STATE_NONE */
ZAV_EXPORT woofer_state_e GetWooferState(void);

/**
 * A request; connects. Reads the speaker configuration list.
 * @param list caller's array with room for ZAV_MAX_SPEAKERS records of 148 bytes
 * @return how many were written; refused and unanswered: 0; reply without records: -1.
 *         More than ZAV_MAX_SPEAKERS records end the process by SIGABRT.
 */
ZAV_EXPORT int GetSCL(SCLSpkInfo* list);

/** A request; connects. @return the service's result; refused and unanswered: -1 */
ZAV_EXPORT int RequestPreTrial(int value);

/** A request; connects. @return the selected speaker; refused: -1; unanswered: 0 */
ZAV_EXPORT int GetSpeakerSelection(void);

/** A request; connects. @return the service's result; refused and unanswered: -1 */
ZAV_EXPORT int SetSpeakerSelection(int selection);

/** A request; connects. @return the service's result; refused and unanswered: -1 */
ZAV_EXPORT int SetCorvalaVconf(int value);

/**
 * Connects; then stores the callback for managed events, or NULL. Waits for its turn as a request
 * does, but asks nothing of the service.
 * @return true; refused: false
 */
ZAV_EXPORT bool SubscribeZAVCSharpCallback(ZAVCsharpCallback callback);

/** Connects; then clears the callback for managed events. */
ZAV_EXPORT void UnsubscribeZAVCSharpCallback(void);

/**
 * A request; connects. Lists the sound modes that the service offers, in ascending order but with
 * AUDIO_EFFECT_SMART second.
 * @param list  address of the caller's buffer, which must have room for 100 modes
 * @param count receives how many AudioEffect values were written; 0 when refused or unanswered
 */
ZAV_EXPORT void GetModeList(int** list, int* count);

/** A request; connects. @return the service's readiness; refused and unanswered: -1 */
ZAV_EXPORT int IsZAVReady(void);

/**
 * A request that does not wait for the reply; connects. Hands the speaker-manager state over.
 * @return 0 when it was handed to the bus; refused: -1
 */
ZAV_EXPORT int InitSpeakerManager(SpeakerManagerState state);

#ifdef __cplusplus
}
#endif

#endif
