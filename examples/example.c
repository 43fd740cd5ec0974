/* SPDX-License-Identifier: MIT */
/* Reads two values, changes the sound mode and hears of the change. */
#include <ZAVServiceBridgeAPI.h>
#include <glib.h>
#include <stdio.h>

static void OnModeChanged(int mode, void* changed)
{
    printf("mode is now %d\n", mode + 100); /* the service counts from 0 */
    *(bool*)changed = true;
}

int main(void)
{
    if (InitDbusConnection() != 0) { /* before all else, on the thread that iterates below */
        fputs("no system bus\n", stderr);
        return 1;
    }
    static bool changed = false;
    ExtSpkSetSoundModeChangedCb(OnModeChanged, &changed);
    const AudioEffect mode = GetMode();
    printf("mode is %d, woofer level is %d\n", mode, GetWooferLevel());
    if (SetMode(mode == AUDIO_EFFECT_MOVIE ? AUDIO_EFFECT_MUSIC : AUDIO_EFFECT_MOVIE) != 0) {
        fputs("the mode could not be set\n", stderr);
        return 1;
    }
    while (!changed) { /* callbacks are called from here */
        g_main_context_iteration(NULL, TRUE);
    }
    return 0;
}
