// SPDX-License-Identifier: MIT
using System;
using System.IO;
using System.Threading;
using System.Threading.Tasks;

namespace Zav
{
    /// <summary>
    /// Control of the external sound devices of a television, through ZAVService.
    /// <para>
    /// Requests block the calling thread: about 1 s at the most for their turn, because one at a
    /// time is on the wire, and 5 s for the reply; <see cref="RequestAsync{T}"/> moves them off it.
    /// Any thread may make them. A failure is a result, which stands with each of them: of one that
    /// was *refused*, because others kept the connection busy, or *unanswered*, because no reply
    /// came.
    /// </para>
    /// <para>
    /// Events are raised on a thread of this class, or through <see cref="EventTarget"/>. A handler
    /// may make requests; meanwhile no further event arrives.
    /// </para>
    /// </summary>
    public sealed class ZavService : IDisposable
    {
        private const int MaxElements = 100; // of a list of modes or levels
        private const int MaxSpeakers = 50;
        private const int SpdifBytes = 44;

        // The library keeps bare pointers to these for as long as the process lives, so they must
        // neither move nor be collected, also after Dispose().
        private static readonly SignalCallback invokedCallback = OnInvoked;
        private static readonly SignalCallback disconnectedCallback = OnDisconnected;
        private static readonly SpdifCallback spdifCallback = OnSpdifData;
        private static readonly ModeCallback modeCallback = OnModeChanged;
        private static readonly ManagedCallback managedCallback = OnManagedEvent;

        private static readonly object gate = new object(); // connecting and disposing
        private static readonly SemaphoreSlim turn = new SemaphoreSlim(1); // awaited requests
        private static bool connected;
        private static volatile ZavService current; // whose events are raised

        private ZavService()
        {
        }

        /// <summary>
        /// Connects to ZAVService, which need not run yet, and listens for its events. Blocks for
        /// the bus's answers. The process has one connection, which lasts as long as it does; until
        /// the object is disposed of, further calls return the same one.
        /// <para>
        /// To be called before other code of the process uses libzavservice-api.so: whoever
        /// connects first decides on which thread the events arrive.
        /// </para>
        /// </summary>
        /// <exception cref="IOException">No system bus, or busy; may be tried again.</exception>
        /// <exception cref="NotSupportedException">The library has other records.</exception>
        public static ZavService Connect()
        {
            lock (gate) {
                if (!connected) {
                    Layout.Check(Imports.get_size_of_SpeakerManagerState());
                    connected = EventThread.Start(() => Imports.InitDbusConnection() == 0);
                    if (!connected)
                        throw new IOException("no connection to ZAVService over the system bus");
                }
                if (current == null) {
                    current = new ZavService();
                    current.Listen();
                }
                return current;
            }
        }

        /// <summary>Ends the events. A handler that is running now finishes its work.</summary>
        public void Dispose()
        {
            lock (gate) {
                if (current != this)
                    return;
                current = null;
                Imports.ALLSignalUnSubscribe();
                Imports.UnSetSendDataToSpkViaSPDIFcb();
                Imports.UnsubscribeZAVCSharpCallback();
                Imports.FiniDbusConnection();
            }
        }

        /// <summary>A sound device is there.</summary>
        public event EventHandler<EventArgs> Invoked;

        /// <summary>The sound device is gone.</summary>
        public event EventHandler<EventArgs> Disconnected;

        /// <summary>S/PDIF data for a speaker: 44 bytes, filled up with 0.</summary>
        public event EventHandler<byte[]> SpdifDataReceived;

        /// <summary>The sound mode has changed, to this one.</summary>
        public event EventHandler<AudioEffect> SoundModeChanged;

        /// <summary>An event of the service's that has a number instead of a name.</summary>
        public event EventHandler<ManagedEventArgs> ManagedEvent;

        /// <summary>
        /// A handler of another event has thrown this; the other handlers are called all the same.
        /// Without a handler here it goes to standard error.
        /// </summary>
        public event EventHandler<Exception> HandlerFailed;

        /// <summary>Where handlers run: null, as at first, means on the event thread.</summary>
        public SynchronizationContext EventTarget { get; set; }

