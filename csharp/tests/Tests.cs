// SPDX-License-Identifier: MIT
//
// The binding against the simulated service. Runs the group named; prints a line for each check
// that failed.
using System;
using System.Collections.Concurrent;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Reflection;
using System.Runtime.CompilerServices;
using System.Text;
using System.Threading;
using System.Threading.Tasks;
using Zav;

internal static class Tests
{
    private static readonly TimeSpan limit = TimeSpan.FromSeconds(30);
    private static int checks, failures;

    private static int Main(string[] arguments)
    {
        var groups = new Dictionary<string, Action>
        {
            { "layout", ForeignLayoutIsRefused },
            { "connection", ConnectionIsTriedAgainAndShared },
            { "requests", RequestsForwardAndConvert },
            { "unanswered", UnansweredRequestsHaveTheirResults },
            { "busy", RefusedRequestsHaveTheirResults },
            { "awaiting", AwaitedRequestsQueue },
            { "events", EventsCarryWhatTheServiceSent },
            { "callbacks", RegistrationIsTakenBack },
            { "handlers", HandlersMayThrowAndMove },
            { "collection", CallbacksOutliveCollections },
        };
        try {
            groups[arguments.Single()]();
        } catch (Exception exception) {
            Console.WriteLine("FAILED: " + exception);
            return 1;
        }
        Console.WriteLine("{0} checks, {1} failed", checks, failures);
        return checks > 0 && failures == 0 ? 0 : 1;
    }

    private static void ForeignLayoutIsRefused()
    {
        Layout.Check(Imports.get_size_of_SpeakerManagerState());
        Equal("size of SpeakerManagerState: 60 here, 64 in libzavservice-api.so",
              Thrown<NotSupportedException>(() => Layout.Check(64)).Message);
        Equal("offset of SpeakerManagerState.State: 44 here, 42 in libzavservice-api.so",
              Thrown<NotSupportedException>(
                  () => Layout.Offset(typeof(SpeakerManagerState), "State", 42)).Message);
        Thrown<ArgumentException>(() => new SpeakerManagerState().SetValues(1, 2, 3));
    }

    private static void ConnectionIsTriedAgainAndShared()
    {
        const string variable = "DBUS_SYSTEM_BUS_ADDRESS";
        string address = Environment.GetEnvironmentVariable(variable);
        Environment.SetEnvironmentVariable(variable, "unix:path=/nonexistent");
        Thrown<IOException>(() => ZavService.Connect());

        Environment.SetEnvironmentVariable(variable, address);
        ZavService first = ZavService.Connect();
        Equal(1, first.Readiness);
        Equal(true, ReferenceEquals(first, ZavService.Connect()), "the same again");
        first.Dispose();
        ZavService second = ZavService.Connect();
        Equal(false, ReferenceEquals(first, second), "another after disposal");
        first.Dispose(); // has nothing to say any more
        Equal(true, ReferenceEquals(second, ZavService.Connect()), "the second, still");
        Equal(0, Imports.InitDbusConnection());
    }

