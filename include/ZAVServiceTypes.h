/* SPDX-License-Identifier: MIT */
/**
 * @file ZAVServiceTypes.h
 * Enumerations, records and callback types of libzavservice-api.so. Plain C11; no GLib.
 */
#ifndef ZAVSERVICETYPES_H
#define ZAVSERVICETYPES_H

#ifdef __cplusplus
#include <cstdint>
#else
#include <stdbool.h>
#include <stdint.h>
#endif

/** Marks what the library exports. */
#define ZAV_EXPORT __attribute__((visibility("default")))

/**
 * Every enumeration here is a signed 32-bit integer, so that any number of the service is a value
 * of it. C has no way to say so but an enumerator that needs the room; it means nothing, and no
 * binding copies it.
 */
#ifdef __cplusplus
#define ZAV_INT_ENUM : int
#define ZAV_INT_ENUM_IN_C(name)
#else
#define ZAV_INT_ENUM
#define ZAV_INT_ENUM_IN_C(name) , name = INT32_MIN
#endif

/**
 * Sound modes. The service numbers the same modes from 0: the library subtracts 100 from what it
 * sends and adds 100 to what it receives, and checks no range in either direction.
 */
typedef enum AudioEffect ZAV_INT_ENUM
{
    AUDIO_EFFECT_STANDARD = 100,
    AUDIO_EFFECT_MUSIC = 101,
    AUDIO_EFFECT_CLEAR_VOICE = 102,
    AUDIO_EFFECT_SPORTS = 103,
    AUDIO_EFFECT_MOVIE = 104,
    AUDIO_EFFECT_NIGHT = 105,
    AUDIO_EFFECT_SURROUND = 106,
    AUDIO_EFFECT_SMART = 107,
    AUDIO_EFFECT_GAME = 108,
    AUDIO_EFFECT_ADAPTIVE = 109,
    AUDIO_EFFECT_DTS_VIRTUAL_X = 110,
    AUDIO_EFFECT_BASS_BOOST = 111,
    AUDIO_EFFECT_ADAPTIVE_SOUND_PLUS = 112,
    AUDIO_EFFECT_UNLABELLED_1 = 113, /**< has no display string */
    AUDIO_EFFECT_UNLABELLED_2 = 114, /**< has no display string */
    AUDIO_EFFECT_SOUNDBAR_1 = 115,   /**< never listed */
    AUDIO_EFFECT_SOUNDBAR_2 = 116,   /**< never listed */
    AUDIO_EFFECT_NONE = 117          /**< the mode could not be asked for */
    ZAV_INT_ENUM_IN_C(AUDIO_EFFECT_IN_C)
} AudioEffect;

/** State of the woofer: the service's number, unchanged. */
typedef enum woofer_state_e ZAV_INT_ENUM
{
    WOOFER_STATE_NONE = 0 /**< also the result when the service could not be asked */
    ZAV_INT_ENUM_IN_C(WOOFER_STATE_IN_C)
} woofer_state_e;

/** Supported features: the service's number, unchanged. */
typedef enum feature_support_e ZAV_INT_ENUM
{
    FEATURE_SUPPORT_UNKNOWN = -4 /**< the service could not be asked */
                              ZAV_INT_ENUM_IN_C(FEATURE_SUPPORT_IN_C)
} feature_support_e;

/** Fixed selections of modes for popSoundEffectList(); any other value selects nothing. */
typedef enum ListSoundEffect ZAV_INT_ENUM
{
    LIST_SOUND_EFFECT_STANDARD = 0, /**< standard alone */
    LIST_SOUND_EFFECT_SURROUND = 1, /**< standard, surround */
    LIST_SOUND_EFFECT_NIGHT = 2,    /**< standard, night */
    LIST_SOUND_EFFECT_BASIC = 3,    /**< standard, night, surround */
    LIST_SOUND_EFFECT_VOICE = 4,    /**< basic and clear voice */
    LIST_SOUND_EFFECT_SPORTS = 5,   /**< voice and sports */
    LIST_SOUND_EFFECT_MOVIE = 6,    /**< sports and movie */
    LIST_SOUND_EFFECT_ALL = 7       /**< movie and music */
    ZAV_INT_ENUM_IN_C(LIST_SOUND_EFFECT_IN_C)
} ListSoundEffect;

/** An external device on the common tunnel: the service's number, unchanged. */
typedef enum commonTunnel_external_id_e ZAV_INT_ENUM
{
    COMMON_TUNNEL_EXTERNAL_ID_DEFAULT = 16 /**< until another one is registered */
    ZAV_INT_ENUM_IN_C(COMMON_TUNNEL_EXTERNAL_ID_IN_C)
} commonTunnel_external_id_e;

