// SPDX-License-Identifier: MIT
//
// The enumerations and records of ZAVServiceTypes.h. Numbers without a unit are the service's.
using System;
using System.Collections.Generic;
using System.Collections.ObjectModel;
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
        /// <summary>No mode.</summary>
        None = 117
    }

    /// <summary>State of the woofer: the service's number, unchanged.</summary>
    public enum WooferState
    {
        /// <summary>None; or the service could not be asked.</summary>
        None = 0
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
        internal byte SubWooferAvailableByte;
        internal byte EqualizerAvailableByte;
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
            get { return SubWooferAvailableByte != 0; }
            set { SubWooferAvailableByte = (byte)(value ? 1 : 0); }
        }

        /// <summary>Whether there is an equalizer.</summary>
        public bool EqualizerAvailable
        {
            get { return EqualizerAvailableByte != 0; }
            set { EqualizerAvailableByte = (byte)(value ? 1 : 0); }
        }

        /// <summary>Sets the seven values, which are passed through.</summary>
        /// <exception cref="ArgumentException">There are not seven.</exception>
        public void SetValues(params int[] values)
        {
            if (values == null)
                throw new ArgumentNullException(nameof(values));
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
        internal fixed byte Opaque1[34];
        /// <summary>Connection type.</summary>
        public int ConnectionType;
        internal fixed byte Opaque2[110];

        /// <summary>A copy of the whole record.</summary>
        public byte[] ToArray()
        {
            var copy = new byte[sizeof(Speaker)];
            fixed (Speaker* record = &this)
                Marshal.Copy(new IntPtr(record), copy, 0, copy.Length);
            return copy;
        }
    }

    /// <summary>The networked speakers.</summary>
    public sealed class SpeakerList : ReadOnlyCollection<Speaker>
    {
        internal SpeakerList(IList<Speaker> speakers, bool answered) : base(speakers)
        {
            Answered = answered;
        }

        /// <summary>Whether the service was asked; if not, the list is empty.</summary>
        public bool Answered { get; }
    }

    /// <summary>A change of the sound mode.</summary>
    public sealed class SoundModeChangedEventArgs : EventArgs
    {
        internal SoundModeChangedEventArgs(AudioEffect mode)
        {
            Mode = mode;
        }

        /// <summary>The mode that is set now.</summary>
        public AudioEffect Mode { get; }
    }

    /// <summary>S/PDIF data for a speaker.</summary>
    public sealed class SpdifDataReceivedEventArgs : EventArgs
    {
        private readonly byte[] data;

        internal SpdifDataReceivedEventArgs(byte[] data)
        {
            this.data = data;
        }

        /// <summary>A copy of the data: 44 bytes, filled up with 0.</summary>
        public byte[] ToArray() => (byte[])data.Clone();
    }

    /// <summary>An event of the service's that has a number instead of a name.</summary>
    public sealed class NotifiedEventArgs : EventArgs
    {
        private readonly byte[] data;

        internal NotifiedEventArgs(int number, byte[] data)
        {
            Number = number;
            this.data = data;
        }

        /// <summary>The service's event number.</summary>
        public int Number { get; }

        /// <summary>A copy of what belongs to the event, 0 to 550 bytes.</summary>
        public byte[] ToArray() => (byte[])data.Clone();
    }

    /// <summary>What a handler of another event has thrown.</summary>
    public sealed class HandlerFailedEventArgs : EventArgs
    {
        internal HandlerFailedEventArgs(Exception exception)
        {
            Exception = exception;
        }

        /// <summary>The exception.</summary>
        public Exception Exception { get; }
    }
}