    private static void RequestsForwardAndConvert()
    {
        ZavService zav = ZavService.Connect();
        var state = new SpeakerManagerState {
            AudioEffect = AudioEffect.Night, SubWooferLevel = 2, ConnectionStatus = 8,
            SubWooferAvailable = true, EqualizerAvailable = false, State = 9,
            FeatureSupported = 10, WooferConnected = 1, EffectList = 0x41,
        };
        state.SetValues(1, 2, 3, 4, 5, 6, 7);
        Request("0", () => zav.InitSpeakerManager(state),
                "InitSpeakerManager (105, 2, [1, 2, 3, 4, 5, 6, 7], 8, true, false, 9, 10, 1, 65)");
        Request("Night", () => zav.Mode, "GetMode ()");
        Request("2", () => zav.WooferLevel, "GetWooferLevel ()");
        Request("True", () => zav.IsSoundBarConnected, "IsSoundBarConnected ()");
        Request("True", () => zav.IsWooferModeAvailable, "IsAvailableWooferMode ()");
        Request("False", () => zav.IsEqualizerAvailable, "IsAvailableEqualizer ()");
        Request("10", () => (int)zav.FeatureSupport, "IsFeatureSupported ()");
        Request("1", () => (int)zav.WooferState, "GetWooferState ()");
        Request("Standard Music", () => Words(zav.GetModes()), "GetModeList ()");

        state.SubWooferAvailable = false;
        state.EqualizerAvailable = true;
        Equal(true, !state.SubWooferAvailable && state.EqualizerAvailable, "flags read back");
        zav.InitSpeakerManager(state);
        Received();
        Request("False", () => zav.IsWooferModeAvailable, "IsAvailableWooferMode ()");
        Request("True", () => zav.IsEqualizerAvailable, "IsAvailableEqualizer ()");

        Request("0", () => zav.SetMode(AudioEffect.Movie), "SetMode (4,)");
        Request("-1", () => zav.SetWooferLevel(-99), "SetWooferLevel (-99,)");
        Request("0", () => zav.SetEarc(1), "SetEarcToZav (1,)");
        Request("0", () => zav.SetSpeakerSelection(5), "SetSpeakerSelection (5,)");
        Request("5", () => zav.SpeakerSelection, "GetSpeakerSelection ()");
        Request("0", () => zav.SetCorvala(0), "SetCorvalaVconf (0,)");
        Request("0", () => zav.CorvalaAvailability, "getQCorvalaAvailable ()");
        Request("0", () => zav.RequestPreTrial(1), "RequestPreTrial (1,)");
        Request("1", () => zav.Readiness, "IsZAVReady ()");

        Request("", () => { zav.SetEqualizerLevels(-10, 0, 5); return ""; },
                "SetEqualizerLevel ([-10, 0, 5], 3)");
        Request("-10 0 5", () => Words(zav.GetEqualizerLevels()), "GetEqualizerLevel ()");
        Request("", () => { zav.SetEqualizerLevels(); return ""; }, "");
        string many = Words(Enumerable.Range(1, 150)).Replace(" ", ", ");
        Sim("reply", "GetEqualizerLevel", "([" + many + "], 150)");
        Equal(Words(Enumerable.Range(1, 100)), Words(zav.GetEqualizerLevels()));
        Received();

        Request("", () => { zav.ForwardSpdifData(1, 255); return ""; },
                "ReceivedDataFromSpdif ([0x01, 0xff], 2)");
        Request("", () => { zav.ForwardSpdifData(); return ""; }, "");

        Speaker[] speakers;
        Equal(3, zav.GetSpeakers(out speakers));
        Equal("1 1 2", Words(speakers.Select(speaker => speaker.ConnectionType)));
        byte[] record = speakers[1].ToArray();
        Equal(148, record.Length);
        Equal("Front right\0", Encoding.ASCII.GetString(record, 0, 12));
        Equal("1 0 0 0", Words(record.Skip(34).Take(4)));
        Sim("reply", "GetSCL", "(@ay [],)");
        Equal(-1, zav.GetSpeakers(out speakers));
        Equal(0, speakers.Length);
    }

    /// <summary>Requests: name, result when refused, result when unanswered.</summary>
    private static readonly Dictionary<string, Func<ZavService, object>> failing =
        new Dictionary<string, Func<ZavService, object>> {
        { "IsZAVReady -1 -1", zav => zav.Readiness },
        { "IsSoundBarConnected False False", zav => zav.IsSoundBarConnected },
        { "IsFeatureSupported Unknown Unknown", zav => zav.FeatureSupport },
        { "getQCorvalaAvailable -1 -1", zav => zav.CorvalaAvailability },
        { "GetMode None None", zav => zav.Mode },
        { "GetWooferLevel -1 -1", zav => zav.WooferLevel },
        { "GetWooferState None None", zav => zav.WooferState },
        { "IsAvailableWooferMode False False", zav => zav.IsWooferModeAvailable },
        { "IsAvailableEqualizer False False", zav => zav.IsEqualizerAvailable },
        { "GetSpeakerSelection -1 0", zav => zav.SpeakerSelection },
        { "SetMode -1 -1", zav => zav.SetMode(AudioEffect.Music) },
        { "SetWooferLevel -1 -1", zav => zav.SetWooferLevel(1) },
        { "SetEarcToZav -1 -1", zav => zav.SetEarc(1) },
        { "SetSpeakerSelection -1 -1", zav => zav.SetSpeakerSelection(1) },
        { "SetCorvalaVconf -1 -1", zav => zav.SetCorvala(1) },
        { "RequestPreTrial -1 -1", zav => zav.RequestPreTrial(1) },
        { "GetModeList 0 0", zav => zav.GetModes().Length },
        { "GetEqualizerLevel 0 0", zav => zav.GetEqualizerLevels().Length },
        { "InitSpeakerManager -1 0",
          zav => zav.InitSpeakerManager(new SpeakerManagerState()) },
        { "GetSCL 0/0 0/0", zav => {
            Speaker[] speakers;
            return zav.GetSpeakers(out speakers) + "/" + speakers.Length;
        } },
    };