        /// <summary>
        /// Makes a request, or several, on a thread of the pool. Requests that are awaited wait for
        /// each other without a limit, and so cannot be refused because of one another.
        /// </summary>
        public async Task<T> RequestAsync<T>(Func<ZavService, T> request)
        {
            await turn.WaitAsync().ConfigureAwait(false);
            try {
                return await Task.Run(() => request(this)).ConfigureAwait(false);
            } finally {
                turn.Release();
            }
        }

        /// <summary>The same for a request without a result.</summary>
        public Task RequestAsync(Action<ZavService> request)
        {
            return RequestAsync(service => {
                request(service);
                return true;
            });
        }

        /// <summary>The service's readiness; refused, unanswered: -1.</summary>
        public int Readiness => Imports.IsZAVReady();

        /// <summary>Whether a sound bar is connected; refused, unanswered: false.</summary>
        public bool IsSoundBarConnected => Imports.IsSoundBarConnected() != 0;

        /// <summary>Supported features; refused, unanswered: Unknown.</summary>
        public FeatureSupport FeatureSupport => (FeatureSupport)Imports.IsFeatureSupported();

        /// <summary>Availability of the Corvala feature; refused, unanswered: -1.</summary>
        public int CorvalaAvailability => Imports.getQCorvalaAvailable();

        /// <summary>The sound mode; refused, unanswered: None.</summary>
        public AudioEffect Mode => Imports.GetMode();

        /// <summary>Level of the sub-woofer; refused, unanswered: -1.</summary>
        public int WooferLevel => Imports.GetWooferLevel();

        /// <summary>State of the woofer; refused, unanswered: None.</summary>
        public WooferState WooferState => Imports.GetWooferState();

        /// <summary>Whether there is a sub-woofer to set; refused, unanswered: false.</summary>
        public bool IsWooferModeAvailable => Imports.IsAvailableWooferMode();

        /// <summary>Whether there is an equalizer; refused, unanswered: false.</summary>
        public bool IsEqualizerAvailable => Imports.IsAvailableEqualizer();

        /// <summary>The speakers in use; refused: -1, unanswered: 0.</summary>
        public int SpeakerSelection => Imports.GetSpeakerSelection();

        /// <returns>The service's result; refused, unanswered: -1.</returns>
        public int SetMode(AudioEffect mode) => Imports.SetMode(mode);

        /// <returns>The service's result; refused, unanswered: -1.</returns>
        public int SetWooferLevel(int level) => Imports.SetWooferLevel(level);

        /// <summary>Whether sound goes out over eARC.</summary>
        /// <returns>The service's result; refused, unanswered: -1.</returns>
        public int SetEarc(int value) => Imports.SetEarcToZav(value);

        /// <returns>The service's result; refused, unanswered: -1.</returns>
        public int SetSpeakerSelection(int selection) => Imports.SetSpeakerSelection(selection);

        /// <summary>Whether the Corvala feature is on.</summary>
        /// <returns>The service's result; refused, unanswered: -1.</returns>
        public int SetCorvala(int value) => Imports.SetCorvalaVconf(value);

        /// <summary>Begins or ends a pre-trial.</summary>
        /// <returns>The service's result; refused, unanswered: -1.</returns>
        public int RequestPreTrial(int value) => Imports.RequestPreTrial(value);

        /// <summary>Hands the state over, without waiting for the service.</summary>
        /// <returns>0 when it was handed to the bus; refused: -1.</returns>
        public int InitSpeakerManager(SpeakerManagerState state) =>
            Imports.InitSpeakerManager(state);

        /// <summary>
        /// The sound modes that the service offers, in ascending order but with Smart second;
        /// refused, unanswered: empty.
        /// </summary>
        public unsafe AudioEffect[] GetModes()
        {
            int* buffer = stackalloc int[MaxElements];
            int count;
            Imports.GetModeList(&buffer, &count);
            var modes = new AudioEffect[count];
            for (int i = 0; i < count; ++i)
                modes[i] = (AudioEffect)buffer[i];
            return modes;
        }

        /// <summary>
        /// The equalizer levels, one for each band, of more than 100 the first 100; refused,
        /// unanswered: empty.
        /// </summary>
        public unsafe int[] GetEqualizerLevels()
        {
            int* buffer = stackalloc int[MaxElements];
            int count;
            Imports.GetEqualizerLevel(&buffer, &count);
            var levels = new int[count];
            for (int i = 0; i < count; ++i)
                levels[i] = buffer[i];
            return levels;
        }

