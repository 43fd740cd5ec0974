// SPDX-License-Identifier: MIT
/** @file Simulator.h The simulated service on the bus, with its faults and its memory of calls. */
#ifndef ZAV_SERVICE_SIMULATOR_H
#define ZAV_SERVICE_SIMULATOR_H

#include "Scenario.h"
#include "ZavService.h"

#include <gio/gio.h>

#include <deque>
#include <list>
#include <map>
#include <memory>
#include <string>

/** Lives in one thread, that of the main loop. */
class Simulator
{
public:
    /**
     * Puts the service's object and that of its controls on the bus.
     * @param bus must not be dispatched any more when this object is gone
     * @param beQuiet whether to keep calls and signals from standard output
     * @param mainLoop is ended by the control "quit", and when the output cannot be written
     */
    Simulator(GDBusConnection* bus, bool beQuiet, GMainLoop* mainLoop);

    void Apply(const Control& control);

    /** Does what the scenario says, from now on. */
    void Play(const Scenario& scenario);

private:
    struct Fault
    {
        guint delay = 0;
        Control instead = {}; // hang, fail or reply in place of the service's answer
    };

    struct OpenCall
    {
        std::shared_ptr<GDBusMethodInvocation> invocation;
        Fault fault;   // as set when the call came
        size_t number; // of all calls
    };

    /** A step that waits for its time. */
    struct ScheduledStep
    {
        Simulator& simulator;
        Step step;
        size_t call; // the number of the one that it answers, or came of; 0 for none
        guint timer = 0;
    };

    /** What a test can want to look back on, in a service that may run for days. */
    static constexpr size_t kMaxCalls = 1000;

    void Schedule(const Step& step, size_t call);
    void Run(const ScheduledStep& one);
    void Receive(GDBusMethodInvocation* invocation);
    void ReceiveControl(GDBusMethodInvocation* invocation);
    void Answer(OpenCall& call);
    void Emit(const std::string& signal, const Variant& body);
    void Clear();
    void Reset();
    void Tell(const std::string& line) const;

    GDBusConnection* m_connection;
    bool m_quiet;
    GMainLoop* m_loop;
    ZavService m_service{[this](auto& signal, auto& body) { Emit(signal, body); }};
    std::map<std::string, Fault> m_faults;                           // by method
    std::map<std::string, std::deque<std::vector<Step>>> m_expected; // by method
    std::list<ScheduledStep> m_scheduled;
    size_t m_received = 0;
    std::deque<Variant> m_calls; // method, arguments, sender
    size_t m_dropped = 0;        // of the oldest calls
    std::list<OpenCall> m_open;
    size_t m_peak = 0;
};

#endif