    private static void UnansweredRequestsHaveTheirResults()
    {
        ZavService zav = ZavService.Connect();
        foreach (string request in failing.Keys)
            Sim("fail", request.Split()[0]);
        foreach (var request in failing)
            Equal(request.Key.Split()[2], request.Value(zav).ToString(), request.Key);
    }

    private static void RefusedRequestsHaveTheirResults()
    {
        ZavService zav = ZavService.Connect();
        zav.Dispose();
        Sim("hang", "SetEarcToZav");
        Task<int> slow = Task.Run(() => zav.SetEarc(1));
        Until(() => Sim("calls") != "", "the slow request is on the wire");
        Sim("clear");

        var threads = new List<Thread>();
        foreach (var request in failing)
            threads.Add(new Thread(() => Equal(request.Key.Split()[1],
                                               request.Value(zav).ToString(), request.Key)));
        threads.Add(new Thread(() => Thrown<IOException>(() => ZavService.Connect())));
        threads.ForEach(thread => thread.Start());
        threads.ForEach(thread => thread.Join());
        Equal("", Received(), "what was refused is not sent");

        Sim("reset");
        Equal(-1, slow.Result, "the slow request");
        Equal(1, ZavService.Connect().Readiness);
    }

    private static void AwaitedRequestsQueue()
    {
        ZavService zav = ZavService.Connect();
        zav.SetWooferLevel(4);
        // Longer than a request waits for its turn by itself.
        Sim("delay", "GetWooferLevel", "1300");
        int caller = Thread.CurrentThread.ManagedThreadId;
        int worker = caller;
        Task<int> first = zav.RequestAsync(service => service.WooferLevel);
        Task<int> second = zav.RequestAsync(service => service.WooferLevel);
        Task failing = zav.RequestAsync(service => { throw new InvalidDataException("mine"); });
        Task last = zav.RequestAsync(service => {
            worker = Thread.CurrentThread.ManagedThreadId;
            service.SetMode(AudioEffect.Game);
        });
        Equal(true, Task.WhenAll(first, second, last).Wait(limit), "all end");
        Equal(4, first.Result);
        Equal(4, second.Result);
        Equal("mine", Thrown<AggregateException>(() => failing.Wait(limit)).InnerException.Message);
        Equal(AudioEffect.Game, zav.Mode);
        Equal(false, worker == caller, "a request on the caller's thread");
    }

    private static void EventsCarryWhatTheServiceSent()
    {
        ZavService zav = ZavService.Connect();
        var heard = new Heard(zav);
        zav.SetMode(AudioEffect.Movie);
        heard.Next("mode Movie");
        zav.SetWooferLevel(-2);
        heard.Next("event 1: FE-FF-FF-FF");
        zav.ForwardSpdifData(1, 2, 255);
        heard.Next("spdif 01-02-FF" + string.Concat(Enumerable.Repeat("-00", 41)));
        zav.InitSpeakerManager(
            new SpeakerManagerState { AudioEffect = AudioEffect.Movie, SubWooferLevel = -2 });
        heard.Next("disconnected");
        Sim("emit", "InvokeSignalHandler");
        heard.Next("invoked");
        Sim("emit", "SetCbSoundModeChange", "(99,)");
        heard.Next("mode 199");
        Sim("emit", "notifyZAVCsharpCallback", "(8, @ay [], 0)");
        heard.Next("event 8: ");
        IEnumerable<int> bytes = Enumerable.Range(0, 550).Select(i => i % 251);
        string array = "[byte " + Words(bytes).Replace(" ", ", ") + "]";
        Sim("emit", "notifyZAVCsharpCallback", "(9, " + array + ", 550)");
        heard.Next("event 9: " + BitConverter.ToString(bytes.Select(i => (byte)i).ToArray()));
    }

