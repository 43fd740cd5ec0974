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
            { "failures", FailedRequestsHaveTheirResults },
            { "awaiting", AwaitedRequestsQueue },
            { "events", EventsCarryWhatTheServiceSentAcrossCollections },
            { "callbacks", RegistrationIsTakenBack },
            { "handlers", HandlersMayThrowAndMove },
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
    }

    private static SpeakerManagerState state = new SpeakerManagerState {
        AudioEffect = AudioEffect.Night, SubWooferLevel = 2, ConnectionStatus = 8,
        SubWooferAvailable = true, EqualizerAvailable = false, State = 9,
        FeatureSupported = 10, WooferConnected = 1, EffectList = 0x41,
    };

    /// <summary>
    /// Requests: what the service receives, then the results: normal, refused, unanswered.
    /// </summary>
    private static readonly Dictionary<string, Func<ZavService, object>> requests =
        new Dictionary<string, Func<ZavService, object>> {
        { "InitSpeakerManager (105, 2, [1, 2, 3, 4, 5, 6, 7], 8, true, false, 9, 10, 1, 65)|0|-1|0",
          zav => zav.InitSpeakerManager(state) },
        { "GetMode ()|Night|None|None", zav => zav.Mode },
        { "GetWooferLevel ()|2|-1|-1", zav => zav.WooferLevel },
        { "IsSoundBarConnected ()|True|False|False", zav => zav.IsSoundBarConnected },
        { "IsAvailableWooferMode ()|True|False|False", zav => zav.IsWooferModeAvailable },
        { "IsAvailableEqualizer ()|False|False|False", zav => zav.IsEqualizerAvailable },
        { "IsFeatureSupported ()|10|Unknown|Unknown", zav => zav.FeatureSupport },
        { "GetWooferState ()|1|None|None", zav => zav.WooferState },
        { "GetModeList ()|Standard Music||", zav => Words(zav.GetModes()) },
        { "SetMode (4,)|0|-1|-1", zav => zav.SetMode(AudioEffect.Movie) },
        { "SetWooferLevel (-99,)|-1|-1|-1", zav => zav.SetWooferLevel(-99) },
        { "SetEarcToZav (1,)|0|-1|-1", zav => zav.SetEarc(1) },
        { "SetSpeakerSelection (5,)|0|-1|-1", zav => zav.SetSpeakerSelection(5) },
        { "GetSpeakerSelection ()|5|-1|0", zav => zav.SpeakerSelection },
        { "SetCorvalaVconf (0,)|0|-1|-1", zav => zav.SetCorvala(0) },
        { "getQCorvalaAvailable ()|0|-1|-1", zav => zav.CorvalaAvailability },
        { "RequestPreTrial (1,)|0|-1|-1", zav => zav.RequestPreTrial(1) },
        { "IsZAVReady ()|1|-1|-1", zav => zav.Readiness },
        { "GetEqualizerLevel ()|-10 0 5||", zav => Words(zav.GetEqualizerLevels()) },
        { "GetSCL ()|3: 1 1 2|0: |0: ", zav => {
            Speaker[] speakers;
            int count = zav.GetSpeakers(out speakers);
            return count + ": " + Words(speakers.Select(speaker => speaker.ConnectionType));
        } },
    };

    private static void RequestsForwardAndConvert()
    {
        ZavService zav = ZavService.Connect();
        Sent("SetEqualizerLevel ([-10, 0, 5], 3)", () => zav.SetEqualizerLevels(-10, 0, 5));
        Sent("ReceivedDataFromSpdif ([0x01, 0xff], 2)", () => zav.ForwardSpdifData(1, 255));
        Sent("", () => zav.SetEqualizerLevels());
        Sent("", () => zav.ForwardSpdifData());
        state.SetValues(1, 2, 3, 4, 5, 6, 7);
        foreach (var request in requests) {
            string[] parts = request.Key.Split('|');
            Sent(parts[0], () => Equal(parts[1], request.Value(zav).ToString(), request.Key));
        }

        state.SubWooferAvailable = false;
        state.EqualizerAvailable = true;
        Equal(true, !state.SubWooferAvailable && state.EqualizerAvailable, "flags read back");
        zav.InitSpeakerManager(state);
        Equal(true, !zav.IsWooferModeAvailable && zav.IsEqualizerAvailable, "flags arrive");
        string many = Words(Enumerable.Range(1, 150)).Replace(" ", ", ");
        Sim("reply", "GetEqualizerLevel", "([" + many + "], 150)");
        Equal(Words(Enumerable.Range(1, 100)), Words(zav.GetEqualizerLevels()));

        Speaker[] speakers;
        zav.GetSpeakers(out speakers);
        byte[] record = speakers[1].ToArray();
        Equal(148, record.Length);
        Equal("Front right\0", Encoding.ASCII.GetString(record, 0, 12));
        Equal("1 0 0 0", Words(record.Skip(34).Take(4)));
        Sim("reply", "GetSCL", "(@ay [],)");
        Equal("-1 0", zav.GetSpeakers(out speakers) + " " + speakers.Length);
    }

    private static void FailedRequestsHaveTheirResults()
    {
        ZavService zav = ZavService.Connect();
        foreach (string request in requests.Keys)
            Sim("fail", request.Split()[0]);
        foreach (var request in requests)
            Equal(request.Key.Split('|')[3], request.Value(zav).ToString(), request.Key);
        Received();

        zav.Dispose();
        Sim("hang", "SetEarcToZav");
        Task<int> slow = Task.Run(() => zav.SetEarc(1));
        // Looked for without clearing, which could take the call away unseen.
        Equal(true, SpinWait.SpinUntil(() => Sim("calls") != "", limit), "the request is sent");
        Received();
        List<Thread> threads = requests.Select(request => new Thread(() =>
            Equal(request.Key.Split('|')[2], request.Value(zav).ToString(), request.Key))).ToList();
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
        int worker = Thread.CurrentThread.ManagedThreadId;
        Task<int>[] levels = Enumerable.Range(0, 2)
            .Select(i => zav.RequestAsync(service => service.WooferLevel)).ToArray();
        Task failing = zav.RequestAsync(service => { throw new InvalidDataException("mine"); });
        Task last = zav.RequestAsync(service => {
            worker = Thread.CurrentThread.ManagedThreadId;
            service.SetMode(AudioEffect.Game);
        });
        Equal(true, last.Wait(limit), "all end");
        Equal("4 4", Words(levels.Select(level => level.Result)));
        Equal("mine", Thrown<AggregateException>(() => failing.Wait(limit)).InnerException.Message);
        Equal(AudioEffect.Game, zav.Mode);
        Equal(false, worker == Thread.CurrentThread.ManagedThreadId, "on the caller's thread");
    }

    private static void EventsCarryWhatTheServiceSentAcrossCollections()
    {
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
        for (int i = 1; i <= 150; ++i) {
            AudioEffect mode = i % 2 == 0 ? AudioEffect.Night : AudioEffect.Movie;
            zav.SetMode(mode);
            heard.Next("mode " + mode);
            zav.SetWooferLevel(i % 6 - 3);
            heard.Next("event 1: " + BitConverter.ToString(BitConverter.GetBytes(i % 6 - 3)));
            zav.ForwardSpdifData((byte)i, 255);
            heard.Next("spdif " + i.ToString("X2") + "-FF" +
                       string.Concat(Enumerable.Repeat("-00", 42)));
            zav.InitSpeakerManager(new SpeakerManagerState
            {
                AudioEffect = mode, SubWooferLevel = i % 6 - 3, ConnectionStatus = i % 2,
            });
            heard.Next(i % 2 == 0 ? "disconnected" : "invoked");
        }
        Volatile.Write(ref done, true);
        collector.Join();

        Sim("emit", "SetCbSoundModeChange", "(99,)");
        heard.Next("mode 199");
        IEnumerable<int> bytes = Enumerable.Range(0, 550).Select(i => i % 251);
        string array = "[byte " + Words(bytes).Replace(" ", ", ") + "]";
        Sim("emit", "notifyZAVCsharpCallback", "(9, " + array + ", 550)");
        heard.Next("event 9: " + BitConverter.ToString(bytes.Select(i => (byte)i).ToArray()));
        Sim("emit", "notifyZAVCsharpCallback", "(8, @ay [], 0)");
        heard.Next("event 8: ");

        // Mono keeps delegates of static methods by itself, so that no collection shows whether the
        // fields do.
        int rooted = typeof(ZavService).GetFields(BindingFlags.Static | BindingFlags.NonPublic)
            .Count(field => field.IsInitOnly && field.FieldType.IsSubclassOf(typeof(Delegate)));
        Equal(5, rooted, "delegates in fields");
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

    private static void Sent(string received, Action request, [CallerLineNumber] int line = 0)
    {
        request();
        Equal(received, Received(), "what the service received", line);
    }

    private static string Words<T>(IEnumerable<T> items) => string.Join(" ", items);

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
