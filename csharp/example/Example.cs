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
            AudioEffect? mode = zav.GetMode(); // null: it could not be asked for
            Console.WriteLine("mode {0}, woofer level {1}", mode, zav.GetWooferLevel());
            zav.SoundModeChanged += (sender, change) => {
                Console.WriteLine("the mode is now {0}", change.Mode);
                heard.Set();
            };
            zav.SetMode(mode == AudioEffect.Music ? AudioEffect.Movie : AudioEffect.Music);
            return heard.Wait(TimeSpan.FromSeconds(5)) ? 0 : 1;
        }
    }
}
