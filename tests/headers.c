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
_Static_assert(sizeof(AudioEffect) == 4 && sizeof(woofer_state_e) == 4, "as an int");

int (*const set_mode)(AudioEffect) = SetMode;
