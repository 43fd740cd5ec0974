// SPDX-License-Identifier: MIT
using System;
using System.IO;
using System.Linq;
using System.Threading;
using System.Threading.Tasks;

namespace Zav
{
    /// <summary>
    /// Control of the external sound devices of a television, through ZAVService. All members may
    /// be used by any thread.
    /// <para>
    /// <b>Requests.</b> One at a time is made of the service: all requests of the process, awaited
    /// or not, wait for one another in the order in which they were made. Then each takes 5 s at
    /// the most. Cancelling gives up a request that still waits for its turn; one that has been
    /// sent is carried out. Each member says what it returns when the service was not asked or has
    /// not answered: <i>refused</i>, because code of the process beside this class kept the
    /// connection busy for 1 s; <i>unanswered</i>, because no reply came, or an error. "As it may be
    /// itself" means that the result of a failure may also be an answer.
    /// </para>
    /// <para>
    /// <b>Events</b> are raised one after the other, in the order in which the service sent them,
    /// on a thread of this class, or by the context given to <see cref="RaiseEventsOn"/>. A handler
    /// may make requests, and they wait for their turn; no further event is raised until it
    /// returns. What a handler throws goes to <see cref="HandlerFailed"/>, and the other handlers
    /// are called all the same. The exception is one thrown by an <c>async void</c> handler after
    /// its first <c>await</c>: as everywhere, it goes to the context, or without one ends the
    /// process.
    /// </para>
    /// </summary>
    /// <threadsafety static="true" instance="true"/>
    public sealed partial class ZavService : IDisposable
    {
        private static readonly object gate = new object();
        // Replaced by another array, never changed.
        private static volatile ZavService[] instances = Array.Empty<ZavService>();

        private volatile SynchronizationContext eventContext;
        private volatile bool disposed;

        private ZavService()
        {
        }

        /// <summary>
        /// Connects to ZAVService, which need not run yet, and listens for its events. The process
        /// has one connection, which lasts as long as it does and is shared by all objects; each
        /// object has events of its own.
        /// <para>
        /// To be called before other code of the process uses libzavservice-api.so. Whoever
        /// connects first decides on which thread the events arrive: after other code they come on
        /// the thread that iterates its GLib main context, or not at all if none does. To be seen
        /// by the name of the thread, which is not "ZavService events" then, and in the platform
        /// log, where the first call here says "Already initialized".
        /// </para>
        /// </summary>
        /// <exception cref="IOException">
        /// No system bus, or other code keeps the connection busy; may be tried again.
        /// </exception>
        /// <exception cref="TimeoutException">
        /// ZAVService, or the bus, has not answered within 5 s. The attempt goes on: a further call
        /// waits for the same one.
        /// </exception>
        /// <exception cref="NotSupportedException">The library has other records.</exception>
        /// <exception cref="DllNotFoundException">There is no library.</exception>
        public static ZavService Connect() => ConnectAsync().GetAwaiter().GetResult();

        /// <summary>The same without blocking.</summary>
        /// <inheritdoc cref="Connect" path="/exception"/>
        /// <exception cref="OperationCanceledException">
        /// It was cancelled. The attempt goes on, as after a timeout.
        /// </exception>
        public static async Task<ZavService> ConnectAsync(
            CancellationToken cancellationToken = default(CancellationToken))
        {
            await EventThread.ConnectAsync(cancellationToken).ConfigureAwait(false);
            return await RequestQueue.RunAsync(service => service.Listen(), new ZavService(),
                                               cancellationToken).ConfigureAwait(false);
        }

