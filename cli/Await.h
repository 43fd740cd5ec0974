// SPDX-License-Identifier: MIT
/**
 * @file Await.h
 * Waiting with a limit. The library and GIO may block for long, so what blocks runs on a thread of
 * its own; the main thread says after a second what is waited for, and gives up at the limit.
 * Signals keep their default: Ctrl-C ends the process at once.
 */
#ifndef CLI_AWAIT_H
#define CLI_AWAIT_H

#include <chrono>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <thread>

namespace cli
{

extern std::optional<double> timeLimit; ///< --timeout, in seconds

/** A thread could not be waited for: the process ends without cleaning up behind it. */
extern bool abandoned;

/** The seconds that each wait for an answer may take. */
double Limit();

/** Seconds on a clock that is never set. */
double Now();

constexpr auto kTick = std::chrono::milliseconds(50);

/**
 * @param whom "ZAVService did not answer within 6 s"
 * @param holds asked again and again; may take a tick each time
 * @throws Failure when it does not hold in time
 */
void WaitUntil(const std::string& whom, const std::function<bool()>& holds);

/**
 * @param call may still run when this has thrown: it refers to nothing of its caller's
 * @return what the call returns; what it throws is thrown
 */
template <class Call>
auto Await(const std::string& whom, Call call)
{
    std::packaged_task<decltype(call())()> task(std::move(call));
    auto result = task.get_future();
    std::thread worker(std::move(task));
    try {
        WaitUntil(whom, [&result] { return result.wait_for(kTick) == std::future_status::ready; });
    } catch (...) {
        abandoned = true;
        worker.detach();
        throw;
    }
    worker.join();
    return result.get();
}

} // namespace cli

#endif
