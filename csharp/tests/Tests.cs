// SPDX-License-Identifier: MIT
//
// The binding against the simulated service, on Mono and on .NET. Runs the method named.
using System;
using System.Collections;
using System.Collections.Concurrent;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Reflection;
using System.Threading;
using System.Threading.Tasks;
using Zav;

internal static class Tests
{
    private static readonly TimeSpan limit = TimeSpan.FromSeconds(30);

    private static void Main(string[] arguments) =>
        typeof(Tests).GetMethod(arguments.Single(), BindingFlags.Static | BindingFlags.NonPublic)
            .Invoke(null, null);

    private static void ConnectingFailsAndIsTriedAgain()
    {
        string bus = Environment.GetEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS").Split('=')[1];
        Output("mv", bus + " " + bus + ".away");
        Thrown<IOException>(() => ZavService.Connect());
        int descriptors = Directory.GetFiles("/proc/self/fd").Length;
        for (int i = 0; i < 20; ++i)
            Thrown<IOException>(() => ZavService.Connect());
        int left = Directory.GetFiles("/proc/self/fd").Length - descriptors;
        Equal(true, left < 10, "main contexts left behind: " + left);
        Equal("size of SpeakerManagerState: 60 here, 64 in libzavservice-api.so",
              Thrown<NotSupportedException>(() => EventThread.CheckRecord(64)).Message);

        Output("mv", bus + ".away " + bus);
        EventThread.ConnectTimeout = TimeSpan.FromSeconds(1);
        Output("kill", "-STOP " + Environment.GetEnvironmentVariable("ZAV_SIM_PID"));
        Equal(true, Thrown<TimeoutException>(() => ZavService.Connect()).Message.Contains(" 1 s;"));
        var cancel = new CancellationTokenSource();
        Task<ZavService> attempt = ZavService.ConnectAsync(cancel.Token);
        cancel.Cancel();
        Thrown<OperationCanceledException>(() => attempt.GetAwaiter().GetResult());
        Output("kill", "-CONT " + Environment.GetEnvironmentVariable("ZAV_SIM_PID"));
        EventThread.ConnectTimeout = limit;
        Equal(1, ZavService.Connect().GetReadiness());
    }

    private static SpeakerManagerState State()
    {
        var state = new SpeakerManagerState {
            AudioEffect = AudioEffect.Night, SubWooferLevel = 2, ConnectionStatus = 8,
            SubWooferAvailable = false, EqualizerAvailable = true, State = 9,
            FeatureSupported = 10, WooferConnected = 1, EffectList = 0x41,
        };
        state.SetValues(1, 2, 3, 4, 5, 6, 7);
        return state;
    }

    /// <summary>
    /// Of each marshalled type: member, argument, what the service receives, result.
    /// </summary>
    private static readonly object[][] requests = {
        new object[] { "InitSpeakerManager", State(), "InitSpeakerManager " +
            "(105, 2, [1, 2, 3, 4, 5, 6, 7], 8, false, true, 9, 10, 1, 65)", "0" },
        new object[] { "GetMode", null, "GetMode ()", "Night" },
        new object[] { "GetWooferLevel", null, "GetWooferLevel ()", "2" },
        new object[] { "IsSoundBarConnected", null, "IsSoundBarConnected ()", "True" },
        new object[] { "IsWooferModeAvailable", null, "IsAvailableWooferMode ()", "False" },
        new object[] { "IsEqualizerAvailable", null, "IsAvailableEqualizer ()", "True" },
        new object[] { "GetFeatureSupport", null, "IsFeatureSupported ()", "10" },
        new object[] { "GetWooferState", null, "GetWooferState ()", "1" },
        new object[] { "GetModes", null, "GetModeList ()", "Standard Music" },
        new object[] { "SetMode", AudioEffect.Movie, "SetMode (4,)", "0" },
        new object[] { "SetWooferLevel", -99, "SetWooferLevel (-99,)", "-1" },
        new object[] { "SetEqualizerLevels", new[] { 5 }, "SetEqualizerLevel ([5], 1)", "" },
        new object[] { "GetEqualizerLevels", null, "GetEqualizerLevel ()", "5" },
        new object[] { "GetSpeakers", null, "GetSCL ()", "True: 1 1 2" },
        new object[] { "ForwardSpdifData", new byte[] { 1, 255 },
            "ReceivedDataFromSpdif ([byte 0x01, 0xff], 2)", "" },
    };

