/* SPDX-License-Identifier: MIT */
/*
 * Compiled, never run: the C headers are plain C11 and need nothing else; their records have the
 * sizes that the managed binding marshals.
 */
#include "ZAVServiceBridgeAPI.h"
#include "ZAVServiceTypes.h"

#ifdef __G_LIB_H__
#error "GLib came with the C headers"
#endif

_Static_assert(sizeof(SpeakerManagerState) == 60, "as marshalled");
_Static_assert(sizeof(SCLSpkInfo) == 148, "as marshalled");

/* Also for a compiler that would choose the smallest type. */
#define IS_SIGNED_INT(type) _Static_assert(sizeof(type) == 4 && (type)-1 < 0, #type)
IS_SIGNED_INT(AudioEffect);
IS_SIGNED_INT(woofer_state_e);
IS_SIGNED_INT(feature_support_e);
IS_SIGNED_INT(ListSoundEffect);
IS_SIGNED_INT(commonTunnel_external_id_e);
IS_SIGNED_INT(model_name);

int (*const kSetMode)(AudioEffect) = SetMode;
