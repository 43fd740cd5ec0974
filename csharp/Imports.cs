// SPDX-License-Identifier: MIT
//
// The 33 functions of libzavservice-api.so, in the order of ZAVServiceBridgeAPI.h, which says what
// each does. Every type is blittable but two: delegates, which the caller keeps alive for as long
// as the library may call them, and C's bool, which is one byte. Truth values that are int in C
// stay int. Twice the same list: .NET generates its marshalling code from partial methods, Mono and
// older .NET know extern methods only. A test compares the two with each other and the library.
using System;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;

[assembly: InternalsVisibleTo("zav-csharp-tests")]

namespace Zav
{
    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    internal delegate void SignalCallback();

    /// <summary>With 44 bytes of S/PDIF data.</summary>
    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    internal delegate void SpdifCallback(IntPtr data, IntPtr user);

    /// <summary>With a mode in the service's numbering, from 0.</summary>
    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    internal delegate void ModeCallback(int mode, IntPtr user);

    /// <summary>With a buffer that begins with the address of count bytes, if any.</summary>
    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    internal delegate void ManagedCallback(int number, IntPtr buffer, int count);

    internal static unsafe partial class Imports
    {
        private const string Library = "libzavservice-api.so";

#if ZAV_LIBRARY_IMPORT
        // The platform's C convention is the default.
        [LibraryImport(Library)]
        internal static partial void SignalSubscribe(SignalCallback callback);
        [LibraryImport(Library)]
        internal static partial void DisconnectSignalSubscribe(SignalCallback callback);
        [LibraryImport(Library)]
        internal static partial int SetSendDataToSpkViaSPDIFcb(SpdifCallback callback, IntPtr user);
        [LibraryImport(Library)]
        internal static partial void ExtSpkSetSoundModeChangedCb(ModeCallback callback, IntPtr user);
        [LibraryImport(Library)]
        internal static partial int UnSetSendDataToSpkViaSPDIFcb();
        [LibraryImport(Library)]
        internal static partial int get_size_of_SpeakerManagerState();
        [LibraryImport(Library)]
        internal static partial int getQCorvalaAvailable();
        [LibraryImport(Library)]
        internal static partial int InitDbusConnection();
        [LibraryImport(Library)]
        internal static partial void FiniDbusConnection();
        [LibraryImport(Library)]
        internal static partial int IsSoundBarConnected();
        [LibraryImport(Library)]
        internal static partial int IsFeatureSupported();
        [LibraryImport(Library)]
        internal static partial AudioEffect GetMode();
        [LibraryImport(Library)]
        internal static partial int SetMode(AudioEffect mode);
        [LibraryImport(Library)]
        internal static partial int GetWooferLevel();
        [LibraryImport(Library)]
        internal static partial int SetWooferLevel(int level);
        [LibraryImport(Library)]
        internal static partial int SetEarcToZav(int value);
        [LibraryImport(Library)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static partial bool IsAvailableWooferMode();
        [LibraryImport(Library)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static partial bool IsAvailableEqualizer();
        [LibraryImport(Library)]
        internal static partial void GetEqualizerLevel(int** levels, int* count);
        [LibraryImport(Library)]
        internal static partial void SetEqualizerLevel(int* levels, int count);
        [LibraryImport(Library)]
        internal static partial void ALLSignalUnSubscribe();
        [LibraryImport(Library)]
        internal static partial void DataReceivedFromSpkViaSPDIF(byte* data, int length);
        [LibraryImport(Library)]
        internal static partial WooferState GetWooferState();
        [LibraryImport(Library)]
        internal static partial int GetSCL(Speaker* list);
        [LibraryImport(Library)]
        internal static partial int RequestPreTrial(int value);
        [LibraryImport(Library)]
        internal static partial int GetSpeakerSelection();
        [LibraryImport(Library)]
        internal static partial int SetSpeakerSelection(int selection);
        [LibraryImport(Library)]
        internal static partial int SetCorvalaVconf(int value);
        [LibraryImport(Library)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static partial bool SubscribeZAVCSharpCallback(ManagedCallback callback);
        [LibraryImport(Library)]
        internal static partial void UnsubscribeZAVCSharpCallback();
        [LibraryImport(Library)]
        internal static partial void GetModeList(int** list, int* count);
        [LibraryImport(Library)]
        internal static partial int IsZAVReady();
        [LibraryImport(Library)]
        internal static partial int InitSpeakerManager(SpeakerManagerState state);
#else
        private const CallingConvention Cdecl = CallingConvention.Cdecl;

        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern void SignalSubscribe(SignalCallback callback);
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern void DisconnectSignalSubscribe(SignalCallback callback);
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int SetSendDataToSpkViaSPDIFcb(SpdifCallback callback, IntPtr user);
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern void ExtSpkSetSoundModeChangedCb(ModeCallback callback, IntPtr user);
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int UnSetSendDataToSpkViaSPDIFcb();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int get_size_of_SpeakerManagerState();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int getQCorvalaAvailable();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int InitDbusConnection();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern void FiniDbusConnection();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int IsSoundBarConnected();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int IsFeatureSupported();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern AudioEffect GetMode();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int SetMode(AudioEffect mode);
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int GetWooferLevel();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int SetWooferLevel(int level);
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int SetEarcToZav(int value);
        [DllImport(Library, CallingConvention = Cdecl)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool IsAvailableWooferMode();
        [DllImport(Library, CallingConvention = Cdecl)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool IsAvailableEqualizer();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern void GetEqualizerLevel(int** levels, int* count);
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern void SetEqualizerLevel(int* levels, int count);
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern void ALLSignalUnSubscribe();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern void DataReceivedFromSpkViaSPDIF(byte* data, int length);
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern WooferState GetWooferState();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int GetSCL(Speaker* list);
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int RequestPreTrial(int value);
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int GetSpeakerSelection();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int SetSpeakerSelection(int selection);
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int SetCorvalaVconf(int value);
        [DllImport(Library, CallingConvention = Cdecl)]
        [return: MarshalAs(UnmanagedType.I1)]
        internal static extern bool SubscribeZAVCSharpCallback(ManagedCallback callback);
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern void UnsubscribeZAVCSharpCallback();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern void GetModeList(int** list, int* count);
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int IsZAVReady();
        [DllImport(Library, CallingConvention = Cdecl)]
        internal static extern int InitSpeakerManager(SpeakerManagerState state);
#endif
    }
}
