// SPDX-License-Identifier: MIT
/** @file Simulator.h The simulated service on the bus, with its faults and its memory of calls. */
#ifndef ZAV_SERVICE_SIMULATOR_H
#define ZAV_SERVICE_SIMULATOR_H

#include "Control.h"
#include "ZavService.h"

#include <gio/gio.h>

#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

/** Lives in one thread, that of the main loop. */
class Simulator
{
public:
    /**
     * Puts the service's object and that of its controls on the bus.
     * @param bus must not be dispatched any more when this object is gone
     * @param beQuiet whether to keep calls and signals from standard output
     * @param mainLoop is ended by the control Quit
     */
    Simulator(GDBusConnection* bus, bool beQuiet, GMainLoop* mainLoop);

    void Apply(const Control& control);

private:
    struct Fault
    {
        guint delay = 0;
        std::optional<Control> instead; // Hang, Fail or Reply in place of the service's answer
    };

    struct OpenCall
    {
        OpenCall(Simulator& owner, GDBusMethodInvocation* received, Fault set)
            : simulator(owner), invocation(received), fault(std::move(set))
        {
        }
        OpenCall(const OpenCall&) = delete;
        OpenCall& operator=(const OpenCall&) = delete;
        ~OpenCall();

        Simulator& simulator;
        GDBusMethodInvocation* invocation;
        Fault fault; // as set when the call came
        guint timer = 0;
    };

    struct Call
    {
        std::string method;
        Variant body;
        std::string sender;
    };

    void Receive(GDBusMethodInvocation* invocation);
    void Answer(OpenCall& call);
    void Emit(const std::string& signal, GVariant* body);
    void Reset();
    GVariant* Obey(std::string_view method, GVariant* args);
    [[nodiscard]] GVariant* CallList() const;
    void Tell(const std::string& line) const;

    GDBusConnection* connection;
    bool quiet;
    GMainLoop* loop;
    ZavService service;
    std::map<std::string, Fault> faults; // by method
    std::vector<Call> calls;
    std::list<OpenCall> open;
    size_t peak = 0;
};

#endif
