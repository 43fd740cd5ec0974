// SPDX-License-Identifier: MIT
//
// Shows sound mode and woofer level, sets a mode and hears of the change.
using System;
using System.Threading;
using Zav;

internal static class Example
{
    private static int Main()
    {
        using (var heard = new ManualResetEventSlim())
        using (ZavService zav = ZavService.Connect()) {
            Console.WriteLine("mode {0}, woofer level {1}", zav.Mode, zav.WooferLevel);
            zav.SoundModeChanged += (sender, mode) => {
                Console.WriteLine("the mode is now {0}", mode);
                heard.Set();
            };
            bool music = zav.Mode == AudioEffect.Music;
            zav.SetMode(music ? AudioEffect.Movie : AudioEffect.Music);
            return heard.Wait(TimeSpan.FromSeconds(5)) ? 0 : 1;
        }
    }
}
