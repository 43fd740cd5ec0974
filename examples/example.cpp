// SPDX-License-Identifier: MIT
// Lists the sound modes, changes the mode and hears of the change.
#include <ZAVServiceAPI.h>
#include <iostream>

int main()
{
    // First, on the thread that runs the main loop: callbacks are called from there.
    if (ZAVServiceAPI::InitDbusConnection() != 0) {
        std::cerr << "no system bus\n";
        return 1;
    }
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    const auto onModeChanged = [](int mode, void* user_data) {
        std::cout << "mode is now " << mode + 100 << '\n'; // the service counts from 0
        g_main_loop_quit(static_cast<GMainLoop*>(user_data));
    };
    ZAVServiceAPI::ExtSpkSetSoundModeChangedCb(onModeChanged, loop);

    std::list<std::string> names;
    std::list<AudioEffect> modes;
    ZAVServiceAPI::GetModeListwithSID(&modes, &names);
    for (const std::string& name : names) {
        std::cout << "offered: " << name << '\n';
    }
    const bool standard = ZAVServiceAPI::GetMode() == AUDIO_EFFECT_STANDARD;
    if (ZAVServiceAPI::SetMode(standard ? AUDIO_EFFECT_MOVIE : AUDIO_EFFECT_STANDARD) != 0) {
        std::cerr << "the mode could not be set\n";
        return 1;
    }
    g_main_loop_run(loop);
}
