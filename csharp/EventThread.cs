// SPDX-License-Identifier: MIT
using System;
using System.IO;
using System.Runtime.InteropServices;
using System.Threading;
using System.Threading.Tasks;

namespace Zav
{
    /// <summary>
    /// The thread that iterates the GLib main context on which the library's signals arrive. They
    /// are bound to the context of the thread that connects: this one connects, and nobody else.
    /// </summary>
    internal static class EventThread
    {
        private const string GLib = "libglib-2.0.so.0";

        /// <summary>As long as a request waits for its reply.</summary>
        internal static TimeSpan ConnectTimeout = TimeSpan.FromSeconds(5);

        private static readonly object gate = new object();
        private static Task connected; // the first connection or the last attempt
        private static volatile bool ending;

        /// <summary>Waits for the connection; the first one starts the thread.</summary>
        internal static async Task ConnectAsync(CancellationToken cancellationToken)
        {
            Task attempt = Attempt();
            using (var waiting =
                       CancellationTokenSource.CreateLinkedTokenSource(cancellationToken)) {
                Task timeout = Task.Delay(ConnectTimeout, waiting.Token);
                Task first = await Task.WhenAny(attempt, timeout).ConfigureAwait(false);
                waiting.Cancel();
                if (first == timeout) {
                    cancellationToken.ThrowIfCancellationRequested();
                    throw new TimeoutException(
                        "ZAVService, or the system bus, has not answered within " +
                        ConnectTimeout.TotalSeconds + " s; the attempt goes on");
                }
            }
            await attempt.ConfigureAwait(false);
        }

        private static Task Attempt()
        {
            lock (gate) {
                if (connected == null || connected.IsFaulted) {
                    var attempt = new TaskCompletionSource<bool>(
                        TaskCreationOptions.RunContinuationsAsynchronously);
                    connected = attempt.Task;
                    new Thread(() => Run(attempt)) {
                        IsBackground = true, Name = "ZavService events",
                    }.Start();
                }
                return connected;
            }
        }

        private static void Run(TaskCompletionSource<bool> attempt)
        {
            IntPtr context = IntPtr.Zero;
            try {
                CheckRecord(Imports.get_size_of_SpeakerManagerState());
                context = g_main_context_new();
                g_main_context_push_thread_default(context);
                if (Imports.InitDbusConnection() != 0)
                    throw new IOException("no connection to ZAVService over the system bus");
            } catch (Exception exception) {
                if (context != IntPtr.Zero) {
                    g_main_context_pop_thread_default(context);
                    g_main_context_unref(context);
                }
                attempt.SetException(exception);
                return;
            }
            // A Mono process cannot end before this thread has come back from C, and newer Monos tell of
            // one that ends meanwhile. A handler that does not return delays the end by a second.
            Thread own = Thread.CurrentThread;
            AppDomain.CurrentDomain.ProcessExit += (sender, arguments) => {
                ending = true;
                g_main_context_wakeup(context);
                if (Thread.CurrentThread != own)
                    own.Join(TimeSpan.FromSeconds(1));
            };
            attempt.SetResult(true);
            while (!ending)
                g_main_context_iteration(context, 1);
        }

        /// <exception cref="NotSupportedException">
        /// The library has another record: no call with one would be safe.
        /// </exception>
        internal static unsafe void CheckRecord(int librarySize)
        {
            if (librarySize != sizeof(SpeakerManagerState))
                throw new NotSupportedException(
                    "size of SpeakerManagerState: " + sizeof(SpeakerManagerState) + " here, " +
                    librarySize + " in libzavservice-api.so");
        }

        [DllImport(GLib)]
        private static extern IntPtr g_main_context_new();
        [DllImport(GLib)]
        private static extern void g_main_context_unref(IntPtr context);
        [DllImport(GLib)]
        private static extern void g_main_context_push_thread_default(IntPtr context);
        [DllImport(GLib)]
        private static extern void g_main_context_pop_thread_default(IntPtr context);
        [DllImport(GLib)]
        private static extern int g_main_context_iteration(IntPtr context, int mayBlock);
        [DllImport(GLib)]
        private static extern void g_main_context_wakeup(IntPtr context);
    }
}