        /// <summary>
        /// Sets the equalizer levels, one for each band, without waiting for the service. Without
        /// levels nothing is sent.
        /// </summary>
        public unsafe void SetEqualizerLevels(params int[] levels)
        {
            fixed (int* first = levels)
                Imports.SetEqualizerLevel(first, levels.Length);
        }

        /// <summary>
        /// The networked speakers; refused, unanswered: none. More than 50 end the process.
        /// </summary>
        /// <param name="speakers">They, or an empty array.</param>
        /// <returns>How many; refused, unanswered: 0; when the service knows of none: -1.</returns>
        public unsafe int GetSpeakers(out Speaker[] speakers)
        {
            var buffer = new Speaker[MaxSpeakers];
            int count;
            fixed (Speaker* first = buffer)
                count = Imports.GetSCL(first);
            Array.Resize(ref buffer, Math.Max(count, 0));
            speakers = buffer;
            return count;
        }

        /// <summary>
        /// Forwards what a speaker sent over S/PDIF, of more than 40 bytes the first 40. Without
        /// data nothing is sent.
        /// </summary>
        public unsafe void ForwardSpdifData(params byte[] data)
        {
            fixed (byte* first = data)
                Imports.DataReceivedFromSpkViaSPDIF(first, data.Length);
        }

        private void Listen()
        {
            Imports.SignalSubscribe(invokedCallback);
            Imports.DisconnectSignalSubscribe(disconnectedCallback);
            Imports.SetSendDataToSpkViaSPDIFcb(spdifCallback, IntPtr.Zero);
            Imports.ExtSpkSetSoundModeChangedCb(modeCallback, IntPtr.Zero);
            if (Imports.SubscribeZAVCSharpCallback(managedCallback))
                return;
            Dispose();
            throw new IOException("other requests keep the connection to ZAVService busy");
        }

        private static void OnInvoked() =>
            Deliver(service => service.Raise(service.Invoked, EventArgs.Empty));

        private static void OnDisconnected() =>
            Deliver(service => service.Raise(service.Disconnected, EventArgs.Empty));

        private static unsafe void OnSpdifData(IntPtr data, IntPtr user) =>
            Deliver(service => service.Raise(service.SpdifDataReceived,
                                             Layout.Copy((void*)data, SpdifBytes)));

        /// <summary>Signals number the modes from 0, requests from 100.</summary>
        private static void OnModeChanged(int mode, IntPtr user) =>
            Deliver(service => service.Raise(service.SoundModeChanged,
                                             unchecked(AudioEffect.Standard + mode)));

        /// <summary>The bytes are gone when this returns; only here can they be copied.</summary>
        private static unsafe void OnManagedEvent(int number, IntPtr buffer, int count) =>
            Deliver(service => service.Raise(
                service.ManagedEvent,
                new ManagedEventArgs(number, Layout.Copy(*(void**)buffer, count))));

        /// <summary>The way of every callback; no exception may get from here into C.</summary>
        private static void Deliver(Action<ZavService> raise)
        {
            ZavService service = current;
            if (service == null)
                return;
            try {
                raise(service);
            } catch (Exception exception) {
                service.Report(exception);
            }
        }

        private void Raise<T>(EventHandler<T> handlers, T argument)
        {
            if (handlers == null)
                return;
            SynchronizationContext target = EventTarget;
            foreach (EventHandler<T> handler in handlers.GetInvocationList()) {
                if (target == null)
                    Call(handler, argument);
                else
                    target.Post(_ => Call(handler, argument), null);
            }
        }

        private void Call<T>(EventHandler<T> handler, T argument)
        {
            try {
                handler(this, argument);
            } catch (Exception exception) {
                Report(exception);
            }
        }

        private void Report(Exception exception)
        {
            try {
                EventHandler<Exception> handlers = HandlerFailed;
                if (handlers != null)
                    handlers(this, exception);
                else
                    Console.Error.WriteLine(exception);
            } catch (Exception) {
                // Nobody is left who could be told.
            }
        }
    }
}