    private static void RequestsForwardAndConvert()
    {
        ZavService zav = ZavService.Connect();
        foreach (object[] request in requests)
            foreach (string form in new[] { "", "Async" }) { // which have to do the same
                var arguments = new List<object>(request.Skip(1).Take(1).Where(a => a != null));
                if (form != "")
                    arguments.Add(CancellationToken.None);
                MethodInfo method = typeof(ZavService).GetMethod(request[0] + form);
                object result = method.Invoke(zav, arguments.ToArray());
                var task = result as Task;
                if (task != null) {
                    Equal(true, task.Wait(limit), method.Name);
                    PropertyInfo property = method.ReturnType.GetProperty("Result");
                    result = property == null ? null : property.GetValue(task);
                }
                Equal(request[3], Text(result), method.Name);
                Equal(request[2], Received(), method.Name);
            }

        zav.SetEqualizerLevels();
        zav.ForwardSpdifData();
        Equal("", Received(), "without data nothing is sent");
        Thrown<ArgumentException>(() => State().SetValues(1, 2, 3));
        Thrown<ArgumentNullException>(() => State().SetValues(null));
        Thrown<ArgumentNullException>(() => zav.SetEqualizerLevels(null));
        Thrown<ArgumentNullException>(() => zav.ForwardSpdifDataAsync(null));
        Thrown<ArgumentNullException>(() => zav.RaiseEventsOn(null));
        byte[] record = zav.GetSpeakers()[1].ToArray();
        Equal("148 Front right\0", record.Length + " " +
              string.Concat(record.Take(12).Select(b => (char)b)));
        Output("zavctl", "sim reply GetSCL \"(@ay [],)\"");
        Equal("True: ", Text(zav.GetSpeakers()));
    }

    private static void FailedRequestsHaveTheirResults()
    {
        ZavService zav = ZavService.Connect();
        foreach (string method in new[] { "GetMode", "IsFeatureSupported", "GetSCL" })
            Output("zavctl", "sim fail " + method);
        Equal("  False: ", zav.GetMode() + " " + zav.GetFeatureSupport() + " " +
              Text(zav.GetSpeakers()));
        zav.Dispose();

        // Other code of the process, which knows nothing of the queue. Where its request is over
        // too early, on a machine that is busy, this says nothing: again.
        Output("zavctl", "sim hang SetEarcToZav");
        Task<int> slow;
        string refused;
        do {
            zav = ZavService.Connect();
            Received();
            slow = Task.Run(() => Imports.SetEarcToZav(1));
            // Looked for without clearing, which could take the call away unseen.
            Equal(true, SpinWait.SpinUntil(() => Output("zavctl", "sim calls") != "", limit), "sent");
            Received();
            refused = zav.GetSpeakerSelection() + " ";
            zav.Dispose();
            try {
                ZavService.Connect().Dispose();
            } catch (IOException) {
                refused += "not connected";
            }
        } while (slow.IsCompleted);
        Equal("-1 not connected", refused);
        Equal("", Received(), "what was refused is not sent");
        Output("zavctl", "sim reset");
        Equal(-1, slow.Result, "the slow request");
        Equal(1, ZavService.Connect().GetReadiness());
    }