        /// <summary>
        /// Ends the events of this object, and requests by it. A handler that is running now
        /// finishes its work; requests that have been made are carried out.
        /// </summary>
        public void Dispose()
        {
            lock (gate) {
                if (disposed)
                    return;
                disposed = true;
                instances = instances.Where(instance => instance != this).ToArray();
                if (instances.Length != 0)
                    return;
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

        /// <summary>The service sends data to a speaker over S/PDIF.</summary>
        public event EventHandler<SpdifDataReceivedEventArgs> SpdifDataReceived;

        /// <summary>The sound mode has changed.</summary>
        public event EventHandler<SoundModeChangedEventArgs> SoundModeChanged;

        /// <summary>An event of the service's that has a number instead of a name.</summary>
        public event EventHandler<NotifiedEventArgs> Notified;

        /// <summary>
        /// A handler of another event has failed. Without a handler here the exception is written
        /// to standard error.
        /// </summary>
        public event EventHandler<HandlerFailedEventArgs> HandlerFailed;

        /// <summary>
        /// From now on events of this object are posted to the context, for example that of a user
        /// interface: <c>zav.RaiseEventsOn(SynchronizationContext.Current)</c>.
        /// </summary>
        /// <exception cref="ArgumentNullException">There is no context.</exception>
        /// <exception cref="ObjectDisposedException"/>
        public void RaiseEventsOn(SynchronizationContext context)
        {
            if (context == null)
                throw new ArgumentNullException(nameof(context));
            ThrowIfDisposed();
            eventContext = context;
        }

        internal static void RaiseInvoked() =>
            Raise(service => service.Invoked, EventArgs.Empty);

        internal static void RaiseDisconnected() =>
            Raise(service => service.Disconnected, EventArgs.Empty);

        internal static void Raise(SpdifDataReceivedEventArgs arguments) =>
            Raise(service => service.SpdifDataReceived, arguments);

        internal static void Raise(SoundModeChangedEventArgs arguments) =>
            Raise(service => service.SoundModeChanged, arguments);

        internal static void Raise(NotifiedEventArgs arguments) =>
            Raise(service => service.Notified, arguments);

        private ZavService Listen()
        {
            lock (gate) {
                if (instances.Length == 0) {
                    Imports.SignalSubscribe(Callbacks.Invoked);
                    Imports.DisconnectSignalSubscribe(Callbacks.Disconnected);
                    Imports.SetSendDataToSpkViaSPDIFcb(Callbacks.SpdifDataReceived, IntPtr.Zero);
                    Imports.ExtSpkSetSoundModeChangedCb(Callbacks.SoundModeChanged, IntPtr.Zero);
                    if (Imports.SubscribeZAVCSharpCallback(Callbacks.Notified) == 0)
                        throw new IOException(
                            "other code of the process keeps the connection to ZAVService busy");
                }
                instances = instances.Concat(new[] { this }).ToArray();
            }
            return this;
        }

        /// <summary>No exception may get from here into C.</summary>
        private static void Raise<T>(Func<ZavService, EventHandler<T>> of, T arguments)
        {
            foreach (ZavService service in instances) {
                EventHandler<T> handlers = of(service);
                SynchronizationContext context = service.eventContext;
                if (handlers == null)
                    continue;
                if (context == null)
                    service.Call(handlers, arguments);
                else
                    service.Post(context, handlers, arguments);
            }
        }

        private void Post<T>(SynchronizationContext context, EventHandler<T> handlers, T arguments)
        {
            try {
                context.Post(_ => Call(handlers, arguments), null);
            } catch (Exception exception) {
                Report(exception);
            }
        }

        private void Call<T>(EventHandler<T> handlers, T arguments)
        {
            foreach (EventHandler<T> handler in handlers.GetInvocationList()) {
                if (disposed)
                    return;
                try {
                    handler(this, arguments);
                } catch (Exception exception) {
                    Report(exception);
                }
            }
        }

        private void Report(Exception exception)
        {
            try {
                EventHandler<HandlerFailedEventArgs> handlers = HandlerFailed;
                if (handlers != null)
                    handlers(this, new HandlerFailedEventArgs(exception));
                else
                    Console.Error.WriteLine(exception);
            } catch (Exception) {
                // Nobody is left who could be told.
            }
        }

        private void ThrowIfDisposed()
        {
            if (disposed)
                throw new ObjectDisposedException(nameof(ZavService));
        }
    }
}
