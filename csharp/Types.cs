// SPDX-License-Identifier: MIT
//
// The enumerations and records of ZAVServiceTypes.h. Numbers without a unit are the service's.
using System;
using System.Runtime.InteropServices;

namespace Zav
{
    /// <summary>Sound modes. Any other number of the service passes through as well.</summary>
    public enum AudioEffect
    {
        /// <summary>Standard.</summary>
        Standard = 100,
        /// <summary>Music.</summary>
        Music = 101,
        /// <summary>Clear voice.</summary>
        ClearVoice = 102,
        /// <summary>Sports.</summary>
        Sports = 103,
        /// <summary>Movie.</summary>
        Movie = 104,
        /// <summary>Night.</summary>
        Night = 105,
        /// <summary>Surround.</summary>
        Surround = 106,
        /// <summary>Smart.</summary>
        Smart = 107,
        /// <summary>Game.</summary>
        Game = 108,
        /// <summary>Adaptive.</summary>
        Adaptive = 109,
        /// <summary>DTS Virtual:X.</summary>
        DtsVirtualX = 110,
        /// <summary>Bass boost.</summary>
        BassBoost = 111,
        /// <summary>Adaptive sound plus.</summary>
        AdaptiveSoundPlus = 112,
        /// <summary>Has no display string.</summary>
        Unlabelled1 = 113,
        /// <summary>Has no display string.</summary>
        Unlabelled2 = 114,
        /// <summary>Never listed.</summary>
        SoundBar1 = 115,
        /// <summary>Never listed.</summary>
        SoundBar2 = 116,
        /// <summary>The mode could not be asked for.</summary>
        None = 117
    }

    /// <summary>State of the woofer: the service's number, unchanged.</summary>
    public enum WooferState
    {
        /// <summary>None; or the service could not be asked.</summary>
        None = 0
    }

    /// <summary>Supported features: the service's number, unchanged.</summary>
    public enum FeatureSupport
    {
        /// <summary>The service could not be asked.</summary>
        Unknown = -4
    }

    /// <summary>The speaker-manager state as the application knows it: 60 bytes.</summary>
    [StructLayout(LayoutKind.Sequential)]
    public unsafe struct SpeakerManagerState
    {
        /// <summary>Current sound mode.</summary>
        public AudioEffect AudioEffect;
        /// <summary>Current sub-woofer level.</summary>
        public int SubWooferLevel;
        internal fixed int ValueArray[7];
        /// <summary>0 without a sound device.</summary>
        public int ConnectionStatus;
        internal byte SubWooferFlag;
        internal byte EqualizerFlag;
        /// <summary>State of the speaker manager.</summary>
        public int State;
        /// <summary>Supported features.</summary>
        public int FeatureSupported;
        /// <summary>Whether a woofer is connected.</summary>
        public int WooferConnected;
        /// <summary>One bit for each mode that can be set.</summary>
        public int EffectList;

        /// <summary>Whether there is a sub-woofer to set.</summary>
        public bool SubWooferAvailable
        {
            get { return SubWooferFlag != 0; }
            set { SubWooferFlag = (byte)(value ? 1 : 0); }
        }

        /// <summary>Whether there is an equalizer.</summary>
        public bool EqualizerAvailable
        {
            get { return EqualizerFlag != 0; }
            set { EqualizerFlag = (byte)(value ? 1 : 0); }
        }

        /// <summary>Sets the seven values, which are passed through.</summary>
        /// <exception cref="ArgumentException">There are not seven.</exception>
        public void SetValues(params int[] values)
        {
            if (values.Length != 7)
                throw new ArgumentException(values.Length + " values, not 7", nameof(values));
            fixed (int* array = ValueArray)
                Marshal.Copy(values, 0, new IntPtr(array), values.Length);
        }
    }

    /// <summary>One networked speaker, as the service describes it: 148 bytes.</summary>
    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public unsafe struct Speaker
    {
        internal fixed byte Before[34];
        /// <summary>Connection type.</summary>
        public int ConnectionType;
        internal fixed byte After[110];

        /// <summary>A copy of the whole record.</summary>
        public byte[] ToArray()
        {
            fixed (Speaker* record = &this)
                return Layout.Copy(record, sizeof(Speaker));
        }
    }

    /// <summary>An event that has a number instead of a name.</summary>
    public sealed class ManagedEventArgs : EventArgs
    {
        internal ManagedEventArgs(int number, byte[] data)
        {
            Number = number;
            Data = data;
        }

        /// <summary>The service's event number.</summary>
        public int Number { get; }

        /// <summary>What belongs to the event, 0 to 550 bytes.</summary>
        public byte[] Data { get; }
    }

    /// <summary>That both sides of the boundary mean the same bytes.</summary>
    internal static class Layout
    {
        /// <param name="librarySize">The size of SpeakerManagerState in the library.</param>
        /// <exception cref="NotSupportedException">
        /// This runtime lays a record out in another way: no call would be safe.
        /// </exception>
        internal static void Check(int librarySize)
        {
            Size(typeof(SpeakerManagerState), librarySize);
            Offset(typeof(SpeakerManagerState), nameof(SpeakerManagerState.AudioEffect), 0);
            Offset(typeof(SpeakerManagerState), nameof(SpeakerManagerState.SubWooferLevel), 4);
            Offset(typeof(SpeakerManagerState), nameof(SpeakerManagerState.ValueArray), 8);
            Offset(typeof(SpeakerManagerState), nameof(SpeakerManagerState.ConnectionStatus), 36);
            Offset(typeof(SpeakerManagerState), nameof(SpeakerManagerState.SubWooferFlag), 40);
            Offset(typeof(SpeakerManagerState), nameof(SpeakerManagerState.EqualizerFlag), 41);
            Offset(typeof(SpeakerManagerState), nameof(SpeakerManagerState.State), 44);
            Offset(typeof(SpeakerManagerState), nameof(SpeakerManagerState.FeatureSupported), 48);
            Offset(typeof(SpeakerManagerState), nameof(SpeakerManagerState.WooferConnected), 52);
            Offset(typeof(SpeakerManagerState), nameof(SpeakerManagerState.EffectList), 56);
            Size(typeof(Speaker), 148);
            Offset(typeof(Speaker), nameof(Speaker.ConnectionType), 34);
        }

        internal static void Offset(Type record, string member, int expected)
        {
            int offset = Marshal.OffsetOf(record, member).ToInt32();
            Same("offset of " + record.Name + "." + member, offset, expected);
        }

        private static void Size(Type record, int expected)
        {
            Same("size of " + record.Name, Marshal.SizeOf(record), expected);
        }

        internal static unsafe byte[] Copy(void* bytes, int count)
        {
            var copy = new byte[count];
            if (count > 0)
                Marshal.Copy(new IntPtr(bytes), copy, 0, count);
            return copy;
        }

        private static void Same(string what, int managed, int native)
        {
            if (managed != native)
                throw new NotSupportedException(
                    what + ": " + managed + " here, " + native + " in libzavservice-api.so");
        }
    }
}