/** Code of a device model; 0 to 25 belong to one entry of the model-name table each. */
typedef enum model_name ZAV_INT_ENUM
{
    MODEL_NAME_MODEL_DEFAULT = 14,    /**< "MODEL_DEFAULT" */
    MODEL_NAME_SOUNDBAR_DEFAULT = 15, /**< "SOUNDBAR_DEFAULT" */
    MODEL_NAME_UNKNOWN = 26           /**< the name is not in the table */
    ZAV_INT_ENUM_IN_C(MODEL_NAME_IN_C)
} model_name;

/**
 * The speaker-manager state that InitSpeakerManager() hands to the service: 60 bytes, laid out as
 * the managed binding marshals it. Numbers without a unit are the service's.
 */
typedef struct SpeakerManagerState
{
    int32_t AudioEffect;    /**< current sound mode, an AudioEffect value */
    int32_t SubWooferLevel; /**< current sub-woofer level */
    int32_t ValueArray[7];  /**< passed through */
    int32_t ConnectionStatus;
    bool SubWooferAvailable; /**< 1 byte; any value but 0 is true */
    bool EqualizerAvailable; /**< 1 byte; any value but 0 is true; 2 bytes of padding follow */
    int32_t State;
    int32_t FeatureSupported;
    int32_t WooferConnected;
    int32_t EffectList;
} SpeakerManagerState;

/**
 * One networked speaker of the speaker configuration list: 148 bytes without padding, byte for
 * byte what the service sent.
 */
typedef struct __attribute__((packed)) SCLSpkInfo
{
    uint8_t opaque1[34];
    int32_t m_Connecttype; /**< connection type, host byte order */
    uint8_t opaque2[110];
} SCLSpkInfo;

/** The service's node record, as it travels in the reply. */
typedef SCLSpkInfo CNetSpkNodeInfo;

/**
 * @name Limits
 * Of the protocol with the service and of the managed binding's buffers; none is negotiated. The
 * library holds to them in every build, as told at each function.
 */
/**@{*/
#define ZAV_MAX_SPEAKERS 50    /**< records of a speaker configuration list */
#define ZAV_MAX_LEVELS 100     /**< equalizer levels, or modes, that the C functions hand on */
#define ZAV_MAX_SPDIF_DATA 40  /**< bytes of one S/PDIF packet to the service */
#define ZAV_SPDIF_BUFFER 44    /**< bytes that an S/PDIF callback gets; no signal may bring more */
#define ZAV_MAX_TUNNEL_DATA 40 /**< bytes from the common tunnel that are delivered as data */
#define ZAV_TUNNEL_STATUS_TEXT 18 /**< bytes of text in a status of the common tunnel */
#define ZAV_MAX_EVENT_DATA 550    /**< bytes that one managed event may bring */
#define ZAV_EVENT_BUFFER 2200 /**< bytes that a managed callback gets: a word for each of them */
/**@}*/

/**
 * @name Callbacks
 * They are called on the thread that iterates the GLib main context to which the signals were
 * bound when the library connected. They may call any function of the library, register others
 * and unregister themselves; a request blocks that thread. Data pointers are valid until the
 * callback returns. An exception that leaves a callback ends the process.
 *
 * A callback gets the user data that were registered with it, also while another thread replaces
 * or removes the registration. It may then still be running, or about to run, on its thread: what
 * it uses may be freed only after that thread has finished the dispatch. The
 * sound-mode callback can be replaced but never unregistered: what it uses is never to be freed.
 */
/**@{*/

/** "InvokeSignalHandler" or "DisconnectSignalHandler" arrived. */
typedef void (*ZAVCallBack)(void);

/** S/PDIF data arrived. @param data ZAV_SPDIF_BUFFER bytes, filled up with 0; the length is not
 * told */
typedef void (*ZAVCallBack1)(const void* data, void* user_data);

/** The sound mode changed. @param mode in the service's numbering, from 0 */
typedef void (*extspk_sound_mode_changed_cb)(int mode, void* user_data);

/**
 * Status of the common tunnel.
 * @param connected 1 or 0
 * @param text      ZAV_TUNNEL_STATUS_TEXT bytes as the service sent them; a terminator only if it
 *                  sent one
 */
typedef void (*ZavConnectedCallBack)(int connected, char* text, void* user_data);

/** Data from the common tunnel. @param data its bytes @param length 1 to ZAV_MAX_TUNNEL_DATA */
typedef void (*ZavDataReceivedCallBack)(unsigned char* data, int length, void* user_data);

/**
 * Generic event for the managed binding.
 * @param event the service's event number
 * @param data  ZAV_EVENT_BUFFER bytes that begin with the address of the received bytes if there
 * are any
 * @param count how many bytes were received, 0 to ZAV_MAX_EVENT_DATA
 */
typedef void (*ZAVCsharpCallback)(int event, void* data, int count);

/**@}*/

#endif
