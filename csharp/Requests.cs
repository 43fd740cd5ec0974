// SPDX-License-Identifier: MIT
using System;
using System.Threading;
using System.Threading.Tasks;

namespace Zav
{
    // The requests, each of them in two forms.
    public sealed partial class ZavService
    {
        private const int FeatureSupportUnknown = -4;
        private const int MaxSpeakers = 50;
        private const int MaxLevels = 100; // or modes

        /// <summary>Whether the service can be used.</summary>
        /// <returns>1 when it can; refused, unanswered: -1, as it may be itself.</returns>
        public int GetReadiness() => Run(Imports.IsZAVReady);

        /// <inheritdoc cref="GetReadiness"/>
        public Task<int> GetReadinessAsync(
            CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(Imports.IsZAVReady, cancellationToken);

        /// <summary>Whether a sound bar is connected.</summary>
        /// <returns>Refused, unanswered: false, as without one.</returns>
        public bool IsSoundBarConnected() => Run(ReadSoundBarConnected);

        /// <inheritdoc cref="IsSoundBarConnected"/>
        public Task<bool> IsSoundBarConnectedAsync(
            CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(ReadSoundBarConnected, cancellationToken);

        /// <summary>The supported features: the service's number.</summary>
        /// <returns>Refused, unanswered: null.</returns>
        public int? GetFeatureSupport() => Run(ReadFeatureSupport);

        /// <inheritdoc cref="GetFeatureSupport"/>
        public Task<int?> GetFeatureSupportAsync(
            CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(ReadFeatureSupport, cancellationToken);

        /// <summary>Availability of the Corvala feature.</summary>
        /// <returns>The service's number; refused, unanswered: -1, as it may be itself.</returns>
        public int GetCorvalaAvailability() => Run(Imports.getQCorvalaAvailable);

        /// <inheritdoc cref="GetCorvalaAvailability"/>
        public Task<int> GetCorvalaAvailabilityAsync(
            CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(Imports.getQCorvalaAvailable, cancellationToken);

        /// <summary>The sound mode.</summary>
        /// <returns>Refused, unanswered: null.</returns>
        public AudioEffect? GetMode() => Run(ReadMode);

        /// <inheritdoc cref="GetMode"/>
        public Task<AudioEffect?> GetModeAsync(
            CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(ReadMode, cancellationToken);

        /// <summary>Level of the sub-woofer.</summary>
        /// <returns>The level; refused, unanswered: -1, as it may be itself.</returns>
        public int GetWooferLevel() => Run(Imports.GetWooferLevel);

        /// <inheritdoc cref="GetWooferLevel"/>
        public Task<int> GetWooferLevelAsync(
            CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(Imports.GetWooferLevel, cancellationToken);

        /// <summary>State of the woofer.</summary>
        /// <returns>Refused, unanswered: None, as without one.</returns>
        public WooferState GetWooferState() => Run(Imports.GetWooferState);

        /// <inheritdoc cref="GetWooferState"/>
        public Task<WooferState> GetWooferStateAsync(
            CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(Imports.GetWooferState, cancellationToken);

        /// <summary>Whether there is a sub-woofer to set.</summary>
        /// <returns>Refused, unanswered: false, as without one.</returns>
        public bool IsWooferModeAvailable() => Run(ReadWooferModeAvailable);

        /// <inheritdoc cref="IsWooferModeAvailable"/>
        public Task<bool> IsWooferModeAvailableAsync(
            CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(ReadWooferModeAvailable, cancellationToken);

        /// <summary>Whether there is an equalizer.</summary>
        /// <returns>Refused, unanswered: false, as without one.</returns>
        public bool IsEqualizerAvailable() => Run(ReadEqualizerAvailable);

        /// <inheritdoc cref="IsEqualizerAvailable"/>
        public Task<bool> IsEqualizerAvailableAsync(
            CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(ReadEqualizerAvailable, cancellationToken);

        /// <summary>The speakers in use.</summary>
        /// <returns>
        /// The service's number; refused: -1, unanswered: 0, as it may be itself.
        /// </returns>
        public int GetSpeakerSelection() => Run(Imports.GetSpeakerSelection);

        /// <inheritdoc cref="GetSpeakerSelection"/>
        public Task<int> GetSpeakerSelectionAsync(
            CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(Imports.GetSpeakerSelection, cancellationToken);

        /// <summary>Sets the sound mode.</summary>
        /// <returns>The service's result; refused, unanswered: -1, as it may be itself.</returns>
        public int SetMode(AudioEffect mode) => Run(Imports.SetMode, mode);

        /// <inheritdoc cref="SetMode"/>
        public Task<int> SetModeAsync(
            AudioEffect mode, CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(Imports.SetMode, mode, cancellationToken);

        /// <summary>Sets the level of the sub-woofer.</summary>
        /// <returns>The service's result; refused, unanswered: -1, as it may be itself.</returns>
        public int SetWooferLevel(int level) => Run(Imports.SetWooferLevel, level);

        /// <inheritdoc cref="SetWooferLevel"/>
        public Task<int> SetWooferLevelAsync(
            int level, CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(Imports.SetWooferLevel, level, cancellationToken);

        /// <summary>Sets whether sound goes out over eARC.</summary>
        /// <returns>The service's result; refused, unanswered: -1, as it may be itself.</returns>
        public int SetEarc(int value) => Run(Imports.SetEarcToZav, value);

        /// <inheritdoc cref="SetEarc"/>
        public Task<int> SetEarcAsync(
            int value, CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(Imports.SetEarcToZav, value, cancellationToken);

        /// <summary>Sets the speakers in use.</summary>
        /// <returns>The service's result; refused, unanswered: -1, as it may be itself.</returns>
        public int SetSpeakerSelection(int selection) =>
            Run(Imports.SetSpeakerSelection, selection);

        /// <inheritdoc cref="SetSpeakerSelection"/>
        public Task<int> SetSpeakerSelectionAsync(
            int selection, CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(Imports.SetSpeakerSelection, selection, cancellationToken);

        /// <summary>Sets whether the Corvala feature is on.</summary>
        /// <returns>The service's result; refused, unanswered: -1, as it may be itself.</returns>
        public int SetCorvala(int value) => Run(Imports.SetCorvalaVconf, value);

        /// <inheritdoc cref="SetCorvala"/>
        public Task<int> SetCorvalaAsync(
            int value, CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(Imports.SetCorvalaVconf, value, cancellationToken);

        /// <summary>Begins or ends a pre-trial.</summary>
        /// <returns>The service's result; refused, unanswered: -1, as it may be itself.</returns>
        public int RequestPreTrial(int value) => Run(Imports.RequestPreTrial, value);

        /// <inheritdoc cref="RequestPreTrial"/>
        public Task<int> RequestPreTrialAsync(
            int value, CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(Imports.RequestPreTrial, value, cancellationToken);

        /// <summary>Hands the state over, without waiting for the service.</summary>
        /// <returns>0 when it was handed to the bus; refused: -1.</returns>
        public int InitSpeakerManager(SpeakerManagerState state) =>
            Run(Imports.InitSpeakerManager, state);

        /// <inheritdoc cref="InitSpeakerManager"/>
        public Task<int> InitSpeakerManagerAsync(
            SpeakerManagerState state,
            CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(Imports.InitSpeakerManager, state, cancellationToken);
        /// <summary>
        /// The sound modes that the service offers, in ascending order but with Smart second.
        /// </summary>
        /// <returns>Refused, unanswered: empty, as without any.</returns>
        public AudioEffect[] GetModes() => Run(ReadModes);

        /// <inheritdoc cref="GetModes"/>
        public Task<AudioEffect[]> GetModesAsync(
            CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(ReadModes, cancellationToken);

        /// <summary>
        /// The levels of the equalizer, one for each band, of more than 100 the first 100.
        /// </summary>
        /// <returns>Refused, unanswered: empty, as without any.</returns>
        public int[] GetEqualizerLevels() => Run(ReadEqualizerLevels);

        /// <inheritdoc cref="GetEqualizerLevels"/>
        public Task<int[]> GetEqualizerLevelsAsync(
            CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(ReadEqualizerLevels, cancellationToken);

        /// <summary>
        /// Sets the levels of the equalizer, one for each band, without waiting for the service:
        /// what is refused is lost. Without levels nothing is sent.
        /// </summary>
        public void SetEqualizerLevels(params int[] levels) =>
            Run(WriteEqualizerLevels, Copy(levels, nameof(levels)));

        /// <inheritdoc cref="SetEqualizerLevels"/>
        public Task SetEqualizerLevelsAsync(
            int[] levels, CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(WriteEqualizerLevels, Copy(levels, nameof(levels)), cancellationToken);

        /// <summary>The networked speakers. More than 50 end the process.</summary>
        /// <returns>
        /// Refused, unanswered: empty, and <see cref="SpeakerList.Answered"/> is false.
        /// </returns>
        public SpeakerList GetSpeakers() => Run(ReadSpeakers);

        /// <inheritdoc cref="GetSpeakers"/>
        public Task<SpeakerList> GetSpeakersAsync(
            CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(ReadSpeakers, cancellationToken);

        /// <summary>
        /// Forwards what a speaker sent over S/PDIF, of more than 40 bytes the first 40; what is
        /// refused or unanswered is lost. Without data nothing is sent.
        /// </summary>
        public void ForwardSpdifData(params byte[] data) =>
            Run(WriteSpdifData, Copy(data, nameof(data)));

        /// <inheritdoc cref="ForwardSpdifData"/>
        public Task ForwardSpdifDataAsync(
            byte[] data, CancellationToken cancellationToken = default(CancellationToken)) =>
            RunAsync(WriteSpdifData, Copy(data, nameof(data)), cancellationToken);

        private static bool ReadSoundBarConnected() => Imports.IsSoundBarConnected() != 0;

        private static bool ReadWooferModeAvailable() => Imports.IsAvailableWooferMode() != 0;

        private static bool ReadEqualizerAvailable() => Imports.IsAvailableEqualizer() != 0;

        private static AudioEffect? ReadMode()
        {
            AudioEffect mode = Imports.GetMode();
            return mode == AudioEffect.None ? (AudioEffect?)null : mode;
        }

        private static int? ReadFeatureSupport()
        {
            int support = Imports.IsFeatureSupported();
            return support == FeatureSupportUnknown ? (int?)null : support;
        }

        private static unsafe AudioEffect[] ReadModes()
        {
            int* buffer = stackalloc int[MaxLevels];
            int count;
            Imports.GetModeList(&buffer, &count);
            var modes = new AudioEffect[count];
            for (int i = 0; i < count; ++i)
                modes[i] = (AudioEffect)buffer[i];
            return modes;
        }

        private static unsafe int[] ReadEqualizerLevels()
        {
            int* buffer = stackalloc int[MaxLevels];
            int count;
            Imports.GetEqualizerLevel(&buffer, &count);
            var levels = new int[count];
            for (int i = 0; i < count; ++i)
                levels[i] = buffer[i];
            return levels;
        }

        private static unsafe bool WriteEqualizerLevels(int[] levels)
        {
            fixed (int* first = levels)
                Imports.SetEqualizerLevel(first, levels.Length);
            return true;
        }

        /// <summary>The library tells "none" by -1, and by 0 that nobody was asked.</summary>
        private static unsafe SpeakerList ReadSpeakers()
        {
            var buffer = new Speaker[MaxSpeakers];
            int count;
            fixed (Speaker* first = buffer)
                count = Imports.GetSCL(first);
            Array.Resize(ref buffer, Math.Max(count, 0));
            return new SpeakerList(buffer, count != 0);
        }

        private static unsafe bool WriteSpdifData(byte[] data)
        {
            fixed (byte* first = data)
                Imports.DataReceivedFromSpkViaSPDIF(first, data.Length);
            return true;
        }

        /// <summary>The caller may change the array while the request waits for its turn.</summary>
        private static T[] Copy<T>(T[] array, string name)
        {
            if (array == null)
                throw new ArgumentNullException(name);
            return (T[])array.Clone();
        }

        private TResult Run<TResult>(Func<TResult> request) => Run(call => call(), request);

        private TResult Run<T, TResult>(Func<T, TResult> request, T argument)
        {
            ThrowIfDisposed();
            return RequestQueue.Run(request, argument);
        }

        private Task<TResult> RunAsync<TResult>(Func<TResult> request,
                                                CancellationToken cancellationToken) =>
            RunAsync(call => call(), request, cancellationToken);

        private Task<TResult> RunAsync<T, TResult>(Func<T, TResult> request, T argument,
                                                   CancellationToken cancellationToken)
        {
            ThrowIfDisposed();
            return RequestQueue.RunAsync(request, argument, cancellationToken);
        }
    }
}
