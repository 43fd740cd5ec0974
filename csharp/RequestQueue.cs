// SPDX-License-Identifier: MIT
using System;
using System.Collections.Generic;
using System.Threading;
using System.Threading.Tasks;

namespace Zav
{
    /// <summary>
    /// One request at a time for the whole process, in the order in which they were made, whether
    /// they are awaited or not. The library itself lets a request wait for a second only and then
    /// refuses it. None of an application's code runs inside of a turn, so that no request can wait
    /// for one that waits for it.
    /// </summary>
    internal static class RequestQueue
    {
        private static readonly object gate = new object();
        private static readonly LinkedList<TaskCompletionSource<bool>> waiting =
            new LinkedList<TaskCompletionSource<bool>>();
        private static bool busy;

        internal static TResult Run<T, TResult>(Func<T, TResult> request, T argument)
        {
            LinkedListNode<TaskCompletionSource<bool>> turn = Join();
            if (turn != null)
                turn.Value.Task.Wait();
            try {
                return request(argument);
            } finally {
                Leave();
            }
        }

        internal static async Task<TResult> RunAsync<T, TResult>(
            Func<T, TResult> request, T argument, CancellationToken cancellationToken)
        {
            cancellationToken.ThrowIfCancellationRequested();
            LinkedListNode<TaskCompletionSource<bool>> turn = Join();
            if (turn != null) {
                using (cancellationToken.Register(() => GiveUp(turn, cancellationToken)))
                    await turn.Value.Task.ConfigureAwait(false);
            }
            try {
                return await Task.Run(() => request(argument)).ConfigureAwait(false);
            } finally {
                Leave();
            }
        }

        /// <returns>The turn to wait for; null when it has come at once.</returns>
        private static LinkedListNode<TaskCompletionSource<bool>> Join()
        {
            lock (gate) {
                if (busy)
                    return waiting.AddLast(new TaskCompletionSource<bool>(
                        TaskCreationOptions.RunContinuationsAsynchronously));
                busy = true;
                return null;
            }
        }

        private static void GiveUp(LinkedListNode<TaskCompletionSource<bool>> turn,
                                   CancellationToken cancellationToken)
        {
            lock (gate) {
                if (turn.List == null)
                    return; // it has come
                waiting.Remove(turn);
            }
            turn.Value.TrySetCanceled(cancellationToken);
        }

        private static void Leave()
        {
            LinkedListNode<TaskCompletionSource<bool>> next;
            lock (gate) {
                next = waiting.First;
                busy = next != null;
                if (busy)
                    waiting.RemoveFirst();
            }
            if (next != null)
                next.Value.SetResult(true);
        }
    }
}