    private static void RequestsTakeTurns()
    {
        ZavService zav = ZavService.Connect();
        zav.SetWooferLevel(4);
        // Longer than the library lets a request wait for its turn.
        Output("zavctl", "sim delay GetWooferLevel 1300");
        Received();
        var cancel = new CancellationTokenSource();
        Task<int> first = zav.GetWooferLevelAsync();
        Task<WooferState> cancelled = zav.GetWooferStateAsync(cancel.Token);
        Task<int> second = zav.GetWooferLevelAsync();
        var levels = new[] { 1 };
        zav.SetEqualizerLevelsAsync(levels);
        levels[0] = 2; // too late
        Task<AudioEffect?> third = Task.Run(() => zav.GetMode());
        cancel.Cancel();
        Thrown<OperationCanceledException>(() => cancelled.GetAwaiter().GetResult());
        Equal("4 4 Standard", first.Result + " " + second.Result + " " + third.Result);
        Equal("GetWooferLevel (); GetWooferLevel (); SetEqualizerLevel ([1], 1); GetMode ()",
              Received());
        Thrown<OperationCanceledException>(
            () => zav.GetModeAsync(cancel.Token).GetAwaiter().GetResult());
        Equal("", Received(), "was cancelled before");
    }

    private static void EventsArriveAcrossCollectionsAndTheEnd()
    {
        ZavService zav = ZavService.Connect();
        BlockingCollection<string> heard = Heard(zav);
        var collector = new Timer(_ => GC.Collect(), null, 0, 1);
        string rest = string.Concat(Enumerable.Repeat("-00", 42));
        for (int i = 1; i <= 150; ++i) {
            AudioEffect mode = i % 2 == 0 ? AudioEffect.Night : AudioEffect.Movie;
            zav.SetMode(mode);
            Equal("mode " + mode, Take(heard));
            zav.SetWooferLevel(i % 6 - 3);
            Equal("1: " + BitConverter.ToString(BitConverter.GetBytes(i % 6 - 3)), Take(heard));
            zav.ForwardSpdifData((byte)i, 255);
            Equal("spdif " + i.ToString("X2") + "-FF" + rest, Take(heard));
            zav.InitSpeakerManager(new SpeakerManagerState {
                AudioEffect = mode, SubWooferLevel = i % 6 - 3, ConnectionStatus = i % 2,
            });
            Equal(i % 2 == 0 ? "disconnected" : "invoked", Take(heard));
        }
        collector.Dispose();

        Output("zavctl", "sim emit SetCbSoundModeChange (99,)");
        Equal("mode 199", Take(heard));
        byte[] bytes = Enumerable.Range(0, 550).Select(i => (byte)(i % 251)).ToArray();
        Output("zavctl", "sim emit notifyZAVCsharpCallback \"(9, [byte " +
               Text(bytes).Replace(" ", ", ") + "], 550)\"");
        Equal("9: " + BitConverter.ToString(bytes), Take(heard));
        Output("zavctl", "sim emit notifyZAVCsharpCallback \"(8, @ay [], 0)\"");
        Equal("8: ", Take(heard));

        // The process ends while more of them arrive.
        Task.Run(() => {
            for (int i = 0;; ++i)
                zav.SetMode(AudioEffect.Standard + i % 2);
        });
        for (int i = 0; i < 20; ++i)
            Take(heard);
    }

    private static void InstancesDoNotSilenceEachOther()
    {
        ZavService zav = ZavService.Connect(), other = ZavService.Connect();
        BlockingCollection<string> heard = Heard(zav), others = Heard(other);
        zav.SetMode(AudioEffect.Music);
        Equal("mode Music mode Music", Take(heard) + " " + Take(others));

        zav.Dispose();
        zav.Dispose();
        Thrown<ObjectDisposedException>(() => zav.GetMode());
        Thrown<ObjectDisposedException>(() => zav.GetModeAsync());
        Thrown<ObjectDisposedException>(() => zav.RaiseEventsOn(new Target()));
        other.SetMode(AudioEffect.Night);
        Equal("mode Night", Take(others));
        other.SetWooferLevel(1);
        Equal("1: 01-00-00-00", Take(others));

        other.Dispose();
        ZavService last = ZavService.Connect();
        BlockingCollection<string> again = Heard(last);
        last.SetMode(AudioEffect.Movie);
        last.SetWooferLevel(2);
        Equal("mode Movie 1: 02-00-00-00", Take(again) + " " + Take(again));
        Equal(0, heard.Count + others.Count);
    }

