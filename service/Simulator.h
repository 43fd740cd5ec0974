// SPDX-License-Identifier: MIT
/** @file Simulator.h The simulated service on the bus, with its faults and its memory of calls. */
#ifndef ZAV_SERVICE_SIMULATOR_H
#define ZAV_SERVICE_SIMULATOR_H

#include "Control.h"
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

private:
    struct Fault
    {
        guint delay = 0;
        Control instead = {}; // hang, fail or reply in place of the service's answer
    };

    struct OpenCall
    {
        Simulator& simulator;
        std::shared_ptr<GDBusMethodInvocation> invocation;
        Fault fault; // as set when the call came
        guint timer = 0;
    };

    /** What a test can want to look back on, in a service that may run for days. */
    static constexpr size_t maxCalls = 1000;

    void Receive(GDBusMethodInvocation* invocation);
    void ReceiveControl(GDBusMethodInvocation* invocation);
    void Answer(OpenCall& call);
    void Emit(const std::string& signal, const Variant& body);
    void Clear();
    void Reset();
    void Tell(const std::string& line) const;

    GDBusConnection* connection;
    bool quiet;
    GMainLoop* loop;
    ZavService service{[this](auto& signal, auto& body) { Emit(signal, body); }};
    std::map<std::string, Fault> faults; // by method
    std::deque<Variant> calls;           // method, arguments, sender
    size_t dropped = 0;                  // of the oldest calls
    std::list<OpenCall> open;
    size_t peak = 0;
};

#endif