    private static void RegistrationIsTakenBack()
    {
        ZavService zav = ZavService.Connect();
        var heard = new Heard(zav);
        zav.Dispose();
        Equal(0, Imports.SetSendDataToSpkViaSPDIFcb(null, IntPtr.Zero));

        var last = new BlockingCollection<string>();
        ModeCallback callback = (mode, user) => last.Add(mode + " for " + user);
        Imports.ExtSpkSetSoundModeChangedCb(callback, new IntPtr(42));
        foreach (string signal in new[] { "InvokeSignalHandler", "DisconnectSignalHandler" })
            Sim("emit", signal);
        zav.ForwardSpdifData(1);
        zav.SetWooferLevel(3);
        zav.SetMode(AudioEffect.Music);
        Equal("1 for 42", Take(last)); // so the signals before it have been there
        Equal(0, heard.Count);

        var again = new Heard(ZavService.Connect());
        zav.SetMode(AudioEffect.Night);
        again.Next("mode Night");
        Equal(0, heard.Count + last.Count);
        GC.KeepAlive(callback);
    }

    private static void HandlersMayThrowAndMove()
    {
        ZavService zav = ZavService.Connect();
        var failed = new BlockingCollection<string>();
        zav.SoundModeChanged += (sender, mode) => { throw new InvalidDataException("of " + mode); };
        var heard = new Heard(zav);
        zav.SetMode(AudioEffect.Music); // with nobody to tell: to standard error
        heard.Next("mode Music");

        zav.HandlerFailed += (sender, exception) => {
            failed.Add(exception.Message);
            throw new InvalidDataException("of the error handler");
        };
        zav.SetMode(AudioEffect.Movie);
        Equal("of Movie", Take(failed));
        heard.Next("mode Movie");

        AudioEffect asked = AudioEffect.None;
        zav.SoundModeChanged += (sender, mode) => asked = zav.Mode;
        var target = new Queued();
        zav.EventTarget = target;
        zav.SetMode(AudioEffect.Night);
        for (int handlers = 0; handlers < 3; ++handlers)
            Take(target.Posted)();
        Equal("of Night", Take(failed));
        heard.Next("mode Night");
        Equal(Thread.CurrentThread.ManagedThreadId, heard.LastThread, "thread of the target");
        Equal(AudioEffect.Night, asked, "asked by a handler");

        target.Closed = true;
        zav.SetMode(AudioEffect.Game);
        Equal("closed", Take(failed));
        zav.EventTarget = null;
        zav.SetMode(AudioEffect.Sports);
        heard.Next("mode Sports");
        Equal(false, heard.LastThread == Thread.CurrentThread.ManagedThreadId, "still there");
    }

    private static void CallbacksOutliveCollections()
    {
        const int rounds = 150;
        ZavService zav = ZavService.Connect();
        var heard = new Heard(zav);
        bool done = false;
        var collector = new Thread(() => {
            while (!Volatile.Read(ref done)) {
                GC.Collect();
                GC.WaitForPendingFinalizers();
            }
        });
        collector.Start();
        for (int i = 1; i <= rounds; ++i) {
            AudioEffect mode = i % 2 == 0 ? AudioEffect.Night : AudioEffect.Movie;
            zav.SetMode(mode);
            heard.Next("mode " + mode);
            zav.SetWooferLevel(i % 6);
            heard.Next("event 1: 0" + i % 6 + "-00-00-00");
            zav.ForwardSpdifData((byte)i);
            heard.Next("spdif " + i.ToString("X2") + string.Concat(Enumerable.Repeat("-00", 43)));
            zav.InitSpeakerManager(new SpeakerManagerState
            {
                AudioEffect = mode, SubWooferLevel = i % 6, ConnectionStatus = i % 2,
            });
            heard.Next(i % 2 == 0 ? "disconnected" : "invoked");
        }
        Volatile.Write(ref done, true);
        collector.Join();

        // Mono keeps delegates of static methods by itself, so that no collection shows whether the
        // fields do.
        int rooted = typeof(ZavService).GetFields(BindingFlags.Static | BindingFlags.NonPublic)
            .Count(field => field.IsInitOnly && field.FieldType.IsSubclassOf(typeof(Delegate)));
        Equal(5, rooted, "delegates in fields");
    }

