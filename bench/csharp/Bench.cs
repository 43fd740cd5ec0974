// SPDX-License-Identifier: MIT
//
// What requests and events cost from C#: time and managed memory, beside the bare import. Prints
// rows of a table; the first one comes from a C program, by the command line.
using System;
using System.Diagnostics;
using System.Linq;
using System.Threading;
using Zav;

internal static unsafe class Bench
{
    private const int Batches = 15;

    private static void Main(string[] arguments)
    {
        using ZavService zav = ZavService.Connect();
        Console.WriteLine("| a request, from C | {0} | |", arguments.Single());
        Measure("the same by the bare import", 1000, () => Imports.GetWooferLevel());
        Measure("`GetWooferLevel()`", 1000, () => zav.GetWooferLevel());
        Measure("`GetWooferLevelAsync()`, awaited", 1000,
                () => zav.GetWooferLevelAsync().GetAwaiter().GetResult());
        Func<int> askNobody = Imports.get_size_of_SpeakerManagerState;
        Measure("bare import that asks nobody", 1000000,
                () => Imports.get_size_of_SpeakerManagerState());
        Measure("the same in a turn, as every request is made", 1000000,
                () => RequestQueue.Run(call => call(), askNobody));

        var callback = (delegate* unmanaged<int, IntPtr, void>)Callbacks.SoundModeChanged;
        Measure("an event without a handler", 1000000, () => callback(1, IntPtr.Zero));
        int heard = 0;
        zav.SoundModeChanged += (sender, change) => ++heard;
        Measure("an event with a handler", 1000000, () => callback(1, IntPtr.Zero));
        if (heard == 0)
            throw new InvalidOperationException("no event was raised");
    }

    /// <summary>Prints the median of several batches, after two that warm up.</summary>
    private static void Measure(string what, int count, Action call)
    {
        var times = new double[Batches];
        long bytes = 0;
        for (int batch = -2; batch < Batches; ++batch) {
            long before = GC.GetTotalAllocatedBytes(true);
            long start = Stopwatch.GetTimestamp();
            for (int i = 0; i < count; ++i)
                call();
            double elapsed = Stopwatch.GetElapsedTime(start).TotalMicroseconds / count;
            bytes = (GC.GetTotalAllocatedBytes(true) - before) / count;
            if (batch >= 0)
                times[batch] = elapsed;
        }
        Array.Sort(times);
        Console.WriteLine("| {0} | {1:F3} | {2} |", what, times[Batches / 2], bytes);
    }
}
