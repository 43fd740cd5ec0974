// SPDX-License-Identifier: MIT
using System;
using System.Runtime.InteropServices;

namespace Zav
{
    /// <summary>
    /// What the library calls, by address. It keeps bare pointers for as long as the process lives,
    /// so these must neither move nor be collected, also while nobody listens.
    /// </summary>
    internal static unsafe class Callbacks
    {
        private const int SpdifBuffer = 44;

#if NET8_0_OR_GREATER
        internal static readonly IntPtr Invoked = (IntPtr)(delegate* unmanaged<void>)&OnInvoked;
        internal static readonly IntPtr Disconnected =
            (IntPtr)(delegate* unmanaged<void>)&OnDisconnected;
        internal static readonly IntPtr SpdifDataReceived =
            (IntPtr)(delegate* unmanaged<void*, IntPtr, void>)&OnSpdifDataReceived;
        internal static readonly IntPtr SoundModeChanged =
            (IntPtr)(delegate* unmanaged<int, IntPtr, void>)&OnSoundModeChanged;
        internal static readonly IntPtr Notified =
            (IntPtr)(delegate* unmanaged<int, void**, int, void>)&OnNotified;
#else
        [AttributeUsage(AttributeTargets.Method)]
        private sealed class UnmanagedCallersOnlyAttribute : Attribute
        {
        }

        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        private delegate void SignalCallback();
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        private delegate void SpdifCallback(void* data, IntPtr user);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        private delegate void ModeCallback(int mode, IntPtr user);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        private delegate void ManagedCallback(int number, void** buffer, int count);

        // An address alone keeps no delegate: these fields do.
        private static readonly SignalCallback invoked = OnInvoked;
        private static readonly SignalCallback disconnected = OnDisconnected;
        private static readonly SpdifCallback spdifDataReceived = OnSpdifDataReceived;
        private static readonly ModeCallback soundModeChanged = OnSoundModeChanged;
        private static readonly ManagedCallback notified = OnNotified;

        internal static readonly IntPtr Invoked = Marshal.GetFunctionPointerForDelegate(invoked);
        internal static readonly IntPtr Disconnected =
            Marshal.GetFunctionPointerForDelegate(disconnected);
        internal static readonly IntPtr SpdifDataReceived =
            Marshal.GetFunctionPointerForDelegate(spdifDataReceived);
        internal static readonly IntPtr SoundModeChanged =
            Marshal.GetFunctionPointerForDelegate(soundModeChanged);
        internal static readonly IntPtr Notified = Marshal.GetFunctionPointerForDelegate(notified);
#endif

        [UnmanagedCallersOnly]
        private static void OnInvoked() => ZavService.RaiseInvoked();

        [UnmanagedCallersOnly]
        private static void OnDisconnected() => ZavService.RaiseDisconnected();

        [UnmanagedCallersOnly]
        private static void OnSpdifDataReceived(void* data, IntPtr user) =>
            ZavService.Raise(new SpdifDataReceivedEventArgs(Copy(data, SpdifBuffer)));

        /// <summary>Signals number the modes from 0, requests from 100.</summary>
        [UnmanagedCallersOnly]
        private static void OnSoundModeChanged(int mode, IntPtr user) =>
            ZavService.Raise(
                new SoundModeChangedEventArgs(unchecked(AudioEffect.Standard + mode)));

        /// <summary>
        /// The buffer begins with the address of the bytes, if there are any. They are gone when
        /// this returns.
        /// </summary>
        [UnmanagedCallersOnly]
        private static void OnNotified(int number, void** buffer, int count) =>
            ZavService.Raise(new NotifiedEventArgs(number, Copy(*buffer, count)));

        private static byte[] Copy(void* bytes, int count)
        {
            var copy = new byte[count];
            if (count > 0)
                Marshal.Copy(new IntPtr(bytes), copy, 0, count);
            return copy;
        }
    }
}