    private static void Request(string expected, Func<object> request, string received,
                                [CallerLineNumber] int line = 0)
    {
        Equal(expected, request().ToString(), "result", line);
        Equal(received, Received(), "what the service received", line);
    }

    private static string Words<T>(IEnumerable<T> items)
    {
        return string.Join(" ", items);
    }

    /// <summary>The calls that reached the service since the last time, without senders.</summary>
    private static string Received()
    {
        string[] calls = Sim("calls").Split(new[] { '\n' }, StringSplitOptions.RemoveEmptyEntries);
        Sim("clear");
        return string.Join("; ", calls.Select(call => call.Substring(0, call.LastIndexOf(' '))));
    }

    /// <summary>Tells the simulated service something.</summary>
    /// <returns>What it says.</returns>
    private static string Sim(params string[] words)
    {
        string folder = AppDomain.CurrentDomain.BaseDirectory;
        string quoted = string.Concat(words.Select(word => " \"" + word + "\""));
        var start = new ProcessStartInfo(Path.Combine(folder, "zavctl"), "sim" + quoted)
        {
            UseShellExecute = false, RedirectStandardOutput = true,
        };
        using (Process process = Process.Start(start)) {
            string output = process.StandardOutput.ReadToEnd();
            process.WaitForExit();
            if (process.ExitCode != 0)
                throw new InvalidOperationException("zavctl sim" + quoted + " failed");
            return output;
        }
    }

    private static void Until(Func<bool> condition, string what)
    {
        if (!SpinWait.SpinUntil(condition, limit))
            throw new TimeoutException("not in time: " + what);
    }

    private static T Take<T>(BlockingCollection<T> queue)
    {
        T item;
        if (!queue.TryTake(out item, limit))
            throw new TimeoutException("nothing came");
        return item;
    }

    private static void Equal<T>(T expected, T actual, string what = "",
                                 [CallerLineNumber] int line = 0)
    {
        Interlocked.Increment(ref checks);
        if (EqualityComparer<T>.Default.Equals(expected, actual))
            return;
        Interlocked.Increment(ref failures);
        Console.WriteLine("FAILED, line {0}: {1}: '{2}', not '{3}'", line, what, actual, expected);
    }

    private static T Thrown<T>(Action action) where T : Exception
    {
        try {
            action();
        } catch (T expected) {
            Interlocked.Increment(ref checks);
            return expected;
        }
        throw new InvalidOperationException("no " + typeof(T).Name);
    }

    /// <summary>The events of a service as text, one after the other.</summary>
    private sealed class Heard
    {
        private readonly BlockingCollection<string> events = new BlockingCollection<string>();

        internal Heard(ZavService zav)
        {
            zav.Invoked += (sender, arguments) => Add("invoked");
            zav.Disconnected += (sender, arguments) => Add("disconnected");
            zav.SoundModeChanged += (sender, mode) => Add("mode " + mode);
            zav.SpdifDataReceived += (sender, data) => Add("spdif " + BitConverter.ToString(data));
            zav.ManagedEvent += (sender, arguments) =>
                Add("event " + arguments.Number + ": " + BitConverter.ToString(arguments.Data));
        }

        internal int Count => events.Count;
        internal int LastThread { get; private set; }

        internal void Next(string expected, [CallerLineNumber] int line = 0)
        {
            Equal(expected, Take(events), "event", line);
        }

        private void Add(string text)
        {
            LastThread = Thread.CurrentThread.ManagedThreadId;
            events.Add(text);
        }
    }

    /// <summary>The thread of a user interface, whose work the test does itself.</summary>
    private sealed class Queued : SynchronizationContext
    {
        internal readonly BlockingCollection<Action> Posted = new BlockingCollection<Action>();
        internal volatile bool Closed;

        public override void Post(SendOrPostCallback callback, object state)
        {
            if (Closed)
                throw new ObjectDisposedException(null, "closed");
            Posted.Add(() => callback(state));
        }
    }
}