    private static void HandlersMayThrowAndMove()
    {
        ZavService zav = ZavService.Connect();
        var failed = new BlockingCollection<string>();
        zav.SoundModeChanged += (sender, change) => {
            throw new InvalidDataException(change.Mode + " on " + Thread.CurrentThread.Name);
        };
        // The signal comes before the reply: the handler's request waits for SetMode() to end.
        var asked = new BlockingCollection<AudioEffect?>();
        zav.SoundModeChanged += (sender, change) => asked.Add(zav.GetMode());
        zav.SetMode(AudioEffect.Music); // with nobody to tell: to standard error
        Equal(AudioEffect.Music, Take(asked));

        zav.HandlerFailed += (sender, failure) => {
            failed.Add(failure.Exception.Message);
            throw new InvalidDataException("of the error handler");
        };
        zav.SetMode(AudioEffect.Movie);
        Equal("Movie on ZavService events", Take(failed));
        Equal(AudioEffect.Movie, Take(asked));

        var target = new Target();
        Thread.CurrentThread.Name = "the target's thread";
        zav.RaiseEventsOn(target);
        zav.SetMode(AudioEffect.Game);
        Take(target.Posted)();
        Equal("Game on the target's thread", Take(failed));
        Equal(AudioEffect.Game, Take(asked));

        zav.SetMode(AudioEffect.Sports);
        Action late = Take(target.Posted);
        target.Posted.CompleteAdding(); // from now on it throws
        zav.SetMode(AudioEffect.Smart);
        Take(failed);
        zav.Dispose();
        late();
        Equal(0, failed.Count + asked.Count, "events of a disposed object");
    }

    /// <summary>The calls that reached the service since the last time, without senders.</summary>
    private static string Received()
    {
        string[] calls = Output("zavctl", "sim calls").Split('\n');
        Output("zavctl", "sim clear");
        return string.Join("; ", calls.Where(call => call != "")
            .Select(call => call.Substring(0, call.LastIndexOf(' '))));
    }

    private static string Output(string program, string arguments)
    {
        using (Process process = Process.Start(new ProcessStartInfo(program, arguments) {
                   UseShellExecute = false, RedirectStandardOutput = true })) {
            string output = process.StandardOutput.ReadToEnd();
            process.WaitForExit();
            Equal(0, process.ExitCode, program + " " + arguments);
            return output;
        }
    }

    private static string Text(object value)
    {
        var speakers = value as SpeakerList;
        if (speakers != null)
            return speakers.Answered + ": " + Text(speakers.Select(s => s.ConnectionType));
        var items = value as IEnumerable;
        return items == null ? "" + value : string.Join(" ", items.Cast<object>());
    }

    private static T Take<T>(BlockingCollection<T> queue)
    {
        T item;
        Equal(true, queue.TryTake(out item, limit), "in time");
        return item;
    }

    private static void Equal(object expected, object actual, string what = "")
    {
        if (!Equals(expected, actual))
            throw new InvalidDataException(what + ": '" + actual + "', not '" + expected + "'");
    }

    private static T Thrown<T>(Action action) where T : Exception
    {
        try {
            action();
            throw new InvalidDataException("no " + typeof(T).Name);
        } catch (T expected) {
            return expected;
        }
    }

    /// <summary>The events as text, one after the other.</summary>
    private static BlockingCollection<string> Heard(ZavService zav)
    {
        var events = new BlockingCollection<string>();
        zav.Invoked += (sender, arguments) => events.Add("invoked");
        zav.Disconnected += (sender, arguments) => events.Add("disconnected");
        zav.SoundModeChanged += (sender, change) => events.Add("mode " + change.Mode);
        zav.SpdifDataReceived += (sender, spdif) =>
            events.Add("spdif " + BitConverter.ToString(spdif.ToArray()));
        zav.Notified += (sender, notified) =>
            events.Add(notified.Number + ": " + BitConverter.ToString(notified.ToArray()));
        return events;
    }

    /// <summary>The thread of a user interface, whose work the test does itself.</summary>
    private sealed class Target : SynchronizationContext
    {
        internal readonly BlockingCollection<Action> Posted = new BlockingCollection<Action>();

        public override void Post(SendOrPostCallback callback, object state) =>
            Posted.Add(() => callback(state));
    }
}
