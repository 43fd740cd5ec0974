// SPDX-License-Identifier: MIT
//
// The functions of libzavservice-api.so, in the order of ZAVServiceBridgeAPI.h, which says what
// each does. Every type is blittable, so that no runtime makes code for a call when it runs: byte
// stands for C's bool, IntPtr for the address of a callback. Truth values that are int in C stay
// int. A test compares the list with the header and the library.
using System;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;

[assembly: InternalsVisibleTo("zav-csharp-tests")]
#if NET8_0_OR_GREATER
[assembly: DisableRuntimeMarshalling]
#endif

namespace Zav
{
    internal static unsafe class Imports
    {
        private const string Library = "libzavservice-api.so";

        [DllImport(Library)]
        internal static extern void SignalSubscribe(IntPtr callback);
        [DllImport(Library)]
        internal static extern void DisconnectSignalSubscribe(IntPtr callback);
        [DllImport(Library)]
        internal static extern int SetSendDataToSpkViaSPDIFcb(IntPtr callback, IntPtr user);
        [DllImport(Library)]
        internal static extern void ExtSpkSetSoundModeChangedCb(IntPtr callback, IntPtr user);
        [DllImport(Library)]
        internal static extern int UnSetSendDataToSpkViaSPDIFcb();
        [DllImport(Library)]
        internal static extern int get_size_of_SpeakerManagerState();
        [DllImport(Library)]
        internal static extern int getQCorvalaAvailable();
        [DllImport(Library)]
        internal static extern int InitDbusConnection();
        [DllImport(Library)]
        internal static extern void FiniDbusConnection();
        [DllImport(Library)]
        internal static extern int IsSoundBarConnected();
        [DllImport(Library)]
        internal static extern int IsFeatureSupported();
        [DllImport(Library)]
        internal static extern AudioEffect GetMode();
        [DllImport(Library)]
        internal static extern int SetMode(AudioEffect mode);
        [DllImport(Library)]
        internal static extern int GetWooferLevel();
        [DllImport(Library)]
        internal static extern int SetWooferLevel(int level);
        [DllImport(Library)]
        internal static extern int SetEarcToZav(int value);
        [DllImport(Library)]
        internal static extern byte IsAvailableWooferMode();
        [DllImport(Library)]
        internal static extern byte IsAvailableEqualizer();
        [DllImport(Library)]
        internal static extern void GetEqualizerLevel(int** levels, int* count);
        [DllImport(Library)]
        internal static extern void SetEqualizerLevel(int* levels, int count);
        [DllImport(Library)]
        internal static extern void ALLSignalUnSubscribe();
        [DllImport(Library)]
        internal static extern void DataReceivedFromSpkViaSPDIF(byte* data, int length);
        [DllImport(Library)]
        internal static extern WooferState GetWooferState();
        [DllImport(Library)]
        internal static extern int GetSCL(Speaker* list);
        [DllImport(Library)]
        internal static extern int RequestPreTrial(int value);
        [DllImport(Library)]
        internal static extern int GetSpeakerSelection();
        [DllImport(Library)]
        internal static extern int SetSpeakerSelection(int selection);
        [DllImport(Library)]
        internal static extern int SetCorvalaVconf(int value);
        [DllImport(Library)]
        internal static extern byte SubscribeZAVCSharpCallback(IntPtr callback);
        [DllImport(Library)]
        internal static extern void UnsubscribeZAVCSharpCallback();
        [DllImport(Library)]
        internal static extern void GetModeList(int** list, int* count);
        [DllImport(Library)]
        internal static extern int IsZAVReady();
        [DllImport(Library)]
        internal static extern int InitSpeakerManager(SpeakerManagerState state);
    }
}
