// SPDX-License-Identifier: MIT
using System;
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
        private const CallingConvention Cdecl = CallingConvention.Cdecl;

        private static volatile bool ending;

        /// <summary>Starts the thread and waits until it has connected.</summary>
        /// <returns>What connecting returned; the thread goes on only if that was true.</returns>
        internal static bool Start(Func<bool> connect)
        {
            var connected = new TaskCompletionSource<bool>();
            var thread = new Thread(() => Run(connect, connected));
            thread.IsBackground = true;
            thread.Start();
            return connected.Task.GetAwaiter().GetResult();
        }

        private static void Run(Func<bool> connect, TaskCompletionSource<bool> connected)
        {
            try {
                IntPtr context = g_main_context_new();
                g_main_context_push_thread_default(context);
                if (!connect()) {
                    g_main_context_pop_thread_default(context);
                    g_main_context_unref(context);
                    connected.SetResult(false);
                    return;
                }
                // A Mono process cannot end before this thread has come back from C.
                AppDomain.CurrentDomain.ProcessExit += (sender, arguments) => {
                    ending = true;
                    g_main_context_wakeup(context);
                };
                connected.SetResult(true);
                while (!ending)
                    g_main_context_iteration(context, 1);
            } catch (Exception exception) {
                connected.TrySetException(exception);
            }
        }

        [DllImport(GLib, CallingConvention = Cdecl)]
        private static extern IntPtr g_main_context_new();
        [DllImport(GLib, CallingConvention = Cdecl)]
        private static extern void g_main_context_unref(IntPtr context);
        [DllImport(GLib, CallingConvention = Cdecl)]
        private static extern void g_main_context_push_thread_default(IntPtr context);
        [DllImport(GLib, CallingConvention = Cdecl)]
        private static extern void g_main_context_pop_thread_default(IntPtr context);
        [DllImport(GLib, CallingConvention = Cdecl)]
        private static extern int g_main_context_iteration(IntPtr context, int mayBlock);
        [DllImport(GLib, CallingConvention = Cdecl)]
        private static extern void g_main_context_wakeup(IntPtr context);
    }
}
